// The poll: what it moves between the device and the serial monitor, and when it gives a device up.
#include "mainwindow/mainwindow.h"
#include "serialmonitor/serialmonitor.h"
#include "support/applicationdirectory.h"
#include "support/footprint.h"
#include "support/messageboxdriver.h"
#include "support/patience.h"
#include "support/pluggeddevice.h"
#include "support/pollwatch.h"
#include "support/windowdriver.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QEvent>
#include <QFrame>
#include <QLineEdit>
#include <QListWidget>
#include <QMainWindow>
#include <QSignalSpy>
#include <QTest>
#include <QTextBrowser>
#include <QThread>

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
#include <QTextCodec>
#endif

#include <functional>
#include <thread>
#include <utility>

namespace {

const QString cannotCommunicate = QStringLiteral("Unable to communicate with device");
const QString cannotWrite = QStringLiteral("Unable to write to device");

constexpr int writeTime = 1000; // ms that a device has to take a text
constexpr int moment = 50; // ms that it takes longer than the program's first try
constexpr int longOpenTime = 600; // ms, six ticks

QTextBrowser *view(const MainWindow &window)
{
    return child<QTextBrowser>(*serialMonitor(window), "textBrowser");
}

QString shownText(const MainWindow &window)
{
    return view(window)->toPlainText();
}

void sendByReturn(const MainWindow &window, const QString &text)
{
    auto *line = child<QLineEdit>(*serialMonitor(window), "lineEdit");
    line->setText(text);
    QTest::keyClick(line, Qt::Key_Return);
}

// The device is asked when it is selected and again when the monitor opens.
// A query asks again when an answer is late, as on a busy machine.
QByteArray receivedAfterTheQueries(const ScriptedDevice &device)
{
    QByteArray received = device.received();
    while (received.startsWith('v'))
        received.remove(0, 1);
    return received;
}

// Returns in the middle of a tick, so that nearly a whole period follows in which to act.
bool waitForTick(const MainWindow &window, ScriptedDevice &device)
{
    QSignalSpy spy(view(window), &QTextBrowser::textChanged);
    device.send("tick");
    return spy.wait(patience);
}

// The program takes what the device sent, but no tick need have shown it yet.
bool reachesTheProgram(const ScriptedDevice &device)
{
    for (const QDeadlineTimer limit(patience); device.unread() == 0 && !limit.hasExpired();)
        QThread::msleep(1);
    QCoreApplication::processEvents();
    return device.unread() == 0;
}

bool isGivenUp(const MainWindow &window, const ScriptedDevice &device)
{
    return !device.isOpen() && !serialMonitor(window)->isVisible()
        && child<QListWidget>(window, "listWidget_devicelist")->currentRow() == -1
        && !child<QFrame>(window, "frame_deviceinfo")->isVisible();
}

bool isWarningOfALoss(const SeenBox &box)
{
    return box.informativeText == QLatin1String("Is it disconnected?")
        && box.icon == QMessageBox::Warning
        && box.buttons == QMessageBox::StandardButtons(QMessageBox::Ok);
}

// True when the monitor was open, the device was pulled with a text to send, and both are reported.
bool loseWithTextToSend(const MainWindow &window, PluggedDevice *device,
                        const MessageBoxDriver &boxes)
{
    if (!openSerialMonitor(window) || !waitForTick(window, *device))
        return false;
    device->pull();
    sendByReturn(window, QStringLiteral("lost"));
    return QTest::qWaitFor(
        [&] { return boxes.texts() == QStringList({cannotCommunicate, cannotWrite}); }, patience);
}

// True when the monitor was open and the device is given up for a text that it does not take.
bool loseByText(const MainWindow &window, ScriptedDevice *device)
{
    if (!openSerialMonitor(window))
        return false;
    device->setBusy(true);
    sendByReturn(window, QStringLiteral("unsent"));
    return QTest::qWaitFor([&] { return isGivenUp(window, *device); }, patience);
}

// Calls back when the window is about to be hidden.
class HideWatch : public QObject
{
public:
    HideWatch(QWidget *window, std::function<void()> onHide)
        : action(std::move(onHide))
    {
        window->installEventFilter(this);
    }

    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Hide)
            action();
        return false;
    }

private:
    const std::function<void()> action;
};

