// How the windows follow the display's dots per inch.
#include "displayscaling.h"

#include <QGuiApplication>

// Qt 5 lets the letters alone grow, and a window of a fixed size then cuts them.
void scaleWithTheDisplay()
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
#endif
    QGuiApplication::setHighDpiScaleFactorRoundingPolicy(
        Qt::HighDpiScaleFactorRoundingPolicy::PassThrough);
}
