// The entry point: translator, main window, event loop.
#include "mainwindow/mainwindow.h"

#include <QApplication>
#include <QDebug>
#include <QLocale>
#include <QTranslator>

#ifdef Q_OS_UNIX
#include <algorithm>
#include <climits>
#include <sys/resource.h>
#endif

namespace {

// All missing files are downloaded at once, two descriptors each; the usual soft limits (1024 on
// Linux, 256 on macOS) end the process in the middle of a long list.
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

} // namespace

int main(int argc, char *argv[])
{
    raiseOpenFilesLimit();

    QApplication application(argc, argv);

    QTranslator translator;
    translator.load(QLocale::system().name(), QCoreApplication::applicationDirPath());
    QCoreApplication::installTranslator(&translator);

    qDebug() << QLocale::system().name();
    qDebug() << QCoreApplication::applicationDirPath();

    MainWindow window;
    window.show();
    return QApplication::exec();
}
