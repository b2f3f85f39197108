// A device at its worst: pulled in every state of the program, dripping, flooding, restarting, or
// with another sketch. Each time the window recovers, and uses little processor time while a box is
// open.
#include "support/applicationdirectory.h"
#include "support/footprint.h"
#include "support/messageboxdriver.h"
#include "support/patience.h"
#include "support/pollwatch.h"
#include "support/responsiveness.h"
#include "support/windowdriver.h"
#include "support/workplace.h"

#include <QAbstractEventDispatcher>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <ctime>
#include <functional>
#include <thread>

namespace {

constexpr int allAttempts = 10;
constexpr int queryTimeout = 20000; // ms that ten attempts may take
constexpr int timesPulled = 20;
constexpr int grace = 10000; // ms that a loaded machine may take for the rest
constexpr int severalTicks =
    400; // ms, where none can be counted: the poll rests behind its own box
constexpr int lineSpeed = 11520; // bytes per second at 115200 baud
constexpr int fastestFlood = 1000000; // bytes per second
constexpr int idleTime = 1000; // ms
// What a flood may take of the processor between two clicks, in ms. A busy machine adds nothing to
// it. 1.7 to 9.4 ms were measured; a sanitizer makes it some three times as much.
constexpr double longestTurn = 100;
// A window that waited for something would use no processor, but serve fewer clicks than an idle
// one on the same machine. 0.96 to 1.16 of them were measured; what else the machine does may
// change.
constexpr double servedShare = 0.25;
constexpr int boxTime = 1000; // ms that a box stays open while the processor is watched
constexpr double quiet = 0.2; // of a core
constexpr double quietTurns = 1000; // of the event loop in a second

const QString cannotCommunicate = QStringLiteral("Unable to communicate with device");
const QString cannotWrite = QStringLiteral("Unable to write to device");
const QString unknownProgram = QStringLiteral("Unknown program in device.");
const QString noDevice = QStringLiteral("No device found.");
const QString notOpened = QStringLiteral("Serial port not opened!");
const QString monitorNotOpened = QStringLiteral("Error opening device.");
const QString noneSelected = QStringLiteral("No device selected!");
const QString confirmation = QStringLiteral("DO NOT REMOVE OR TURN OFF THE DEVICE.");
const QString success = QStringLiteral("Upload successfull.");
const QString unknownSketch = QStringLiteral("Unknown sketch");

// What the user did before, and does when the device has just gone.
struct Scene
{
    std::function<bool(Workplace &)> before;
    int atRequest = 0; // it is pulled at this request; 0 before the user acts
    std::function<bool(Workplace &)> act;
    QStringList boxes;
    int atBox = 1; // the first of them behind which it goes, where it goes behind one
};

bool nothing(Workplace &)
{
    return true;
}

bool selectDevice(Workplace &workplace)
{
    return workplace.selectDevice();
}

bool selectBoth(Workplace &workplace)
{
    return workplace.selectProgram() && workplace.selectDevice();
}

bool openMonitor(Workplace &workplace)
{
    return workplace.openMonitor();
}

bool openMonitorWithProgram(Workplace &workplace)
{
    return workplace.selectProgram() && workplace.openMonitor();
}

bool refreshDevices(Workplace &workplace)
{
    return workplace.refreshDevices();
}

bool askAgain(Workplace &workplace)
{
    return workplace.askAgain();
}

bool chooseMonitor(Workplace &workplace)
{
    return workplace.chooseMonitor();
}

bool pressUpdate(Workplace &workplace)
{
    return workplace.pressUpdate();
}

bool sendText(Workplace &workplace)
{
    workplace.send(QStringLiteral("lost"));
    return true;
}

bool askAndSend(Workplace &workplace)
{
    workplace.send(QStringLiteral("lost"));
    return workplace.askAgain();
}

// The poll needs a tick to see it.
bool waitForPoll(Workplace &)
{
    return waitForTicks();
}

bool openMonitorAndReceive(Workplace &workplace)
{
    if (!workplace.openMonitor())
        return false;
    workplace.device->send("last words");
    return true;
}

// Five unless the environment asks for more.
int floodSeconds()
{
    return qMax(qEnvironmentVariableIntValue("FLOOD_SECONDS"), 5);
}

QElapsedTimer started()
{
    QElapsedTimer timer;
    timer.start();
    return timer;
}

// How busy this process is while the event loop runs. On a machine that leaves it little time even
// a loop without rest uses little of a core, but it still turns fast.
class Unrest
{
public:
    Unrest()
        : usedBefore(Footprint::processorSeconds())
        , timer(started())
    {
        QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::awake,
                         &context, [this] { ++turns; });
    }
    Unrest(const Unrest &) = delete;
    Unrest &operator=(const Unrest &) = delete;

