// Scales the windows with the display's dots per inch.
#include "displayscaling.h"

#include <QGuiApplication>

// By default Qt 5 scales only the text, which a window of a fixed size would then cut off.
void scaleWithTheDisplay()
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
#endif
    QGuiApplication::setHighDpiScaleFactorRoundingPolicy(
        Qt::HighDpiScaleFactorRoundingPolicy::PassThrough);
}
