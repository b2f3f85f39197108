// Publishes compiled sketches as their maker does: with tools/publish-repository.
#ifndef PUBLISHER_H
#define PUBLISHER_H

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// One line of Intel HEX with its checksum.
QByteArray hexRecord(int address, int type, const QByteArray &data = QByteArray());
extern const QByteArray hexEnd; // the record that ends an image
// A whole image with the data from address 0 on.
QByteArray hexImage(const QByteArray &data);

// A line of the output of a publication.
QString step(const char *verb, const QString &fileName);

// A folder of sketches and the folder published from it, in a path with blanks. The first
// publication creates the published folder.
class Publisher
{
public:
    struct Result
    {
        int exitStatus = -1;
        QStringList steps; // the lines of the standard output
        QString problems; // the standard error output
    };

    Publisher();

    // Absolute paths without a slash at the end.
    QString place() const;
    QString sketches() const;
    QString served() const;
    QString servedFile(const QString &fileName) const;

    // Makes the sketch of "<name>__<version>" and returns its file name.
    QString addSketch(const QString &baseName, const QByteArray &image = hexImage("sketch")) const;
    void addFile(const QString &fileName, const QByteArray &content) const;
    void removeFile(const QString &fileName) const;

    Result publish(const QStringList &options = QStringList()) const;
    // The tool's command line follows the given one, which may change the environment.
    Result publishUnder(const QStringList &wrapper,
                        const QStringList &options = QStringList()) const;
    static Result run(const QStringList &arguments);

    QByteArray index() const;
    // The names of all served files with content, inode and time of change: equal when nothing
    // changed.
    QStringList servedState() const;

private:
    QTemporaryDir directory;
};

#endif