    bool isQuiet() const
    {
        const double seconds = double(timer.elapsed()) / 1000;
        const double share = (Footprint::processorSeconds() - usedBefore) / seconds;
        const double turnsPerSecond = turns / seconds;
        qInfo("%.1f %% of a core, %.0f turns of the event loop per second", share * 100,
              turnsPerSecond);
        return share < quiet && turnsPerSecond < quietTurns;
    }

private:
    const double usedBefore;
    const QElapsedTimer timer;
    int turns = 0;
    QObject context;
};

bool isQuietFor(int milliseconds)
{
    const Unrest unrest;
    QTest::qWait(milliseconds);
    return unrest.isQuiet();
}

// What a user who clicks again and again would have found while the event loop ran.
struct Clicks
{
    Responsiveness found;
    double perSecond = 0;

    explicit Clicks(int milliseconds)
    {
        found.start();
        QTest::qWait(milliseconds);
        found.stop();
        perSecond = found.turns() * 1000.0 / milliseconds;
    }
};

} // namespace

Q_DECLARE_METATYPE(Scene)

class campaign_Device : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void cleanupTestCase();

    void itMayGoAtAnyTime_data();
    void itMayGoAtAnyTime();
    void itMayGoWhileABoxIsOpen_data();
    void itMayGoWhileABoxIsOpen();
    void itMayGoBehindABox_data();
    void itMayGoBehindABox();
    void itMayGoWhileTheUploaderRuns();
    void itMayComeAndGo();

    void itMayAnswerByteByByte_data();
    void itMayAnswerByteByByte();
    void itMayFloodTheQuery_data();
    void itMayFloodTheQuery();
    void itMayFloodTheMonitor_data();
    void itMayFloodTheMonitor();
    void itMayHoldAnotherSketch();
};

void campaign_Device::init()
{
    ApplicationDirectory::clear();
    ApplicationDirectory::installUploader("#!/bin/sh\n");
}

void campaign_Device::cleanup()
{
    ApplicationDirectory::clear();
}

void campaign_Device::cleanupTestCase()
{
    letFadesEnd();
}

void campaign_Device::itMayGoAtAnyTime_data()
{
    QTest::addColumn<Scene>("scene");

    const QStringList none;
    QTest::newRow("idle, then the list is refreshed")
        << Scene {nothing, 0, refreshDevices, {noDevice}};
    QTest::newRow("idle, then it is selected") << Scene {nothing, 0, selectDevice, none};
    QTest::newRow("selected, then it is asked again") << Scene {selectDevice, 0, askAgain, none};
    QTest::newRow("selected, then the monitor is opened")
        << Scene {selectDevice, 0, chooseMonitor, {monitorNotOpened}};
    QTest::newRow("selected, then it is updated")
        << Scene {selectBoth, 0, pressUpdate, {confirmation, notOpened}};

    QTest::newRow("at the first request of the query") << Scene {nothing, 1, selectDevice, none};
    QTest::newRow("in the middle of the query") << Scene {nothing, 5, selectDevice, none};
    QTest::newRow("at the last request of the query")
        << Scene {nothing, allAttempts, selectDevice, none};
    QTest::newRow("while it is asked again") << Scene {selectDevice, 1, askAgain, {unknownProgram}};
    QTest::newRow("while it is asked for the monitor")
        << Scene {selectDevice, 1, chooseMonitor, {cannotCommunicate}};
    QTest::newRow("while it is asked before the upload")
        << Scene {selectBoth, 1, pressUpdate, {confirmation, success}};

    QTest::newRow("monitor open") << Scene {openMonitor, 0, waitForPoll, {cannotCommunicate}};
    QTest::newRow("monitor open, text came before")
        << Scene {openMonitorAndReceive, 0, waitForPoll, {cannotCommunicate}};
    QTest::newRow("monitor open, text to be sent")
        << Scene {openMonitor, 0, sendText, {cannotCommunicate, cannotWrite}};
}

void campaign_Device::itMayGoAtAnyTime()
{
    QFETCH(const Scene, scene);
    Workplace workplace;
    QVERIFY(scene.before(workplace));
    if (scene.atRequest > 0) {
        workplace.device->setAnswers({"garbage\r\n"});
        workplace.device->unplugAtRequest(scene.atRequest);
    } else {
        workplace.pull();
    }
    {
        const MessageBoxDriver boxes;
        QVERIFY(scene.act(workplace));
        QTRY_COMPARE_WITH_TIMEOUT(boxes.texts(), scene.boxes, patience);
        QVERIFY(waitForTicks());
        QCOMPARE(boxes.texts(), scene.boxes);
    }
    QVERIFY(!workplace.isMonitorShown());
    QVERIFY(workplace.serves());
}

