#ifndef MESSAGERECORDER_H
#define MESSAGERECORDER_H

#include <QStringList>
#include <QtGlobal>

// Takes down what is logged while it lives, instead of letting it be printed. One at a time.
class MessageRecorder
{
public:
    MessageRecorder();
    ~MessageRecorder();

    MessageRecorder(const MessageRecorder &) = delete;
    MessageRecorder &operator=(const MessageRecorder &) = delete;

    // In order, each as "<type> (<category>): <text>"; the type is "warning" or "other".
    QStringList messages() const;
    // The texts of the warnings of category "default", where the program's own are.
    QStringList warnings() const;

private:
    QtMessageHandler previous;
};

#endif
