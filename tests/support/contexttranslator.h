#ifndef CONTEXTTRANSLATOR_H
#define CONTEXTTRANSLATOR_H

#include <QLatin1Char>
#include <QLatin1String>
#include <QTranslator>

// Returns each text with the context in which it was looked up: "context|text".
class ContextTranslator : public QTranslator
{
    Q_OBJECT

public:
    bool isEmpty() const override { return false; }

    QString translate(const char *context, const char *sourceText, const char *, int) const override
    {
        return QLatin1String(context) + QLatin1Char('|') + QLatin1String(sourceText);
    }
};

#endif
