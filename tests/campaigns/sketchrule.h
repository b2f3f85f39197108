#ifndef SKETCHRULE_H
#define SKETCHRULE_H

#include <QString>

// A second version of the rule for sketches' file names, with regular expressions over classes of
// characters, for comparison with the program's.
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
