// The local list: list DIRECTORY ROUNDS [bare|ours]. Reads and shows the directory's sketches, and
// reads the same directory with QDir alone, in turns, or only the one; both give up what they read
// before. Prints the microseconds of processor time of each.
#include "mainwindow/mainwindow.h"

#include <QApplication>
#include <QDir>

#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace {

double processorTime()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return double(time.tv_sec) * 1e6 + double(time.tv_nsec) / 1e3;
}

void listBare(const QString &directory, QFileInfoList *entries)
{
    const double start = processorTime();
    QDir dir(directory);
    dir.setNameFilters({QStringLiteral("*ino.with_bootloader.standard.hex")});
    *entries = dir.entryInfoList();
    std::printf("bare %f\n", processorTime() - start);
}

void listAndShow(const QString &directory, MainWindow *window)
{
    const double start = processorTime();
    window->updateCompiledSketckesList(directory);
    const double read = processorTime();
    window->updateProgramlist();
    std::printf("reading %f\nours %f\n", read - start, processorTime() - start);
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    const QString &directory = arguments.at(1);
    const QString only = arguments.value(3);
    MainWindow window;
    window.show();
    QFileInfoList entries;
    for (int round = 0; round < arguments.at(2).toInt(); ++round) {
        if (only != QLatin1String("ours"))
            listBare(directory, &entries);
        if (only != QLatin1String("bare"))
            listAndShow(directory, &window);
        QCoreApplication::processEvents();
    }
    std::fflush(stdout);
    _exit(0);
}
