// The entry point: translator, main window, event loop.
#include "app/displayscaling.h"
#include "mainwindow/mainwindow.h"

#include <QApplication>
#include <QDebug>
#include <QLocale>
#include <QMessageBox>
#include <QTextStream>
#include <QTranslator>

#include <cstdlib>

#ifdef Q_OS_UNIX
#include <algorithm>
#include <climits>
#include <sys/resource.h>
#endif

namespace {

// All missing files are downloaded at once and take two descriptors each; with the usual soft
// limits (1024 on Linux, 256 on macOS) a long list would end the process.
void raiseOpenFilesLimit()
{
#ifdef Q_OS_UNIX
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    limit.rlim_cur = limit.rlim_max;
#ifdef Q_OS_MACOS
    // The system refuses more than this, whatever its hard limit says.
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, OPEN_MAX);
#endif
    setrlimit(RLIMIT_NOFILE, &limit);
#endif
}

// If the program's file is removed or replaced while it starts, it has no path. The current
// directory, with whatever sketches it contains, would then be taken for the program's own.
bool hasDirectory()
{
    return !QCoreApplication::applicationFilePath().isEmpty();
}

int refuseToStart()
{
    const QString reason = QCoreApplication::translate(
        "main",
        "The program cannot tell in which directory it is. Perhaps its file was replaced "
        "or removed while it was starting. Nothing was changed. Please start it again.");
    QTextStream(stderr) << reason << QLatin1Char('\n');
    QMessageBox::critical(nullptr, MainWindow::tr("Vantrel Updater"), reason);
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char *argv[])
{
    raiseOpenFilesLimit();

    scaleWithTheDisplay();
    QApplication application(argc, argv);
    if (!hasDirectory())
        return refuseToStart();

    QTranslator translator;
    static_cast<void>(
        translator.load(QLocale::system().name(), QCoreApplication::applicationDirPath()));
    QCoreApplication::installTranslator(&translator);

    qDebug() << QLocale::system().name();
    qDebug() << QCoreApplication::applicationDirPath();

    MainWindow window;
    window.show();
    return QApplication::exec();
}
