// The file-name rule of sketches.
#include "sketch.h"

#include <utility>

Sketch::Sketch(QFileInfo file)
    : fileInfo(std::move(file))
{
    const QLatin1String mark("__");
    const QString baseName = fileInfo.baseName();
    const int end = baseName.indexOf(mark);
    if (end < 0 || baseName.indexOf(mark, end + mark.size()) >= 0)
        return;

    name = baseName.left(end);
    version = baseName.midRef(end + mark.size()).toInt();
}
