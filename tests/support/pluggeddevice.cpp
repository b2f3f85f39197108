// One USB adapter with a device.
#include "pluggeddevice.h"

PluggedDevice::PluggedDevice(const QList<QByteArray> &script)
    : ScriptedDevice(script)
    , name(UsbTestbed::uniquePortName())
{
    usb.plug(name, portName());
}

QString PluggedDevice::listedName() const
{
    return name;
}

void PluggedDevice::pull()
{
    usb.unplug(name);
    unplug();
}

void PluggedDevice::removeNode()
{
    usb.unplug(name);
}
