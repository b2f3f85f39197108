#ifndef CONTEXTTRANSLATOR_H
#define CONTEXTTRANSLATOR_H

#include <QLatin1Char>
#include <QLatin1String>
#include <QTranslator>

// Gives each text back with the context that it was looked up in: "context|text".
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
