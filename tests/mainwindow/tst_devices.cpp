// The devices: which ports are listed, and what happens when one is selected.
#include "mainwindow/mainwindow.h"
#include "support/applicationdirectory.h"
#include "support/messageboxdriver.h"
#include "support/patience.h"
#include "support/pluggeddevice.h"
#include "support/pollwatch.h"
#include "support/windowdriver.h"

#include <QFrame>
#include <QGraphicsOpacityEffect>
#include <QLabel>
#include <QListWidget>
#include <QMainWindow>
#include <QPointer>
#include <QTest>

namespace {

QListWidget *deviceList(const MainWindow &window)
{
    return child<QListWidget>(window, "listWidget_devicelist");
}

QStringList listedDevices(const MainWindow &window)
{
    QStringList names;
    for (int row = 0; row < deviceList(window)->count(); ++row)
        names.append(deviceList(window)->item(row)->text());
    return names;
}

QStringList availablePortNames()
{
    QStringList names;
    const QList<QSerialPortInfo> ports = QSerialPortInfo::availablePorts();
    for (const QSerialPortInfo &port : ports)
        names.append(port.portName());
    return names;
}

QFrame *deviceFrame(const MainWindow &window)
{
    return child<QFrame>(window, "frame_deviceinfo");
}

QString programOnDevice(const MainWindow &window)
{
    return child<QLabel>(window, "label_programondevice")->text();
}

int weightOf(const MainWindow &window, int row)
{
    return deviceList(window)->item(row)->data(Qt::FontRole).value<QFont>().weight();
}

void setWeight(const MainWindow &window, int row, int weight)
{
    QFont font = deviceList(window)->item(row)->font();
    font.setWeight(static_cast<QFont::Weight>(weight));
    deviceList(window)->item(row)->setFont(font);
}

// Two adapters with a device each, in the order of the list.
struct TwoDevices
{
    ScriptedDevice first {{"Version:Blink__3\r\n"}};
    ScriptedDevice second {{"Version:Fade__4\r\n"}};
    UsbTestbed usb;

    TwoDevices()
    {
        usb.plug(UsbTestbed::uniquePortName(QStringLiteral("A")), first.portName());
        usb.plug(UsbTestbed::uniquePortName(QStringLiteral("B")), second.portName());
    }
};

} // namespace

class tst_Devices : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void cleanupTestCase();

    void portsAreDevicesByNameAndProduct_data();
    void portsAreDevicesByNameAndProduct();
    void devicesStandInTheOrderOfThePorts();
    void aScanAtStartAsksNobody();
    void infoIsFoundByTheExactName_data();
    void infoIsFoundByTheExactName();
    void infoIsThatOfTheLastScan();

    void refreshClosesThePort();
    void refreshFollowsThePorts();
    void refreshWarnsEveryTimeThatNothingIsFound();
    void refreshDropsTheSelection();

    void selectingAsksTheDeviceAndClosesThePort();
    void selectingLeavesNoPortToServe();
    void selectingAnotherDeviceAsksThatOne();
    void selectingTheSameRowAgainAsksNobody();
    void aDeviceThatDoesNotOpenLeavesTheLabels();
    void theSelectedDeviceStandsInBold();
    void onlyBoldFontsTurnNormal_data();
    void onlyBoldFontsTurnNormal();

    void theFrameFadesIn();
    void theFrameFadesInForEveryDevice();
    void theFrameGoesAtOnce_data();
    void theFrameGoesAtOnce();
    void aRowChangeShowsTheWindow_data();
    void aRowChangeShowsTheWindow();
};

void tst_Devices::init()
{
    ApplicationDirectory::clear();
}

void tst_Devices::cleanup()
{
    ApplicationDirectory::clear();
}

void tst_Devices::cleanupTestCase()
{
    letFadesEnd();
}

