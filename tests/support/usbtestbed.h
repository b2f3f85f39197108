#ifndef USBTESTBED_H
#define USBTESTBED_H

#include <QMap>
#include <QString>
#include <QStringList>

// Simulated USB serial adapters: QSerialPortInfo lists them, and their device nodes lead to a
// terminal. The test program must run under umockdev-wrapper.
class UsbTestbed
{
public:
    UsbTestbed();
    ~UsbTestbed();

    UsbTestbed(const UsbTestbed &) = delete;
    UsbTestbed &operator=(const UsbTestbed &) = delete;

    // A device's port name that no other process has: QSerialPort locks ports by name, for the
    // whole machine, so tests that run at the same time must not open ports of one name.
    static QString uniquePortName(const QString &suffix = QStringLiteral("A"));

    // Makes /dev/<portName> lead to the terminal; an empty one leaves a node that does not open.
    void plug(const QString &portName, const QString &terminal = QString(),
              const QString &productIdentifier = QStringLiteral("6001"),
              const QString &vendorIdentifier = QStringLiteral("0403"));
    // A serial port of the mainboard: no identifiers at all.
    void plugWithoutIdentifiers(const QString &portName);
    // Does nothing if it is not plugged in.
    void unplug(const QString &portName);

private:
    void link(const QString &portName, const QString &terminal);
    void removeDevice(const QString &path);

    struct Testbed;
    Testbed *testbed; // owned
    QMap<QString, QStringList> devices; // port and adapter: their paths in sysfs, by port name
};

#endif
