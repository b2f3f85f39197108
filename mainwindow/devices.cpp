// Devices: discovery, the version query, and the poll that serves the open port.
#include "mainwindow.h"

#include "listitemweight.h"
#include "serialmonitor/serialmonitor.h"
#include "ui_mainwindow.h"

#include <QSocketNotifier>

#include <poll.h>
#include <utility>

namespace {

constexpr quint16 deviceProductIdentifier = 0x6001;
constexpr qint32 deviceBaudRate = 115200;

constexpr int queryAttempts = 10; // a board that was just reset answers the fourth or fifth
constexpr int queryWriteTimeout = 1000; // ms
constexpr int queryReplyTimeout = 1000; // ms
const QString versionRequest = QStringLiteral("v");
const QString versionMark = QStringLiteral("Version:");
const QString lineEnd = QStringLiteral("\r\n");

constexpr int monitorWriteTimeout = 1000; // ms

bool hasDeviceName(const QSerialPortInfo &port)
{
#ifdef Q_OS_LINUX
    // Linux names the same adapters ttyUSB0, ttyUSB1, ...
    if (port.portName().contains(QLatin1String("ttyUSB")))
        return true;
#endif
    return port.portName().contains(QLatin1String("cu.usbserial-"));
}

bool isDevice(const QSerialPortInfo &port)
{
    return hasDeviceName(port) && port.productIdentifier() == deviceProductIdentifier;
}

// A device sends text: what follows a NUL byte is noise.
QString textUpToNul(const QByteArray &bytes)
{
    return QString::fromUtf8(bytes.constData());
}

bool isWholeVersionLine(const QString &reply)
{
    return reply.contains(lineEnd) && reply.contains(versionMark);
}

QString askForVersion(QSerialPort &port)
{
    port.write(versionRequest.toLocal8Bit());
    port.waitForBytesWritten(queryWriteTimeout);
    port.readAll(); // not an answer to this request
    port.waitForReadyRead(queryReplyTimeout);
    return textUpToNul(port.readLine());
}

// The device sends its sketch's name in the form of a file name.
Sketch sketchInVersionLine(const QString &line)
{
    return Sketch(QFileInfo(line.split(QLatin1Char(':')).at(1)));
}

// When the adapter is pulled, Qt 6.8 sees an empty read and reports no error.
bool hasHungUp(const QSerialPort &port)
{
    pollfd descriptor {port.handle(), 0, 0};
    return poll(&descriptor, 1, 0) > 0 && (descriptor.revents & POLLHUP) != 0;
}

// After the query the port still reports a time-out, which says nothing about its state.
bool isLost(const QSerialPort &port)
{
    return (port.error() != QSerialPort::NoError && port.error() != QSerialPort::TimeoutError)
        || hasHungUp(port);
}

// Until it is closed, a lost port may report its loss over and over and keep the processor busy.
void stopListening(const QSerialPort &port)
{
    const QList<QSocketNotifier *> notifiers = port.findChildren<QSocketNotifier *>();
    for (QSocketNotifier *notifier : notifiers)
        notifier->setEnabled(false);
}

} // namespace

void MainWindow::updateSerialPortList()
{
    serialPortInfoList.clear();
    const QList<QSerialPortInfo> ports = QSerialPortInfo::availablePorts();
    for (const QSerialPortInfo &port : ports) {
        if (isDevice(port))
            serialPortInfoList.append(port);
    }
}

void MainWindow::updateDeviceList()
{
    QListWidget *list = ui->listWidget_devicelist;
    list->clear();
    for (const QSerialPortInfo &port : std::as_const(serialPortInfoList))
        list->insertItem(list->count(), port.portName());
}

QSerialPortInfo MainWindow::findSerialInfoByName(QString portName)
{
    for (const QSerialPortInfo &port : std::as_const(serialPortInfoList)) {
        if (port.portName() == portName)
            return port;
    }
    return QSerialPortInfo();
}

void MainWindow::on_listWidget_devicelist_currentItemChanged(QListWidgetItem *current,
                                                             QListWidgetItem *previous)
{
    makeBold(current);
    if (current != nullptr) {
        OpenSerialPort(current->text());
        CloseSerialPort();
    }
    makeNormal(previous);
}

