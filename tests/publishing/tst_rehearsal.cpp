// Publications that are rehearsed on the simulated device: a good release is published, and each
// bad sketch is refused with its reason. The sketches use the Arduino core, as real ones do.
#include "support/applicationdirectory.h"
#include "support/patience.h"
#include "support/publisher.h"

#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace {

constexpr int done = 0;
constexpr int refused = 1;
constexpr int wrongUsage = 2;

constexpr int bootSectionStart = 0x7c00;
constexpr int freeInTheBootSection = 0x7f00;
constexpr int packetSize = 62; // bytes, of an adapter
// Once the adapter's timer has cut an answer of nearly a packet, what is left of it fills the next
// packets, so that none holds a whole answer any more. A shorter one recovers.
constexpr int longAnswer = 40; // bytes
constexpr int largeTable = 30000; // bytes; with the code, all but some 250 of what the chip has

const QString rehearse = QStringLiteral("--rehearse");
const QString passOver = QStringLiteral("--pass-over");
const QStringList inThisBuild = {rehearse, QStringLiteral("--build=" VTUPDATER_BUILD)};

void run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(patience) || process.exitCode() != 0)
        qFatal("%s: %s", qPrintable(program), process.readAllStandardError().constData());
}

void writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
}

// Compiles the source as the sketch "<name>__<version>".
QByteArray compiled(const QString &baseName, const QByteArray &source)
{
    const QTemporaryDir folder;
    const QString sketch = folder.filePath(baseName + QStringLiteral(".ino"));
    writeFile(sketch, source);
    run(QStringLiteral(COMPILE_SKETCH),
        {QStringLiteral("--build"), QStringLiteral(VTUPDATER_BUILD),
         QStringLiteral("-DTABLE_SIZE=%1").arg(largeTable), sketch, folder.path()});
    return ApplicationDirectory::contentOf(
        folder.filePath(ApplicationDirectory::sketchFileName(baseName)));
}

QByteArray testSketch(const QString &baseName)
{
    const QString path = QStringLiteral(SKETCH_SOURCES "/%1.ino").arg(baseName);
    return compiled(baseName, ApplicationDirectory::contentOf(path));
}

QByteArray firmware(const QString &baseName)
{
    return ApplicationDirectory::contentOf(QStringLiteral(FIRMWARE_DIR "/")
                                           + ApplicationDirectory::sketchFileName(baseName));
}

QByteArray sketchOfTheGuide()
{
    static const QRegularExpression block(QStringLiteral("```cpp\n(.*?)```"),
                                          QRegularExpression::DotMatchesEverythingOption);
    const QByteArray guide = ApplicationDirectory::contentOf(QStringLiteral(PUBLISHING_GUIDE));
    return block.match(QString::fromUtf8(guide)).captured(1).toUtf8();
}

QByteArray sketchOfTheGuideAs(const QString &baseName, const QByteArray &setup = QByteArray())
{
    QByteArray source = sketchOfTheGuide();
    source.replace("Blink__4", baseName.toUtf8()).replace("Serial.begin", setup + "Serial.begin");
    return compiled(baseName, source);
}

QString nameWithAnswerOf(int bytes)
{
    const QString version = QStringLiteral("__1");
    const int rest = QStringLiteral("Version:\r\n").size() + version.size();
    return QString(bytes - rest, QLatin1Char('n')) + version;
}

// As a maker raises the version.
QByteArray exampleOfVersion(int version)
{
    QByteArray source = ApplicationDirectory::contentOf(QStringLiteral(EXAMPLE_SKETCH));
    if (source.count("__1") != 1)
        qFatal("the example's version is in another place");
    source.replace("__1", "__" + QByteArray::number(version));
    return compiled(QStringLiteral("Lighthouse__%1").arg(version), source);
}

// The lines whose address meets the condition, and the end.
template <typename Condition>
QByteArray recordsWhere(const QByteArray &image, Condition isKept)
{
    QByteArray kept;
    const QList<QByteArray> lines = image.split('\n');
    for (const QByteArray &line : lines) {
        const int address = line.mid(3, 4).toInt(nullptr, 16);
        if (line.mid(7, 2) == "00" && isKept(address))
            kept += line + '\n';
    }
    return kept;
}

QByteArray withoutBootloader(const QByteArray &image)
{
    return recordsWhere(image, [](int address) { return address < bootSectionStart; }) + hexEnd;
}

