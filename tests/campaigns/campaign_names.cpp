// Generated file names: each is read according to the rule for sketches.
#include "campaign.h"
#include "sketch/sketch.h"
#include "sketchrule.h"
#include "support/footprint.h"

#include <QTest>

namespace {

constexpr qint64 memoryBound = 4LL * 1024 * 1024; // bytes

const QString tail = QStringLiteral(".ino.with_bootloader.standard.hex");
const QString directory = QStringLiteral("/some where/compiled__sketches.d/");

QString run(Campaign::Dice *dice, const QString &piece)
{
    return piece.repeated(dice->oneIn(500) ? dice->below(3000) : 1 + dice->below(6));
}

QString digits(Campaign::Dice *dice)
{
    QString text;
    for (int left = 1 + dice->below(14); left > 0; --left)
        text.append(QLatin1Char(char('0' + dice->below(10))));
    return text;
}

QString anyCharacters(Campaign::Dice *dice)
{
    QString text;
    for (int left = 1 + dice->below(4); left > 0; --left) {
        const int code = dice->below(0x10000);
        text.append(QChar(code)); // including halves of surrogate pairs
    }
    return text;
}

QString piece(Campaign::Dice *dice)
{
    static const QList<QString> pieces = {
        QStringLiteral("__"),          QStringLiteral("_"),      QStringLiteral("Blink"),
        QStringLiteral("."),           QStringLiteral("-"),      QStringLiteral("+"),
        QStringLiteral(" "),           QStringLiteral("\t"),     QStringLiteral("\u00a0"),
        QStringLiteral("\u2212"),      QStringLiteral("\u0663"), QStringLiteral("\U0001f600"),
        QString(QChar(0xd83d)),        QString(QChar(0xde00)),   QString(QChar(0)),
        QStringLiteral("2147483647"),  QStringLiteral("e3"),     QStringLiteral("0x1"),
        QStringLiteral("-2147483648"), QStringLiteral("\r\n"),   QStringLiteral(","),
        QStringLiteral("/"),           QStringLiteral("1"),      QStringLiteral("-1"),
    };
    switch (dice->below(8)) {
    case 0:
        return digits(dice);
    case 1:
        return anyCharacters(dice);
    case 2:
    case 3:
        return QStringLiteral("__");
    default:
        return run(dice, dice->oneOf(pieces));
    }
}

// Nearly as they should be.
QString numberedName(Campaign::Dice *dice)
{
    static const QList<QString> signs = {QString(), QStringLiteral("+"), QStringLiteral("-"),
                                         QStringLiteral(" "), QStringLiteral("--")};
    return piece(dice) + QStringLiteral("__") + dice->oneOf(signs) + digits(dice);
}

QString anyName(Campaign::Dice *dice)
{
    QString name;
    for (int left = dice->below(7); left > 0; --left)
        name.append(piece(dice));
    return name;
}

QString fileName(Campaign::Dice *dice)
{
    QString name = dice->oneIn(4) ? numberedName(dice) : anyName(dice);
    if (!dice->oneIn(8))
        name.append(tail);
    return dice->oneIn(3) ? directory + name : name;
}

// Empty when all holds.
QByteArray objectionTo(const Sketch &sketch, const QString &path)
{
    const SketchRule rule(path);
    if (sketch.fileInfo.filePath() != path)
        return "the file is another";
    if (sketch.name != rule.name || sketch.version != rule.version)
        return "read as " + sketch.name.toUtf8() + ", " + QByteArray::number(sketch.version);
    if (!rule.wellFormed && (!sketch.name.isEmpty() || sketch.version != -1))
        return "a malformed name makes a sketch";
    if (!rule.base.startsWith(sketch.name))
        return "the name does not begin the file name";
    if (sketch.name.contains(QLatin1Char('/')) || sketch.name.contains(QLatin1String("__")))
        return "the name holds a separator";
    return QByteArray();
}

} // namespace

class campaign_Names : public QObject
{
    Q_OBJECT

private slots:
    void generatedNames();
};

void campaign_Names::generatedNames()
{
    const int count = Campaign::count(50000, 1000000);
    qInfo("%d file names, seed %u", count, Campaign::seed());
    Campaign::Dice dice;
    int wellFormed = 0;
    int numbered = 0;
    qint64 memory = 0;
    for (int number = 0; number < count; ++number) {
        if (number == count / 10)
            memory = Footprint::trimmedBytes();
        const QString path = fileName(&dice);
        const Sketch sketch((QFileInfo(path)));
        const QByteArray objection = objectionTo(sketch, path);
        QVERIFY2(objection.isEmpty(),
                 ("name " + QByteArray::number(number) + ": " + path.toUtf8().toPercentEncoding()
                  + ": " + objection)
                     .constData());
        wellFormed += SketchRule(path).wellFormed ? 1 : 0;
        numbered += sketch.version > 0 ? 1 : 0;
    }
    const qint64 growth = Footprint::trimmedBytes() - memory;
    qInfo("%d of them well-formed, %d with a version above 0; memory grew by %lld KiB", wellFormed,
          numbered, growth / 1024);
    QVERIFY(Footprint::staysWithin(growth, memoryBound));
    QVERIFY(wellFormed > count / 10);
    QVERIFY(numbered > count / 50);
}

QTEST_APPLESS_MAIN(campaign_Names)

#include "campaign_names.moc"
