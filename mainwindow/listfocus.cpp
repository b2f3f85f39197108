// The focus of a list in which no row is current.
#include "listfocus.h"

#include <QFocusEvent>
#include <QListWidget>
#include <QPainter>

ListFocus::ListFocus(QListWidget *ofList)
    : QWidget(ofList)
    , list(ofList)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
    hide();
    list->installEventFilter(this);
    connect(list, SIGNAL(currentRowChanged(int)), this, SLOT(follow()));
}

bool ListFocus::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() != QEvent::FocusIn && event->type() != QEvent::FocusOut)
        return false;

    follow();
    const auto *focus = static_cast<QFocusEvent *>(event);
    if (focus->lostFocus() || focus->reason() == Qt::MouseFocusReason || hasCurrentRow())
        return false;

    // The view does not touch its rows if it believes that the mouse set the focus.
    QFocusEvent byMouse(QEvent::FocusIn, Qt::MouseFocusReason);
    watched->event(&byMouse);
    return true;
}

// Like the styles' frame of a current row: not shown to those who use the mouse.
void ListFocus::follow()
{
    setGeometry(list->rect());
    setVisible(list->hasFocus() && !hasCurrentRow()
               && window()->testAttribute(Qt::WA_KeyboardFocusChange));
    raise();
}

void ListFocus::paintEvent(QPaintEvent * /*event*/)
{
    QPainter painter(this);
    // Two pixels, because a display of 100 dots per inch may cut the outer one off.
    painter.setPen(QPen(palette().color(QPalette::Highlight), 2));
    painter.drawRect(rect().adjusted(1, 1, -1, -1));
}

bool ListFocus::hasCurrentRow() const
{
    return list->currentRow() != -1;
}
