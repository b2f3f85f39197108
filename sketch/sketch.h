#ifndef SKETCH_H
#define SKETCH_H

#include <QFileInfo>
#include <QString>

// One compiled sketch of the local repository, described by its file name:
// <name>__<version>.ino.with_bootloader.standard.hex
class Sketch
{
public:
    // No sketch: an empty name and version -1.
    Sketch() = default;

    // Never fails: a malformed file name leaves the name empty and the version -1, a version that
    // is not a number counts as 0.
    explicit Sketch(QFileInfo file);

    int version = -1;
    QString name;
    QFileInfo fileInfo;
};

#endif
