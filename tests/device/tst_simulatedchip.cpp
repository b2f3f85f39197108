// The simulated chip, cycle by cycle: how long its bootloader is busy with a page of the flash. The
// bytes come one byte time after another, as from an adapter that never pauses.

#include "adapter.h"
#include "chip.h"
#include "error.h"

#include <QByteArray>
#include <QTest>

#include <memory>

namespace {

constexpr std::uint64_t cyclesPerByte = clockHz * bitsPerByte / baudRate;
constexpr int pageSize = 128;
constexpr int mostByteTimes = 11520; // a second

// Of the serial programming protocol.
constexpr char synchronise = 0x30;
constexpr char loadAddress = 0x55;
constexpr char programPage = 0x64;
constexpr char endOfCommand = 0x20;
const QByteArray done = QByteArrayLiteral("\x14\x10");

double milliseconds(int byteTimes)
{
    return 1000.0 * bitsPerByte * byteTimes / baudRate;
}

QByteArray bytes(int count)
{
    QByteArray text;
    for (int i = 0; i < count; ++i)
        text.append(char('A' + i % 26));
    return text;
}

// A page's command up to its bytes, from where on the bootloader may erase.
QByteArray pageHead(int size)
{
    return {QByteArray(1, programPage) + char(size / 256) + char(size % 256) + 'F'};
}

QByteArray addressCommand(int address)
{
    // Words are counted.
    return {QByteArray(1, loadAddress) + char(address / 2 % 256) + char(address / 2 / 256)
            + endOfCommand};
}

} // namespace

class tst_SimulatedChip : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void pageTakesItsTime_data();
    void pageTakesItsTime();
    void bootSectionKeepsItsBytes();

private:
    void pass(int byteTimes);
    void send(const QByteArray &command);
    bool isAnswered(const QByteArray &command);
    int byteTimesUntilDone();
    bool bootloaderListens();
    QByteArray flashAt(int address, int size) const;

    QByteArray answers;
    std::unique_ptr<Chip> chip;
};

void tst_SimulatedChip::init()
{
    const FlashImage image =
        readFlashImage(FIRMWARE_DIR "/Metronome__1.ino.with_bootloader.standard.hex");
    answers.clear();
    chip = std::make_unique<Chip>(image, [this](std::uint8_t byte) { answers.append(char(byte)); });
    QVERIFY(bootloaderListens());
}

void tst_SimulatedChip::pass(int byteTimes)
{
    for (int time = 0; time < byteTimes; ++time)
        chip->run(cyclesPerByte);
}

void tst_SimulatedChip::send(const QByteArray &command)
{
    for (const char byte : command) {
        chip->receive(static_cast<std::uint8_t>(byte));
        pass(1);
    }
}

int tst_SimulatedChip::byteTimesUntilDone()
{
    int byteTimes = 0;
    for (; answers.size() < done.size() && byteTimes < mostByteTimes; ++byteTimes)
        pass(1);
    return byteTimes;
}

bool tst_SimulatedChip::isAnswered(const QByteArray &command)
{
    answers.clear();
    send(command);
    byteTimesUntilDone();
    return answers == done;
}

bool tst_SimulatedChip::bootloaderListens()
{
    chip->pullReset();
    // It flashes its lamp first.
    pass(mostByteTimes / 2);
    return isAnswered(QByteArray(1, synchronise) + endOfCommand);
}

QByteArray tst_SimulatedChip::flashAt(int address, int size) const
{
    return QByteArray::fromStdString(chip->flash()).mid(address, size);
}

void tst_SimulatedChip::pageTakesItsTime_data()
{
    QTest::addColumn<int>("address");
    QTest::addColumn<int>("size");
    QTest::addColumn<double>("least");

    // Up to 0x7000 a page is erased while its bytes arrive, from there on only afterwards.
    QTest::newRow("a whole page is written") << 0x6f80 << pageSize << 4.5;
    QTest::newRow("a short page is erased and written") << 0x6f80 << 2 << 9.0;
    QTest::newRow("a whole page of the end is erased and written") << 0x7000 << pageSize << 9.0;
}

void tst_SimulatedChip::pageTakesItsTime()
{
    QFETCH(int, address);
    QFETCH(int, size);
    QFETCH(double, least);

    const QByteArray content = bytes(size);
    QVERIFY(isAnswered(addressCommand(address)));
    answers.clear();
    send(pageHead(size));
    send(content + endOfCommand);

    // The last byte's own time counts. A short page is being erased since its first byte.
    const int erased = size < pageSize ? size + 1 : 0;
    const double spent = milliseconds(byteTimesUntilDone() + 1 + erased);
    QCOMPARE(answers, done);
    QVERIFY2(spent >= least && spent < least + 1, qPrintable(QString::number(spent)));
    QCOMPARE(flashAt(address, size), content);
}

void tst_SimulatedChip::bootSectionKeepsItsBytes()
{
    const QByteArray before = flashAt(bootSectionStart, flashSize - bootSectionStart);
    QVERIFY(isAnswered(addressCommand(bootSectionStart)));
    QVERIFY(isAnswered(pageHead(pageSize) + bytes(pageSize) + endOfCommand));
    QCOMPARE(flashAt(bootSectionStart, flashSize - bootSectionStart), before);
}

QTEST_GUILESS_MAIN(tst_SimulatedChip)

#include "tst_simulatedchip.moc"
