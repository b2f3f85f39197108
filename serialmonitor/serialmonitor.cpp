// The serial monitor window.
#include "serialmonitor.h"

#include "ui_serialmonitor.h"

#include <QScrollBar>

SerialMonitor::SerialMonitor(QWidget *parent)
    : QMainWindow(parent)
    , ui(new Ui_SerialMonitor)
{
    ui->setupUi(this);
}

SerialMonitor::~SerialMonitor()
{
    delete ui;
}

void SerialMonitor::appendToSerialMonitor(QString text)
{
    QScrollBar *scrollBar = ui->textBrowser->verticalScrollBar();
    const bool automatic = ui->checkBox->isChecked();
    // A text browser follows its end while it stands there, wanted or not.
    if (automatic)
        scrollBar->setValue(scrollBar->maximum());
    const int position = scrollBar->value();
    ui->textBrowser->append(text);
    if (!automatic)
        scrollBar->setValue(position);
}

void SerialMonitor::scheduleToSendAndClear()
{
    toSendText = ui->lineEdit->text();
    ui->lineEdit->clear();
}

QString SerialMonitor::pendingText() const
{
    return toSendText;
}

void SerialMonitor::clearPendingText()
{
    toSendText.clear();
}

void SerialMonitor::on_pushButton_2_clicked()
{
    ui->textBrowser->clear();
}

void SerialMonitor::on_pushButton_clicked()
{
    scheduleToSendAndClear();
}

void SerialMonitor::on_lineEdit_returnPressed()
{
    scheduleToSendAndClear();
}
