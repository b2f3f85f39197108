// The file-name rule of sketches.
#include "sketch.h"

Sketch::Sketch(QFileInfo file)
    : fileInfo(file)
{
    const QLatin1String mark("__");
    const QString baseName = file.baseName();
    const auto end = baseName.indexOf(mark);
    if (end < 0 || baseName.indexOf(mark, end + mark.size()) >= 0)
        return;

    name = baseName.left(end);
    version = baseName.mid(end + mark.size()).toInt();
}
