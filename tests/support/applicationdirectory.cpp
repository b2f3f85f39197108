// The directory beside the test's executable.
#include "applicationdirectory.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>

namespace {

QString write(const QString &filePath, const QByteArray &content)
{
    QFile file(filePath);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(filePath));
    return filePath;
}

void removeTree(const QString &directory)
{
    QProcess::execute(QStringLiteral("chmod"),
                      {QStringLiteral("-Rf"), QStringLiteral("u+rwX"), directory});
    QDir(directory).removeRecursively();
}

} // namespace

QString ApplicationDirectory::path()
{
    return QCoreApplication::applicationDirPath() + QLatin1Char('/');
}

QString ApplicationDirectory::sketchesPath()
{
    return path() + QStringLiteral("compiled_sketches/");
}

QString ApplicationDirectory::uploaderPath()
{
    return path() + QStringLiteral("avrdude/");
}

void ApplicationDirectory::clear()
{
    for (const QString &directory : {sketchesPath(), uploaderPath()}) {
        if (QFileInfo(directory).isDir())
            removeTree(directory);
        QFile::remove(directory.chopped(1));
    }
}

QString ApplicationDirectory::sketchFileName(const QString &baseName)
{
    return baseName + QStringLiteral(".ino.with_bootloader.standard.hex");
}

QString ApplicationDirectory::addSketch(const QString &baseName, const QByteArray &content)
{
    return addFile(sketchFileName(baseName), content);
}

QString ApplicationDirectory::addFile(const QString &fileName, const QByteArray &content)
{
    QDir().mkpath(sketchesPath());
    return write(sketchesPath() + fileName, content);
}

void ApplicationDirectory::installUploader(const QByteArray &script)
{
    QDir().mkpath(uploaderPath());
    write(uploaderPath() + QStringLiteral("avrdude.conf"), "# configuration\n");
    const QString program = write(uploaderPath() + QStringLiteral("avrdude"), script);
    QFile::setPermissions(program, QFile::permissions(program) | QFileDevice::ExeOwner);
}

QStringList ApplicationDirectory::repositoryFiles()
{
    return QDir(sketchesPath())
        .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                   QDir::Name);
}

QByteArray ApplicationDirectory::contentOf(const QString &filePath)
{
    QFile file(filePath);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
