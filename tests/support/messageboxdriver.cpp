// Answers modal message boxes.
#include "messageboxdriver.h"

#include <QApplication>
#include <QPushButton>
#include <QTest>

namespace {

constexpr int lookInterval = 10; // ms

SeenBox takeDown(const QMessageBox &box)
{
    SeenBox seen;
    seen.text = box.text();
    seen.informativeText = box.informativeText();
    seen.title = box.windowTitle();
    seen.icon = box.icon();
    seen.buttons = box.standardButtons();
    seen.defaultButton = box.standardButton(box.defaultButton());
    seen.hasParent = box.parent() != nullptr;
    seen.hasWindowIcon = box.testAttribute(Qt::WA_SetWindowIcon) && !box.windowIcon().isNull();
    seen.modality = box.windowModality();
    return seen;
}

// A box without the button is an error of the program, which the list of boxes shows.
void press(QMessageBox *box, QMessageBox::StandardButton which)
{
    QAbstractButton *button = box->button(which);
    if (button == nullptr) {
        box->close();
        return;
    }
    QTest::mouseClick(button, Qt::LeftButton);
}

} // namespace

MessageBoxDriver::MessageBoxDriver(const QList<Answer> &script)
    : answers(script)
{
    connect(&timer, &QTimer::timeout, this, &MessageBoxDriver::lookForBox);
    timer.start(lookInterval);
}

void MessageBoxDriver::whileOpen(const std::function<void()> &newAction)
{
    action = newAction;
}

void MessageBoxDriver::keepOpenFor(int milliseconds)
{
    openTime = milliseconds;
}

const QList<SeenBox> &MessageBoxDriver::boxes() const
{
    return seen;
}

QStringList MessageBoxDriver::texts() const
{
    QStringList result;
    for (const SeenBox &box : seen)
        result.append(box.text);
    return result;
}

void MessageBoxDriver::lookForBox()
{
    auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
    // The timer continues while a box is kept open. If a second box opens meanwhile, which is an
    // error of the program, it is recorded as soon as the first has been answered.
    if (box == nullptr || !box->isVisible() || answering)
        return;

    answering = true;
    seen.append(takeDown(*box));
    if (action)
        action();
    if (openTime > 0)
        QTest::qWait(openTime);
    answering = false;
    answer(box);
}

void MessageBoxDriver::answer(QMessageBox *box)
{
    switch (answers.at(qMin(seen.size(), answers.size()) - 1)) {
    case PressOk:
        press(box, QMessageBox::Ok);
        return;
    case PressCancel:
        press(box, QMessageBox::Cancel);
        return;
    case PressYes:
        QTest::mouseClick(box->button(QMessageBox::Yes), Qt::LeftButton);
        return;
    case PressReturn:
        QTest::keyClick(box, Qt::Key_Return);
        return;
    case PressEscape:
        QTest::keyClick(box, Qt::Key_Escape);
        return;
    case CloseBox:
        box->close();
        return;
    }
}