void tst_Devices::portsAreDevicesByNameAndProduct_data()
{
    QTest::addColumn<QString>("portName");
    QTest::addColumn<QString>("product"); // empty: the port has no identifiers
    QTest::addColumn<QString>("vendor");
    QTest::addColumn<bool>("accepted");

    const QString ftdi = QStringLiteral("0403");
    const QString device = QStringLiteral("6001");
    const QString adapter = QStringLiteral("cu.usbserial-A1");
    QTest::newRow("callout device") << adapter << device << ftdi << true;
    QTest::newRow("callout device without a serial number")
        << QStringLiteral("cu.usbserial-") << device << ftdi << true;
    QTest::newRow("text before the adapter's name")
        << QStringLiteral("xcu.usbserial-A1") << device << ftdi << true;
    QTest::newRow("capital letters")
        << QStringLiteral("CU.USBSERIAL-A1") << device << ftdi << false;
    QTest::newRow("no hyphen") << QStringLiteral("cu.usbserialA1") << device << ftdi << false;
    QTest::newRow("call-in device")
        << QStringLiteral("tty.usbserial-XYZ") << device << ftdi << false;
    QTest::newRow("modem") << QStringLiteral("cu.usbmodem-A1") << device << ftdi << false;

    QTest::newRow("another product") << adapter << QStringLiteral("6015") << ftdi << false;
    QTest::newRow("product number one higher")
        << adapter << QStringLiteral("6002") << ftdi << false;
    QTest::newRow("decimal digits of the product's number")
        << adapter << QStringLiteral("1771") << ftdi << false;
    QTest::newRow("product zero") << adapter << QStringLiteral("0000") << ftdi << false;
    QTest::newRow("no identifiers") << adapter << QString() << QString() << false;
    QTest::newRow("any vendor") << adapter << device << QStringLiteral("1a86") << true;
    QTest::newRow("vendor zero") << adapter << device << QStringLiteral("0000") << true;
    QTest::newRow("vendor with the product's number")
        << adapter << QStringLiteral("0403") << device << false;

#ifdef Q_OS_LINUX
    QTest::newRow("first adapter on Linux") << QStringLiteral("ttyUSB0") << device << ftdi << true;
    QTest::newRow("thirteenth adapter on Linux")
        << QStringLiteral("ttyUSB12") << device << ftdi << true;
    QTest::newRow("another product on Linux")
        << QStringLiteral("ttyUSB0") << QStringLiteral("6015") << ftdi << false;
    QTest::newRow("modem on Linux") << QStringLiteral("ttyACM0") << device << ftdi << false;
    QTest::newRow("mainboard's port on Linux")
        << QStringLiteral("ttyS0") << QString() << QString() << false;
#endif
}

void tst_Devices::portsAreDevicesByNameAndProduct()
{
    QFETCH(QString, portName);
    QFETCH(QString, product);
    QFETCH(QString, vendor);
    QFETCH(bool, accepted);
    UsbTestbed usb;
    if (product.isEmpty())
        usb.plugWithoutIdentifiers(portName);
    else
        usb.plug(portName, QString(), product, vendor);
    QCOMPARE(availablePortNames(), QStringList {portName});

    const MainWindow window;

    QCOMPARE(listedDevices(window), accepted ? QStringList {portName} : QStringList());
}

void tst_Devices::devicesStandInTheOrderOfThePorts()
{
    UsbTestbed usb;
    for (const char *name : {"cu.usbserial-B", "cu.usbserial-10", "cu.usbserial-a",
                             "cu.usbserial-2", "tty.usbserial-B", "cu.usbserial-A"})
        usb.plug(QLatin1String(name));
    QStringList expected = availablePortNames();
    QVERIFY(expected.removeOne(QStringLiteral("tty.usbserial-B")));

    const MainWindow window;

    QCOMPARE(expected.size(), 5);
    QCOMPARE(listedDevices(window), expected);
}

void tst_Devices::aScanAtStartAsksNobody()
{
    const PluggedDevice device;

    MainWindow window;
    window.show();

    QCOMPARE(listedDevices(window), QStringList {device.listedName()});
    QCOMPARE(deviceList(window)->currentRow(), -1);
    QVERIFY(!deviceFrame(window)->isVisible());
    QCOMPARE(device.requests(), 0);
}

