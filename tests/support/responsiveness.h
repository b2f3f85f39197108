#ifndef RESPONSIVENESS_H
#define RESPONSIVENESS_H

#include <QElapsedTimer>
#include <QTimer>

// How long the event loop is blocked, measured by a timer of 10 ms: by the clock, which includes
// delays of a busy machine, and in processor time of the thread, which does not.
class Responsiveness
{
public:
    Responsiveness();

    void start();
    // Counts what has passed since the timer came last.
    void stop();
    // How often the timer came.
    int turns() const { return turnCount; }
    // ms, without the timer's own interval.
    double longestGap() const { return gap; }
    double longestWork() const { return work; }

private:
    void turn();
    void look();

    QTimer timer;
    QElapsedTimer sinceTick;
    int turnCount = 0;
    double processorTime = 0;
    double gap = 0;
    double work = 0;
};

#endif
