// A device at its worst: pulled in every state of the program, dripping, flooding, restarting, or
// with another sketch. Each time the window comes back, and is quiet while a box about it is open.
#include "applicationdirectory.h"
#include "bench.h"
#include "footprint.h"
#include "messageboxdriver.h"
#include "patience.h"
#include "pollwatch.h"
#include "windowdriver.h"

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
    std::function<bool(Bench &)> before;
    int atRequest = 0; // it goes when this request comes, counted anew; 0 before the user acts
    std::function<bool(Bench &)> act;
    QStringList boxes;
    int atBox = 1; // the first of them behind which it goes, where it goes behind one
};

bool nothing(Bench &)
{
    return true;
}

bool selectDevice(Bench &bench)
{
    return bench.selectDevice();
}

bool selectBoth(Bench &bench)
{
    return bench.selectProgram() && bench.selectDevice();
}

bool openMonitor(Bench &bench)
{
    return bench.openMonitor();
}

bool openMonitorWithProgram(Bench &bench)
{
    return bench.selectProgram() && bench.openMonitor();
}

bool refreshDevices(Bench &bench)
{
    return bench.refreshDevices();
}

bool askAgain(Bench &bench)
{
    return bench.askAgain();
}

bool chooseMonitor(Bench &bench)
{
    return bench.chooseMonitor();
}

bool pressUpdate(Bench &bench)
{
    return bench.pressUpdate();
}

bool sendText(Bench &bench)
{
    bench.send(QStringLiteral("lost"));
    return true;
}

bool askAndSend(Bench &bench)
{
    bench.send(QStringLiteral("lost"));
    return bench.askAgain();
}

// The poll needs a tick to see it.
bool waitForPoll(Bench &)
{
    return waitForTicks();
}

bool openMonitorAndReceive(Bench &bench)
{
    if (!bench.openMonitor())
        return false;
    bench.device->send("last words");
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

// In ms, of the thread that calls.
double processorTime()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return double(time.tv_sec) * 1e3 + double(time.tv_nsec) / 1e6;
}

// What a user who clicks every 10 ms would have found while the event loop ran.
struct Clicks
{
    double perSecond = 0;
    double longestTurn = 0; // ms of the processor between two of them
    qint64 longestWait = 0; // ms, whatever else the machine did

    explicit Clicks(int milliseconds)
    {
        int served = 0;
        double usedBefore = processorTime();
        QElapsedTimer sinceLast = started();
        QTimer clicks;
        QObject::connect(&clicks, &QTimer::timeout, &clicks, [&] {
            ++served;
            const double used = processorTime();
            longestTurn = qMax(longestTurn, used - usedBefore);
            usedBefore = used;
            longestWait = qMax(longestWait, sinceLast.restart());
        });
        clicks.start(10);
        QTest::qWait(milliseconds);
        perSecond = served * 1000.0 / milliseconds;
    }
};

} // namespace

Q_DECLARE_METATYPE(Scene)

class tst_WorstDevice : public QObject
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

void tst_WorstDevice::init()
{
    ApplicationDirectory::clear();
    ApplicationDirectory::installUploader("#!/bin/sh\n");
}

void tst_WorstDevice::cleanup()
{
    ApplicationDirectory::clear();
}

void tst_WorstDevice::cleanupTestCase()
{
    letFadesEnd();
}

void tst_WorstDevice::itMayGoAtAnyTime_data()
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

void tst_WorstDevice::itMayGoAtAnyTime()
{
    QFETCH(const Scene, scene);
    Bench bench;
    QVERIFY(scene.before(bench));
    if (scene.atRequest > 0) {
        bench.device->setAnswers({"garbage\r\n"});
        bench.device->unplugAtRequest(scene.atRequest);
    } else {
        bench.pull();
    }
    {
        const MessageBoxDriver boxes;
        QVERIFY(scene.act(bench));
        QTRY_COMPARE_WITH_TIMEOUT(boxes.texts(), scene.boxes, patience);
        QVERIFY(waitForTicks());
        QCOMPARE(boxes.texts(), scene.boxes);
    }
    QVERIFY(!bench.isMonitorShown());
    QVERIFY(bench.serves());
}

