// Opening the serial monitor on the selected device.
#include "mainwindow.h"

#include "serialmonitor/serialmonitor.h"
#include "ui_mainwindow.h"

namespace {

// A window counts as shown even if it is minimized or behind another.
void bringToFront(QWidget *window)
{
    window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
    window->show();
    window->raise();
    window->activateWindow();
}

} // namespace

void MainWindow::on_openserialmonitorbutton_clicked()
{
    const QListWidgetItem *device = ui->listWidget_devicelist->currentItem();
    if (device == nullptr) {
        displayWarningBox(tr("No device selected."),
                          tr("Please select a device before opening serial monitor."),
                          QMessageBox::Ok);
        return;
    }

    if (OpenSerialPort(device->text())) {
        bringToFront(serialMonitor);
        return;
    }

    displayWarningBox(tr("Error opening device."),
                      tr("Please check device connection and try again."), QMessageBox::Ok);
    CloseSerialPort();
    updateSerialPortList();
    updateDeviceList();
}
