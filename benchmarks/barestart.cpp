// The least that the program's start needs, without our code: the same three forms, one web request
// and one scan of the serial ports.
#include "ui_about.h"
#include "ui_mainwindow.h"
#include "ui_serialmonitor.h"

#include <QApplication>
#include <QDialog>
#include <QMainWindow>
#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QSerialPortInfo>

namespace {

// The form connects its menu entry to this slot.
class Window : public QMainWindow
{
    Q_OBJECT

public slots:
    void on_openserialmonitorbutton_clicked() { }
};

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    Window window;
    Ui_MainWindow form;
    form.setupUi(&window);
    window.setFixedSize(window.size());
    auto *monitor = new QMainWindow(&window);
    Ui_SerialMonitor monitorForm;
    monitorForm.setupUi(monitor);
    auto *dialog = new QDialog(&window);
    Ui_about aboutForm;
    aboutForm.setupUi(dialog);

    QNetworkAccessManager manager;
    manager.get(QNetworkRequest(QUrl(QStringLiteral("http://127.0.0.1:9/"))));
    QSerialPortInfo::availablePorts();
    form.frame_deviceinfo->setVisible(false);

    window.show();
    return QApplication::exec();
}

#include "barestart.moc"