void tst_WorstDevice::itMayGoWhileABoxIsOpen_data()
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

void tst_WorstDevice::itMayGoWhileABoxIsOpen()
{
    QFETCH(const Scene, scene);
    Bench bench;
    QVERIFY(scene.before(bench));
    if (scene.atRequest > 0)
        bench.device->unplugAtRequest(bench.device->requests() + scene.atRequest);
    {
        MessageBoxDriver boxes;
        bool quietThroughout = true;
        boxes.whileOpen([&] {
            if (boxes.boxes().size() < scene.atBox)
                return;
            bench.pull();
            QTest::qWait(severalTicks); // until a tick the lost port makes itself felt
            quietThroughout = isQuietFor(boxTime) && quietThroughout;
        });
        QVERIFY(scene.act(bench));
        QTRY_COMPARE_WITH_TIMEOUT(boxes.texts(), scene.boxes, grace);
        QVERIFY(quietThroughout);
    }
    QVERIFY(bench.serves());
}

void tst_WorstDevice::itMayGoBehindABox_data()
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

void tst_WorstDevice::itMayGoBehindABox()
{
    QFETCH(const Scene, scene);
    Bench bench;
    QVERIFY(scene.before(bench));
    if (scene.atRequest > 0)
        bench.device->unplugAtRequest(bench.device->requests() + scene.atRequest);
    bool quietBehind = false;
    std::unique_ptr<Unrest> unrest;
    std::unique_ptr<MessageBoxDriver> boxes; // answers from above
    const auto later = [&bench](int time, const std::function<void()> &action) {
        auto *timer = new QTimer(bench.window.get());
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
        bench.pull();
        later(severalTicks, watch);
    });

    QVERIFY(scene.act(bench));

    QCOMPARE(boxes->texts(), scene.boxes);
    QVERIFY(quietBehind);
    boxes.reset();
    QVERIFY(bench.serves());
}

void tst_WorstDevice::itMayGoWhileTheUploaderRuns()
{
    ApplicationDirectory::installUploader("#!/bin/sh\necho ran > \"$0.ran\"\nsleep 1\n");
    Bench bench;
    QVERIFY(selectBoth(bench));
    // The window is blocked meanwhile.
    std::thread hand([&bench] {
        const QString mark = ApplicationDirectory::uploaderPath() + QStringLiteral("avrdude.ran");
        for (QElapsedTimer timer = started(); !QFileInfo::exists(mark) && !timer.hasExpired(grace);)
            QThread::msleep(5);
        bench.device->unplug();
    });
    {
        const MessageBoxDriver boxes;
        QVERIFY(bench.pressUpdate());
        hand.join();
        QCOMPARE(boxes.texts(), (QStringList {confirmation, success}));
    }
    QVERIFY(bench.serves());
}

void tst_WorstDevice::itMayComeAndGo()
{
    Bench bench;
    for (int time = 0; time < timesPulled; ++time) {
        const MessageBoxDriver boxes;
        QVERIFY(bench.openMonitor());
        bench.pull();
        QTRY_VERIFY_WITH_TIMEOUT(!bench.isMonitorShown(), grace);
        QCOMPARE(boxes.texts(), QStringList {cannotCommunicate});
        bench.plug();
        QVERIFY(bench.refreshDevices());
    }
    QVERIFY(bench.serves());
}

void tst_WorstDevice::itMayAnswerByteByByte_data()
{
    QTest::addColumn<int>("pause");

    QTest::newRow("30 ms between them") << 30;
    QTest::newRow("300 ms between them") << 300;
}

