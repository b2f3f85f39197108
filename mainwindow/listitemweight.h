// The weight of a list item's font: the current row of either list stands in bold.
#ifndef LISTITEMWEIGHT_H
#define LISTITEMWEIGHT_H

class QListWidgetItem;

// A null item is left alone.
void makeBold(QListWidgetItem *item);
void makeNormal(QListWidgetItem *item);

#endif
