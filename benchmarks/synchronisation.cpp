// One synchronisation: synchronisation COUNT. Starts the window with what lies beside the
// executable, waits until it lists COUNT sketches and has nothing left to fetch, and prints how
// long that took from the window's first line on (ms), and how long the event loop was held up.
#include "mainwindow/mainwindow.h"
#include "support/responsiveness.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QListWidget>

#include <cstdio>
#include <sys/resource.h>
#include <unistd.h>

namespace {

void raiseOpenFilesLimit()
{
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace

int main(int argc, char *argv[])
{
    raiseOpenFilesLimit();
    QApplication application(argc, argv);
    const int count = QCoreApplication::arguments().at(1).toInt();

    QElapsedTimer time;
    time.start();
    MainWindow window;
    window.show();
    const double built = double(time.nsecsElapsed()) / 1e6;

    Responsiveness responsiveness;
    responsiveness.start();
    const auto *list = window.findChild<QListWidget *>(QStringLiteral("listWidget_programlist"));
    const auto *status = window.findChild<QLabel *>(QStringLiteral("label_status"));
    while (list->count() != count || status->text() != QLatin1String("Local repository up-to-date"))
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    const double synchronised = double(time.nsecsElapsed()) / 1e6;
    responsiveness.stop();

    std::printf("built %f\nsynchronised %f\ngap %f\nwork %f\n", built, synchronised,
                responsiveness.longestGap(), responsiveness.longestWork());
    std::fflush(stdout);
    _exit(0);
}
