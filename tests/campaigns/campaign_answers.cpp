// Generated answers of devices: the labels always show what the rules allow.
#include "campaign.h"
#include "mainwindow/mainwindow.h"
#include "sketchrule.h"
#include "support/applicationdirectory.h"
#include "support/footprint.h"
#include "support/scripteddevice.h"
#include "support/windowdriver.h"

#include <QCoreApplication>
#include <QLabel>
#include <QRegularExpression>
#include <QTest>

namespace {

constexpr int packetSize = 62; // of the adapter
constexpr qint64 memoryBound = 8LL * 1024 * 1024; // bytes
constexpr int queriesPerDevice = 100;

// The answer to the last attempt comes too late where the machine stands still for the second that
// the program waits, and is asked for again. None was late in 10,000 queries on a busy machine; the
// margin is one in a thousand, and one more.
constexpr int queriesPerLateAnswer = 1000;

const QString unknown = QStringLiteral("Unknown sketch");
const QString latest = QStringLiteral("<font color='green'>Latest version on device.</font>");
const QString outdated = QStringLiteral("<font color='red'>Update recommended.</font>");

// The local repository, all names once.
const QString localName = QStringLiteral("Blink");
constexpr int localVersion = 7;

struct Labels
{
    QString program;
    QString recommendation;
};

bool operator==(const Labels &one, const Labels &other)
{
    return one.program == other.program && one.recommendation == other.recommendation;
}

const Labels noAnswer = {unknown, QString()};

// What the user may see after this line, given what was seen before.
Labels labelsFor(const QByteArray &line, const QString &recommendation)
{
    static const QRegularExpression field(QStringLiteral("^[^:]*:([^:]*)"),
                                          QRegularExpression::DotMatchesEverythingOption);
    const QString text = QString::fromUtf8(line).replace(QStringLiteral("\r\n"), QString());
    if (!text.contains(QStringLiteral("Version:")))
        return {unknown, QString()};
    const SketchRule device(field.match(text).captured(1));
    if (device.version < 0)
        return {unknown, QString()};
    const int known = device.name == localName ? localVersion : -1;
    if (device.version > known)
        return {device.name, recommendation};
    return {device.name, device.version == known ? latest : outdated};
}

// The first line as the program takes it, up to a NUL byte.
QByteArray lineOf(const QByteArray &answer)
{
    const auto end = answer.indexOf('\n');
    const QByteArray line = end < 0 ? answer : answer.left(end + 1);
    const auto nul = line.indexOf('\0');
    return nul < 0 ? line : line.left(nul);
}

bool isWhole(const QByteArray &line)
{
    return line.endsWith("\r\n") && line.contains("Version:");
}

QByteArray noise(Campaign::Dice *dice, int size)
{
    QByteArray bytes;
    for (int left = dice->below(size); left > 0; --left)
        bytes.append(char(dice->below(256)));
    return bytes;
}

QByteArray name(Campaign::Dice *dice)
{
    static const QList<QByteArray> names = {
        "Blink",
        "blink",
        "Blink ",
        "",
        "_",
        "Fade",
        "<b>Blink</b>",
        "&lt;",
        "a/Blink",
        "Bl.ink",
        "\xc3\xb6",
        "\xff\xfe",
        "\xf0\x9f\x98\x80",
        "Bli\rnk",
        "%s%n",
        "../Blink",
        "\x1b[2J",
    };
    return dice->oneIn(10) ? noise(dice, 20) : dice->oneOf(names);
}

QByteArray version(Campaign::Dice *dice)
{
    static const QList<QByteArray> versions = {
        "7",
        "6",
        "8",
        "007",
        "-1",
        "-7",
        "+7",
        " 7 ",
        "",
        "x",
        "2147483647",
        "2147483648",
        "99999999999",
        "-2147483648",
        "7.ino",
        "7.ino.with_bootloader.standard.hex",
        "0x7",
        "7\r",
    };
    return dice->oneOf(versions);
}

QByteArray line(Campaign::Dice *dice)
{
    static const QList<QByteArray> marks = {
        "Version:", "Sketch Version:", "x:Version:", "Version::", "Version: "};
    static const QList<QByteArray> separators = {"__", "_", "___", "____", ":", ""};
    QByteArray result = dice->oneIn(6) ? dice->oneOf(marks) : QByteArray("Version:");
    result += name(dice);
    result += dice->oneIn(5) ? dice->oneOf(separators) : QByteArray("__");
    result += version(dice);
    return dice->oneIn(10) ? result + noise(dice, 8) : result;
}

// Fits a packet, so that the program reads it in one piece.
QByteArray inOnePacket(const QByteArray &text, const QByteArray &end)
{
    return text.left(packetSize - end.size()) + end;
}

// Most end as they should: each that does not costs the program another attempt.
QByteArray answer(Campaign::Dice *dice)
{
    static const QList<QByteArray> ends = {"\n",   "\r",    "", QByteArray("\0\r\n", 3),
                                           "\n\r", "\r\r\n"};
    if (dice->oneIn(40))
        return inOnePacket(noise(dice, packetSize) + '\x01', QByteArray());
    if (dice->oneIn(20))
        return inOnePacket(line(dice), dice->oneOf(ends));
    return inOnePacket(line(dice), "\r\n");
}

QList<QByteArray> script(Campaign::Dice *dice)
{
    QList<QByteArray> answers;
    if (dice->oneIn(10))
        answers.append({"ready\r\n", "\x14\x10"});
    return answers << answer(dice);
}

// As an adapter hands over what is too long for one packet; how much of it the program reads at
// once is a matter of time.
QByteArray longAnswer(Campaign::Dice *dice)
{
    return line(dice) + noise(dice, 300) + line(dice) + "\r\n";
}

Labels labelsOf(const MainWindow &window)
{
    return {child<QLabel>(window, "label_programondevice")->text(),
            child<QLabel>(window, "label_updaterecommendation")->text()};
}

QByteArray quoted(const Labels &labels)
{
    return (labels.program + QLatin1String(" | ") + labels.recommendation)
        .toUtf8()
        .toPercentEncoding(" |<>='");
}

bool isAllowed(const Labels &labels)
{
    const QStringList recommendations = {QString(), latest, outdated};
    const bool isName = !labels.program.contains(QLatin1String("__"))
        && !labels.program.contains(QLatin1Char('.')) && !labels.program.contains(QLatin1Char('/'))
        && !labels.program.contains(QLatin1Char(':'));
    return isName && recommendations.contains(labels.recommendation);
}

} // namespace

