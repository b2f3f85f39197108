#ifndef RESPONSIVENESS_H
#define RESPONSIVENESS_H

#include <QElapsedTimer>
#include <QTimer>

// How long the event loop does not come around, seen by a timer of 10 ms: by the clock, which a
// busy machine lengthens, and in processor time of the thread, which only the thread itself does.
class Responsiveness
{
public:
    Responsiveness();

    void start();
    // Counts what has passed since the timer came last.
    void stop();
    // How often the timer came.
    int turns() const { return turnCount; }
    // ms; without what the timer itself waits.
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
