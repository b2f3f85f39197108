// The simulated adapters of other tests: after they are pulled, nothing leads to another's
// terminal, and the desktop's programs do not see them.
#include "support/desktop.h"
#include "support/patience.h"
#include "support/pluggeddevice.h"

#include <QDir>
#include <QFile>
#include <QSerialPort>
#include <QSerialPortInfo>
#include <QTest>

#include <algorithm>
#include <array>

namespace {

// The system assigns the lowest free number, and other tests free some at the same time.
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
QList<QByteArray> runningChildren(const QString &process)
{
    QList<QByteArray> numbers;
    const QDir threads(QStringLiteral("/proc/%1/task").arg(process));
    for (const QString &thread : threads.entryList(QDir::Dirs | QDir::NoDotAndDotDot))
        numbers += contentOf(threads.filePath(thread) + QLatin1String("/children")).split(' ');
    numbers.removeAll(QByteArray());
    return numbers;
}

// And all that these have started.
QList<QByteArray> runningDescendants(const QString &process)
{
    QList<QByteArray> numbers;
    for (const QByteArray &child : runningChildren(process))
        numbers += QList<QByteArray> {child} + runningDescendants(QString::fromLatin1(child));
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

// A program that sees them can hang when it starts another.
void tst_PluggedDevice::theDesktopSeesNoDevices()
{
    const QString missing = Desktop::missingProgram();
    if (!missing.isEmpty())
        QSKIP(qPrintable(missing + QStringLiteral(" is not installed: no screen")));
    QVERIFY(seesDevices("self"));
    const QList<QByteArray> before = runningDescendants(QStringLiteral("self"));
    const auto startedSince = [&before] {
        QList<QByteArray> numbers = runningDescendants(QStringLiteral("self"));
        const auto isOlder = [&before](const QByteArray &number) {
            return before.contains(number);
        };
        numbers.erase(std::remove_if(numbers.begin(), numbers.end(), isOlder), numbers.end());
        return numbers;
    };

    Desktop desktop;
    QVERIFY(desktop.start());

    // The script that keeps the display, the display and its window manager. The command by which
    // the window manager says that it is ready may still be ending.
    QTRY_COMPARE_WITH_TIMEOUT(int(startedSince().size()), 3, patience);
    for (const QByteArray &process : startedSince())
        QVERIFY(!seesDevices(process));
}

QTEST_MAIN(tst_PluggedDevice)

#include "tst_pluggeddevice.moc"
