// The file-name rule of sketches.
#include "sketch.h"

#include <QLocale>

namespace {

QLocale localeOfVersions()
{
    QLocale locale = QLocale::c();
    locale.setNumberOptions(QLocale::RejectGroupSeparator);
    return locale;
}

// Like QString::toInt() in Qt 5. In Qt 6 it accepts fewer kinds of blanks and signs.
int numberIn(const QString &text)
{
    static const QLocale locale = localeOfVersions();
    return locale.toInt(text);
}

} // namespace

Sketch::Sketch(QFileInfo file)
    : fileInfo(file)
{
    const QLatin1String mark("__");
    const QString baseName = file.baseName();
    const auto end = baseName.indexOf(mark);
    if (end < 0 || baseName.indexOf(mark, end + mark.size()) >= 0)
        return;

    name = baseName.left(end);
    version = numberIn(baseName.mid(end + mark.size()));
}
