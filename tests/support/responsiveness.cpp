// A timer that notices when it is late.
#include "responsiveness.h"

#include <ctime>

namespace {

constexpr int interval = 10; // ms

double threadTime()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return double(time.tv_sec) * 1e3 + double(time.tv_nsec) / 1e6;
}

} // namespace

Responsiveness::Responsiveness()
{
    timer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer, &QTimer::timeout, [this] { turn(); });
}

void Responsiveness::start()
{
    processorTime = threadTime();
    sinceTick.start();
    timer.start(interval);
}

void Responsiveness::stop()
{
    look();
    timer.stop();
}

void Responsiveness::turn()
{
    ++turnCount;
    look();
}

void Responsiveness::look()
{
    const double now = threadTime();
    gap = qMax(gap, double(sinceTick.nsecsElapsed()) / 1e6 - interval);
    work = qMax(work, now - processorTime);
    processorTime = now;
    sinceTick.restart();
}
