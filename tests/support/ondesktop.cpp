// Runs a program on a separate desktop: on-desktop PROGRAM [ARGUMENT...]
#include "desktop.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QString missing = Desktop::missingProgram();
    if (!missing.isEmpty()) {
        std::printf("SKIP   : on-desktop %s is not installed: no screen\n", qPrintable(missing));
        return 0;
    }

    Desktop desktop;
    if (!desktop.start())
        qFatal("no desktop");
    QProcess program;
    program.setProcessEnvironment(desktop.environment(QProcessEnvironment::systemEnvironment()));
    program.setProcessChannelMode(QProcess::ForwardedChannels);
    const QStringList command = QCoreApplication::arguments().mid(1);
    program.start(command.first(), command.mid(1));
    // The test's own time limit ends it.
    if (!program.waitForFinished(-1) || program.exitStatus() != QProcess::NormalExit)
        qFatal("%s did not end by itself", qPrintable(command.first()));
    return program.exitCode();
}
