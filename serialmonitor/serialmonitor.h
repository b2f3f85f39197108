#ifndef SERIALMONITOR_H
#define SERIALMONITOR_H

#include <QMainWindow>
#include <QString>

class Ui_SerialMonitor;

// Shows the text that the device sends and takes the text to send to it. Never touches the serial
// port itself: the main window's poll moves the text in both directions.
class SerialMonitor : public QMainWindow
{
    Q_OBJECT

public:
    explicit SerialMonitor(QWidget *parent);
    ~SerialMonitor() override;

    // Each call makes one paragraph of plain text, whatever it contains. The oldest paragraphs go
    // when the view can hold no more. Of far more text than a tick can bring, only the end is
    // shown.
    void appendToSerialMonitor(QString text);

    void scheduleToSendAndClear();

    // What the user sent last and the poll has not written yet; empty when there is no such text.
    QString pendingText() const;
    void clearPendingText();

private slots:
    void on_pushButton_2_clicked();
    void on_pushButton_clicked();
    void on_lineEdit_returnPressed();

private:
    void keepTextOnOnePage();
    // How much shorter the text is afterwards, in pixels.
    int dropOldestText();

    QString toSendText;
    Ui_SerialMonitor *ui; // owned
};

#endif