// That of an Arduino Uno, without the start message, with which this compiler would make it too
// large.
QByteArray bootloaderOf512Bytes()
{
    const QTemporaryDir folder;
    const QString program = folder.filePath(QStringLiteral("boot.elf"));
    const QString image = folder.filePath(QStringLiteral("boot.hex"));
    run(QStringLiteral("avr-gcc"),
        QStringLiteral("-Os -mmcu=atmega328p -DF_CPU=16000000L -DBAUD_RATE=115200 -w "
                       "-fno-inline-small-functions -fno-split-wide-types -mshort-calls "
                       "-DLED_START_FLASHES=0 -Wl,--relax -nostartfiles -nostdlib "
                       "-Wl,--section-start=.text=0x7e00 -Wl,--section-start=.version=0x7ffe")
                .split(QLatin1Char(' '))
            + QStringList {QStringLiteral("-o"), program, QStringLiteral(BOOTLOADER_SOURCE)});
    run(QStringLiteral("avr-objcopy"),
        {QStringLiteral("-O"), QStringLiteral("ihex"), QStringLiteral("--set-section-flags"),
         QStringLiteral(".version=alloc,load"), program, image});
    return ApplicationDirectory::contentOf(image).replace('\r', "");
}

QByteArray onAnUno(const QByteArray &image)
{
    return recordsWhere(image, [](int address) { return address < bootSectionStart; })
        + bootloaderOf512Bytes();
}

QByteArray withAnotherBootloader(const QByteArray &image)
{
    return recordsWhere(image, [](int address) { return address < freeInTheBootSection; })
        + hexRecord(freeInTheBootSection, 0, "another")
        + recordsWhere(image, [](int address) { return address > freeInTheBootSection; }) + hexEnd;
}

} // namespace

class tst_Rehearsal : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void goodReleaseIsPublished();
    void repairOfABrokenSketchIsPublished();
    void badReleaseIsNotPublished();
    void reasonOfARefusal_data();
    void reasonOfARefusal();
    void goodSketchOfABadReleaseIsNotBlamed_data();
    void goodSketchOfABadReleaseIsNotBlamed();
    void fullChipIsWrittenInTimeWithAWarning();
    void answerLongerThanAPacketIsNeverKnown();
    void dryRunRehearsesAsWell();
    void rehearsalTakesSketchesAlone();
    void namedSketchIsPassedOverAloud();
    void unknownSketchCannotBePassedOver();
    void deviceMustBeBuilt();

private:
    void publishWithoutRehearsal(const QString &baseName, const QByteArray &image);
    const Publisher::Result &badRelease();
    QString slowUploader() const;

    std::unique_ptr<Publisher> publisher;
    std::unique_ptr<Publisher> badPublisher; // of the one run that several tests look at
    Publisher::Result ofBadRelease;
    QStringList servedBefore;
};

void tst_Rehearsal::init()
{
    publisher = std::make_unique<Publisher>();
}

void tst_Rehearsal::cleanup()
{
    publisher.reset();
}

void tst_Rehearsal::publishWithoutRehearsal(const QString &baseName, const QByteArray &image)
{
    const QString fileName = publisher->addSketch(baseName, image);
    const Publisher::Result result = publisher->publish();
    QVERIFY2(result.exitStatus == done, qPrintable(result.problems));
    publisher->removeFile(fileName);
}

// A build like this one, whose avrdude takes too long for one of the sketches, and a second longer
// for the full chip, which otherwise takes just the 25 s above which there is a warning.
QString tst_Rehearsal::slowUploader() const
{
    const QString build = badPublisher->place() + QStringLiteral("/a build");
    QDir().mkpath(build + QStringLiteral("/avrdude"));
    for (const char *name : {"/tools", "/firmware", "/avrdude/avrdude.conf"})
        QFile::link(QStringLiteral(VTUPDATER_BUILD) + QLatin1String(name),
                    build + QLatin1String(name));
    const QString avrdude = build + QStringLiteral("/avrdude/avrdude");
    writeFile(avrdude,
              "#!/bin/sh\ncase \"$*\" in *Slow__1*) exec sleep 60 ;; *Sized__1*) sleep 1 ;; esac\n"
              "exec '" VTUPDATER_BUILD "/avrdude/avrdude' \"$@\"\n");
    QFile::setPermissions(avrdude, QFile::permissions(avrdude) | QFileDevice::ExeOwner);
    return build;
}

