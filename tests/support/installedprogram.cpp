// Starts and ends the real program.
#include "installedprogram.h"

#include "patience.h"

#include <QFile>

namespace {

const QString sketchPattern = QStringLiteral("*ino.with_bootloader.standard.hex");

} // namespace

InstalledProgram::InstalledProgram(const QString &executable)
{
    if (!QFile::copy(executable, program()))
        qFatal("cannot copy %s", qPrintable(executable));
    process.setProcessChannelMode(QProcess::MergedChannels);
}

InstalledProgram::~InstalledProgram()
{
    kill();
}

bool InstalledProgram::start(const QString &limit)
{
    process.start(
        QStringLiteral("bash"),
        {QStringLiteral("-c"), QStringLiteral("ulimit %1 && exec \"$0\"").arg(limit), program()});
    return process.waitForStarted(patience);
}

void InstalledProgram::kill()
{
    process.kill();
    process.waitForFinished(patience);
}

bool InstalledProgram::isRunning() const
{
    return process.state() == QProcess::Running;
}

qint64 InstalledProgram::id() const
{
    return process.processId();
}

QByteArray InstalledProgram::output()
{
    return process.readAll();
}

QDir InstalledProgram::sketches() const
{
    return QDir(directory.filePath(QStringLiteral("compiled_sketches")), sketchPattern);
}

int InstalledProgram::sketchCount() const
{
    return static_cast<int>(sketches().count());
}

bool InstalledProgram::hasSketches(int count) const
{
    return sketchCount() >= count;
}

QString InstalledProgram::program() const
{
    return directory.filePath(QStringLiteral("VTUpdater"));
}
