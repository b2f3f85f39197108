// What this process holds of the machine at the moment.
#ifndef FOOTPRINT_H
#define FOOTPRINT_H

#include <QtGlobal>

namespace Footprint {

// False under a sanitizer, which keeps freed memory for itself.
bool memoryIsOwn();

qint64 residentBytes();
// The most that was resident since the start, or since the peak was forgotten.
qint64 peakBytes();
void forgetPeak();
// What malloc has given out, in all threads.
qint64 heapBytes();

int threads();
int descriptors();

// Of all threads, used since the start.
double processorSeconds();

} // namespace Footprint

#endif
