#ifndef LISTFOCUS_H
#define LISTFOCUS_H

#include <QWidget>

class QListWidget;

// Lets a list have the focus without choosing: by itself an item view makes its first row current
// when the focus comes to it by anything but the mouse. Shows the focus while no row is current.
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
