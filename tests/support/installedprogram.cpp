// Starts and ends the real program.
#include "installedprogram.h"

#include "applicationdirectory.h"
#include "patience.h"

#include <QFile>

namespace {

const QString programName = QStringLiteral("VTUpdater");
const QString sketchPattern = QStringLiteral("*ino.with_bootloader.standard.hex");

} // namespace

InstalledProgram::InstalledProgram(const QString &executable)
    : directory(ApplicationDirectory::path() + QStringLiteral("a user's.XXXXXX"))
{
    if (!QFile::copy(executable, filePath(programName)))
        qFatal("cannot copy %s", qPrintable(executable));
    process.setProcessChannelMode(QProcess::MergedChannels);
}

InstalledProgram::~InstalledProgram()
{
    kill();
}

void InstalledProgram::setEnvironment(const QProcessEnvironment &environment)
{
    process.setProcessEnvironment(environment);
}

bool InstalledProgram::start(const QString &limit)
{
    process.start(QStringLiteral("setpriv"),
                  {QStringLiteral("--pdeathsig"), QStringLiteral("KILL"), QStringLiteral("bash"),
                   QStringLiteral("-c"), QStringLiteral("ulimit %1 && exec \"$0\"").arg(limit),
                   filePath(programName)});
    return process.waitForStarted(patience);
}

void InstalledProgram::kill()
{
    process.kill();
    process.waitForFinished(patience);
}

QString InstalledProgram::filePath(const QString &fileName) const
{
    return directory.filePath(fileName);
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
