// A real chip at its worst: it restarts without end or goes in the middle of what it does, and the
// window recovers each time. Runs on a simulated device.
#include "mainwindow/mainwindow.h"
#include "support/applicationdirectory.h"
#include "support/chip.h"
#include "support/messageboxdriver.h"
#include "support/patience.h"
#include "support/windowdriver.h"

#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMainWindow>
#include <QProcess>
#include <QTest>
#include <QTextBrowser>

namespace {

// Ten attempts of a second each, as the request goes out at once: 10.1 s were measured, and 40.2 to
// 41.6 s for an update that asks first and then waits for avrdude.
constexpr int queryTime = 10000; // ms
constexpr int uploadTimeout = 30000; // ms
constexpr int grace = 10000; // ms that a loaded machine may take for the rest
constexpr int fewTimes = 5;

const QString success = QStringLiteral("Upload successfull.");
const QString confirmation = QStringLiteral("DO NOT REMOVE OR TURN OFF THE DEVICE.");
const QString failure = QStringLiteral("Unable to upload to device.");
const QString control = QStringLiteral("'" SIMULATED_DEVICE_CLIENT "' ");

// Does something to the device while the window is blocked, until it goes out of scope.
class Hand
{
public:
    explicit Hand(const QString &shellCommand)
    {
        process.start(QStringLiteral("sh"), {QStringLiteral("-c"), shellCommand});
        process.waitForStarted(patience);
    }
    ~Hand()
    {
        process.kill();
        process.waitForFinished(patience);
    }
    Hand(const Hand &) = delete;
    Hand &operator=(const Hand &) = delete;

    bool isDone() { return process.waitForFinished(patience) && process.exitCode() == 0; }

private:
    QProcess process;
};

// The bootloader listens for a second, so the sketch never starts.
QString restartWithoutEnd()
{
    return QStringLiteral("while ") + control + QStringLiteral("reset; do sleep 0.1; done");
}

} // namespace

class campaign_Chip : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void cleanupTestCase();

    void mayRestartDuringTheQuery();
    void mayRestartBehindTheMonitor();
    void mayRestartDuringTheUpload();
    void mayGoDuringTheQuery();
    void mayComeAndGo();

private:
    QString label(const char *name) const { return child<QLabel>(*window, name)->text(); }
    bool selectBoth() const;
    // Whether the device is found, asked, and answers in the monitor. Leaves the monitor closed.
    bool serves() const;
    // Whether an update now puts the sketch into the chip.
    bool updates() const;

    MainWindow *window = nullptr;
};

void campaign_Chip::init()
{
    Chip::fillApplicationDirectory();
    window = new MainWindow;
    window->show();
}

void campaign_Chip::cleanup()
{
    delete window;
    ApplicationDirectory::clear();
}

void campaign_Chip::cleanupTestCase()
{
    letFadesEnd();
}

bool campaign_Chip::selectBoth() const
{
    return selectRow(*window, "listWidget_programlist", 1)
        && selectRow(*window, "listWidget_devicelist", 0);
}

bool campaign_Chip::serves() const
{
    const MessageBoxDriver boxes;
    if (!click(*window, "pushButton_devicelist_refresh") || !openSerialMonitor(*window)
        || label("label_programondevice") != QLatin1String("Metronome"))
        return false;

    QMainWindow *monitor = serialMonitor(*window);
    auto *line = child<QLineEdit>(*monitor, "lineEdit");
    line->setText(QStringLiteral("hello"));
    QTest::keyClick(line, Qt::Key_Return);
    const auto *view = child<QTextBrowser>(*monitor, "textBrowser");
    // The adapter may hand a line over in two pieces, each a line of the monitor.
    const auto shownText = [view] {
        return view->toPlainText().remove(QLatin1Char('\n'));
    };
    const bool answered = QTest::qWaitFor(
        [shownText] { return shownText().endsWith(QLatin1String("Heard: hello")); }, patience);
    monitor->close();
    return answered && boxes.boxes().isEmpty();
}

bool campaign_Chip::updates() const
{
    const MessageBoxDriver boxes;
    return selectBoth() && click(*window, "pushButton_update") && boxes.texts().last() == success
        && Chip::holds(QStringLiteral("Metronome__2"));
}

void campaign_Chip::mayRestartDuringTheQuery()
{
    QElapsedTimer timer;
    {
        const Hand hand(restartWithoutEnd());
        timer.start();
        QVERIFY(selectBoth());
    }
    const qint64 elapsed = timer.elapsed();
    qInfo("asked for %lld ms", elapsed);
    QVERIFY(elapsed < queryTime + grace);
    QCOMPARE(label("label_programondevice"), QStringLiteral("Unknown sketch"));
    QVERIFY(serves());
}

void campaign_Chip::mayRestartBehindTheMonitor()
{
    const MessageBoxDriver boxes;
    QVERIFY(openSerialMonitor(*window));
    for (int time = 0; time < fewTimes; ++time) {
        QVERIFY(Chip::reset());
        QTest::qWait(500);
    }
    QVERIFY(serialMonitor(*window)->isVisible());
    serialMonitor(*window)->close();
    QCOMPARE(boxes.texts(), QStringList());
    QVERIFY(serves());
}

void campaign_Chip::mayRestartDuringTheUpload()
{
    QVERIFY(selectBoth());
    {
        const Hand hand(restartWithoutEnd());
        const MessageBoxDriver boxes;
        QElapsedTimer timer;
        timer.start();
        QVERIFY(click(*window, "pushButton_update"));
        const qint64 elapsed = timer.elapsed();
        qInfo("updated for %lld ms", elapsed);
        // avrdude tries on until it is killed.
        QCOMPARE(boxes.texts(), QStringList({confirmation, failure}));
        QVERIFY(elapsed >= uploadTimeout);
        QVERIFY(elapsed < queryTime + uploadTimeout + grace);
    }
    QVERIFY(updates());
    QVERIFY(serves());
}

void campaign_Chip::mayGoDuringTheQuery()
{
    Hand hand(Chip::unplugAfter(1)); // with the first request
    QElapsedTimer timer;
    timer.start();
    QVERIFY(selectBoth());
    // It ends with the first attempts: 1.2 s were measured, a query to the end takes longer.
    const qint64 elapsed = timer.elapsed();
    qInfo("asked for %lld ms", elapsed);
    QVERIFY(elapsed < queryTime);
    QVERIFY(hand.isDone());
    QCOMPARE(label("label_programondevice"), QStringLiteral("Unknown sketch"));
    QVERIFY(Chip::replug());
    QVERIFY(serves());
}

void campaign_Chip::mayComeAndGo()
{
    for (int time = 0; time < fewTimes; ++time) {
        const MessageBoxDriver boxes;
        QVERIFY(Chip::unplug());
        QVERIFY(click(*window, "pushButton_devicelist_refresh"));
        QCOMPARE(child<QListWidget>(*window, "listWidget_devicelist")->count(), 0);
        QCOMPARE(boxes.texts(), QStringList {QStringLiteral("No device found.")});
        QVERIFY(Chip::replug());
        QVERIFY(click(*window, "pushButton_devicelist_refresh"));
        QCOMPARE(child<QListWidget>(*window, "listWidget_devicelist")->count(), 1);
    }
    QVERIFY(serves());
}

QTEST_MAIN(campaign_Chip)

#include "campaign_chip.moc"