class campaign_Answers : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void generatedAnswers();
    void answersOfSeveralPackets();
};

void campaign_Answers::init()
{
    ApplicationDirectory::clear();
    ApplicationDirectory::addSketch(
        QStringLiteral("%1__%2").arg(localName, QString::number(localVersion)));
}

void campaign_Answers::cleanup()
{
    ApplicationDirectory::clear();
}

void campaign_Answers::generatedAnswers()
{
    const int count = Campaign::count(200, 10000);
    qInfo("%d answers, seed %u", count, Campaign::seed());
    Campaign::Dice dice;
    MainWindow window;
    const ProcessUsage usage = settledUsageOf(QCoreApplication::applicationPid());
    qint64 memory = 0;
    int whole = 0;
    int late = 0;
    const int lateBound = 1 + count / queriesPerLateAnswer;

    for (int device = 0; device < count / queriesPerDevice; ++device) {
        ScriptedDevice terminal;
        for (int number = 0; number < queriesPerDevice; ++number) {
            const QList<QByteArray> answers = script(&dice);
            const QByteArray last = lineOf(answers.last());
            whole += isWhole(last) ? 1 : 0;
            bool isLate = false;
            do {
                const Labels expected = labelsFor(last, labelsOf(window).recommendation);
                terminal.setAnswers(answers);
                QVERIFY(window.OpenSerialPort(terminal.portName()));

                const Labels labels = labelsOf(window);
                isLate = !isWhole(last) && labels == noAnswer && !(expected == noAnswer);
                late += isLate ? 1 : 0;
                QVERIFY2(labels == expected || (isLate && late <= lateBound),
                         (answers.last().toPercentEncoding() + " shows " + quoted(labels)
                          + " in place of " + quoted(expected))
                             .constData());
            } while (isLate);
            QCOMPARE(terminal.requests() < 10, isWhole(last));
        }
        window.CloseSerialPort();
        if (device == 0)
            memory = Footprint::trimmedBytes();
    }

    const qint64 growth = Footprint::trimmedBytes() - memory;
    qInfo("%d whole, %d too late; memory grew from %lld KiB by %lld KiB", whole, late,
          memory / 1024, growth / 1024);
    QVERIFY(whole > count / 2);
    QVERIFY(Footprint::staysWithin(growth, memoryBound));
    QVERIFY(comesDownTo(usage, QCoreApplication::applicationPid()));
}

void campaign_Answers::answersOfSeveralPackets()
{
    const int count = Campaign::count(20, 300);
    Campaign::Dice dice(Campaign::seed() + 1);
    MainWindow window;
    ScriptedDevice terminal;
    for (int number = 0; number < count; ++number) {
        const QByteArray text = longAnswer(&dice);
        terminal.setAnswers({text, answer(&dice)});
        QVERIFY(window.OpenSerialPort(terminal.portName()));
        QVERIFY2(isAllowed(labelsOf(window)),
                 (text.toPercentEncoding() + " shows " + quoted(labelsOf(window))).constData());
    }
    qInfo("%d answers of several packets, seed %u", count, Campaign::seed());
}

QTEST_MAIN(campaign_Answers)

#include "campaign_answers.moc"
