// The device's version query.
#include "mainwindow/mainwindow.h"
#include "support/applicationdirectory.h"
#include "support/messageboxdriver.h"
#include "support/scripteddevice.h"
#include "support/usbtestbed.h"
#include "support/windowdriver.h"

#include <QLabel>
#include <QListWidget>
#include <QTest>

class tst_DeviceQuery : public QObject
{
    Q_OBJECT

private slots:
    void asksOnce();
    void listed();
};

void tst_DeviceQuery::asksOnce()
{
    ScriptedDevice device({"Version:Blink__3\r\n"});
    MainWindow window;
    QVERIFY(window.OpenSerialPort(device.portName()));
    QCOMPARE(device.requests(), 1);
    QCOMPARE(child<QLabel>(window, "label_programondevice")->text(), QStringLiteral("Blink"));
}

void tst_DeviceQuery::listed()
{
    ApplicationDirectory::addSketch(QStringLiteral("Blink__3"));
    UsbTestbed usb;
    ScriptedDevice device({"Version:Blink__3\r\n"});
    usb.plug(QStringLiteral("ttyUSB0"), device.portName());
    MainWindow window;
    window.show();
    QVERIFY(selectRow(window, "listWidget_devicelist", 0));
    QCOMPARE(device.requests(), 1);
    QCOMPARE(child<QLabel>(window, "label_updaterecommendation")->text(),
             QStringLiteral("<font color='green'>Latest version on device.</font>"));
    usb.unplug(QStringLiteral("ttyUSB0"));
    MessageBoxDriver boxes;
    QVERIFY(click(window, "pushButton_devicelist_refresh"));
    QCOMPARE(boxes.texts(), QStringList {QStringLiteral("No device found.")});
    QCOMPARE(child<QListWidget>(window, "listWidget_devicelist")->count(), 0);
}

QTEST_MAIN(tst_DeviceQuery)

#include "tst_devicequery.moc"