const Publisher::Result &tst_Rehearsal::badRelease()
{
    if (badPublisher)
        return ofBadRelease;

    publishWithoutRehearsal(QStringLiteral("Metronome__1"),
                            firmware(QStringLiteral("Metronome__1")));
    badPublisher.swap(publisher);
    const QStringList sketches = QDir(QStringLiteral(SKETCH_SOURCES)).entryList(QDir::Files);
    for (const QString &sketch : sketches) {
        const QString baseName = sketch.section(QLatin1Char('.'), 0, 0);
        badPublisher->addSketch(baseName, testSketch(baseName));
    }
    const QByteArray good = exampleOfVersion(1);
    badPublisher->addSketch(QStringLiteral("Lighthouse__1"), onAnUno(good));
    badPublisher->addSketch(QStringLiteral("NoBootloader__1"), withoutBootloader(good));
    badPublisher->addSketch(QStringLiteral("Metronome__2"),
                            withAnotherBootloader(firmware(QStringLiteral("Metronome__2"))));
    badPublisher->addSketch(QStringLiteral("Slow__1"),
                            sketchOfTheGuideAs(QStringLiteral("Slow__1")));
    // As long and as late as the guide allows.
    const QString longName = nameWithAnswerOf(longAnswer);
    badPublisher->addSketch(longName, sketchOfTheGuideAs(longName, "delay(2000); "));
    servedBefore = badPublisher->servedState();
    ofBadRelease = badPublisher->publish({rehearse, QStringLiteral("--build"), slowUploader()});
    return ofBadRelease;
}

void tst_Rehearsal::goodReleaseIsPublished()
{
    publishWithoutRehearsal(QStringLiteral("Lighthouse__1"), exampleOfVersion(1));
    const QString renewed =
        publisher->addSketch(QStringLiteral("Lighthouse__2"), exampleOfVersion(2));
    const QString added = publisher->addSketch(
        QStringLiteral("Blink__4"), compiled(QStringLiteral("Blink__4"), sketchOfTheGuide()));

    const Publisher::Result result = publisher->publish(inThisBuild);
    QCOMPARE(result.problems, QString());
    QCOMPARE(result.exitStatus, done);
    const QString steps = result.steps.join(QLatin1Char('\n'));
    for (const char *wanted : {
             "rehearse Blink__4, start: answers after ",
             "rehearse Lighthouse__2, start: answers after ",
             "rehearse Blink__4, update from Lighthouse__1: \"Lighthouse\" becomes \"Blink\", "
             "\"Latest version on device.\", avrdude takes ",
             "rehearse Lighthouse__2, update from Lighthouse__1: \"Lighthouse\", "
             "\"Update recommended.\" becomes \"Lighthouse\", \"Latest version on device.\", ",
             "rehearse Lighthouse__2, update from Lantern__1: \"Lantern\" becomes \"Lighthouse\", ",
         })
        QVERIFY2(steps.contains(QLatin1String(wanted)), qPrintable(steps));
    QCOMPARE(result.steps.mid(5, 2), QStringList({step("add", added), step("add", renewed)}));
    QCOMPARE(publisher->index(), (added + QLatin1Char('\n') + renewed).toUtf8());

    const Publisher::Result again = publisher->publish(inThisBuild);
    QCOMPARE(again.exitStatus, done);
    QCOMPARE(again.steps.first(), step("keep", added));
}

void tst_Rehearsal::repairOfABrokenSketchIsPublished()
{
    const QString broken = QStringLiteral("OtherName__1");
    publishWithoutRehearsal(broken, testSketch(broken));
    const QString repaired = QStringLiteral("OtherName__2");
    const QString fileName = publisher->addSketch(repaired, sketchOfTheGuideAs(repaired));

    const Publisher::Result result = publisher->publish(inThisBuild);
    QCOMPARE(result.problems.section(QLatin1Char('\n'), 0, 0),
             QStringLiteral("rehearse-sketches: warning: OtherName__2, update from OtherName__1: "
                            "before the update the device does not show \"OtherName\", \"Update "
                            "recommended.\": \"Version:SomeName__1\\r\\n\", shown as "
                            "\"SomeName\""));
    QCOMPARE(result.exitStatus, done);
    QCOMPARE(publisher->index(), fileName.toUtf8());
}

void tst_Rehearsal::badReleaseIsNotPublished()
{
    QCOMPARE(badRelease().exitStatus, refused);
    QVERIFY2(badRelease().problems.contains(QLatin1String(
                 "publish-repository: nothing was changed, because of the rehearsal")),
             qPrintable(badRelease().problems));
    QVERIFY(badRelease().steps.filter(QStringLiteral("file_list.txt")).isEmpty());
    QCOMPARE(badPublisher->servedState(), servedBefore);
}

