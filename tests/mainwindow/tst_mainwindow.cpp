// The window itself: its operations and slots, what it looks like at first, and what it owns.
#include "about/about.h"
#include "mainwindow/mainwindow.h"
#include "serialmonitor/serialmonitor.h"
#include "support/applicationdirectory.h"
#include "support/contexttranslator.h"
#include "support/footprint.h"
#include "support/messageboxdriver.h"
#include "support/messagerecorder.h"
#include "support/patience.h"
#include "support/scripteddevice.h"
#include "support/windowdriver.h"

#include <QApplication>
#include <QDir>
#include <QFrame>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QMetaMethod>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QProgressBar>
#include <QTest>
#include <QTimer>

#include <memory>
#include <type_traits>
#include <utility>

namespace {

const QSize windowSize(430, 332);

template <auto operation, typename Signature>
constexpr bool has = std::is_same_v<decltype(operation), Signature>;

using Window = MainWindow;
using Buttons = QFlags<QMessageBox::StandardButton>;
static_assert(std::is_base_of_v<QMainWindow, Window>);
static_assert(std::is_convertible_v<about *, QDialog *>);
static_assert(has<&Window::CloseSerialPort, void (Window::*)()>);
static_assert(has<&Window::displayWarningBox, int (Window::*)(QString, QString, Buttons)>);
static_assert(has<&Window::displayInformationBox, int (Window::*)(QString, QString, Buttons)>);
static_assert(has<&Window::setVisibleWithFade, void (Window::*)(QWidget *)>);
static_assert(has<&Window::updateCompiledSketckesList, void (Window::*)(const QString &)>);
static_assert(has<&Window::updateProgramlist, void (Window::*)()>);
static_assert(has<&Window::findSketchByName, Sketch (Window::*)(QString)>);
static_assert(has<&Window::updateOnlineRepositoryFilenameList, void (Window::*)()>);
static_assert(has<&Window::downloadFilesFromOnlineRepository, void (Window::*)()>);
static_assert(has<&Window::areYouOnline, bool (Window::*)()>);
static_assert(has<&Window::updateSerialPortList, void (Window::*)()>);
static_assert(has<&Window::updateDeviceList, void (Window::*)()>);
static_assert(has<&Window::findSerialInfoByName, QSerialPortInfo (Window::*)(QString)>);
static_assert(has<&Window::OpenSerialPort, bool (Window::*)(QString)>);
static_assert(has<&Window::getSketchNameAndVersion, void (Window::*)()>);
static_assert(has<&Window::getDeviceSketchVersion, QString (Window::*)()>);
static_assert(has<&Window::CallAvrDude, bool (Window::*)()>);

// The window's timer is not its child, but the timer's events pass through the application.
class TimerWatcher : public QObject
{
    Q_OBJECT

public:
    TimerWatcher() { qApp->installEventFilter(this); }

    QPointer<QTimer> poll;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        auto *timer = qobject_cast<QTimer *>(watched);
        if (event->type() == QEvent::Timer && timer != nullptr && timer->parent() == nullptr)
            poll = timer;
        return QObject::eventFilter(watched, event);
    }
};

} // namespace

class tst_MainWindow : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void slotsInOrder();
    void repliesAreRegistered();
    void oneUnmatchedSlot();

    void title();
    void titleIsNotTranslated();
    void boxesAreTranslated();
    void keepsItsSize();
    void startsWithoutDeviceInformation_data();
    void startsWithoutDeviceInformation();
    void saysNothingBeforeTheIndexIsAnswered();

    void ownsItsChildWindows();
    void childWindowsDoNotKeepTheProgram();
    void takesChildWindowsAlong();
    void isAChildItself();

    void pollTimer();
    void pollReleasesThePort();
    void closesThePort();
    void closesThePortWhenDestroyed();
    void closingAClosedPortIsHarmless();

    void menuEntryOpensTheAboutDialog();
    void menuEntryAsksForTheMonitor();
    void menusOpenByKey();
    void buttonsReachTheirSlots_data();
    void buttonsReachTheirSlots();
    void refreshButtonAsksTheRepository();
    void listsReachTheirSlots();
};

void tst_MainWindow::init()
{
    ApplicationDirectory::clear();
}

void tst_MainWindow::cleanup()
{
    ApplicationDirectory::clear();
}

