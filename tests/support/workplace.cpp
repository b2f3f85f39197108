// The window with one device that can be plugged and pulled.
#include "workplace.h"

#include "applicationdirectory.h"
#include "messageboxdriver.h"
#include "patience.h"
#include "windowdriver.h"

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QTest>
#include <QTextBrowser>

namespace {

const QString sketch = QStringLiteral("Blink__3");
const QString greeting = QStringLiteral("good day");

} // namespace

Workplace::Workplace(const QByteArray &givenAnswer)
    : port(UsbTestbed::uniquePortName())
    , answer(givenAnswer)
{
    plug();
    ApplicationDirectory::addSketch(sketch);
    window = std::make_unique<MainWindow>();
    window->show();
}

void Workplace::pull()
{
    usb.unplug(port);
    if (device)
        device->unplug();
}

void Workplace::plug()
{
    device = std::make_unique<ScriptedDevice>(QList<QByteArray> {answer});
    usb.plug(port, device->portName());
}

bool Workplace::selectProgram() const
{
    return selectRow(*window, "listWidget_programlist", 0);
}

bool Workplace::selectDevice() const
{
    return selectRow(*window, "listWidget_devicelist", 0);
}

bool Workplace::askAgain() const
{
    return click(*window, "pushButton_programondevice_refresh");
}

bool Workplace::chooseMonitor() const
{
    return chooseMenuEntry(*window, "actionSerial_Monitor");
}

bool Workplace::openMonitor() const
{
    return openSerialMonitor(*window);
}

bool Workplace::refreshDevices() const
{
    return click(*window, "pushButton_devicelist_refresh");
}

bool Workplace::pressUpdate() const
{
    return click(*window, "pushButton_update");
}

void Workplace::send(const QString &text) const
{
    auto *line = child<QLineEdit>(*serialMonitor(*window), "lineEdit");
    line->setText(text);
    QTest::keyClick(line, Qt::Key_Return);
}

QString Workplace::programOnDevice() const
{
    return child<QLabel>(*window, "label_programondevice")->text();
}

QString Workplace::recommendation() const
{
    return child<QLabel>(*window, "label_updaterecommendation")->text();
}

QString Workplace::monitorText() const
{
    return child<QTextBrowser>(*serialMonitor(*window), "textBrowser")->toPlainText();
}

bool Workplace::isMonitorShown() const
{
    return serialMonitor(*window)->isVisible();
}

int Workplace::listedDevices() const
{
    return child<QListWidget>(*window, "listWidget_devicelist")->count();
}

bool Workplace::serves()
{
    if (!QTest::qWaitFor([] { return QApplication::activeModalWidget() == nullptr; }, patience))
        return false;
    pull();
    plug();
    const MessageBoxDriver boxes;
    // A monitor that is still shown would lose its device.
    if (!QTest::qWaitFor([this, &boxes] { return !isMonitorShown() || !boxes.boxes().isEmpty(); },
                         patience))
        return false;

    const auto before = boxes.boxes().size();
    if (!refreshDevices() || listedDevices() != 1 || !openMonitor()
        || programOnDevice() != QLatin1String("Blink"))
        return false;

    child<QTextBrowser>(*serialMonitor(*window), "textBrowser")->clear();
    send(greeting);
    device->send("Heard: " + greeting.toUtf8());
    const bool answered = QTest::qWaitFor(
        [this] {
            return device->received().endsWith(greeting.toUtf8())
                && monitorText().endsWith(greeting);
        },
        patience);
    serialMonitor(*window)->close();
    const bool released = QTest::qWaitFor([this] { return !device->isOpen(); }, patience);
    return answered && released && boxes.boxes().size() == before;
}