void tst_Rehearsal::reasonOfARefusal_data()
{
    QTest::addColumn<QString>("step");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QString>("came");

    const auto row = [](const char *name, const char *step, const char *expected,
                        const char *came) {
        QTest::newRow(name) << QString::fromLatin1(step) << QString::fromLatin1(expected)
                            << QString::fromLatin1(came);
    };
    row("wrong version", "WrongVersion__2, start", R"("Version:WrongVersion__2\r\n")",
        R"("Version:WrongVersion__1\r\n", shown as "WrongVersion", "Update recommended.")");
    row("another name", "OtherName__1, start", R"("Version:OtherName__1\r\n")",
        R"("Version:SomeName__1\r\n", shown as "SomeName")");
    row("late answer", "Late__1, start", R"("Version:Late__1\r\n")",
        R"(nothing, shown as "Unknown sketch")");
    row("no answer", "Silent__1, start", R"("Version:Silent__1\r\n")",
        R"(nothing, shown as "Unknown sketch")");
    row("resets in a loop", "Restarting__1, start", R"("Version:Restarting__1\r\n")",
        R"(Hello\r\n)");
    row("flood", "Chatty__1, start", R"("Version:Chatty__1\r\n")", R"(21 degrees\r\n21 degrees)");
    row("no bootloader", "NoBootloader__1, start", "an image with its bootloader",
        "one that holds no bootloader (nothing from 0x7c00 on)");
    row("needs a blank chip", "BlankChip__1, update from Metronome__1",
        R"("Version:BlankChip__1\r\n")", R"(nothing, shown as "Unknown sketch")");
    row("another bootloader than the published version", "Metronome__2, update from Metronome__1",
        "the image in the flash", "7 other bytes, the first at 0x7f00: 0xff for 0x61; ");
    row("more time than the program has", "Slow__1, update from Metronome__1",
        "avrdude to finish within 30 s",
        "more, and the program says \"Unable to upload to device.\"");
}

void tst_Rehearsal::reasonOfARefusal()
{
    QFETCH(const QString, step);
    QFETCH(const QString, expected);
    QFETCH(const QString, came);

    const QStringList refusals = badRelease()
                                     .problems.split(QLatin1Char('\n'))
                                     .filter(QLatin1String("  ") + step + QLatin1String(": "));
    QCOMPARE(refusals.size(), 1);
    QString told = refusals.first();
    // On a busy machine the answers to several requests may arrive together.
    static const QRegularExpression repeated(QStringLiteral(R"((Version:\w+\\r\\n)\1+)"));
    told.replace(repeated, QStringLiteral("\\1"));
    QVERIFY2(told.contains(QLatin1String(": expected ") + expected), qPrintable(told));
    QVERIFY2(told.section(QLatin1String("; got "), 1).contains(came), qPrintable(told));
}

void tst_Rehearsal::goodSketchOfABadReleaseIsNotBlamed_data()
{
    QTest::addColumn<QString>("step");
    for (const QString &step :
         {QStringLiteral("Lighthouse__1, start: answers after "),
          QStringLiteral("Lighthouse__1, update from Metronome__1: \"Metronome\" becomes "),
          QStringLiteral("Metronome__2, update from Lantern__1: \"Lantern\" becomes "),
          nameWithAnswerOf(longAnswer) + QStringLiteral(", start: answers after "),
          nameWithAnswerOf(longAnswer) + QStringLiteral(", update from Metronome__1: \"Metronome")})
        QTest::newRow(qPrintable(step)) << step;
}

void tst_Rehearsal::goodSketchOfABadReleaseIsNotBlamed()
{
    QFETCH(const QString, step);
    const QStringList steps = badRelease().steps;
    QVERIFY2(steps.filter(QLatin1String("rehearse ") + step).size() == 1,
             qPrintable(steps.join(QLatin1Char('\n'))));
}

void tst_Rehearsal::fullChipIsWrittenInTimeWithAWarning()
{
    const QString problems = badRelease().problems;
    if (problems.contains(QLatin1String("  Sized__1, update"))
        && problems.contains(QLatin1String("this machine is too busy to tell")))
        QSKIP("this machine is too busy to write a full chip in time");
    QVERIFY2(!problems.contains(QLatin1String("  Sized__1")), qPrintable(problems));
    static const QRegularExpression warning(
        QStringLiteral("warning: Sized__1, update from Metronome__1: avrdude takes 2[5-9]\\.\\d s "
                       "of the 30 that it has"));
    QVERIFY2(problems.contains(warning), qPrintable(problems));
}