// The time since the last tick has begun.
class TickClock : public PollWatch
{
public:
    qint64 sinceTick() const { return time.elapsed(); }

protected:
    bool eventFilter(QObject *object, QEvent *event) override
    {
        const int before = ticks();
        PollWatch::eventFilter(object, event);
        if (ticks() > before)
            time.start();
        return false;
    }

private:
    QElapsedTimer time;
};

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
// Another character set of the system, during its lifetime.
class LocalCharacterSet
{
public:
    explicit LocalCharacterSet(const char *name)
        : before(QTextCodec::codecForLocale())
    {
        QTextCodec::setCodecForLocale(QTextCodec::codecForName(name));
    }
    ~LocalCharacterSet() { QTextCodec::setCodecForLocale(before); }
    LocalCharacterSet(const LocalCharacterSet &) = delete;
    LocalCharacterSet &operator=(const LocalCharacterSet &) = delete;

private:
    QTextCodec *const before;
};
#endif

} // namespace

class tst_PeriodicPoll : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void cleanupTestCase();

    void receivedTextIsShown_data();
    void receivedTextIsShown();
    void aLineEndSplitBetweenTicksStays();
    void eachTickMakesAParagraph();

    void typedTextIsSent_data();
    void typedTextIsSent();
    void typedTextIsSentInTheSystemsCharacterSet();
    void ofTextsSentBetweenTicksTheLastIsWritten();
    void textIsSentOnce();
    void textGoesBothWaysInOneTick();

    void aHiddenMonitorReleasesThePort();
    void aHiddenMonitorSendsAndShowsNothing();
    void aShownMonitorKeepsThePort();
    void aMonitorWithoutPortIsLeftAlone();
    void aTimeoutOfTheQueryIsNoLoss();

    void aLostDeviceIsReportedOnce();
    void aLostDeviceIsReportedTwiceWithTextToSend();
    void aLostDevicesMonitorIsHiddenBeforeTheListIsNew();
    void textToSendOutlivesTheReportOfTheLoss();
    void textReceivedBeforeTheLossIsShown();
    void aDeviceLostDuringTheQueryIsReported();
    void theListFollowsALoss();
    void aDeviceMayBeBusyForAMoment();
    void aDeviceThatTakesNothingIsReported();
    void aDeviceHasASecondToTakeText();
    void textReceivedBeforeAFailedWriteIsShown();
    void unwrittenTextIsDropped();
    void thePortIsOpenWhileABoxIs();
    void theProgramIsQuietWhileABoxIsOpen();
    void theDeviceServesAgainAfterALoss();
};

void tst_PeriodicPoll::init()
{
    ApplicationDirectory::clear();
}

void tst_PeriodicPoll::cleanup()
{
    ApplicationDirectory::clear();
}

void tst_PeriodicPoll::cleanupTestCase()
{
    letFadesEnd();
}

void tst_PeriodicPoll::receivedTextIsShown_data()
{
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<QString>("shown");

    QTest::newRow("plain text") << QByteArray("abc") << QStringLiteral("abc");
    QTest::newRow("line end between two texts")
        << QByteArray("abc\r\ndef") << QStringLiteral("abcdef");
    QTest::newRow("line ends everywhere")
        << QByteArray("\r\nabc\r\n\r\ndef\r\n") << QStringLiteral("abcdef");
    QTest::newRow("lone line feed") << QByteArray("abc\ndef") << QStringLiteral("abc\ndef");
    QTest::newRow("lone carriage return") << QByteArray("abc\rdef") << QStringLiteral("abc\ndef");
    QTest::newRow("line end the wrong way round")
        << QByteArray("abc\n\rdef") << QStringLiteral("abc\n\ndef");
    QTest::newRow("carriage return before a line end")
        << QByteArray("abc\r\r\ndef") << QStringLiteral("abc\ndef");
    QTest::newRow("NUL cuts the rest") << QByteArray("abc\0def", 7) << QStringLiteral("abc");
    QTest::newRow("UTF-8") << QByteArray("Gr\xc3\xb6\xc3\x9f"
                                         "e")
                           << QStringLiteral("Gr\u00f6\u00dfe");
    QTest::newRow("invalid UTF-8") << QByteArray("a\xff"
                                                 "b")
                                   << QStringLiteral("a\ufffdb");
    QTest::newRow("blanks") << QByteArray("  a  b  ") << QStringLiteral("  a  b  ");
    QTest::newRow("what looks like HTML") << QByteArray("temp <b>21.5   C, limit < 30")
                                          << QStringLiteral("temp <b>21.5   C, limit < 30");
}

