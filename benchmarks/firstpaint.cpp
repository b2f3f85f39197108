// Linked into a program, it ends the program as soon as its first window is painted. It prints the
// time (ms of the monotonic clock), the resident memory and the private memory (kB).
#include "clocks.h"

#include <QCoreApplication>
#include <QEvent>
#include <QFile>
#include <QRegularExpression>

#include <cstdio>
#include <unistd.h>

namespace {

int kilobytes(const QString &file, const QString &key)
{
    QFile status(file);
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    const QRegularExpression line(QStringLiteral("^%1:\\s*(\\d+)").arg(key),
                                  QRegularExpression::MultilineOption);
    return line.match(QString::fromLatin1(status.readAll())).captured(1).toInt();
}

[[noreturn]] void report()
{
    const double painted = monotonicTime();
    std::printf("painted %f\nresident %d\nprivate %d\n", painted,
                kilobytes(QStringLiteral("/proc/self/status"), QStringLiteral("VmRSS")),
                kilobytes(QStringLiteral("/proc/self/smaps_rollup"), QStringLiteral("Pss_Anon")));
    std::fflush(stdout);
    _exit(0);
}

class FirstPaint : public QObject
{
public:
    using QObject::QObject;

    // Painting is still going on; the timer fires when the result is on the screen.
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Paint && timer == 0)
            timer = startTimer(0);
        return false;
    }

protected:
    void timerEvent(QTimerEvent *) override { report(); }

private:
    int timer = 0;
};

void watch()
{
    QCoreApplication::instance()->installEventFilter(new FirstPaint(QCoreApplication::instance()));
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(watch)