void tst_MainWindow::slotsInOrder()
{
    const QMetaObject &meta = MainWindow::staticMetaObject;
    QStringList signatures;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        QCOMPARE(meta.method(i).methodType(), QMetaMethod::Slot);
        QCOMPARE(meta.method(i).returnType(), int(QMetaType::Void));
        signatures.append(QString::fromLatin1(meta.method(i).methodSignature()));
    }
    QCOMPARE(signatures,
             QStringList({
                 QStringLiteral("on_openserialmonitorbutton_clicked()"),
                 QStringLiteral("open_window_about()"),
                 QStringLiteral("on_listWidget_programlist_currentItemChanged(QListWidgetItem*,"
                                "QListWidgetItem*)"),
                 QStringLiteral("on_listWidget_devicelist_currentItemChanged(QListWidgetItem*,"
                                "QListWidgetItem*)"),
                 QStringLiteral("on_listWidget_devicelist_currentRowChanged(int)"),
                 QStringLiteral("on_pushButton_update_clicked()"),
                 QStringLiteral("set_style_1()"),
                 QStringLiteral("replyFinished(QNetworkReply*)"),
                 QStringLiteral("sketchDownloadReplyFinished(QNetworkReply*)"),
                 QStringLiteral("periodic_update()"),
                 QStringLiteral("on_pushButton_programlist_refresh_clicked()"),
                 QStringLiteral("on_pushButton_devicelist_refresh_clicked()"),
                 QStringLiteral("on_pushButton_programondevice_refresh_clicked()"),
             }));
}

void tst_MainWindow::repliesAreRegistered()
{
    const MainWindow window;
    const QMetaObject *meta = window.metaObject();
    const QList<int> types = {meta->method(meta->methodOffset() + 7).parameterType(0),
                              meta->method(meta->methodOffset() + 8).parameterType(0)};
    // Asking this earlier would register it.
    const int type = qMetaTypeId<QNetworkReply *>();
    QCOMPARE(types, QList<int>({type, type}));
}

// The monitor's slot is named like one for a button; anything else logged here is a mistake.
void tst_MainWindow::oneUnmatchedSlot()
{
    ApplicationDirectory::addSketch(QStringLiteral("Blink__2"));
    const MessageRecorder recorder;
    const MainWindow window;
    // Qt 6 logs this in another category.
    QStringList messages = recorder.messages();
    messages.replaceInStrings(QStringLiteral("qt.core.qmetaobject.connectslotsbyname"),
                              QStringLiteral("default"));
    QCOMPARE(messages,
             QStringList(QStringLiteral("warning (default): "
                                        "QMetaObject::connectSlotsByName: No matching "
                                        "signal for "
                                        "on_openserialmonitorbutton_clicked()")));
}

void tst_MainWindow::title()
{
    const MainWindow window;
    QCOMPARE(window.windowTitle(), QStringLiteral("VTUpdater v1.0 beta 6"));
    QCOMPARE(child<QLabel>(window, "label_version")->text(), QStringLiteral("1.0 beta 6"));
}

void tst_MainWindow::titleIsNotTranslated()
{
    ContextTranslator translator;
    QCoreApplication::installTranslator(&translator);
    const MainWindow window;
    QCOMPARE(window.windowTitle(), QStringLiteral("VTUpdater v1.0 beta 6"));
    QCOMPARE(child<QLabel>(window, "label_version")->text(), QStringLiteral("1.0 beta 6"));
}

void tst_MainWindow::boxesAreTranslated()
{
    ContextTranslator translator;
    QCoreApplication::installTranslator(&translator);
    const MainWindow window;
    const MessageBoxDriver boxes;
    QVERIFY(chooseMenuEntry(window, "actionSerial_Monitor"));
    const SeenBox &box = boxes.boxes().first();
    QCOMPARE(box.title, QStringLiteral("MainWindow|Vantrel Updater"));
    QCOMPARE(box.text, QStringLiteral("MainWindow|No device selected."));
    QCOMPARE(box.informativeText,
             QStringLiteral("MainWindow|Please select a device before opening serial monitor."));
}

void tst_MainWindow::keepsItsSize()
{
    MainWindow window;
    window.show();
    QCOMPARE(window.size(), windowSize);
    QCOMPARE(window.minimumSize(), windowSize);
    QCOMPARE(window.maximumSize(), windowSize);
    window.resize(800, 600);
    QCOMPARE(window.size(), windowSize);
    window.resize(100, 100);
    QCOMPARE(window.size(), windowSize);
}

void tst_MainWindow::startsWithoutDeviceInformation_data()
{
    QTest::addColumn<QStringList>("sketches");
    QTest::addColumn<bool>("directoryExists");
    QTest::addColumn<int>("rows");

    QTest::newRow("no local repository") << QStringList() << false << 0;
    QTest::newRow("an empty local repository") << QStringList() << true << 0;
    QTest::newRow("sketches, but none selected")
        << QStringList({QStringLiteral("Blink__2"), QStringLiteral("Fade__1")}) << true << 2;
}

