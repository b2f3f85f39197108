#ifndef CLOCKS_H
#define CLOCKS_H

#include <ctime>

// The system's clocks, in milliseconds.
inline double millisecondsOf(clockid_t clock)
{
    timespec time = {};
    clock_gettime(clock, &time);
    return double(time.tv_sec) * 1e3 + double(time.tv_nsec) / 1e6;
}

// It is the same for all processes of the machine.
inline double monotonicTime()
{
    return millisecondsOf(CLOCK_MONOTONIC);
}

// The processor time of the calling thread.
inline double threadTime()
{
    return millisecondsOf(CLOCK_THREAD_CPUTIME_ID);
}

#endif
