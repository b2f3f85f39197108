// Waits for the window's poll instead of for a period of time.
#ifndef POLLWATCH_H
#define POLLWATCH_H

#include <QObject>

#include <atomic>

class QTimer;

// Watches the poll of the only window.
class PollWatch : public QObject
{
public:
    PollWatch();

    // How many ticks have begun; any thread may ask.
    int ticks() const;

    // True when this many more ticks have ended. There are no ticks while a box of the poll is
    // open.
    bool waitForTicks(int count) const;

    // Null before the first tick.
    QTimer *timer() const;

protected:
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    QTimer *pollTimer = nullptr;
    std::atomic<int> begun = {0};
};

// True when there have been this many ticks.
bool waitForTicks(int count = 4);

#endif