void tst_MainWindow::startsWithoutDeviceInformation()
{
    QFETCH(QStringList, sketches);
    QFETCH(bool, directoryExists);

    if (directoryExists)
        QVERIFY(QDir().mkpath(ApplicationDirectory::sketchesPath()));
    for (const QString &sketch : std::as_const(sketches))
        ApplicationDirectory::addSketch(sketch);
    MainWindow window;
    window.show();
    const auto *programs = child<QListWidget>(window, "listWidget_programlist");
    QTEST(programs->count(), "rows");
    QCOMPARE(programs->currentRow(), -1);
    QVERIFY(!child<QFrame>(window, "frame_deviceinfo")->isVisible());
    QVERIFY(QDir(ApplicationDirectory::sketchesPath()).exists());
    QVERIFY(!QDir(ApplicationDirectory::uploaderPath()).exists());
}

void tst_MainWindow::saysNothingBeforeTheIndexIsAnswered()
{
    MainWindow window;
    window.show();
    const auto *status = child<QLabel>(window, "label_status");
    const auto *progress = child<QProgressBar>(window, "progressBar");
    QCOMPARE(status->text(), QString());
    QCOMPARE(progress->value(), 24);
    QVERIFY(progress->isVisible());
    QTRY_COMPARE_WITH_TIMEOUT(status->text(),
                              QStringLiteral("Error contacting online repository. Are you online?"),
                              patience);
}

void tst_MainWindow::ownsItsChildWindows()
{
    const MainWindow window;
    for (const QWidget *owned : std::initializer_list<const QWidget *> {
             window.findChild<SerialMonitor *>(), window.findChild<about *>()}) {
        QVERIFY(owned != nullptr);
        QCOMPARE(owned->parentWidget(), &window);
        QVERIFY(owned->isWindow());
        QVERIFY(owned->isHidden());
    }
    QCOMPARE(window.findChildren<SerialMonitor *>().size(), 1);
    QCOMPARE(window.findChildren<about *>().size(), 1);
}

void tst_MainWindow::childWindowsDoNotKeepTheProgram()
{
    MainWindow window;
    window.show();
    QVERIFY(chooseMenuEntry(window, "actionAbout"));
    window.findChild<SerialMonitor *>()->show();
    QTimer limit;
    limit.setSingleShot(true);
    limit.start(patience);
    connect(&limit, SIGNAL(timeout()), qApp, SLOT(quit()));
    QTimer::singleShot(0, &window, SLOT(close()));
    QCOMPARE(QApplication::exec(), 0);
    QVERIFY(limit.isActive());
}

void tst_MainWindow::takesChildWindowsAlong()
{
    auto window = std::make_unique<MainWindow>();
    window->show();
    const QPointer<SerialMonitor> monitor = window->findChild<SerialMonitor *>();
    const QPointer<about> dialog = window->findChild<about *>();
    const QPointer<QNetworkAccessManager> manager = window->findChild<QNetworkAccessManager *>();
    QVERIFY(!monitor.isNull() && !dialog.isNull() && !manager.isNull());
    window.reset();
    QVERIFY(monitor.isNull());
    QVERIFY(dialog.isNull());
    QVERIFY(manager.isNull());
}

void tst_MainWindow::isAChildItself()
{
    QWidget parent;
    const MainWindow window(&parent);
    QCOMPARE(window.parentWidget(), &parent);
    QVERIFY(MainWindow().parentWidget() == nullptr);
}

void tst_MainWindow::pollTimer()
{
    const TimerWatcher watcher;
    auto window = std::make_unique<MainWindow>();
    QTRY_VERIFY_WITH_TIMEOUT(!watcher.poll.isNull(), patience);
    QCOMPARE(watcher.poll->interval(), 100);
    QVERIFY(watcher.poll->isActive());
    QVERIFY(!watcher.poll->isSingleShot());
    QVERIFY(window->findChildren<QTimer *>().isEmpty());
    window.reset();
    QVERIFY(watcher.poll.isNull());
}

void tst_MainWindow::pollReleasesThePort()
{
    const ScriptedDevice device({"Version:Blink__3\r\n"});
    const int own = Footprint::descriptorsOf(device.portName());
    MainWindow window;
    QVERIFY(window.OpenSerialPort(device.portName()));
    QCOMPARE(Footprint::descriptorsOf(device.portName()), own + 1);
    // The monitor is hidden, so nobody needs the port.
    QTRY_COMPARE_WITH_TIMEOUT(Footprint::descriptorsOf(device.portName()), own, patience);
}

