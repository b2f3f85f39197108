#ifndef PLUGGEDDEVICE_H
#define PLUGGEDDEVICE_H

#include "scripteddevice.h"
#include "usbtestbed.h"

// The only adapter in the system and the device behind it. The test program must run under
// umockdev-wrapper.
class PluggedDevice : public ScriptedDevice
{
public:
    explicit PluggedDevice(const QList<QByteArray> &script = {"Version:Blink__3\r\n"});

    // As the program lists it.
    QString listedName() const;

    // The user pulls the plug: the terminal hangs up and the port is gone.
    void pull();
    // The port is gone, but a program that has opened it can still use it.
    void removeNode();

private:
    UsbTestbed usb;
    const QString name;
};

#endif
