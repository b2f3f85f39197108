// Reads the process file system.
#include "processusage.h"

#include "patience.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTest>

#include <malloc.h>

namespace {

// Qt ends idle threads and connections later than their work: nothing has changed for so long.
constexpr int restTime = 1000; // ms

int entryCount(const QString &directory)
{
    return int(
        QDir(directory).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size());
}

} // namespace

bool operator==(ProcessUsage one, ProcessUsage other)
{
    return one.threads == other.threads && one.descriptors == other.descriptors;
}

QByteArray describe(ProcessUsage usage)
{
    return QByteArray::number(usage.threads) + " threads, " + QByteArray::number(usage.descriptors)
        + " descriptors";
}

ProcessUsage usageOf(qint64 process)
{
    const QString directory = QStringLiteral("/proc/%1/").arg(process);
    return {entryCount(directory + QStringLiteral("task")),
            entryCount(directory + QStringLiteral("fd"))};
}

ProcessUsage settledUsageOf(qint64 process)
{
    ProcessUsage usage = usageOf(process);
    QElapsedTimer unchanged;
    unchanged.start();
    while (unchanged.elapsed() < restTime) {
        QTest::qWait(20);
        const ProcessUsage now = usageOf(process);
        if (now == usage)
            continue;
        usage = now;
        unchanged.restart();
    }
    return usage;
}

bool comesDownTo(ProcessUsage bound, qint64 process)
{
    ProcessUsage now;
    const auto isDown = [&] {
        now = usageOf(process);
        return now.threads > 0 && now.threads <= bound.threads
            && now.descriptors <= bound.descriptors;
    };
    if (QTest::qWaitFor(isDown, patience))
        return true;
    qWarning("%s instead of at most %s", describe(now).constData(), describe(bound).constData());
    return false;
}

qint64 residentMemory()
{
    malloc_trim(0);
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray key = "VmRSS:";
    const QList<QByteArray> lines = status.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith(key))
            return line.mid(key.size()).trimmed().split(' ').first().toLongLong();
    }
    return 0;
}

bool staysWithin(qint64 growth, qint64 bound)
{
#ifdef __SANITIZE_ADDRESS__
    Q_UNUSED(growth)
    Q_UNUSED(bound)
    return true;
#else
    return growth < bound;
#endif
}
