// Floods of bytes into the open serial monitor: the window keeps responding, and Clear frees the
// memory.
#include "campaign.h"
#include "mainwindow/mainwindow.h"
#include "serialmonitor/serialmonitor.h"
#include "support/applicationdirectory.h"
#include "support/footprint.h"
#include "support/patience.h"
#include "support/pluggeddevice.h"
#include "support/responsiveness.h"
#include "support/windowdriver.h"

#include <QElapsedTimer>
#include <QTest>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTextDocument>
#include <QTimer>

#include <atomic>
#include <thread>

namespace {

constexpr int torrentTime = 1200000; // ms that a torrent may take
constexpr int severalTicks = 500; // ms
constexpr int longestWait = 5000; // ms; beyond it the window counts as lost, with a sanitizer too
constexpr qint64 mebibyte = 1024LL * 1024;
constexpr qint64 memoryBound = 16 * mebibyte; // bytes resident, gaps of the heap included
constexpr qint64 heapBound = 768LL * 1024; // bytes of the heap in use

constexpr int bytesPerTick = 1152; // at 115200 baud
constexpr int ticksPerMinute = 600;
constexpr int megabytesPerHour = 42;
constexpr qint64 manyCharacters = 1000000;

constexpr int blockSize = 4096;
constexpr qint64 bytesBefore = 5000000;

const QByteArray endMark = "\r\nEND OF THE CAMPAIGN\r\n";

QTextBrowser *view(const SerialMonitor &monitor)
{
    return child<QTextBrowser>(monitor, "textBrowser");
}

QTextBrowser *view(const MainWindow &window)
{
    return child<QTextBrowser>(*serialMonitor(window), "textBrowser");
}

using Filling = QByteArray (*)(Campaign::Dice *);

QByteArray lines(Campaign::Dice *dice)
{
    QByteArray block;
    while (block.size() < blockSize)
        block += "temperature " + QByteArray::number(dice->below(1000)) + "\r\n";
    return block;
}

QByteArray lineFeeds(Campaign::Dice *dice)
{
    return lines(dice).replace("\r\n", "\n");
}

QByteArray withoutLineEnds(Campaign::Dice *dice)
{
    QByteArray block;
    while (block.size() < blockSize)
        block.append(char('a' + dice->below(26)));
    return block;
}

QByteArray mixedLineEnds(Campaign::Dice *dice)
{
    static const QList<QByteArray> ends = {"\r\n", "\n", "\r", "\n\r", "\r\r\n", "\n\n\n"};
    QByteArray block;
    while (block.size() < blockSize)
        block += QByteArray::number(dice->below(1000)) + dice->oneOf(ends);
    return block;
}

QByteArray anyBytes(Campaign::Dice *dice)
{
    QByteArray block;
    while (block.size() < blockSize)
        block.append(char(1 + dice->below(255)));
    return block;
}

QByteArray withNuls(Campaign::Dice *dice)
{
    QByteArray block = anyBytes(dice);
    block[dice->below(blockSize)] = '\0';
    return block;
}

// What a text browser would take for HTML, if it had the choice.
QByteArray markup(Campaign::Dice *dice)
{
    static const QList<QByteArray> pieces = {"<table><tr><td>",
                                             "<b>",
                                             "</p>",
                                             "<img src=\"/dev/zero\">",
                                             "<style>",
                                             "<h1>",
                                             "<a href=\"/etc/hostname\">",
                                             "<ul><li>",
                                             "&nbsp;",
                                             "<!--",
                                             "   ",
                                             "\n",
                                             "21.5"};
    QByteArray block;
    while (block.size() < blockSize)
        block += dice->oneOf(pieces);
    return block;
}

QByteArray mixture(Campaign::Dice *dice)
{
    static const QList<Filling> fillings = {lines, withoutLineEnds, mixedLineEnds, anyBytes,
                                            withNuls};
    return dice->oneOf(fillings)(dice);
}

// Writes as fast as the terminal accepts it, in its own thread.
class Torrent
{
public:
    Torrent(ScriptedDevice *device, Filling filling, qint64 size)
        : thread([this, device, filling, size] {
            Campaign::Dice dice;
            for (qint64 sent = 0; sent < size; sent += blockSize)
                device->send(filling(&dice).left(blockSize));
            done = true;
        })
    {
    }
    ~Torrent() { thread.join(); }

