// The simulated adapter, byte time by byte time: when it hands over what the chip says.

#include "adapter.h"

#include <QByteArray>
#include <QFile>
#include <QTest>

#include <memory>
#include <termios.h>

namespace {

constexpr int period = 184; // byte times of 16 ms
constexpr int packetSize = 62;

const QByteArray answer = QByteArrayLiteral("Version:Metronome__1\r\n");

} // namespace

class tst_SimulatedAdapter : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void answerComesWhenTheTimerExpires_data();
    void answerComesWhenTheTimerExpires();
    void answerIsCutWhereTheTimerExpires_data();
    void answerIsCutWhereTheTimerExpires();
    void fullPacketStartsTheTimerAnew();
    void openingLeavesTheTimerAlone();

private:
    void pass(int byteTimes);
    void say(const QByteArray &text);

    std::unique_ptr<Adapter> adapter;
    QFile host;
    int now = 0;
    QList<int> times;
    QList<QByteArray> packets;
};

// The timer starts with the adapter.
void tst_SimulatedAdapter::init()
{
    host.close();
    adapter = std::make_unique<Adapter>([](std::uint8_t) { }, [] { });
    adapter->plugIn();
    host.setFileName(QString::fromStdString(adapter->portPath()));
    QVERIFY(host.open(QIODevice::ReadWrite | QIODevice::Unbuffered));
    termios settings = {};
    QCOMPARE(tcgetattr(host.handle(), &settings), 0);
    cfsetspeed(&settings, B115200);
    QCOMPARE(tcsetattr(host.handle(), TCSANOW, &settings), 0);
    adapter->open();
    now = 0;
    times.clear();
    packets.clear();
}

void tst_SimulatedAdapter::pass(int byteTimes)
{
    for (int time = 0; time < byteTimes; ++time) {
        const int before = static_cast<int>(adapter->handedOver().size());
        adapter->passByteTime();
        ++now;
        const QByteArray bytes = QByteArray::fromStdString(adapter->handedOver()).mid(before);
        if (bytes.isEmpty())
            continue;
        times.append(now);
        packets.append(bytes);
    }
}

void tst_SimulatedAdapter::say(const QByteArray &text)
{
    for (const char byte : text) {
        adapter->fromChip(static_cast<std::uint8_t>(byte));
        pass(1);
    }
}

void tst_SimulatedAdapter::answerComesWhenTheTimerExpires_data()
{
    QTest::addColumn<int>("begin");
    QTest::addColumn<int>("arrival");

    QTest::newRow("said at once") << 0 << period;
    QTest::newRow("said in the middle") << period / 2 << period;
    QTest::newRow("said at the last moment") << period - int(answer.size()) << period;
    QTest::newRow("said just after") << period << 2 * period;
    QTest::newRow("said after long silence") << 50 * period + 1 << 51 * period;
}

void tst_SimulatedAdapter::answerComesWhenTheTimerExpires()
{
    QFETCH(int, begin);
    QFETCH(int, arrival);

    pass(begin);
    say(answer);
    pass(2 * period);
    QCOMPARE(times, QList<int> {arrival});
    QCOMPARE(packets, QList<QByteArray> {answer});
}

void tst_SimulatedAdapter::answerIsCutWhereTheTimerExpires_data()
{
    QTest::addColumn<int>("first");

    QTest::newRow("after the first byte") << 1;
    QTest::newRow("in the middle") << 11;
    QTest::newRow("before the last byte") << int(answer.size()) - 1;
}

void tst_SimulatedAdapter::answerIsCutWhereTheTimerExpires()
{
    QFETCH(int, first);

    pass(period - first);
    say(answer);
    pass(2 * period);
    QCOMPARE(times, (QList<int> {period, 2 * period}));
    QCOMPARE(packets, (QList<QByteArray> {answer.left(first), answer.mid(first)}));
}

void tst_SimulatedAdapter::fullPacketStartsTheTimerAnew()
{
    pass(period / 2);
    say(QByteArray(packetSize, 'a') + "b");
    pass(2 * period);
    const int full = period / 2 + packetSize;
    QCOMPARE(times, (QList<int> {full, full + period}));
    QCOMPARE(packets, (QList<QByteArray> {QByteArray(packetSize, 'a'), "b"}));
}

void tst_SimulatedAdapter::openingLeavesTheTimerAlone()
{
    pass(period / 2);
    adapter->close();
    adapter->open();
    say(answer);
    pass(period);
    QCOMPARE(times, QList<int> {period});
    QCOMPARE(packets, QList<QByteArray> {answer});
}

QTEST_GUILESS_MAIN(tst_SimulatedAdapter)

#include "tst_simulatedadapter.moc"
