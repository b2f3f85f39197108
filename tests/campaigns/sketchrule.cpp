// Regular expressions see one letter for each character: the library's refuse half a surrogate.
#include "sketchrule.h"

#include <QRegularExpression>

#include <limits>

namespace {

char classOf(QChar character)
{
    if (character >= QLatin1Char('0') && character <= QLatin1Char('9'))
        return '0';
    if (character.isSpace())
        return ' ';
    if (character == QChar(0x2212))
        return '-'; // the minus sign U+2212 also counts
    const char itself = character.toLatin1();
    return itself == '/' || itself == '.' || itself == '_' || itself == '+' || itself == '-'
        ? itself
        : 'x';
}

QString classesOf(const QString &text)
{
    QString classes;
    classes.reserve(text.size());
    for (const QChar character : text)
        classes.append(QLatin1Char(classOf(character)));
    return classes;
}

QString captured(const QString &text, const QRegularExpressionMatch &match, int group)
{
    return text.mid(match.capturedStart(group), match.capturedLength(group));
}

QString baseOf(const QString &path)
{
    static const QRegularExpression pattern(QStringLiteral("^(?:.*/)?([^/.]*)"));
    return captured(path, pattern.match(classesOf(path)), 1);
}

// 0 if it is not a whole number or does not fit.
int versionIn(const QString &text)
{
    static const QRegularExpression pattern(QStringLiteral("^ *([+-]?)0+ *$"));
    const QRegularExpressionMatch match = pattern.match(classesOf(text));
    if (!match.hasMatch())
        return 0;

    double value = 0; // exact far beyond the bounds
    for (const QChar character : text) {
        if (classOf(character) == '0')
            value = value * 10 + (character.unicode() - '0');
    }
    if (match.captured(1) == QLatin1Char('-'))
        value = -value;
    const bool fits =
        value >= std::numeric_limits<int>::min() && value <= std::numeric_limits<int>::max();
    return fits ? int(value) : 0;
}

} // namespace

SketchRule::SketchRule(const QString &path)
    : base(baseOf(path))
{
    static const QRegularExpression pattern(QStringLiteral("^((?:(?!__).)*)__((?:(?!__).)*)$"));
    const QRegularExpressionMatch match = pattern.match(classesOf(base));
    wellFormed = match.hasMatch();
    if (!wellFormed)
        return;
    name = captured(base, match, 1);
    version = versionIn(captured(base, match, 2));
}