void campaign_Device::itMayGoWhileABoxIsOpen_data()
{
    QTest::addColumn<Scene>("scene");

    QTest::newRow("confirmation of the update")
        << Scene {selectBoth, 0, pressUpdate, {confirmation, notOpened}};
    QTest::newRow("success of the update")
        << Scene {selectBoth, 0, pressUpdate, {confirmation, success}, 2};
    // It was lost before, and the box is open for that.
    QTest::newRow("unknown program") << Scene {selectDevice, 1, askAgain, {unknownProgram}};
    QTest::newRow("cannot communicate")
        << Scene {selectDevice, 1, chooseMonitor, {cannotCommunicate}};
}

void campaign_Device::itMayGoWhileABoxIsOpen()
{
    QFETCH(const Scene, scene);
    Workplace workplace;
    QVERIFY(scene.before(workplace));
    if (scene.atRequest > 0)
        workplace.device->unplugAtRequest(workplace.device->requests() + scene.atRequest);
    {
        MessageBoxDriver boxes;
        bool quietThroughout = true;
        boxes.whileOpen([&] {
            if (boxes.boxes().size() < scene.atBox)
                return;
            workplace.pull();
            QTest::qWait(severalTicks); // until a tick the lost port makes itself felt
            quietThroughout = isQuietFor(boxTime) && quietThroughout;
        });
        QVERIFY(scene.act(workplace));
        QTRY_COMPARE_WITH_TIMEOUT(boxes.texts(), scene.boxes, grace);
        QVERIFY(quietThroughout);
    }
    QVERIFY(workplace.serves());
}

void campaign_Device::itMayGoBehindABox_data()
{
    QTest::addColumn<Scene>("scene");

    // With the monitor open the poll goes on behind a box, and opens its own above it.
    QTest::newRow("confirmation of the update") << Scene {
        openMonitorWithProgram, 0, pressUpdate, {cannotCommunicate, confirmation, noneSelected}};
    QTest::newRow("unknown program")
        << Scene {openMonitor, 1, askAgain, {cannotCommunicate, unknownProgram}};
    QTest::newRow("unknown program, text to be sent")
        << Scene {openMonitor, 1, askAndSend, {cannotCommunicate, cannotWrite, unknownProgram}};
}

void campaign_Device::itMayGoBehindABox()
{
    QFETCH(const Scene, scene);
    Workplace workplace;
    QVERIFY(scene.before(workplace));
    if (scene.atRequest > 0)
        workplace.device->unplugAtRequest(workplace.device->requests() + scene.atRequest);
    bool quietBehind = false;
    std::unique_ptr<Unrest> unrest;
    std::unique_ptr<MessageBoxDriver> boxes; // answers from above
    const auto later = [&workplace](int time, const std::function<void()> &action) {
        auto *timer = new QTimer(workplace.window.get());
        timer->setSingleShot(true);
        QObject::connect(timer, &QTimer::timeout, timer, action);
        timer->start(time);
    };
    const auto answerBoxes = [&] {
        quietBehind = unrest->isQuiet();
        boxes = std::make_unique<MessageBoxDriver>();
    };
    const auto watch = [&] {
        unrest = std::make_unique<Unrest>();
        later(boxTime, answerBoxes);
    };
    later(severalTicks, [&] {
        workplace.pull();
        later(severalTicks, watch);
    });

    QVERIFY(scene.act(workplace));

    QCOMPARE(boxes->texts(), scene.boxes);
    QVERIFY(quietBehind);
    boxes.reset();
    QVERIFY(workplace.serves());
}

void campaign_Device::itMayGoWhileTheUploaderRuns()
{
    ApplicationDirectory::installUploader("#!/bin/sh\necho ran > \"$0.ran\"\nsleep 1\n");
    Workplace workplace;
    QVERIFY(selectBoth(workplace));
    // The window is blocked meanwhile.
    std::thread hand([&workplace] {
        const QString mark = ApplicationDirectory::uploaderPath() + QStringLiteral("avrdude.ran");
        for (QElapsedTimer timer = started(); !QFileInfo::exists(mark) && !timer.hasExpired(grace);)
            QThread::msleep(5);
        workplace.device->unplug();
    });
    {
        const MessageBoxDriver boxes;
        QVERIFY(workplace.pressUpdate());
        hand.join();
        QCOMPARE(boxes.texts(), (QStringList {confirmation, success}));
    }
    QVERIFY(workplace.serves());
}

void campaign_Device::itMayComeAndGo()
{
    Workplace workplace;
    for (int time = 0; time < timesPulled; ++time) {
        const MessageBoxDriver boxes;
        QVERIFY(workplace.openMonitor());
        workplace.pull();
        QTRY_VERIFY_WITH_TIMEOUT(!workplace.isMonitorShown(), grace);
        QCOMPARE(boxes.texts(), QStringList {cannotCommunicate});
        workplace.plug();
        QVERIFY(workplace.refreshDevices());
    }
    QVERIFY(workplace.serves());
}

