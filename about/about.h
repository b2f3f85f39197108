#ifndef ABOUT_H
#define ABOUT_H

#include <QDialog>

class Ui_about;

// Shows the application's name, its version and the software it is built on.
class about : public QDialog
{
    Q_OBJECT

public:
    explicit about(QWidget *parent);
    ~about() override;

    void setVersion(QString version);

private:
    Ui_about *ui; // owned
};

#endif
