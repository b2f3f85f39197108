#ifndef INSTALLEDPROGRAM_H
#define INSTALLEDPROGRAM_H

#include <QDir>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>

// The program as a user has installed it, in its own directory.
class InstalledProgram
{
public:
    // A copy of the given executable.
    explicit InstalledProgram(const QString &executable);
    ~InstalledProgram();

    InstalledProgram(const InstalledProgram &) = delete;
    InstalledProgram &operator=(const InstalledProgram &) = delete;

    // The environment of later starts; that of the test unless it is set.
    void setEnvironment(const QProcessEnvironment &environment);
    // Under a limit of open files, the usual one or another, as bash's ulimit takes it. The program
    // does not outlive a test that is killed.
    bool start(const QString &limit = QStringLiteral("-Sn 1024"));
    // Immediately, like a power failure.
    void kill();

    // The path of a file beside the program.
    QString filePath(const QString &fileName) const;

    bool isRunning() const;
    qint64 id() const;
    // What it has said since it was started.
    QByteArray output();

    // The local repository, filtered to the names of sketches.
    QDir sketches() const;
    int sketchCount() const;
    bool hasSketches(int count) const;

private:
    QTemporaryDir directory;
    QProcess process;
};

#endif
