// The directory beside the test's executable, where the program keeps its files.
#ifndef APPLICATIONDIRECTORY_H
#define APPLICATIONDIRECTORY_H

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace ApplicationDirectory {

// All paths are absolute; those of directories end with a slash.
QString path();
QString sketchesPath();
QString uploaderPath();

// Removes the local repository and the uploader, whatever their permissions.
void clear();

// The file name that the sketch rule gives to "<name>__<version>".
QString sketchFileName(const QString &baseName);

// Both make the local repository first where it is missing, and return the file's path.
QString addSketch(const QString &baseName, const QByteArray &content = "sketch");
QString addFile(const QString &fileName, const QByteArray &content = "file");

// Makes the uploader's directory with a configuration and a shell script in avrdude's place.
void installUploader(const QByteArray &script);

// The names of all files of the local repository, sorted.
QStringList repositoryFiles();

QByteArray contentOf(const QString &filePath);

} // namespace ApplicationDirectory

#endif
