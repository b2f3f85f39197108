#ifndef MAINWINDOW_H
#define MAINWINDOW_H

#include "mainwindow/directorywatch.h"
#include "sketch/sketch.h"

#include <QList>
#include <QMainWindow>
#include <QMessageBox>
#include <QSerialPort>
#include <QSerialPortInfo>
#include <QString>
#include <QStringList>
#include <QTimer>

class QListWidgetItem;
class QNetworkReply;
class SerialMonitor;
class Ui_MainWindow;
class about;

// The only controller: it owns all state, and every feature is an operation or slot of it.
// Everything runs on the GUI thread; the operations that talk to a device or wait for the uploader
// block it.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget *parent = nullptr);
    ~MainWindow() override;

    // Shell (mainwindow.cpp)
    void CloseSerialPort();

    // Message boxes and fade (appearance.cpp)
    // Both boxes wait for the user and return the standard button that closed them.
    int displayWarningBox(QString text, QString informativeText,
                          QFlags<QMessageBox::StandardButton> buttons);
    int displayInformationBox(QString text, QString informativeText,
                              QFlags<QMessageBox::StandardButton> buttons);
    void setVisibleWithFade(QWidget *widget);

    // Sketch catalogue (catalogue.cpp)
    // Rebuilds the catalogue from the directory. Creates the directory if only its last level is
    // missing; if that fails, the catalogue is empty.
    void updateCompiledSketckesList(const QString &path);
    void updateProgramlist();
    // The first match in file-name order, whatever its version; an empty sketch if there is none.
    Sketch findSketchByName(QString name);

    // Online repository (onlinerepository.cpp)
    void updateOnlineRepositoryFilenameList();
    void downloadFilesFromOnlineRepository();
    // Whether a network interface is up, not whether the repository answers.
    bool areYouOnline();

    // Devices (devices.cpp)
    void updateSerialPortList();
    void updateDeviceList();
    // A null port info if the last scan did not find the port.
    QSerialPortInfo findSerialInfoByName(QString portName);
    // False if the port does not open. Blocks up to 20 s if the device does not answer.
    bool OpenSerialPort(QString portName);
    void getSketchNameAndVersion();
    // The device's version line without its line end, or whatever was read last.
    QString getDeviceSketchVersion();

    // Firmware upload (upload.cpp)
    // True if the uploader ran and ended in time, however it ended; the user has been told of
    // every failure but a missing configuration file. Both lists must have a current item.
    bool CallAvrDude();

public slots:
    // Their order determines the meta-object indices and must stay.
    void on_openserialmonitorbutton_clicked();
    void open_window_about();
    void on_listWidget_programlist_currentItemChanged(QListWidgetItem *current,
                                                      QListWidgetItem *previous);
    void on_listWidget_devicelist_currentItemChanged(QListWidgetItem *current,
                                                     QListWidgetItem *previous);
    void on_listWidget_devicelist_currentRowChanged(int currentRow);
    void on_pushButton_update_clicked();
    void set_style_1();
    void replyFinished(QNetworkReply *reply);
    void sketchDownloadReplyFinished(QNetworkReply *reply);
    void periodic_update();
    void on_pushButton_programlist_refresh_clicked();
    void on_pushButton_devicelist_refresh_clicked();
    void on_pushButton_programondevice_refresh_clicked();

private:
    // Sketch catalogue
    // Puts one file that has come since the last reading into the catalogue and the list. False,
    // and nothing is changed, when that would not be the same as reading and refilling.
    bool addToCatalogue(const QString &fileName);

    // Online repository
    void removeStaleSketches();
    // False if nothing is missing.
    bool downloadMissingFiles();
    void storeSketch(const QString &fileName, QIODevice &content);

    // Devices
    void showReceivedText();
    void sendPendingText();
    void giveUpDevice(const QString &reason);

    // Firmware upload
    // False if something is missing, which the user has been told.
    bool deviceAndProgramSelected();
    bool confirmUpload();
    bool uploadSelectedSketch();
    QFileInfo selectedSketchFile();
    void warnOfConfiguration(const QString &problem);
    void warnOfIncompleteUploader(bool executableFound, bool configurationFound);
    // Leaves the port closed. If it did not open, the user has been told and the list is rescanned.
    bool portOpensForUpload(const QString &portName);
    bool runUploader(const QString &program, const QStringList &arguments);

    SerialMonitor *serialMonitor;
    bool serialPortOpen; // open, and the device has been asked for its sketch
    about *aboutWindow;
    QTimer periodicTimer;
    QString compiledSketchesPath; // ends with a slash
    QString avrdudePath; // ends with a slash
    QList<Sketch> sketchList;
    int downloadedFilesCount; // set by the index reply, before any download starts
    QStringList localRepositoryFilenameList; // entry i names the file of sketchList's entry i
    QStringList onlineRepositoryFilenameList;
    QSerialPort serialPort;
    QList<QSerialPortInfo> serialPortInfoList;
    QString errorReportText;
    Ui_MainWindow *ui; // owned
    DirectoryWatch catalogueWatch; // on the directory of the catalogue, since it was read
};

#endif
