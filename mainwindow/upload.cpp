// Firmware upload: the update button and the run of avrdude.
#include "mainwindow.h"

#include "ui_mainwindow.h"

#include <QDir>
#include <QProcess>

namespace {

constexpr int uploadTimeout = 30000; // ms

// What an upload needs from the directory beside the program; null if it is missing.
struct Uploader
{
    QFileInfo executable;
    QFileInfo configuration;
};

Uploader findUploader(const QDir &directory)
{
    Uploader uploader;
    const QFileInfoList entries = directory.entryInfoList();
    for (const QFileInfo &entry : entries) {
        if (entry.fileName() == QLatin1String("avrdude"))
            uploader.executable = entry;
        if (entry.fileName() == QLatin1String("avrdude.conf"))
            uploader.configuration = entry;
    }
    return uploader;
}

QStringList uploadArguments(const QFileInfo &configuration, const QString &portName,
                            const QFileInfo &sketchFile)
{
    return {
        QStringLiteral("-C") + configuration.absoluteFilePath(),
        QStringLiteral("-v"),
        QStringLiteral("-patmega328p"),
        QStringLiteral("-carduino"),
        QStringLiteral("-P/dev/") + portName,
        QStringLiteral("-b115200"),
        QStringLiteral("-D"), // the bootloader cannot erase the chip
        QStringLiteral("-Uflash:w:") + sketchFile.absoluteFilePath() + QStringLiteral(":i"),
    };
}

// Discard output as it arrives; buffered, it could exhaust memory.
void discardOutput(QProcess &process)
{
    process.closeReadChannel(QProcess::StandardError);
    QObject::connect(&process, &QIODevice::readyRead, &process, [&process] { process.readAll(); });
}

} // namespace

void MainWindow::on_pushButton_update_clicked()
{
    if (!deviceAndProgramSelected() || !confirmUpload())
        return;
    // While the confirmation was open, a lost device or a finished download may have rebuilt a
    // list.
    if (!deviceAndProgramSelected() || !CallAvrDude())
        return;

    if (const QListWidgetItem *device = ui->listWidget_devicelist->currentItem())
        OpenSerialPort(device->text());
    displayInformationBox(tr("Upload successfull."), tr("Uploaded program ready to be used."),
                          QMessageBox::Ok);
}

bool MainWindow::deviceAndProgramSelected()
{
    if (ui->listWidget_devicelist->currentItem() == nullptr) {
        displayWarningBox(tr("No device selected!"),
                          tr("Please select a device before trying to upload a program."),
                          QMessageBox::Ok);
        return false;
    }
    if (ui->listWidget_programlist->currentItem() == nullptr) {
        displayWarningBox(tr("No program selected!"),
                          tr("Please select a program before trying to upload to device."),
                          QMessageBox::Ok);
        return false;
    }
    return true;
}

bool MainWindow::confirmUpload()
{
    return displayWarningBox(tr("DO NOT REMOVE OR TURN OFF THE DEVICE."),
                             tr("Updating the device can take several seconds. Clicking cancel "
                                "will cancel the operation."),
                             QMessageBox::Ok | QMessageBox::Cancel)
        == QMessageBox::Ok;
}

bool MainWindow::CallAvrDude()
{
    const bool uploaded = uploadSelectedSketch();
    if (!uploaded)
        ui->progressBar->setVisible(false);
    return uploaded;
}

bool MainWindow::uploadSelectedSketch()
{
    const QDir directory(avrdudePath);
    if (!directory.exists()) {
        warnOfConfiguration(tr("Couldn't find avrdude directory. ") + directory.absolutePath()
                            + QLatin1Char(' '));
        return false;
    }

    const Uploader uploader = findUploader(directory);
    if (!uploader.executable.isFile() || !uploader.configuration.isFile()) {
        warnOfIncompleteUploader(uploader.executable.isFile(), uploader.configuration.isFile());
        return false;
    }

    const QFileInfo sketchFile = selectedSketchFile();
    if (!sketchFile.isFile()) {
        warnOfConfiguration(tr("Couldn't find sketch file. ") + sketchFile.fileName()
                            + QLatin1Char(' '));
        return false;
    }

    const QString portName =
        findSerialInfoByName(ui->listWidget_devicelist->currentItem()->text()).portName();
    if (!portOpensForUpload(portName))
        return false;

    return runUploader(uploader.executable.absoluteFilePath(),
                       uploadArguments(uploader.configuration, portName, sketchFile));
}

QFileInfo MainWindow::selectedSketchFile()
{
    QFileInfo file = findSketchByName(ui->listWidget_programlist->currentItem()->text()).fileInfo;
    file.refresh(); // it may have been removed since the directory was listed
    return file;
}

void MainWindow::warnOfConfiguration(const QString &problem)
{
    displayWarningBox(tr("Upload configuration error."), problem + errorReportText,
                      QMessageBox::Ok);
}

void MainWindow::warnOfIncompleteUploader(bool executableFound, bool configurationFound)
{
    if (!executableFound)
        warnOfConfiguration(tr("Couldn't find avrdude. "));
    // The reverse of the test above, on purpose: a missing configuration is not reported.
    if (configurationFound)
        warnOfConfiguration(tr("Couldn't find avrdude.conf. "));
}

bool MainWindow::portOpensForUpload(const QString &portName)
{
    const bool opened = OpenSerialPort(portName);
    if (!opened) {
        displayWarningBox(tr("Serial port not opened!"),
                          tr("Please choose a device in the device list."), QMessageBox::Ok);
    }
    CloseSerialPort(); // avrdude needs it
    if (!opened) {
        updateSerialPortList();
        updateDeviceList();
    }
    return opened;
}

bool MainWindow::runUploader(const QString &program, const QStringList &arguments)
{
    QProcess avrdude;
    avrdude.start(program, arguments, QIODevice::ReadWrite);
    discardOutput(avrdude);
    if (!avrdude.waitForFinished(uploadTimeout)) {
        // A running avrdude continues while the box is open; leaving this function kills it.
        displayWarningBox(tr("Unable to upload to device."),
                          tr("Error when trying to execute avrdude. ") + errorReportText,
                          QMessageBox::Ok);
        return false;
    }

    avrdude.readAll(); // ignore how it ended; the device is asked instead
    periodicTimer.start();
    return true;
}
