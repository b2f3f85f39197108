// What a process holds of the system: threads, descriptors, memory.
#ifndef PROCESSUSAGE_H
#define PROCESSUSAGE_H

#include <QByteArray>
#include <QtGlobal>

struct ProcessUsage
{
    int threads = 0;
    int descriptors = 0;
};

bool operator==(ProcessUsage one, ProcessUsage other);

// For people.
QByteArray describe(ProcessUsage usage);

ProcessUsage usageOf(qint64 process);

// The usage once it has not changed for a second; runs the event loop meanwhile.
ProcessUsage settledUsageOf(qint64 process);

// Waits until the process holds no more than that, running the event loop. False, with a line that
// says what it holds, if it holds more after a minute or does not run.
bool comesDownTo(ProcessUsage bound, qint64 process);

// The resident memory of this process in KiB, after the allocator has given back what it can.
qint64 residentMemory();
// Always true under a sanitizer, which keeps freed memory for itself and looks for leaks anyway.
bool staysWithin(qint64 growth, qint64 bound);

#endif
