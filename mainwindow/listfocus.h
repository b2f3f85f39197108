#ifndef LISTFOCUS_H
#define LISTFOCUS_H

#include <QWidget>

class QListWidget;

// Lets a list have the focus without choosing a row: an item view makes its first row current when
// it gets the focus in any way but by mouse. Shows the focus while no row is current.
class ListFocus : public QWidget
{
    Q_OBJECT

public:
    // The list owns it.
    explicit ListFocus(QListWidget *ofList);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private slots:
    void follow();

private:
    bool hasCurrentRow() const;

    QListWidget *list;
};

#endif
