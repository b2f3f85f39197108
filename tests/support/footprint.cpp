// Processes as /proc and malloc see them.
#include "footprint.h"

#include "patience.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTest>

#include <malloc.h>
#include <sys/resource.h>

namespace {

// How long nothing may have changed: Qt ends idle threads and connections some time after their
// work.
constexpr int restTime = 1000; // ms

const QDir::Filters everything = QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot;

int entryCount(const QString &directory)
{
    return int(QDir(directory).entryList(everything).size());
}

// The size with this name in the process's status.
qint64 statusBytes(const QByteArray &name)
{
    QFile file(QStringLiteral("/proc/self/status"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("no status of this process");
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith(name + ':'))
            return line.mid(name.size() + 1).simplified().split(' ').first().toLongLong() * 1024;
    }
    qFatal("no %s in the status of this process", name.constData());
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

ProcessUsage Footprint::usage()
{
    return usageOf(QCoreApplication::applicationPid());
}

int Footprint::descriptorsOf(const QString &path)
{
    const QString gone = path + QStringLiteral(" (deleted)");
    const QFileInfoList entries = QDir(QStringLiteral("/proc/self/fd")).entryInfoList(everything);
    int count = 0;
    for (const QFileInfo &entry : entries) {
        const QString target = entry.symLinkTarget();
        count += int(target == path || target == gone);
    }
    return count;
}

qint64 Footprint::residentBytes()
{
    return statusBytes("VmRSS");
}

qint64 Footprint::trimmedBytes()
{
    malloc_trim(0);
    return residentBytes();
}

qint64 Footprint::peakBytes()
{
    return statusBytes("VmHWM");
}

void Footprint::forgetPeak()
{
    QFile file(QStringLiteral("/proc/self/clear_refs"));
    if (!file.open(QIODevice::WriteOnly) || file.write("5") != 1)
        qFatal("cannot forget the peak");
}

qint64 Footprint::heapBytes()
{
    const struct mallinfo2 info = mallinfo2();
    return qint64(info.uordblks) + qint64(info.hblkhd);
}

bool Footprint::staysWithin(qint64 growth, qint64 bound)
{
#ifdef __SANITIZE_ADDRESS__
    Q_UNUSED(growth)
    Q_UNUSED(bound)
    return true;
#else
    return growth <= bound;
#endif
}

double Footprint::processorSeconds()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
        + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}