// The publication refuses it at once, so it is rehearsed by itself.
void tst_Rehearsal::answerLongerThanAPacketIsNeverKnown()
{
    const QString baseName = nameWithAnswerOf(packetSize + 1);
    const QString fileName = publisher->addSketch(baseName, sketchOfTheGuideAs(baseName));
    QProcess process;
    process.start(QStringLiteral(REHEARSE_SKETCHES),
                  {QStringLiteral("--build=" VTUPDATER_BUILD),
                   publisher->sketches() + QLatin1Char('/') + fileName});
    QVERIFY(process.waitForFinished(patience));
    const QString problems = QString::fromUtf8(process.readAllStandardError());
    QVERIFY2(process.exitCode() == refused, qPrintable(problems));
    QVERIFY2(problems.contains(baseName + QStringLiteral("\\r\\n")), qPrintable(problems));
    QVERIFY2(problems.contains(QStringLiteral(", shown as \"Unknown sketch\"\n")),
             qPrintable(problems));
}

void tst_Rehearsal::dryRunRehearsesAsWell()
{
    publisher->addSketch(QStringLiteral("WrongVersion__2"),
                         testSketch(QStringLiteral("WrongVersion__2")));
    const Publisher::Result result =
        publisher->publish(inThisBuild + QStringList(QStringLiteral("--dry-run")));
    QCOMPARE(result.exitStatus, refused);
    QVERIFY2(result.problems.contains(QLatin1String("  WrongVersion__2, start: expected")),
             qPrintable(result.problems));
    QVERIFY(!QFileInfo::exists(publisher->served()));
}

void tst_Rehearsal::rehearsalTakesSketchesAlone()
{
    publisher->addFile(QStringLiteral("Blink__4.hex"), hexEnd);
    QProcess process;
    process.start(QStringLiteral(REHEARSE_SKETCHES),
                  {publisher->sketches() + QStringLiteral("/Blink__4.hex")});
    QVERIFY(process.waitForFinished(patience));
    QCOMPARE(process.exitCode(), wrongUsage);
    const QByteArray problems = process.readAllStandardError();
    QVERIFY2(problems.contains("/Blink__4.hex is not a file named <name>__<version>"),
             problems.constData());
}

void tst_Rehearsal::namedSketchIsPassedOverAloud()
{
    const QString fileName =
        publisher->addSketch(QStringLiteral("Silent__1"), testSketch(QStringLiteral("Silent__1")));
    const Publisher::Result result =
        publisher->publish(inThisBuild + QStringList({passOver, QStringLiteral("Silent")}));
    QCOMPARE(result.problems,
             QStringLiteral("rehearse-sketches: warning: Silent__1 is passed over and was "
                            "not tried\n"));
    QCOMPARE(result.exitStatus, done);
    QCOMPARE(publisher->index(), fileName.toUtf8());
}

void tst_Rehearsal::unknownSketchCannotBePassedOver()
{
    publisher->addSketch(QStringLiteral("Silent__1"));
    const Publisher::Result result =
        publisher->publish(inThisBuild + QStringList({passOver, QStringLiteral("Silnet")}));
    QCOMPARE(result.exitStatus, wrongUsage);
    QVERIFY2(result.problems.contains(QLatin1String("there is no sketch Silnet to pass over")),
             qPrintable(result.problems));
    QVERIFY(!QFileInfo::exists(publisher->served()));
}

void tst_Rehearsal::deviceMustBeBuilt()
{
    publisher->addSketch(QStringLiteral("Silent__1"));
    const QString build = ApplicationDirectory::path() + QStringLiteral("no build");
    const Publisher::Result result =
        publisher->publish({rehearse, QStringLiteral("--build"), build});
    QCOMPARE(result.exitStatus, wrongUsage);
    for (const QString &wanted : {QStringLiteral("no simulated device in ") + build,
                                  QStringLiteral("/scripts/install-packages rehearse\n"),
                                  QStringLiteral("-B '%1' -DVTUPDATER_BUILD_TOOLS=ON\n").arg(build),
                                  QStringLiteral("  cmake --build '%1'\n").arg(build)})
        QVERIFY2(result.problems.contains(wanted), qPrintable(result.problems));
    QVERIFY(!QFileInfo::exists(publisher->served()));
}

QTEST_GUILESS_MAIN(tst_Rehearsal)

#include "tst_rehearsal.moc"
