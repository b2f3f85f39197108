// The weight of a list item's font.
#include "listitemweight.h"

#include <QFont>
#include <QListWidgetItem>

namespace {

constexpr int boldFrom = 58; // lighter fonts are left as they are

void setWeight(QListWidgetItem *item, QFont font, int weight)
{
    font.setWeight(weight);
    item->setData(Qt::FontRole, font);
}

QFont fontOf(const QListWidgetItem *item)
{
    return item->data(Qt::FontRole).value<QFont>();
}

} // namespace

void makeBold(QListWidgetItem *item)
{
    if (item != nullptr)
        setWeight(item, fontOf(item), QFont::Bold);
}

void makeNormal(QListWidgetItem *item)
{
    if (item == nullptr)
        return;

    const QFont font = fontOf(item);
    setWeight(item, font, font.weight() >= boldFrom ? QFont::Normal : font.weight());
}
