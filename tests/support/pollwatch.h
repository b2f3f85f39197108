// Waits for the window's poll instead of for a time in which it should have come round.
#ifndef POLLWATCH_H
#define POLLWATCH_H

#include <QObject>

#include <atomic>

class QTimer;

// Watches the poll while it lives. One window may be there.
class PollWatch : public QObject
{
public:
    PollWatch();

    // How many ticks have begun; any thread may ask.
    int ticks() const;

    // True when so many more have come to their end. No tick comes behind a box that the poll
    // opened.
    bool waitForTicks(int count) const;

    // Null before the first tick.
    QTimer *timer() const;

protected:
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    QTimer *pollTimer = nullptr;
    std::atomic<int> begun = {0};
};

// True when the poll has come round so often.
bool waitForTicks(int count = 4);

#endif
