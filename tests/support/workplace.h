#ifndef WORKPLACE_H
#define WORKPLACE_H

#include "mainwindow/mainwindow.h"
#include "scripteddevice.h"
#include "usbtestbed.h"

#include <QByteArray>
#include <QString>

#include <memory>

// The shown window, the sketch Blink in version 3, and one adapter with a device that can be pulled
// and plugged in again. The test program must run under umockdev-wrapper.
class Workplace
{
public:
    explicit Workplace(const QByteArray &answer = "Version:Blink__3\r\n");

    // The user pulls the plug: the terminal hangs up and the port is gone.
    void pull();
    // A new terminal on the same port, with the answer that the workplace was made with.
    void plug();

    // Each is true when the user could do it and the expected result appeared.
    bool selectProgram() const;
    bool selectDevice() const;
    // By the button beside the program on the device.
    bool askAgain() const;
    // With the device that is selected, or with the first.
    bool chooseMonitor() const;
    bool openMonitor() const;
    bool refreshDevices() const;
    bool pressUpdate() const;
    // Typed into the monitor and sent by the return key; the poll has yet to write it.
    void send(const QString &text) const;

    QString programOnDevice() const;
    QString recommendation() const;
    QString monitorText() const;
    bool isMonitorShown() const;
    int listedDevices() const;

    // Whether everything works: no box is open, and a device that is plugged in now is found,
    // asked, and talked to in the monitor. Leaves the monitor closed.
    bool serves();

    const QString port;
    std::unique_ptr<ScriptedDevice> device; // destroyed after all that leads to it
    UsbTestbed usb;
    std::unique_ptr<MainWindow> window;

private:
    const QByteArray answer;
};

#endif
