#ifndef MESSAGEBOXDRIVER_H
#define MESSAGEBOXDRIVER_H

#include <QList>
#include <QMessageBox>
#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>

// A message box as the user saw it, recorded before it was answered.
struct SeenBox
{
    QString text;
    QString informativeText;
    QString title;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QMessageBox::StandardButtons buttons = QMessageBox::NoButton;
    QMessageBox::StandardButton defaultButton = QMessageBox::NoButton;
    bool hasParent = false;
    bool hasWindowIcon = false;
    Qt::WindowModality modality = Qt::NonModal;
};

// Answers the modal message boxes that open during its lifetime. A box keeps the code under test in
// exec(), so the answers are given in advance: the n-th for the n-th box, the last for all others.
class MessageBoxDriver : public QObject
{
    Q_OBJECT

public:
    enum Answer { PressOk, PressCancel, PressYes, PressEscape, PressReturn, CloseBox };

    explicit MessageBoxDriver(const QList<Answer> &script = {PressOk});

    // Runs while each box is open, before it is answered; may itself run the event loop.
    void whileOpen(const std::function<void()> &action);

    // How long each box stays open before it is answered, in ms.
    void keepOpenFor(int milliseconds);

    const QList<SeenBox> &boxes() const;

    // The main texts of the boxes, in order.
    QStringList texts() const;

private:
    void lookForBox();
    void answer(QMessageBox *box);

    QTimer timer;
    QList<Answer> answers;
    std::function<void()> action;
    int openTime = 0; // ms
    bool answering = false;
    QList<SeenBox> seen;
};

#endif
