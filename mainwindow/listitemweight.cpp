// The weight of a list item's font.
#include "listitemweight.h"

#include <QFont>
#include <QListWidgetItem>

namespace {

QFont fontOf(const QListWidgetItem *item)
{
    return item->data(Qt::FontRole).value<QFont>();
}

} // namespace

void makeBold(QListWidgetItem *item)
{
    if (item == nullptr)
        return;

    QFont font = fontOf(item);
    font.setWeight(QFont::Bold);
    item->setData(Qt::FontRole, font);
}

void makeNormal(QListWidgetItem *item)
{
    if (item == nullptr)
        return;

    QFont font = fontOf(item);
    if (font.weight() > QFont::Medium)
        font.setWeight(QFont::Normal);
    item->setData(Qt::FontRole, font);
}