void tst_Devices::infoIsFoundByTheExactName_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("found");

    QTest::newRow("exact name") << QStringLiteral("cu.usbserial-A1") << true;
    QTest::newRow("other letters") << QStringLiteral("cu.usbserial-a1") << false;
    QTest::newRow("start of the name") << QStringLiteral("cu.usbserial-A") << false;
    QTest::newRow("longer name") << QStringLiteral("cu.usbserial-A12") << false;
    QTest::newRow("path of the node") << QStringLiteral("/dev/cu.usbserial-A1") << false;
    QTest::newRow("port that is no device") << QStringLiteral("tty.usbserial-A1") << false;
    QTest::newRow("no name") << QString() << false;
}

void tst_Devices::infoIsFoundByTheExactName()
{
    QFETCH(QString, name);
    QFETCH(bool, found);
    UsbTestbed usb;
    usb.plug(QStringLiteral("cu.usbserial-0"));
    usb.plug(QStringLiteral("cu.usbserial-A1"));
    usb.plug(QStringLiteral("tty.usbserial-A1"));
    MainWindow window;

    const QSerialPortInfo info = window.findSerialInfoByName(name);

    QCOMPARE(info.portName(), found ? name : QString());
    QCOMPARE(info.isNull(), !found);
}

void tst_Devices::infoIsThatOfTheLastScan()
{
    PluggedDevice device;
    MainWindow window;

    device.pull();

    QCOMPARE(window.findSerialInfoByName(device.listedName()).portName(), device.listedName());
    window.updateSerialPortList();
    QVERIFY(window.findSerialInfoByName(device.listedName()).isNull());
    QCOMPARE(listedDevices(window), QStringList {device.listedName()});
    window.updateDeviceList();
    QCOMPARE(listedDevices(window), QStringList());
}

void tst_Devices::refreshClosesThePort()
{
    PluggedDevice device;
    MainWindow window;
    window.show();
    QVERIFY(openSerialMonitor(window));
    QVERIFY(device.isOpen());

    QVERIFY(click(window, "pushButton_devicelist_refresh"));

    QVERIFY(!device.isOpen());
}

void tst_Devices::refreshFollowsThePorts()
{
    const QString first = UsbTestbed::uniquePortName(QStringLiteral("A"));
    const QString second = UsbTestbed::uniquePortName(QStringLiteral("B"));
    UsbTestbed usb;
    usb.plug(first);
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QCOMPARE(listedDevices(window), QStringList {first});

    usb.plug(second);
    QCOMPARE(listedDevices(window), QStringList {first});
    QVERIFY(click(window, "pushButton_devicelist_refresh"));
    QCOMPARE(listedDevices(window), QStringList({first, second}));

    usb.unplug(first);
    QCOMPARE(listedDevices(window), QStringList({first, second}));
    QVERIFY(click(window, "pushButton_devicelist_refresh"));
    QCOMPARE(listedDevices(window), QStringList {second});

    usb.plug(first);
    QVERIFY(click(window, "pushButton_devicelist_refresh"));
    QCOMPARE(listedDevices(window), QStringList({first, second}));
    QCOMPARE(boxes.texts(), QStringList());
}

void tst_Devices::refreshWarnsEveryTimeThatNothingIsFound()
{
    const QString warning = QStringLiteral("No device found.");
    UsbTestbed usb;
    usb.plug(QStringLiteral("cu.usbserial-A1"), QString(), QStringLiteral("6015"));
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QCOMPARE(boxes.texts(), QStringList());

    for (int time = 1; time <= 3; ++time) {
        QVERIFY(click(window, "pushButton_devicelist_refresh"));
        QCOMPARE(boxes.texts().count(warning), time);
        QCOMPARE(boxes.texts().size(), time);
    }

    const SeenBox box = boxes.boxes().constFirst();
    QCOMPARE(box.informativeText,
             QStringLiteral("Please make sure that your device is plugged in "
                            "a USB port and turned ON."));
    QCOMPARE(box.icon, QMessageBox::Warning);
    QCOMPARE(box.buttons, QMessageBox::StandardButtons(QMessageBox::Ok));
}

