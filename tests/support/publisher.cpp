// The publishing tool, run on temporary folders.
#include "publisher.h"

#include "applicationdirectory.h"
#include "patience.h"

#include <QDateTime>
#include <QDir>
#include <QProcess>

#include <sys/stat.h>

#include <utility>

namespace {

constexpr int bytesOfRecord = 16;
constexpr int patienceWithRehearsals = 5 * patience; // they try many sketches
const QString tool = QStringLiteral(PUBLISH_REPOSITORY);

Publisher::Result runCommand(QStringList command)
{
    QProcess process;
    process.start(command.takeFirst(), command, QIODevice::ReadOnly);
    Publisher::Result result;
    if (!process.waitForFinished(patienceWithRehearsals)
        || process.exitStatus() != QProcess::NormalExit)
        return result;
    result.exitStatus = process.exitCode();
    result.steps = QString::fromUtf8(process.readAllStandardOutput())
                       .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    result.problems = QString::fromUtf8(process.readAllStandardError());
    return result;
}

QString stateOf(const QFileInfo &file)
{
    struct stat status = {};
    if (lstat(QFile::encodeName(file.absoluteFilePath()).constData(), &status) != 0)
        qFatal("no state of %s", qPrintable(file.absoluteFilePath()));
    return QStringLiteral("%1 %2 %3.%4 %5")
        .arg(file.fileName())
        .arg(status.st_ino)
        .arg(status.st_mtim.tv_sec)
        .arg(status.st_mtim.tv_nsec)
        .arg(QString::fromLatin1(ApplicationDirectory::contentOf(file.absoluteFilePath()).toHex()));
}

} // namespace

const QByteArray hexEnd = hexRecord(0, 1);

QByteArray hexRecord(int address, int type, const QByteArray &data)
{
    QByteArray bytes;
    for (const int value : {int(data.size()), address >> 8, address & 0xff, type})
        bytes.append(static_cast<char>(value));
    bytes.append(data);
    int sum = 0;
    for (const char byte : std::as_const(bytes))
        sum -= byte;
    bytes.append(static_cast<char>(sum & 0xff));
    return ':' + bytes.toHex().toUpper() + '\n';
}

QByteArray hexImage(const QByteArray &data)
{
    QByteArray image;
    for (int address = 0; address < data.size(); address += bytesOfRecord)
        image += hexRecord(address, 0, data.mid(address, bytesOfRecord));
    return image + hexEnd;
}

QString step(const char *verb, const QString &fileName)
{
    return QString::fromLatin1(verb).leftJustified(9) + fileName;
}

Publisher::Publisher()
    : directory(ApplicationDirectory::path() + QStringLiteral("a maker's folder.XXXXXX"))
{
    if (!QDir(place()).mkdir(QStringLiteral("compiled sketches")))
        qFatal("cannot make %s", qPrintable(sketches()));
}

QString Publisher::place() const
{
    return directory.path();
}

QString Publisher::sketches() const
{
    return place() + QStringLiteral("/compiled sketches");
}

QString Publisher::served() const
{
    return place() + QStringLiteral("/vt_updater");
}

QString Publisher::servedFile(const QString &fileName) const
{
    return served() + QLatin1Char('/') + fileName;
}

QString Publisher::addSketch(const QString &baseName, const QByteArray &image) const
{
    const QString fileName = ApplicationDirectory::sketchFileName(baseName);
    addFile(fileName, image);
    return fileName;
}

void Publisher::addFile(const QString &fileName, const QByteArray &content) const
{
    QFile file(sketches() + QLatin1Char('/') + fileName);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(file.fileName()));
}

void Publisher::removeFile(const QString &fileName) const
{
    if (!QFile::remove(sketches() + QLatin1Char('/') + fileName))
        qFatal("cannot remove %s", qPrintable(fileName));
}

Publisher::Result Publisher::publish(const QStringList &options) const
{
    return publishUnder({}, options);
}

Publisher::Result Publisher::publishUnder(const QStringList &wrapper,
                                          const QStringList &options) const
{
    return runCommand(wrapper + QStringList {tool} + options + QStringList {sketches(), served()});
}

Publisher::Result Publisher::run(const QStringList &arguments)
{
    return runCommand(QStringList {tool} + arguments);
}

QByteArray Publisher::index() const
{
    return ApplicationDirectory::contentOf(servedFile(QStringLiteral("file_list.txt")));
}

QStringList Publisher::servedState() const
{
    const QFileInfoList files = QDir(served()).entryInfoList(QDir::AllEntries | QDir::Hidden
                                                             | QDir::System | QDir::NoDotAndDotDot);
    QStringList state;
    for (const QFileInfo &file : files)
        state.append(stateOf(file));
    return state;
}
