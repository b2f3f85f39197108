// Clicks on what the user sees.
#include "windowdriver.h"

#include <QAction>
#include <QListWidget>
#include <QMainWindow>
#include <QPushButton>
#include <QTest>

namespace {

constexpr int fadeTime = 600; // ms, more than any fade takes

} // namespace

bool click(const QWidget &window, const char *buttonName)
{
    auto *button = child<QPushButton>(window, buttonName);
    if (!button->isVisible() || !button->isEnabled())
        return false;
    QTest::mouseClick(button, Qt::LeftButton);
    return true;
}

bool selectRow(const QWidget &window, const char *listName, int row)
{
    auto *list = child<QListWidget>(window, listName);
    const QListWidgetItem *item = list->item(row);
    if (item == nullptr || !list->isVisible() || !list->isEnabled())
        return false;
    list->scrollToItem(item);
    QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier,
                      list->visualItemRect(item).center());
    return list->currentRow() == row;
}

bool chooseMenuEntry(const QWidget &window, const char *actionName)
{
    auto *action = child<QAction>(window, actionName);
    if (!action->isVisible() || !action->isEnabled())
        return false;
    action->trigger();
    return true;
}

void letFadesEnd()
{
    QTest::qWait(fadeTime);
}

QMainWindow *serialMonitor(const QWidget &window)
{
    return child<QMainWindow>(window, "SerialMonitor");
}

bool openSerialMonitor(const QWidget &window)
{
    return selectRow(window, "listWidget_devicelist", 0)
        && chooseMenuEntry(window, "actionSerial_Monitor") && serialMonitor(window)->isVisible();
}
