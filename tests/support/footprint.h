// What a process uses at the moment: threads, descriptors, memory.
#ifndef FOOTPRINT_H
#define FOOTPRINT_H

#include <QByteArray>
#include <QString>

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
// says what it holds, if it holds more after two minutes or does not run.
bool comesDownTo(ProcessUsage bound, qint64 process);

// Of this process alone.
namespace Footprint {

ProcessUsage usage();

// How many descriptors lead to the file or terminal.
int descriptorsOf(const QString &path);

qint64 residentBytes();
// Once the allocator has given back what it can.
qint64 trimmedBytes();
// The most that was resident since the start, or since the peak was forgotten.
qint64 peakBytes();
void forgetPeak();
// What malloc has given out, in all threads.
qint64 heapBytes();

// Always true under a sanitizer, which keeps freed memory for itself and looks for leaks anyway.
bool staysWithin(qint64 growth, qint64 bound);

// Of all threads, used since the start.
double processorSeconds();

} // namespace Footprint

#endif