void tst_Devices::refreshDropsTheSelection()
{
    const PluggedDevice device;
    MainWindow window;
    window.show();
    QVERIFY(selectRow(window, "listWidget_devicelist", 0));

    QVERIFY(click(window, "pushButton_devicelist_refresh"));

    QCOMPARE(listedDevices(window), QStringList {device.listedName()});
    QCOMPARE(deviceList(window)->currentRow(), -1);
    QVERIFY(deviceList(window)->selectedItems().isEmpty());
    QCOMPARE(device.requests(), 1);
}

void tst_Devices::selectingAsksTheDeviceAndClosesThePort()
{
    const PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();

    QVERIFY(selectRow(window, "listWidget_devicelist", 0));

    QCOMPARE(device.received(), QByteArray("v"));
    QCOMPARE(programOnDevice(window), QStringLiteral("Blink"));
    QVERIFY(!device.isOpen());
    QCOMPARE(boxes.texts(), QStringList());
}

// The monitor is shown, but the port that the selection closed is no longer read.
void tst_Devices::selectingLeavesNoPortToServe()
{
    TwoDevices devices;
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(openSerialMonitor(window));
    QVERIFY(devices.first.isOpen());

    QVERIFY(selectRow(window, "listWidget_devicelist", 1));

    QVERIFY(!devices.first.isOpen());
    QVERIFY(!devices.second.isOpen());
    devices.first.unplug();
    devices.second.unplug();
    QVERIFY(waitForTicks());
    QCOMPARE(boxes.texts(), QStringList());
    QVERIFY(serialMonitor(window)->isVisible());
}

void tst_Devices::selectingAnotherDeviceAsksThatOne()
{
    const TwoDevices devices;
    MainWindow window;
    window.show();
    QVERIFY(selectRow(window, "listWidget_devicelist", 0));
    QCOMPARE(devices.first.requests(), 1);
    QCOMPARE(devices.second.requests(), 0);
    QCOMPARE(programOnDevice(window), QStringLiteral("Blink"));

    QVERIFY(selectRow(window, "listWidget_devicelist", 1));

    QCOMPARE(devices.first.requests(), 1);
    QCOMPARE(devices.second.requests(), 1);
    QCOMPARE(programOnDevice(window), QStringLiteral("Fade"));
    QVERIFY(!devices.first.isOpen());
    QVERIFY(!devices.second.isOpen());
}

void tst_Devices::selectingTheSameRowAgainAsksNobody()
{
    const PluggedDevice device;
    MainWindow window;
    window.show();

    QVERIFY(selectRow(window, "listWidget_devicelist", 0));
    QVERIFY(selectRow(window, "listWidget_devicelist", 0));

    QCOMPARE(device.requests(), 1);
}

void tst_Devices::aDeviceThatDoesNotOpenLeavesTheLabels()
{
    TwoDevices devices;
    ApplicationDirectory::addSketch(QStringLiteral("Blink__3"));
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(selectRow(window, "listWidget_devicelist", 0));
    devices.usb.unplug(deviceList(window)->item(1)->text());

    QVERIFY(selectRow(window, "listWidget_devicelist", 1));

    QCOMPARE(boxes.texts(), QStringList());
    QCOMPARE(programOnDevice(window), QStringLiteral("Blink"));
    QCOMPARE(child<QLabel>(window, "label_updaterecommendation")->text(),
             QStringLiteral("<font color='green'>Latest version on device.</font>"));
    QCOMPARE(devices.second.requests(), 0);
    QCOMPARE(weightOf(window, 1), int(QFont::Bold));
    QVERIFY(deviceFrame(window)->isVisible());
}

void tst_Devices::theSelectedDeviceStandsInBold()
{
    const TwoDevices devices;
    MainWindow window;
    window.show();

    QVERIFY(selectRow(window, "listWidget_devicelist", 0));
    QCOMPARE(weightOf(window, 0), int(QFont::Bold));
    QVERIFY(weightOf(window, 1) != int(QFont::Bold));

    QVERIFY(selectRow(window, "listWidget_devicelist", 1));
    QCOMPARE(weightOf(window, 0), int(QFont::Normal));
    QCOMPARE(weightOf(window, 1), int(QFont::Bold));

    deviceList(window)->setCurrentRow(-1);
    QCOMPARE(weightOf(window, 1), int(QFont::Normal));
}