void tst_PeriodicPoll::receivedTextIsShown()
{
    QFETCH(QByteArray, sent);
    QFETCH(QString, shown);
    PluggedDevice device;
    MainWindow window;
    window.show();
    QVERIFY(openSerialMonitor(window));
    QSignalSpy spy(view(window), &QTextBrowser::textChanged);

    device.send(sent);

    QVERIFY(spy.wait(patience));
    QCOMPARE(shownText(window), shown);
}

void tst_PeriodicPoll::aLineEndSplitBetweenTicksStays()
{
    PluggedDevice device;
    MainWindow window;
    window.show();
    QVERIFY(openSerialMonitor(window));

    device.send("abc\r");
    QTRY_COMPARE_WITH_TIMEOUT(shownText(window), QStringLiteral("abc\n"), patience);
    device.send("\ndef");

    QTRY_COMPARE_WITH_TIMEOUT(shownText(window), QStringLiteral("abc\n\n\ndef"), patience);
}

void tst_PeriodicPoll::eachTickMakesAParagraph()
{
    PluggedDevice device;
    MainWindow window;
    window.show();
    QVERIFY(openSerialMonitor(window));

    device.send("abc\r\n");
    QTRY_COMPARE_WITH_TIMEOUT(shownText(window), QStringLiteral("abc"), patience);
    device.send("\r\n"); // becomes an empty text, which makes no paragraph
    QVERIFY(reachesTheProgram(device));
    QVERIFY(waitForTicks());
    device.send("def");

    QTRY_COMPARE_WITH_TIMEOUT(shownText(window), QStringLiteral("abc\ndef"), patience);
}

void tst_PeriodicPoll::typedTextIsSent_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QByteArray>("received");

    QTest::newRow("no line end is added") << QStringLiteral("abc") << QByteArray("abc");
    QTest::newRow("blanks stay") << QStringLiteral("  a b ") << QByteArray("  a b ");
    QTest::newRow("the system's character set")
        << QStringLiteral("gr\u00fcn") << QByteArray("gr\xc3\xbcn");
}

void tst_PeriodicPoll::typedTextIsSent()
{
    QFETCH(QString, typed);
    QFETCH(QByteArray, received);
    const PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(openSerialMonitor(window));

    sendByReturn(window, typed);

    QTRY_COMPARE_WITH_TIMEOUT(receivedAfterTheQueries(device), received, patience);
    QCOMPARE(boxes.texts(), QStringList());
}

void tst_PeriodicPoll::typedTextIsSentInTheSystemsCharacterSet()
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    const PluggedDevice device;
    MainWindow window;
    window.show();
    QVERIFY(openSerialMonitor(window));
    const LocalCharacterSet latin1("ISO-8859-1");

    sendByReturn(window, QStringLiteral("gr\u00fcn"));

    QTRY_COMPARE_WITH_TIMEOUT(receivedAfterTheQueries(device), QByteArray("gr\xfcn"), patience);
#else
    QSKIP("With Qt 6 the character set of every Unix is UTF-8.");
#endif
}

void tst_PeriodicPoll::ofTextsSentBetweenTicksTheLastIsWritten()
{
    const PluggedDevice device;
    MainWindow window;
    window.show();
    QVERIFY(openSerialMonitor(window));

    sendByReturn(window, QStringLiteral("first"));
    sendByReturn(window, QStringLiteral("second"));
    sendByReturn(window, QStringLiteral("third"));
    QCOMPARE(receivedAfterTheQueries(device), QByteArray());

    QTRY_COMPARE_WITH_TIMEOUT(receivedAfterTheQueries(device), QByteArray("third"), patience);
}

void tst_PeriodicPoll::textIsSentOnce()
{
    const PluggedDevice device;
    MainWindow window;
    window.show();
    QVERIFY(openSerialMonitor(window));

    sendByReturn(window, QStringLiteral("once"));
    QTRY_COMPARE_WITH_TIMEOUT(receivedAfterTheQueries(device), QByteArray("once"), patience);
    QVERIFY(waitForTicks());
    sendByReturn(window, QStringLiteral("more"));

    QTRY_COMPARE_WITH_TIMEOUT(receivedAfterTheQueries(device), QByteArray("oncemore"), patience);
}

void tst_PeriodicPoll::textGoesBothWaysInOneTick()
{
    PluggedDevice device;
    MainWindow window;
    window.show();
    QVERIFY(openSerialMonitor(window));

    device.send("from the board");
    sendByReturn(window, QStringLiteral("to the board"));

    QTRY_COMPARE_WITH_TIMEOUT(shownText(window), QStringLiteral("from the board"), patience);
    QTRY_COMPARE_WITH_TIMEOUT(receivedAfterTheQueries(device), QByteArray("to the board"),
                              patience);
}