    Torrent(const Torrent &) = delete;
    Torrent &operator=(const Torrent &) = delete;

    bool isDone() const { return done; }

private:
    std::atomic<bool> done = {false};
    std::thread thread;
};

// Whether the window has shown all that the torrent brought.
bool showTorrent(ScriptedDevice *device, Filling filling, qint64 size)
{
    {
        const Torrent torrent(device, filling, size);
        if (!QTest::qWaitFor([&] { return torrent.isDone(); }, torrentTime))
            return false;
    }
    if (!QTest::qWaitFor([&] { return device->unread() == 0; }, torrentTime))
        return false;
    QTest::qWait(severalTicks);
    return true;
}

// Counts, from tick to tick, how often the oldest paragraphs go.
class Cuts
{
public:
    explicit Cuts(const QTextDocument &watched)
        : document(watched)
    {
    }

    void look()
    {
        ++ticks;
        if (document.blockCount() < paragraphs) {
            ++number;
            firstTick = number == 1 ? ticks : firstTick;
        }
        paragraphs = document.blockCount();
    }

    int count() const { return number; }
    int first() const { return firstTick; }

private:
    const QTextDocument &document;
    int paragraphs = 0;
    int ticks = 0;
    int number = 0;
    int firstTick = 0;
};

// What is still on its way when the button is clicked is shown after it.
bool clearView(const MainWindow &window)
{
    const auto staysEmpty = [&window] {
        const bool cleared = click(*serialMonitor(window), "pushButton_2");
        QTest::qWait(severalTicks);
        return cleared && view(window)->toPlainText().isEmpty();
    };
    return QTest::qWaitFor(staysEmpty, patience);
}

} // namespace

Q_DECLARE_METATYPE(Filling)

class campaign_Monitor : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void cleanupTestCase();

    void asFastAsItGoes_data();
    void asFastAsItGoes();
    void atTheAdaptersRate_data();
    void atTheAdaptersRate();
};

void campaign_Monitor::init()
{
    ApplicationDirectory::clear();
}

void campaign_Monitor::cleanup()
{
    ApplicationDirectory::clear();
}

void campaign_Monitor::cleanupTestCase()
{
    letFadesEnd();
}

void campaign_Monitor::asFastAsItGoes_data()
{
    QTest::addColumn<Filling>("filling");
    QTest::addColumn<int>("megabytes");

    const int some = Campaign::count(0, 1);
    QTest::newRow("lines") << Filling(lines) << some * megabytesPerHour;
    QTest::newRow("without line ends") << Filling(withoutLineEnds) << some * megabytesPerHour;
    QTest::newRow("mixed line ends") << Filling(mixedLineEnds) << some * 5;
    QTest::newRow("any bytes") << Filling(anyBytes) << some * 5;
    QTest::newRow("with NUL bytes") << Filling(withNuls) << some * 5;
    QTest::newRow("markup") << Filling(markup) << some * 5;
    QTest::newRow("a mixture of all") << Filling(mixture) << Campaign::count(1, megabytesPerHour);
}

