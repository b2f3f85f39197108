// The about dialog.
#include "about.h"

#include "ui_about.h"

about::about(QWidget *parent)
    : QDialog(parent)
    , ui(new Ui_about)
{
    ui->setupUi(this);
    setFixedSize(size());
}

about::~about()
{
    delete ui;
}

void about::setVersion(QString version)
{
    ui->label_version->setText(version);
}