void tst_PeriodicPoll::aHiddenMonitorReleasesThePort()
{
    const PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(openSerialMonitor(window));

    serialMonitor(window)->close();

    QVERIFY(device.isOpen());
    QTRY_VERIFY_WITH_TIMEOUT(!device.isOpen(), patience);
    QCOMPARE(boxes.texts(), QStringList());
    QCOMPARE(child<QListWidget>(window, "listWidget_devicelist")->currentRow(), 0);
    QVERIFY(child<QFrame>(window, "frame_deviceinfo")->isVisible());
}

void tst_PeriodicPoll::aHiddenMonitorSendsAndShowsNothing()
{
    PluggedDevice device;
    MainWindow window;
    window.show();
    QVERIFY(openSerialMonitor(window));
    QVERIFY(waitForTick(window, device));

    sendByReturn(window, QStringLiteral("unsent"));
    device.send("unseen");
    serialMonitor(window)->close();

    QTRY_VERIFY_WITH_TIMEOUT(!device.isOpen(), patience);
    QCOMPARE(receivedAfterTheQueries(device), QByteArray());
    QCOMPARE(shownText(window), QStringLiteral("tick"));
}

void tst_PeriodicPoll::aShownMonitorKeepsThePort()
{
    PluggedDevice device;
    MainWindow window;
    window.show();
    QVERIFY(openSerialMonitor(window));

    QVERIFY(waitForTicks());

    QVERIFY(device.isOpen());
    device.send("still here");
    QTRY_COMPARE_WITH_TIMEOUT(shownText(window), QStringLiteral("still here"), patience);
}

void tst_PeriodicPoll::aMonitorWithoutPortIsLeftAlone()
{
    PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(openSerialMonitor(window));
    window.CloseSerialPort();

    sendByReturn(window, QStringLiteral("unsent"));
    QVERIFY(waitForTicks());

    QCOMPARE(boxes.texts(), QStringList());
    QVERIFY(serialMonitor(window)->isVisible());
    QCOMPARE(receivedAfterTheQueries(device), QByteArray());
}

void tst_PeriodicPoll::aTimeoutOfTheQueryIsNoLoss()
{
    PluggedDevice device({"Version:Blink__3\r\n"});
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(selectRow(window, "listWidget_devicelist", 0));
    device.setAnswers({QByteArray(), "Version:Blink__3\r\n"});
    QVERIFY(chooseMenuEntry(window, "actionSerial_Monitor"));
    QCOMPARE(device.requests(), 2);

    device.send("still here");

    QTRY_COMPARE_WITH_TIMEOUT(shownText(window), QStringLiteral("still here"), patience);
    QCOMPARE(boxes.texts(), QStringList());
    QVERIFY(device.isOpen());
}

void tst_PeriodicPoll::aLostDeviceIsReportedOnce()
{
    PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    boxes.keepOpenFor(longOpenTime);
    window.show();
    QVERIFY(openSerialMonitor(window));

    device.pull();

    QTRY_VERIFY_WITH_TIMEOUT(isGivenUp(window, device), patience);
    QVERIFY(waitForTicks());
    QCOMPARE(boxes.texts(), QStringList {cannotCommunicate});
    QVERIFY(isWarningOfALoss(boxes.boxes().constFirst()));
}

void tst_PeriodicPoll::aLostDeviceIsReportedTwiceWithTextToSend()
{
    PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    boxes.keepOpenFor(longOpenTime);
    window.show();

    QVERIFY(loseWithTextToSend(window, &device, boxes));

    QTRY_VERIFY_WITH_TIMEOUT(QApplication::activeModalWidget() == nullptr, patience);
    QVERIFY(waitForTicks());
    QCOMPARE(boxes.texts(), QStringList({cannotCommunicate, cannotWrite}));
    QVERIFY(isWarningOfALoss(boxes.boxes().constLast()));
    QVERIFY(isGivenUp(window, device));
}

void tst_PeriodicPoll::aLostDevicesMonitorIsHiddenBeforeTheListIsNew()
{
    PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(openSerialMonitor(window));
    const auto *list = child<QListWidget>(window, "listWidget_devicelist");
    bool open = true;
    bool known = false;
    bool listed = false;
    const HideWatch watch(serialMonitor(window), [&] {
        open = device.isOpen();
        known = !window.findSerialInfoByName(device.listedName()).isNull();
        listed = list->count() == 1;
    });

    device.pull();

    QTRY_VERIFY_WITH_TIMEOUT(isGivenUp(window, device), patience);
    QVERIFY(!open);
    QVERIFY(known);
    QVERIFY(listed);
    QVERIFY(window.findSerialInfoByName(device.listedName()).isNull());
    QCOMPARE(list->count(), 0);
}