void campaign_Monitor::asFastAsItGoes()
{
    QFETCH(Filling, filling);
    QFETCH(int, megabytes);
    const qint64 size = megabytes > 0 ? megabytes * 1000000LL : 200000;
    PluggedDevice device;
    MainWindow window;
    window.show();
    QVERIFY(openSerialMonitor(window));
    // Fonts stay loaded once they have been needed, and a heap keeps its gaps.
    QVERIFY(showTorrent(&device, filling, qMin(size, bytesBefore)));
    QVERIFY(clearView(window));
    const qint64 memory = Footprint::trimmedBytes();
    const qint64 heap = Footprint::heapBytes();
    Responsiveness responsiveness;
    responsiveness.start();
    QElapsedTimer time;
    time.start();

    QVERIFY(showTorrent(&device, filling, size));
    const double seconds = double(time.elapsed() - severalTicks) / 1000.0;
    device.send(endMark);
    QTRY_VERIFY_WITH_TIMEOUT(view(window)->toPlainText().contains(QLatin1String("END OF THE")),
                             torrentTime);
    QVERIFY(window.isVisible());
    QVERIFY(serialMonitor(window)->isVisible());
    const int characters = view(window)->document()->characterCount();
    const int paragraphs = view(window)->document()->blockCount();
    const qint64 full = Footprint::trimmedBytes() - memory;

    QVERIFY(clearView(window));
    const qint64 kept = Footprint::trimmedBytes() - memory;
    qint64 inUse = Footprint::heapBytes() - heap;
    responsiveness.stop();
    qInfo("%lld bytes in %.1f s, %.1f MB/s; %d characters in %d paragraphs take %lld MiB; the loop "
          "froze for %.0f ms at most; %lld KiB are kept after Clear, the heap in use has "
          "grown by %lld KiB",
          size, seconds, double(size) / 1e6 / seconds, characters, paragraphs, full / mebibyte,
          responsiveness.longestGap(), kept / 1024, inUse / 1024);
    // Of long texts the view keeps the newest part.
    QVERIFY(characters > (filling == Filling(withNuls) ? 0 : qMin(size / 20, manyCharacters)));
    QVERIFY(Footprint::staysWithin(kept, memoryBound));
    QVERIFY(responsiveness.longestGap() < longestWait);
    // A rare letter may need one more font at last; what is lost is lost with every torrent.
    for (int more = 0; more < 2 && !Footprint::staysWithin(inUse, heapBound); ++more) {
        const qint64 before = Footprint::heapBytes();
        QVERIFY(showTorrent(&device, filling, size) && clearView(window));
        inUse = Footprint::heapBytes() - before;
    }
    QVERIFY(Footprint::staysWithin(inUse, heapBound));
}

void campaign_Monitor::atTheAdaptersRate_data()
{
    QTest::addColumn<Filling>("filling");
    QTest::addColumn<int>("minutes");

    const int minutes = Campaign::count(1, 60);
    QTest::newRow("lines") << Filling(lines) << minutes;
    QTest::newRow("without line ends") << Filling(withoutLineEnds) << minutes;
    QTest::newRow("line feeds") << Filling(lineFeeds) << minutes;
    QTest::newRow("mixed line ends") << Filling(mixedLineEnds) << minutes;
}

// Without the time that it takes: each tick appends what came since the one before.
void campaign_Monitor::atTheAdaptersRate()
{
    QFETCH(Filling, filling);
    QFETCH(int, minutes);
    SerialMonitor monitor(nullptr);
    monitor.show();
    monitor.appendToSerialMonitor(QStringLiteral("fonts"));
    QTest::qWait(severalTicks);
    const qint64 memory = Footprint::trimmedBytes();
    Campaign::Dice dice;
    QList<qint64> minuteTimes;
    qint64 longestTick = 0;
    Cuts cuts(*view(monitor)->document());

    for (int minute = 0; minute < minutes; ++minute) {
        qint64 minuteTime = 0; // ns
        for (int tick = 0; tick < ticksPerMinute; ++tick) {
            const QByteArray block = filling(&dice).left(bytesPerTick);
            QElapsedTimer tickTime;
            tickTime.start();
            monitor.appendToSerialMonitor(QString::fromUtf8(block).remove(QStringLiteral("\r\n")));
            QCoreApplication::processEvents();
            minuteTime += tickTime.nsecsElapsed();
            longestTick = qMax(longestTick, tickTime.elapsed());
            cuts.look();
        }
        minuteTimes.append(minuteTime / 1000000);
    }

    monitor.appendToSerialMonitor(QStringLiteral("end"));
    QCOMPARE(view(monitor)->document()->lastBlock().text(), QStringLiteral("end"));
    const int paragraphs = view(monitor)->document()->blockCount();
    QVERIFY(paragraphs > ticksPerMinute);
    const qint64 full = Footprint::trimmedBytes() - memory;
    QVERIFY(click(monitor, "pushButton_2"));
    QTest::qWait(severalTicks);
    const qint64 kept = Footprint::trimmedBytes() - memory;
    qInfo("%d minutes; the first takes %lld ms, the last %lld ms, a tick %lld ms at most; %d "
          "paragraphs take %lld MiB; the oldest go %d times, first in minute %d; %lld KiB are kept "
          "after Clear",
          minutes, minuteTimes.first(), minuteTimes.last(), longestTick, paragraphs,
          full / mebibyte, cuts.count(), cuts.first() / ticksPerMinute + 1, kept / 1024);
    QVERIFY(Footprint::staysWithin(kept, memoryBound));
    QVERIFY(longestTick < longestWait);
}

QTEST_MAIN(campaign_Monitor)

#include "campaign_monitor.moc"
