// The devices that other tests plug in: once pulled, nothing leads to another's terminal.
#include "support/pluggeddevice.h"

#include <QSerialPort>
#include <QSerialPortInfo>
#include <QTest>

#include <array>

namespace {

// The system hands out the lowest number that is free; other tests free some at the same time.
constexpr int strangers = 10;

bool opens(const QString &portName)
{
    QSerialPort port(portName);
    return port.open(QIODevice::ReadWrite);
}

} // namespace

class tst_PluggedDevice : public QObject
{
    Q_OBJECT

private slots:
    void aPulledDeviceIsGone();
    void theTerminalOfALostDeviceIsNobodyElses();
};

void tst_PluggedDevice::aPulledDeviceIsGone()
{
    PluggedDevice device;
    QCOMPARE(QSerialPortInfo::availablePorts().size(), 1);
    QVERIFY(opens(device.listedName()));

    device.pull();

    QCOMPARE(QSerialPortInfo::availablePorts().size(), 0);
    QVERIFY(!QFile::exists(QLatin1String("/dev/") + device.listedName()));
    QVERIFY(!opens(device.listedName()));
}

// It hangs up by itself; its node is still there.
void tst_PluggedDevice::theTerminalOfALostDeviceIsNobodyElses()
{
    PluggedDevice device;
    device.unplug();

    const std::array<ScriptedDevice, strangers> others;
    for (const ScriptedDevice &other : others)
        QVERIFY(other.portName() != device.portName());
    QVERIFY(!opens(device.listedName()));
    QVERIFY(!device.isOpen());
}

QTEST_MAIN(tst_PluggedDevice)

#include "tst_pluggeddevice.moc"
