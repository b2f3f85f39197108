#ifndef INSTALLEDPROGRAM_H
#define INSTALLEDPROGRAM_H

#include <QDir>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

// The program in a directory of its own.
class InstalledProgram
{
public:
    // A copy of the given executable.
    explicit InstalledProgram(const QString &executable);
    ~InstalledProgram();

    InstalledProgram(const InstalledProgram &) = delete;
    InstalledProgram &operator=(const InstalledProgram &) = delete;

    // Under a limit of open files, the usual one or another, as bash's ulimit takes it.
    bool start(const QString &limit = QStringLiteral("-Sn 1024"));
    // At once, as a loss of power would end it.
    void kill();

    bool isRunning() const;
    qint64 id() const;
    // What it has said since it was started.
    QByteArray output();

    // The local repository, filtered to the names of sketches.
    QDir sketches() const;
    int sketchCount() const;
    bool hasSketches(int count) const;

private:
    QString program() const;

    QTemporaryDir directory;
    QProcess process;
};

#endif
