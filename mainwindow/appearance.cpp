// Message boxes, the fade and the optional style.
#include "mainwindow.h"

#include "ui_mainwindow.h"

#include <QGraphicsOpacityEffect>
#include <QPropertyAnimation>
#include <QScrollBar>

namespace {

constexpr int fadeDuration = 500; // ms

const QString labelStyle =
    QStringLiteral("QLabel {color : rgb(163,118,20);        font-weight: bold }");
const QString listStyle =
    QStringLiteral("QListWidget::item {background-color: white;}"
                   "QListWidget::item:selected {background-color: rgb(163,118,20);"
                   "color: rgb(255,255,255)}"
                   "QListWidget::item:hover:!selected{background-color: rgba(163,118,20,80);}");
const QString scrollBarStyle =
    QStringLiteral("QScrollBar:vertical {border: 2px solid grey;background: rgb(163,118,20);"
                   "width: 10px;margin: 5px 0px 5px 0px;}"
                   "QScrollBar::handle:vertical {background: white;min-width: 10px;}");

int runBox(const QString &text, const QString &informativeText, QMessageBox::Icon icon,
           QMessageBox::StandardButtons buttons)
{
    QMessageBox box;
    box.setText(text);
    box.setInformativeText(informativeText);
    box.setIcon(icon);
    box.setWindowTitle(MainWindow::tr("Vantrel Updater"));
    box.setStandardButtons(buttons);
    box.setDefaultButton(QMessageBox::Ok);
    box.setWindowIcon(QIcon(QStringLiteral(":/images/korvex_icon.png")));
    return box.exec();
}

} // namespace

int MainWindow::displayWarningBox(QString text, QString informativeText,
                                  QFlags<QMessageBox::StandardButton> buttons)
{
    return runBox(text, informativeText, QMessageBox::Warning, buttons);
}

int MainWindow::displayInformationBox(QString text, QString informativeText,
                                      QFlags<QMessageBox::StandardButton> buttons)
{
    return runBox(text, informativeText, QMessageBox::NoIcon, buttons);
}

void MainWindow::setVisibleWithFade(QWidget *widget)
{
    auto *effect = new QGraphicsOpacityEffect(widget);
    widget->setGraphicsEffect(effect);

    auto *animation = new QPropertyAnimation(effect, "opacity");
    animation->setEasingCurve(QEasingCurve::InOutQuad);
    animation->setDuration(fadeDuration);
    animation->setStartValue(0.01);
    animation->setEndValue(1.0);
    animation->start(QAbstractAnimation::DeleteWhenStopped);

    widget->setVisible(true);
}

void MainWindow::set_style_1()
{
    ui->label_static_devicelist->setStyleSheet(labelStyle);
    const QString sheet = ui->label_static_devicelist->styleSheet();
    ui->label_static_programlist->setStyleSheet(sheet);
    ui->label_static_programondevice->setStyleSheet(sheet);
    ui->label_status->setStyleSheet(sheet);

    ui->listWidget_programlist->setStyleSheet(listStyle);
    if (ui->listWidget_programlist->count() > 0)
        ui->listWidget_programlist->item(0)->setSelected(true);
    ui->listWidget_devicelist->setStyleSheet(ui->listWidget_programlist->styleSheet());

    ui->listWidget_devicelist->verticalScrollBar()->setStyleSheet(scrollBarStyle);
    ui->listWidget_programlist->verticalScrollBar()->setStyleSheet(scrollBarStyle);
}