// It is discarded when the failed write is reported, not before.
void tst_PeriodicPoll::textToSendOutlivesTheReportOfTheLoss()
{
    PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    const auto *monitor = child<SerialMonitor>(window, "SerialMonitor");
    QStringList pending;
    boxes.whileOpen([&] { pending.append(monitor->pendingText()); });
    window.show();

    QVERIFY(loseWithTextToSend(window, &device, boxes));

    QCOMPARE(pending, QStringList({QStringLiteral("lost"), QStringLiteral("lost")}));
    QTRY_COMPARE_WITH_TIMEOUT(monitor->pendingText(), QString(), patience);
}

void tst_PeriodicPoll::textReceivedBeforeTheLossIsShown()
{
    PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    QStringList shownBehindBox;
    boxes.whileOpen([&] { shownBehindBox.append(shownText(window)); });
    window.show();
    QVERIFY(openSerialMonitor(window));
    QVERIFY(waitForTick(window, device));

    // On a busy machine a tick may be due at once, and shows them before the device is pulled.
    QString shownBefore;
    do {
        shownBefore = shownText(window);
        device.send("last words");
        QVERIFY(reachesTheProgram(device));
    } while (shownText(window) != shownBefore);
    device.pull();

    QTRY_COMPARE_WITH_TIMEOUT(boxes.texts(), QStringList {cannotCommunicate}, patience);
    QCOMPARE(shownBehindBox, QStringList {shownBefore}); // the report comes first
    QTRY_COMPARE_WITH_TIMEOUT(shownText(window), shownBefore + QStringLiteral("\nlast words"),
                              patience);
}

void tst_PeriodicPoll::aDeviceLostDuringTheQueryIsReported()
{
    PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(selectRow(window, "listWidget_devicelist", 0));
    device.unplugAtRequest(2);

    QVERIFY(chooseMenuEntry(window, "actionSerial_Monitor"));

    QVERIFY(serialMonitor(window)->isVisible());
    QCOMPARE(boxes.texts(), QStringList());
    QTRY_VERIFY_WITH_TIMEOUT(isGivenUp(window, device), patience);
    QCOMPARE(boxes.texts(), QStringList {cannotCommunicate});
}

void tst_PeriodicPoll::theListFollowsALoss()
{
    const QString lostName = UsbTestbed::uniquePortName(QStringLiteral("A"));
    const QString keptName = UsbTestbed::uniquePortName(QStringLiteral("B"));
    UsbTestbed usb;
    ScriptedDevice lost({"Version:Blink__3\r\n"});
    usb.plug(lostName, lost.portName());
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(openSerialMonitor(window));
    usb.plug(keptName);

    usb.unplug(lostName);
    lost.unplug();

    QTRY_VERIFY_WITH_TIMEOUT(isGivenUp(window, lost), patience);
    const auto *list = child<QListWidget>(window, "listWidget_devicelist");
    QCOMPARE(list->count(), 1);
    QCOMPARE(list->item(0)->text(), keptName);
}

// The poll waits for the device, so another thread must end the wait. It does so a moment after the
// tick has begun; of the second that the device has, a busy machine may take the rest.
void tst_PeriodicPoll::aDeviceMayBeBusyForAMoment()
{
    PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(openSerialMonitor(window));
    QVERIFY(waitForTicks(1));
    device.setBusy(true);
    const PollWatch poll;
    std::thread recovery([&] {
        while (poll.ticks() == 0)
            QThread::msleep(1);
        QThread::msleep(moment);
        device.setBusy(false);
    });

    sendByReturn(window, QStringLiteral("late"));

    const bool came = QTest::qWaitFor(
        [&device] { return receivedAfterTheQueries(device) == QByteArray("late"); }, patience);
    recovery.join();
    QVERIFY(came);
    QCOMPARE(boxes.texts(), QStringList());
}

void tst_PeriodicPoll::aDeviceThatTakesNothingIsReported()
{
    PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    boxes.keepOpenFor(longOpenTime);
    window.show();

    QVERIFY(loseByText(window, &device));

    QVERIFY(waitForTicks());
    QCOMPARE(boxes.texts(), QStringList {cannotWrite});
    QVERIFY(isWarningOfALoss(boxes.boxes().constFirst()));
}

