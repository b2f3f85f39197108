// Waits for the window's poll.
#include "pollwatch.h"

#include "patience.h"

#include <QCoreApplication>
#include <QEvent>
#include <QTest>
#include <QTimer>

namespace {

constexpr int pollInterval = 100; // ms

// The window's only timer that nothing owns.
QTimer *asPollTimer(QObject *object)
{
    auto *timer = qobject_cast<QTimer *>(object);
    const bool isPoll =
        timer != nullptr && timer->parent() == nullptr && timer->interval() == pollInterval;
    return isPoll ? timer : nullptr;
}

} // namespace

PollWatch::PollWatch()
{
    QCoreApplication::instance()->installEventFilter(this);
}

int PollWatch::ticks() const
{
    return begun;
}

bool PollWatch::waitForTicks(int count) const
{
    const int before = ticks();
    return QTest::qWaitFor([&] { return ticks() - before >= count; }, patience);
}

QTimer *PollWatch::timer() const
{
    return pollTimer;
}

bool PollWatch::eventFilter(QObject *object, QEvent *event)
{
    if (event->type() != QEvent::Timer)
        return false;
    if (QTimer *found = asPollTimer(object)) {
        pollTimer = found;
        ++begun;
    }
    return false;
}

bool waitForTicks(int count)
{
    return PollWatch().waitForTicks(count);
}
