// The devices that other tests plug in: once pulled, nothing leads to another's terminal, and the
// desktop beside them knows nothing of them.
#include "support/desktop.h"
#include "support/pluggeddevice.h"

#include <QDir>
#include <QFile>
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

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The programs that this one has started and that still run.
QList<QByteArray> runningChildren()
{
    QList<QByteArray> numbers;
    const QDir threads(QStringLiteral("/proc/self/task"));
    for (const QString &thread : threads.entryList(QDir::Dirs | QDir::NoDotAndDotDot))
        numbers += contentOf(threads.filePath(thread) + QLatin1String("/children")).split(' ');
    numbers.removeAll(QByteArray());
    return numbers;
}

bool seesDevices(const QByteArray &process)
{
    return contentOf(QStringLiteral("/proc/%1/maps").arg(QString::fromLatin1(process)))
        .contains("libumockdev-preload");
}

} // namespace

class tst_PluggedDevice : public QObject
{
    Q_OBJECT

private slots:
    void aPulledDeviceIsGone();
    void theTerminalOfALostDeviceIsNobodyElses();
    void theDesktopSeesNoDevices();
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

// What sees them can hang when it starts a program.
void tst_PluggedDevice::theDesktopSeesNoDevices()
{
    const QString missing = Desktop::missingProgram();
    if (!missing.isEmpty())
        QSKIP(qPrintable(missing + QStringLiteral(" is not installed: no screen")));
    QVERIFY(seesDevices("self"));
    const QList<QByteArray> before = runningChildren();

    Desktop desktop;
    QVERIFY(desktop.start());

    int started = 0;
    for (const QByteArray &process : runningChildren()) {
        if (before.contains(process))
            continue;
        QVERIFY(!seesDevices(process));
        ++started;
    }
    QCOMPARE(started, 2); // the display and its window manager
}

QTEST_MAIN(tst_PluggedDevice)

#include "tst_pluggeddevice.moc"
