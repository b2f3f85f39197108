// The file-name rule of sketches.
#include "sketch.h"

#include <QStringList>

Sketch::Sketch(QFileInfo file)
    : fileInfo(file)
{
    const QStringList parts = file.baseName().split(QStringLiteral("__"));
    if (parts.size() != 2)
        return;

    name = parts.first();
    version = parts.last().toInt();
}
