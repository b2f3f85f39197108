// The local list: list DIRECTORY ROUNDS [bare|ours]. Reads and shows the directory's sketches
// (ours), and reads the same directory with QDir alone (bare). Without the last argument both run,
// each first in every other round, and free what they read in the round before. Prints the
// processor time of each in ms.
#include "clocks.h"
#include "mainwindow/mainwindow.h"

#include <QApplication>
#include <QDir>

#include <cstdio>
#include <unistd.h>

namespace {

void listBare(const QString &directory, QFileInfoList *entries)
{
    const double start = threadTime();
    QDir dir(directory);
    dir.setNameFilters({QStringLiteral("*ino.with_bootloader.standard.hex")});
    *entries = dir.entryInfoList();
    std::printf("bare %f\n", threadTime() - start);
}

void listAndShow(const QString &directory, MainWindow *window)
{
    const double start = threadTime();
    window->updateCompiledSketckesList(directory);
    const double read = threadTime();
    window->updateProgramlist();
    std::printf("reading %f\nours %f\n", read - start, threadTime() - start);
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
        for (const bool bare : {round % 2 == 0, round % 2 != 0}) {
            if (bare && only != QLatin1String("ours"))
                listBare(directory, &entries);
            if (!bare && only != QLatin1String("bare"))
                listAndShow(directory, &window);
        }
        QCoreApplication::processEvents();
    }
    std::fflush(stdout);
    _exit(0);
}
