// A user's hands on the windows of the test's own process: real keys and clicks where there is an X
// display with a window manager, Qt's test events elsewhere.
#ifndef HANDS_H
#define HANDS_H

#include <QPoint>
#include <QString>

class QWidget;

namespace Hands {

// All are seen by the window only when its event loop runs.

// Keys by their names in X, such as "Tab", "Page_Down" or "m", in the active window.
void press(const QString &key);

// At a place in the widget.
void click(QWidget &widget, const QPoint &place);
void click(QWidget &widget);

// As by the task bar: this window becomes the active one.
void switchTo(QWidget &window);

} // namespace Hands

#endif
