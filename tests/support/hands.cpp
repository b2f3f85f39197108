// Keys, clicks and a task bar.
#include "hands.h"

#include <QApplication>
#include <QKeySequence>
#include <QProcess>
#include <QTest>

namespace {

bool onDesktop()
{
    return QGuiApplication::platformName() == QLatin1String("xcb");
}

void doOnDesktop(const QStringList &arguments)
{
    const QString hands = QStringLiteral("xdotool");
    if (QProcess::execute(hands, arguments) != 0)
        qFatal("xdotool %s", qPrintable(arguments.join(QLatin1Char(' '))));
}

QWidget *keyReceiver()
{
    QWidget *popup = QApplication::activePopupWidget();
    return popup != nullptr ? popup : QApplication::focusWidget();
}

QString number(const QWidget &window)
{
    return QString::number(window.winId());
}

} // namespace

void Hands::press(const QString &key)
{
    if (onDesktop()) {
        doOnDesktop({QStringLiteral("key"), key});
        return;
    }
    // The only key with different names in X and Qt.
    const QKeySequence sequence(QString(key).replace(QLatin1String("Page_"), QLatin1String("Pg")));
    QTest::keySequence(keyReceiver(), sequence);
}

void Hands::click(QWidget &widget, const QPoint &place)
{
    if (!onDesktop()) {
        QTest::mouseClick(&widget, Qt::LeftButton, Qt::NoModifier, place);
        return;
    }
    const QPoint onScreen = widget.mapToGlobal(place);
    doOnDesktop({QStringLiteral("mousemove"), QString::number(onScreen.x()),
                 QString::number(onScreen.y()), QStringLiteral("click"), QStringLiteral("1")});
}

void Hands::click(QWidget &widget)
{
    click(widget, widget.rect().center());
}

void Hands::switchTo(QWidget &window)
{
    if (!onDesktop()) {
        window.activateWindow();
        return;
    }
    doOnDesktop({QStringLiteral("windowactivate"), number(window)});
}
