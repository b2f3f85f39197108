#ifndef SKETCHRULE_H
#define SKETCHRULE_H

#include <QString>

// The file-name rule of sketches once more, by regular expressions over the classes of characters,
// to compare the program's own reading with.
struct SketchRule
{
    // Of a path or a bare file name.
    explicit SketchRule(const QString &path);

    QString base; // of the file name, up to the first dot
    bool wellFormed = false;
    QString name;
    int version = -1;
};

#endif