void tst_MainWindow::closesThePort()
{
    const ScriptedDevice device({"Version:Blink__3\r\n"});
    const int own = Footprint::descriptorsOf(device.portName());
    MainWindow window;
    QVERIFY(window.OpenSerialPort(device.portName()));
    window.CloseSerialPort();
    QCOMPARE(Footprint::descriptorsOf(device.portName()), own);
}

void tst_MainWindow::closesThePortWhenDestroyed()
{
    const ScriptedDevice device({"Version:Blink__3\r\n"});
    const int own = Footprint::descriptorsOf(device.portName());
    auto window = std::make_unique<MainWindow>();
    QVERIFY(window->OpenSerialPort(device.portName()));
    window.reset();
    QCOMPARE(Footprint::descriptorsOf(device.portName()), own);
}

void tst_MainWindow::closingAClosedPortIsHarmless()
{
    QVERIFY(QDir().mkpath(ApplicationDirectory::sketchesPath()));
    auto window = std::make_unique<MainWindow>();
    const MessageRecorder recorder;
    window->CloseSerialPort();
    window->CloseSerialPort();
    window.reset(); // closes it once more
    QCOMPARE(recorder.messages(), QStringList());
}

void tst_MainWindow::menuEntryOpensTheAboutDialog()
{
    MainWindow window;
    window.show();
    const auto *dialog = window.findChild<about *>();
    QVERIFY(dialog->isHidden());
    QVERIFY(chooseMenuEntry(window, "actionAbout"));
    QVERIFY(dialog->isVisible());
}

// Once for each choice, and the window stays as it is.
void tst_MainWindow::menuEntryAsksForTheMonitor()
{
    MainWindow window;
    window.show();
    const MessageBoxDriver boxes;
    QVERIFY(chooseMenuEntry(window, "actionSerial_Monitor"));
    QCOMPARE(boxes.texts(), QStringList(QStringLiteral("No device selected.")));
    QVERIFY(window.findChild<SerialMonitor *>()->isHidden());
}

void tst_MainWindow::menusOpenByKey()
{
    MainWindow window;
    window.show();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    QTest::keyClick(&window, Qt::Key_F10);
    QVERIFY(child<QMenu>(window, "menuTools")->isVisible());
    QTest::keyClick(QApplication::activePopupWidget(), Qt::Key_Right);
    QVERIFY(child<QMenu>(window, "menuHelp")->isVisible());
    QTest::keyClick(QApplication::activePopupWidget(), Qt::Key_Down);
    QTest::keyClick(QApplication::activePopupWidget(), Qt::Key_Return);
    QTRY_VERIFY_WITH_TIMEOUT(child<QDialog>(window, "about")->isVisible(), patience);
}

void tst_MainWindow::buttonsReachTheirSlots_data()
{
    QTest::addColumn<QByteArray>("button");
    QTest::addColumn<QString>("answer");

    QTest::newRow("update without a device")
        << QByteArrayLiteral("pushButton_update") << QStringLiteral("No device selected!");
    QTest::newRow("devices without a device")
        << QByteArrayLiteral("pushButton_devicelist_refresh") << QStringLiteral("No device found.");
}

void tst_MainWindow::buttonsReachTheirSlots()
{
    QFETCH(QByteArray, button);
    QFETCH(QString, answer);

    MainWindow window;
    window.show();
    const MessageBoxDriver boxes;
    QVERIFY(click(window, button.constData()));
    QCOMPARE(boxes.texts(), QStringList(answer));
}

void tst_MainWindow::refreshButtonAsksTheRepository()
{
    MainWindow window;
    window.show();
    const MessageBoxDriver boxes;
    const bool online = window.areYouOnline();
    QCOMPARE(window.findChildren<QNetworkAccessManager *>().size(), 1);
    QVERIFY(click(window, "pushButton_programlist_refresh"));
    QCOMPARE(window.findChildren<QNetworkAccessManager *>().size(), online ? 2 : 1);
    QCOMPARE(boxes.boxes().size(), online ? 0 : 1);
}

void tst_MainWindow::listsReachTheirSlots()
{
    ApplicationDirectory::addSketch(QStringLiteral("Blink__2"));
    MainWindow window;
    window.show();
    QVERIFY(selectRow(window, "listWidget_programlist", 0));
    const auto *programs = child<QListWidget>(window, "listWidget_programlist");
    QVERIFY(programs->item(0)->font().bold());
}

QTEST_MAIN(tst_MainWindow)

#include "tst_mainwindow.moc"