void tst_WorstDevice::itMayAnswerByteByByte()
{
    QFETCH(const int, pause);
    Bench bench;
    bench.device->setBytePause(pause);
    const QElapsedTimer timer = started();

    QVERIFY(bench.selectDevice());

    QVERIFY(timer.elapsed() < queryTimeout + grace);
    bench.device->setBytePause(0);
    QTRY_COMPARE_WITH_TIMEOUT(bench.device->received(), QByteArray(allAttempts, 'v'), grace);
    QCOMPARE(bench.programOnDevice(), unknownSketch);
    QVERIFY(bench.serves());
}

void tst_WorstDevice::itMayFloodTheQuery_data()
{
    QTest::addColumn<QByteArray>("text");

    QTest::newRow("lines") << QByteArray("not what you asked for\r\n");
    QTest::newRow("no line ends") << QByteArray(64, 'x');
    QTest::newRow("the mark without line ends") << QByteArray("Version:Blink");
    QTest::newRow("NUL") << QByteArray(64, '\0');
    QTest::newRow("noise") << QByteArray("\xff\xfe\x80\xc3");
}

void tst_WorstDevice::itMayFloodTheQuery()
{
    QFETCH(const QByteArray, text);
    Bench bench;
    bench.device->setAnswers({QByteArray()});
    bench.device->flood(text, fastestFlood);
    const QElapsedTimer timer = started();

    QVERIFY(bench.selectDevice());

    QVERIFY(timer.elapsed() < queryTimeout + grace);
    QTRY_COMPARE_WITH_TIMEOUT(bench.device->received(), QByteArray(allAttempts, 'v'), grace);
    QCOMPARE(bench.programOnDevice(), unknownSketch);
    QVERIFY(bench.serves());
}

void tst_WorstDevice::itMayFloodTheMonitor_data()
{
    QTest::addColumn<QByteArray>("text");

    QTest::newRow("lines") << QByteArray("not what you asked for\r\n");
    QTest::newRow("bare line feeds") << QByteArray("not what you asked for\n");
    QTest::newRow("no line ends") << QByteArray(64, 'x');
    QTest::newRow("noise") << QByteArray("\xff\xfe\x80\xc3");
}

void tst_WorstDevice::itMayFloodTheMonitor()
{
    QFETCH(const QByteArray, text);
    Bench bench;
    const Clicks idle(idleTime);
    QVERIFY(bench.openMonitor());
    const qint64 before = Footprint::residentBytes();

    bench.device->flood(text, lineSpeed);
    const Clicks flooded(floodSeconds() * 1000);

    const int shown = int(bench.monitorText().size());
    qInfo("%d characters shown in %d s, %.1f MiB more", shown, floodSeconds(),
          double(Footprint::residentBytes() - before) / (1024 * 1024));
    qInfo(
        "the longest pause was %d ms, %.1f ms of the processor; %.0f clicks per second, %.0f idle",
        int(flooded.longestWait), flooded.longestTurn, flooded.perSecond, idle.perSecond);
    QVERIFY(shown > floodSeconds() * lineSpeed / 2);
    QVERIFY(flooded.longestTurn < longestTurn);
    QVERIFY(flooded.perSecond > servedShare * idle.perSecond);
    bench.send(QStringLiteral("stop"));
    QTRY_VERIFY_WITH_TIMEOUT(bench.device->received().endsWith("stop"), grace);
    {
        const MessageBoxDriver boxes;
        bench.pull();
        QTRY_VERIFY_WITH_TIMEOUT(!bench.isMonitorShown(), grace);
        QCOMPARE(boxes.texts(), QStringList {cannotCommunicate});
    }
    QVERIFY(bench.serves());
}

void tst_WorstDevice::itMayHoldAnotherSketch()
{
    Bench bench;
    QVERIFY(bench.selectDevice());
    const QString before = bench.recommendation();
    bench.device->setAnswers({"Version:Stranger__7\r\n"});

    QVERIFY(bench.askAgain());

    QCOMPARE(bench.programOnDevice(), QStringLiteral("Stranger"));
    QCOMPARE(bench.recommendation(), before); // nothing is known of it here
    QVERIFY(bench.serves());
}

QTEST_MAIN(tst_WorstDevice)

#include "tst_worstdevice.moc"
