// One synchronisation: synchronisation COUNT [refresh]. Starts the window with the files beside the
// executable and waits until it lists COUNT sketches and has nothing left to fetch. Prints when it
// was built and when it was synchronised (ms of the monotonic clock), and how long the event loop
// was held up. With "refresh" it then does the same for a click on the list's refresh button.
#include "clocks.h"
#include "mainwindow/mainwindow.h"
#include "openfiles.h"
#include "support/responsiveness.h"
#include "support/windowdriver.h"

#include <QApplication>
#include <QLabel>
#include <QListWidget>

#include <cstdio>
#include <unistd.h>

namespace {

const QString upToDate = QStringLiteral("Local repository up-to-date");

void waitUntilListed(const MainWindow &window, int count)
{
    const auto *list = child<QListWidget>(window, "listWidget_programlist");
    const auto *status = child<QLabel>(window, "label_status");
    while (list->count() != count || status->text() != upToDate)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

// Only "watched" runs in the event loop, from its first turn on.
template <typename Operation>
void report(const char *what, const Operation &watched)
{
    Responsiveness responsiveness;
    responsiveness.start();
    watched();
    const double done = monotonicTime();
    responsiveness.stop();
    std::printf("%s %f\ngap %f\nwork %f\n", what, done, responsiveness.longestGap(),
                responsiveness.longestWork());
}

void refresh(MainWindow &window, int count)
{
    if (!window.areYouOnline())
        qFatal("a refresh needs a network interface besides the loopback");
    child<QLabel>(window, "label_status")->clear();
    QTimer::singleShot(0, &window, [&window] { click(window, "pushButton_programlist_refresh"); });
    waitUntilListed(window, count);
}

} // namespace

int main(int argc, char *argv[])
{
    raiseOpenFilesLimit();
    QApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    const int count = arguments.at(1).toInt();

    MainWindow window;
    window.show();
    std::printf("built %f\n", monotonicTime());
    report("synchronised", [&] { waitUntilListed(window, count); });
    if (arguments.contains(QStringLiteral("refresh"))) {
        std::printf("clicked %f\n", monotonicTime());
        report("refreshed", [&] { refresh(window, count); });
    }
    std::fflush(stdout);
    _exit(0);
}