void MainWindow::on_listWidget_devicelist_currentRowChanged(int currentRow)
{
    setVisible(true);
    if (currentRow == -1) {
        ui->frame_deviceinfo->setVisible(false);
        return;
    }
    setVisibleWithFade(ui->frame_deviceinfo);
}

void MainWindow::on_pushButton_devicelist_refresh_clicked()
{
    CloseSerialPort();
    updateSerialPortList();
    updateDeviceList();
    if (ui->listWidget_devicelist->count() > 0)
        return;

    displayWarningBox(
        tr("No device found."),
        tr("Please make sure that your device is plugged in a USB port and turned ON."),
        QMessageBox::Ok);
}

bool MainWindow::OpenSerialPort(QString portName)
{
    CloseSerialPort();
    serialPort.setPortName(portName);
    if (!serialPort.open(QIODevice::ReadWrite))
        return false;

    serialPort.setBaudRate(deviceBaudRate, QSerialPort::AllDirections);
    getSketchNameAndVersion();
    serialPortOpen = true;
    return true;
}

QString MainWindow::getDeviceSketchVersion()
{
    QString reply;
    for (int attempt = 0; attempt < queryAttempts && !isWholeVersionLine(reply); ++attempt)
        reply = askForVersion(serialPort);
    return reply.remove(lineEnd);
}

void MainWindow::getSketchNameAndVersion()
{
    const QString line = getDeviceSketchVersion();
    const Sketch device = line.contains(versionMark) ? sketchInVersionLine(line) : Sketch();
    if (device.version < 0) {
        //: Leave this text as it is: the button that asks the device again looks for it.
        ui->label_programondevice->setText(tr("Unknown sketch"));
        ui->label_updaterecommendation->setText(QString());
        return;
    }

    ui->label_programondevice->setText(device.name);
    // A newer or unknown sketch leaves the recommendation unchanged.
    const Sketch local = findSketchByName(device.name);
    if (device.version == local.version) {
        ui->label_updaterecommendation->setText(
            tr("<font color='green'>Latest version on device.</font>"));
    } else if (device.version < local.version) {
        ui->label_updaterecommendation->setText(tr("<font color='red'>Update recommended.</font>"));
    }
}

void MainWindow::on_pushButton_programondevice_refresh_clicked()
{
    // An assistive tool can press the button even while it is hidden.
    const QListWidgetItem *device = ui->listWidget_devicelist->currentItem();
    if (device == nullptr)
        return;

    OpenSerialPort(device->text()); // the poll closes the port again
    if (ui->label_programondevice->text() != QLatin1String("Unknown sketch"))
        return;

    displayWarningBox(tr("Unknown program in device."),
                      tr("Connection was successfull but could not get the device's version "
                         "information. Updating the device can fix this issue."),
                      QMessageBox::Ok);
}

void MainWindow::periodic_update()
{
    if (!serialPort.isOpen() || !serialPortOpen)
        return;
    if (!serialMonitor->isVisible()) {
        CloseSerialPort();
        return;
    }

    showReceivedText();
    sendPendingText();
}

void MainWindow::showReceivedText()
{
    const QByteArray received = serialPort.readAll();
    // The tick goes on after the loss: text that was still to be sent is reported as lost, too.
    if (isLost(serialPort))
        giveUpDevice(tr("Unable to communicate with device"));

    const QString text = textUpToNul(received).remove(lineEnd);
    if (!text.isEmpty())
        serialMonitor->appendToSerialMonitor(text);
}

void MainWindow::sendPendingText()
{
    if (serialMonitor->pendingText().isEmpty())
        return;

    serialPort.write(serialMonitor->pendingText().toLocal8Bit());
    if (!serialPort.waitForBytesWritten(monitorWriteTimeout))
        giveUpDevice(tr("Unable to write to device"));
    serialMonitor->clearPendingText();
}

// The box runs the event loop, but a timer does not fire again while its event is being handled, so
// there is no tick while the box is open.
void MainWindow::giveUpDevice(const QString &reason)
{
    stopListening(serialPort); // it stays open while the box does
    displayWarningBox(reason, tr("Is it disconnected?"), QMessageBox::Ok);
    CloseSerialPort();
    serialMonitor->setVisible(false);
    updateSerialPortList();
    updateDeviceList();
}
