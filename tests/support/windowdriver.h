// Uses the widgets of a window as a user does, if they are visible and enabled.
#ifndef WINDOWDRIVER_H
#define WINDOWDRIVER_H

#include <QLatin1String>
#include <QWidget>

class QListWidget;
class QMainWindow;
class QPushButton;

// The child with this object name; ends the program when there is none.
template <typename T>
T *child(const QObject &parent, const char *objectName)
{
    auto *found = parent.findChild<T *>(QLatin1String(objectName));
    if (found == nullptr)
        qFatal("no object named %s", objectName);
    return found;
}

// True when the button was visible and enabled and has been clicked with the mouse.
bool click(const QWidget &window, const char *buttonName);

// True when the row was there and has been clicked with the mouse. A click on a device blocks for
// as long as its query takes.
bool selectRow(const QWidget &window, const char *listName, int row);

// True when the menu entry was there and enabled and has been triggered.
bool chooseMenuEntry(const QWidget &window, const char *actionName);

// A fade whose window has gone deletes itself at its next step, for which the event loop must run:
// called when the last test has ended, so that nothing is taken for a leak.
void letFadesEnd();

// The serial monitor, shown or not.
QMainWindow *serialMonitor(const QWidget &window);

// True when the first device has been selected and the menu entry has shown its monitor.
bool openSerialMonitor(const QWidget &window);

#endif
