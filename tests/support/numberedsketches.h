// An online repository of many different sketches.
#ifndef NUMBEREDSKETCHES_H
#define NUMBEREDSKETCHES_H

#include "repositoryserver.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

class QDir;

namespace NumberedSketches {

// Where the program asks for its index and for a file.
QString indexAddress();
QString address(int number);

QString fileName(int number);
QByteArray content(int number);

// Lists the sketches from 0 on.
QByteArray index(int count);

// The index and all its sketches.
void serve(RepositoryServer *server, int count);

// The names of the entries in the directory whose content differs from the repository's.
QStringList damaged(const QDir &directory);

} // namespace NumberedSketches

#endif
