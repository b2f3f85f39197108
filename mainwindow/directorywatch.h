#ifndef DIRECTORYWATCH_H
#define DIRECTORYWATCH_H

#include <QString>

// Tells whether the arrival of one file is all that has happened in a directory. Only Linux reports
// that exactly; elsewhere, and if the system refuses, the answer is always no. Changes that another
// machine makes in a network directory are not seen.
class DirectoryWatch
{
public:
    DirectoryWatch() = default;
    ~DirectoryWatch();

    DirectoryWatch(const DirectoryWatch &) = delete;
    DirectoryWatch &operator=(const DirectoryWatch &) = delete;

    // Begins anew, with this directory. Costs nothing before the first question.
    void start(const QString &path);
    // True if, since the start or the last question, this file has arrived and nothing else has
    // happened on this machine. The answer to the first question is no.
    bool sawOnlyNewFile(const QString &fileName);

#ifdef Q_OS_LINUX
private:
    int descriptor = -1;
    int watch = -1;
#endif
};

#endif
