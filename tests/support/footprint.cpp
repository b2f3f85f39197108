// The process as /proc and malloc see it.
#include "footprint.h"

#include <QDir>
#include <QFile>

#include <malloc.h>
#include <sys/resource.h>

namespace {

// The number behind the name in this process's status; it stands there in KiB where it is a size.
qint64 statusEntry(const QByteArray &name)
{
    QFile file(QStringLiteral("/proc/self/status"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("no status of this process");
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith(name + ':'))
            return line.mid(name.size() + 1).simplified().split(' ').first().toLongLong();
    }
    qFatal("no %s in the status of this process", name.constData());
}

} // namespace

bool Footprint::memoryIsOwn()
{
#ifdef __SANITIZE_ADDRESS__
    return false;
#else
    return true;
#endif
}

qint64 Footprint::residentBytes()
{
    return statusEntry("VmRSS") * 1024;
}

qint64 Footprint::peakBytes()
{
    return statusEntry("VmHWM") * 1024;
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

int Footprint::threads()
{
    return int(statusEntry("Threads"));
}

int Footprint::descriptors()
{
    // One is the listing's own.
    const QStringList entries =
        QDir(QStringLiteral("/proc/self/fd"))
            .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    return int(entries.size()) - 1;
}

double Footprint::processorSeconds()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
        + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}