void campaign_Device::itMayAnswerByteByByte_data()
{
    QTest::addColumn<int>("pause");

    QTest::newRow("30 ms between them") << 30;
    QTest::newRow("300 ms between them") << 300;
}

void campaign_Device::itMayAnswerByteByByte()
{
    QFETCH(const int, pause);
    Workplace workplace;
    workplace.device->setBytePause(pause);
    const QElapsedTimer timer = started();

    QVERIFY(workplace.selectDevice());

    QVERIFY(timer.elapsed() < queryTimeout + grace);
    workplace.device->setBytePause(0);
    QTRY_COMPARE_WITH_TIMEOUT(workplace.device->received(), QByteArray(allAttempts, 'v'), grace);
    QCOMPARE(workplace.programOnDevice(), unknownSketch);
    QVERIFY(workplace.serves());
}

void campaign_Device::itMayFloodTheQuery_data()
{
    QTest::addColumn<QByteArray>("text");

    QTest::newRow("lines") << QByteArray("not what you asked for\r\n");
    QTest::newRow("no line ends") << QByteArray(64, 'x');
    QTest::newRow("the mark without line ends") << QByteArray("Version:Blink");
    QTest::newRow("NUL") << QByteArray(64, '\0');
    QTest::newRow("noise") << QByteArray("\xff\xfe\x80\xc3");
}

void campaign_Device::itMayFloodTheQuery()
{
    QFETCH(const QByteArray, text);
    Workplace workplace;
    workplace.device->setAnswers({QByteArray()});
    workplace.device->flood(text, fastestFlood);
    const QElapsedTimer timer = started();

    QVERIFY(workplace.selectDevice());

    QVERIFY(timer.elapsed() < queryTimeout + grace);
    QTRY_COMPARE_WITH_TIMEOUT(workplace.device->received(), QByteArray(allAttempts, 'v'), grace);
    QCOMPARE(workplace.programOnDevice(), unknownSketch);
    QVERIFY(workplace.serves());
}

void campaign_Device::itMayFloodTheMonitor_data()
{
    QTest::addColumn<QByteArray>("text");

    QTest::newRow("lines") << QByteArray("not what you asked for\r\n");
    QTest::newRow("bare line feeds") << QByteArray("not what you asked for\n");
    QTest::newRow("no line ends") << QByteArray(64, 'x');
    QTest::newRow("noise") << QByteArray("\xff\xfe\x80\xc3");
}

void campaign_Device::itMayFloodTheMonitor()
{
    QFETCH(const QByteArray, text);
    Workplace workplace;
    const Clicks idle(idleTime);
    QVERIFY(workplace.openMonitor());
    const qint64 before = Footprint::residentBytes();

    workplace.device->flood(text, lineSpeed);
    const Clicks flooded(floodSeconds() * 1000);

    const int shown = int(workplace.monitorText().size());
    qInfo("%d characters shown in %d s, %.1f MiB more", shown, floodSeconds(),
          double(Footprint::residentBytes() - before) / (1024 * 1024));
    qInfo("the longest pause was %.0f ms, %.1f ms of the processor; %.0f clicks per second, %.0f "
          "idle",
          flooded.found.longestGap(), flooded.found.longestWork(), flooded.perSecond,
          idle.perSecond);
    QVERIFY(shown > floodSeconds() * lineSpeed / 2);
    QVERIFY(flooded.found.longestWork() < longestTurn);
    QVERIFY(flooded.perSecond > servedShare * idle.perSecond);
    workplace.send(QStringLiteral("stop"));
    QTRY_VERIFY_WITH_TIMEOUT(workplace.device->received().endsWith("stop"), grace);
    {
        const MessageBoxDriver boxes;
        workplace.pull();
        QTRY_VERIFY_WITH_TIMEOUT(!workplace.isMonitorShown(), grace);
        QCOMPARE(boxes.texts(), QStringList {cannotCommunicate});
    }
    QVERIFY(workplace.serves());
}

void campaign_Device::itMayHoldAnotherSketch()
{
    Workplace workplace;
    QVERIFY(workplace.selectDevice());
    const QString before = workplace.recommendation();
    workplace.device->setAnswers({"Version:Stranger__7\r\n"});

    QVERIFY(workplace.askAgain());

    QCOMPARE(workplace.programOnDevice(), QStringLiteral("Stranger"));
    QCOMPARE(workplace.recommendation(), before); // nothing is known of it here
    QVERIFY(workplace.serves());
}

QTEST_MAIN(campaign_Device)

#include "campaign_device.moc"