// From the tick to the box. A busy machine only ever adds to it, so the shortest of several counts,
// and tells a second from two.
void tst_PeriodicPoll::aDeviceHasASecondToTakeText()
{
    constexpr int tries = 5;
    constexpr qint64 tooLong = 2LL * writeTime;
    PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    const TickClock clock;
    qint64 last = 0;
    qint64 shortest = tooLong;
    boxes.whileOpen([&] { last = clock.sinceTick(); });
    window.show();
    for (int count = 1; count <= tries && shortest >= tooLong; ++count) {
        QVERIFY(loseByText(window, &device));
        device.setBusy(false);
        QCOMPARE(boxes.texts().count(cannotWrite), count);
        QVERIFY2(last >= writeTime, qPrintable(QString::number(last)));
        shortest = qMin(shortest, last);
    }
    QVERIFY2(shortest < tooLong, qPrintable(QString::number(shortest)));
}

void tst_PeriodicPoll::textReceivedBeforeAFailedWriteIsShown()
{
    PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(openSerialMonitor(window));
    QVERIFY(waitForTick(window, device));
    device.setBusy(true);

    device.send("last words");
    QVERIFY(reachesTheProgram(device));
    sendByReturn(window, QStringLiteral("unsent"));

    QTRY_VERIFY_WITH_TIMEOUT(isGivenUp(window, device), patience);
    QCOMPARE(boxes.texts(), QStringList {cannotWrite});
    QCOMPARE(shownText(window), QStringLiteral("tick\nlast words"));
}

void tst_PeriodicPoll::unwrittenTextIsDropped()
{
    PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(loseByText(window, &device));
    device.setBusy(false);

    QVERIFY(openSerialMonitor(window));
    QVERIFY(waitForTicks());

    QVERIFY(device.isOpen());
    QVERIFY(!device.received().contains("unsent"));
    QCOMPARE(boxes.texts(), QStringList {cannotWrite});
}

void tst_PeriodicPoll::thePortIsOpenWhileABoxIs()
{
    PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    QList<bool> open;
    QList<bool> shown;
    boxes.whileOpen([&] {
        open.append(device.isOpen());
        shown.append(serialMonitor(window)->isVisible());
    });
    window.show();

    QVERIFY(loseWithTextToSend(window, &device, boxes));

    QCOMPARE(open, QList<bool>({true, false})); // the first box ends with the port closed
    QCOMPARE(shown, QList<bool>({true, false}));
}

void tst_PeriodicPoll::theProgramIsQuietWhileABoxIsOpen()
{
    constexpr int openTime = 2000; // ms
    PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    double seconds = 0;
    boxes.whileOpen([&] {
        const double before = Footprint::processorSeconds();
        QTest::qWait(openTime);
        seconds = Footprint::processorSeconds() - before;
    });
    window.show();
    QVERIFY(openSerialMonitor(window));

    device.pull();

    QTRY_VERIFY_WITH_TIMEOUT(isGivenUp(window, device), patience);
    QCOMPARE(boxes.texts(), QStringList {cannotCommunicate});
    qInfo("%.3f s of processor time in %d ms", seconds, openTime);
    QVERIFY(seconds < 0.2 * openTime / 1000);
}

void tst_PeriodicPoll::theDeviceServesAgainAfterALoss()
{
    const QString name = UsbTestbed::uniquePortName();
    UsbTestbed usb;
    ScriptedDevice before({"Version:Blink__3\r\n"});
    usb.plug(name, before.portName());
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(openSerialMonitor(window));
    usb.unplug(name);
    before.unplug();
    QTRY_VERIFY_WITH_TIMEOUT(isGivenUp(window, before), patience);
    ScriptedDevice after({"Version:Blink__3\r\n"});
    usb.plug(name, after.portName());

    QVERIFY(click(window, "pushButton_devicelist_refresh"));
    QVERIFY(openSerialMonitor(window));
    after.send("back again");
    sendByReturn(window, QStringLiteral("hello"));

    QTRY_COMPARE_WITH_TIMEOUT(shownText(window), QStringLiteral("back again"), patience);
    QTRY_COMPARE_WITH_TIMEOUT(receivedAfterTheQueries(after), QByteArray("hello"), patience);
    QCOMPARE(boxes.texts(), QStringList {cannotCommunicate});
}

QTEST_MAIN(tst_PeriodicPoll)

#include "tst_periodicpoll.moc"
