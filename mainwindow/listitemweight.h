// The weight of a list item's font: the current row of each list is bold.
#ifndef LISTITEMWEIGHT_H
#define LISTITEMWEIGHT_H

class QListWidgetItem;

// Does nothing for a null item.
void makeBold(QListWidgetItem *item);
void makeNormal(QListWidgetItem *item);

#endif