void tst_Devices::onlyBoldFontsTurnNormal_data()
{
    QTest::addColumn<int>("before");
    QTest::addColumn<int>("after");

    QTest::newRow("light") << int(QFont::Light) << int(QFont::Light);
    QTest::newRow("normal") << int(QFont::Normal) << int(QFont::Normal);
    QTest::newRow("one below bold") << int(QFont::Medium) << int(QFont::Medium);
    QTest::newRow("as heavy as bold begins") << QFont::Medium + 1 << int(QFont::Normal);
    QTest::newRow("demi-bold") << int(QFont::DemiBold) << int(QFont::Normal);
    QTest::newRow("black") << int(QFont::Black) << int(QFont::Normal);
}

void tst_Devices::onlyBoldFontsTurnNormal()
{
    QFETCH(int, before);
    QFETCH(int, after);
    const TwoDevices devices;
    MainWindow window;
    window.show();
    QVERIFY(selectRow(window, "listWidget_devicelist", 0));
    setWeight(window, 0, before);

    QVERIFY(selectRow(window, "listWidget_devicelist", 1));

    QCOMPARE(weightOf(window, 0), after);
}

void tst_Devices::theFrameFadesIn()
{
    const PluggedDevice device;
    MainWindow window;
    window.show();
    QVERIFY(!deviceFrame(window)->isVisible());

    QVERIFY(selectRow(window, "listWidget_devicelist", 0));

    QVERIFY(deviceFrame(window)->isVisible());
    const auto *effect =
        qobject_cast<QGraphicsOpacityEffect *>(deviceFrame(window)->graphicsEffect());
    QVERIFY(effect != nullptr);
    QVERIFY(effect->opacity() < 0.1);
    QTRY_COMPARE_WITH_TIMEOUT(effect->opacity(), 1.0, patience);
}

void tst_Devices::theFrameFadesInForEveryDevice()
{
    const TwoDevices devices;
    MainWindow window;
    window.show();
    QVERIFY(selectRow(window, "listWidget_devicelist", 0));
    const QPointer<QGraphicsEffect> firstEffect = deviceFrame(window)->graphicsEffect();
    QVERIFY(!firstEffect.isNull());

    QVERIFY(selectRow(window, "listWidget_devicelist", 1));

    QVERIFY(firstEffect.isNull());
    QVERIFY(deviceFrame(window)->graphicsEffect() != nullptr);
    QVERIFY(deviceFrame(window)->isVisible());
}

void tst_Devices::theFrameGoesAtOnce_data()
{
    QTest::addColumn<bool>("pulled");

    QTest::newRow("device still there") << false;
    QTest::newRow("device gone") << true;
}

void tst_Devices::theFrameGoesAtOnce()
{
    QFETCH(bool, pulled);
    PluggedDevice device;
    MainWindow window;
    window.show();
    QVERIFY(selectRow(window, "listWidget_devicelist", 0));
    QVERIFY(deviceFrame(window)->isVisible());
    if (pulled)
        device.pull();

    window.updateSerialPortList();
    window.updateDeviceList();

    QVERIFY(!deviceFrame(window)->isVisible());
    QCOMPARE(deviceList(window)->count(), pulled ? 0 : 1);
}

void tst_Devices::aRowChangeShowsTheWindow_data()
{
    QTest::addColumn<int>("before");
    QTest::addColumn<int>("after");

    QTest::newRow("a device is selected") << -1 << 0;
    QTest::newRow("none is selected any more") << 0 << -1;
}

void tst_Devices::aRowChangeShowsTheWindow()
{
    QFETCH(int, before);
    QFETCH(int, after);
    const PluggedDevice device;
    MainWindow window;
    deviceList(window)->setCurrentRow(before);
    window.hide();

    deviceList(window)->setCurrentRow(after);

    QVERIFY(window.isVisible());
}

QTEST_MAIN(tst_Devices)

#include "tst_devices.moc"
