// What the publishing tool accepts and refuses; the program reads accepted names in the same way.
#include "sketch/sketch.h"
#include "support/applicationdirectory.h"
#include "support/publisher.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

#include <sys/stat.h>
#include <unistd.h>

#include <memory>

namespace {

constexpr int done = 0;
constexpr int refused = 1;

const QString filter = QStringLiteral("*ino.with_bootloader.standard.hex");
const QString repository = QStringLiteral("http://updates.korvex.example/vt_updater/");

QByteArray bytes(int count)
{
    return QByteArray(count, 'd');
}

// A row for each name of the table that is taken, or for each that is refused.
void addNames(bool taken)
{
    QFile file(QStringLiteral(SKETCH_NAMES));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("no table of names");
    const QJsonArray names = QJsonDocument::fromJson(file.readAll()).array();
    for (const QJsonValue &value : names) {
        const QJsonObject name = value.toObject();
        if (name.contains(QLatin1String("name")) != taken)
            continue;
        QTest::newRow(qPrintable(name[QLatin1String("row")].toString()))
            << name[QLatin1String("file")].toString() << name;
    }
}

// Runs a command to which file permissions apply, even as root.
QStringList boundByPermissions()
{
    if (geteuid() != 0)
        return {};
    return {QStringLiteral("setpriv"),
            QStringLiteral("--bounding-set=-dac_override,-dac_read_search")};
}

} // namespace

class tst_PublisherInput : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void takenNameIsThatOfTheProgram_data();
    void takenNameIsThatOfTheProgram();
    void takenNameArrivesWhole_data();
    void takenNameArrivesWhole();
    void takenNameIsPublished_data();
    void takenNameIsPublished();
    void nameIsRefused_data();
    void nameIsRefused();
    void nameOfBrokenUnicodeIsRefused();
    void hiddenFilesArePassedOver();

    void imageIsTaken_data();
    void imageIsTaken();
    void imageIsRefused_data();
    void imageIsRefused();
    void anythingButFilesIsRefused_data();
    void anythingButFilesIsRefused();
    void unreadableSketchIsRefused();
    void emptyFolderIsRefused();

    void olderVersionIsPublishedWithAWarning();
    void secondVersionIsRefused();
    void latestVersionIsPublishedOnRequest();
    void sameVersionTwiceIsRefused();
    void namesThatDifferOnlyInCaseAreRefused();
    void allProblemsAreListedAtOnce();

private:
    std::unique_ptr<Publisher> publisher;
};

void tst_PublisherInput::init()
{
    publisher = std::make_unique<Publisher>();
}

void tst_PublisherInput::cleanup()
{
    publisher.reset();
}

void tst_PublisherInput::takenNameIsThatOfTheProgram_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QJsonObject>("expected");
    addNames(true);
}

void tst_PublisherInput::takenNameIsThatOfTheProgram()
{
    QFETCH(const QString, file);
    QFETCH(const QJsonObject, expected);

    const Sketch sketch {QFileInfo(file)};
    QCOMPARE(sketch.name, expected[QLatin1String("name")].toString());
    QCOMPARE(sketch.version, expected[QLatin1String("version")].toInt());
    QVERIFY(QDir::match(filter, file));
}

void tst_PublisherInput::takenNameArrivesWhole_data()
{
    takenNameIsThatOfTheProgram_data();
}

// As an address, and as a file that takes another name while it is written.
void tst_PublisherInput::takenNameArrivesWhole()
{
    QFETCH(const QString, file);

    const QUrl address(repository + file);
    QCOMPARE(QUrl::fromEncoded(address.toEncoded()).fileName(QUrl::FullyDecoded), file);
    QCOMPARE(address.path(QUrl::FullyDecoded), QStringLiteral("/vt_updater/") + file);

    QSaveFile stored(publisher->place() + QLatin1Char('/') + file);
    QVERIFY2(stored.open(QIODevice::WriteOnly), qPrintable(stored.errorString()));
    QVERIFY(stored.commit());
}

void tst_PublisherInput::takenNameIsPublished_data()
{
    takenNameIsThatOfTheProgram_data();
}

void tst_PublisherInput::takenNameIsPublished()
{
    QFETCH(const QString, file);
    publisher->addFile(file, hexImage("sketch"));

    const Publisher::Result result = publisher->publish();
    QCOMPARE(result.problems, QString());
    QCOMPARE(result.exitStatus, done);
    QCOMPARE(publisher->index(), file.toUtf8());
    QCOMPARE(ApplicationDirectory::contentOf(publisher->servedFile(file)), hexImage("sketch"));
}

void tst_PublisherInput::nameIsRefused_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QJsonObject>("expected");
    addNames(false);
}

void tst_PublisherInput::nameIsRefused()
{
    QFETCH(const QString, file);
    QFETCH(const QJsonObject, expected);
    publisher->addFile(file, hexImage("sketch"));

    const Publisher::Result result = publisher->publish();
    QCOMPARE(result.exitStatus, refused);
    QVERIFY(!QFileInfo::exists(publisher->served()));

    const QJsonArray reasons = expected[QLatin1String("refused")].toArray();
    for (const QJsonValue &reason : reasons)
        QVERIFY2(result.problems.contains(reason.toString()), qPrintable(result.problems));
    // One line that says so, and one for each reason.
    QCOMPARE(result.problems.count(QLatin1Char('\n')), 1 + reasons.size());
}

void tst_PublisherInput::nameOfBrokenUnicodeIsRefused()
{
    const QByteArray path = QFile::encodeName(publisher->sketches()) + "/Blink\xff__3"
        + QFile::encodeName(ApplicationDirectory::sketchFileName(QString()));
    QCOMPARE(symlink("/dev/null", path.constData()), 0);

    const Publisher::Result result = publisher->publish();
    QCOMPARE(unlink(path.constData()), 0); // Qt cannot name it
    QCOMPARE(result.exitStatus, refused);
    QVERIFY2(result.problems.contains(QLatin1String("unfit characters in its name: '\\udcff'")),
             qPrintable(result.problems));
}

void tst_PublisherInput::hiddenFilesArePassedOver()
{
    publisher->addSketch(QStringLiteral("Blink__3"));
    for (const char *fileName : {".DS_Store", ".ino.with_bootloader.standard.hex",
                                 ".Blink__4.ino.with_bootloader.standard.hex"})
        publisher->addFile(QLatin1String(fileName), "window");

    QCOMPARE(publisher->publish().exitStatus, done);
    QCOMPARE(publisher->index(), QByteArray("Blink__3.ino.with_bootloader.standard.hex"));
}

void tst_PublisherInput::imageIsTaken_data()
{
    QTest::addColumn<QByteArray>("image");

    const QByteArray image = hexImage(bytes(40));
    QTest::newRow("line ends of another system") << QByteArray(image).replace("\n", "\r\n");
    QTest::newRow("no line end at the end") << image.chopped(1);
    QTest::newRow("small letters") << image.toLower();
    QTest::newRow("gap between the addresses")
        << QByteArray(hexRecord(0, 0, bytes(4)) + hexRecord(0x7e00, 0, bytes(4)) + hexEnd);
    QTest::newRow("start address") << QByteArray(hexRecord(0, 3, QByteArray(4, '\0')) + image);
    QTest::newRow("last byte of the chip") << QByteArray(hexRecord(0x7ffc, 0, bytes(4)) + hexEnd);
    QTest::newRow("whole chip") << hexImage(bytes(0x8000));
}

void tst_PublisherInput::imageIsTaken()
{
    QFETCH(const QByteArray, image);
    const QString fileName = publisher->addSketch(QStringLiteral("Blink__3"), image);

    const Publisher::Result result = publisher->publish();
    QCOMPARE(result.problems, QString());
    QCOMPARE(result.exitStatus, done);
    QCOMPARE(ApplicationDirectory::contentOf(publisher->servedFile(fileName)), image);
}

void tst_PublisherInput::imageIsRefused_data()
{
    QTest::addColumn<QByteArray>("image");
    QTest::addColumn<QString>("problem");

    const QByteArray record = hexRecord(0, 0, bytes(4));
    const QString notGood = QStringLiteral("is not a valid image: line %1");
    const QString garbage = notGood.arg(QStringLiteral("%1: warning: ignoring garbage lines"));
    const QString noData = QStringLiteral("file contains no data");
    const QString goesOn = QStringLiteral("continues after its end-of-file record");

    QTest::newRow("empty") << QByteArray() << noData;
    QTest::newRow("end record alone") << hexEnd << noData;
    QTest::newRow("text") << QByteArray("<html>login</html>\n") << garbage.arg(1);
    QTest::newRow("binary") << bytes(1000) << garbage.arg(1);
    QTest::newRow("another format of images")
        << QByteArray("S107000001020304EE\nS9030000FC\n") << garbage.arg(1);
    QTest::newRow("garbage between the records")
        << QByteArray(record + "garbage\n" + hexEnd) << garbage.arg(2);
    QTest::newRow("wrong checksum") << QByteArray(":0400000001020304F3\n" + hexEnd)
                                    << notGood.arg(1) + QLatin1String(": checksum mismatch");
    QTest::newRow("wrong checksum of the end record")
        << QByteArray(record + ":00000001FE\n")
        << notGood.arg(2) + QLatin1String(": checksum mismatch");
    QTest::newRow("cut off within a record")
        << hexImage(bytes(40)).left(60)
        << notGood.arg(2) + QLatin1String(": hexadecimal digit expected");
    QTest::newRow("cut off after a record")
        << record << notGood.arg(2) + QLatin1String(": warning: no end-of-file record");
    QTest::newRow("unknown kind of record")
        << QByteArray(record + hexRecord(4, 6, bytes(4)) + hexEnd)
        << notGood.arg(2) + QLatin1String(": record type not recognised");
    QTest::newRow("address written twice") << QByteArray(record + record + hexEnd)
                                           << notGood.arg(2)
            + QLatin1String(": warning: data records not in strictly ascending order");
    QTest::newRow("first byte behind the chip")
        << QByteArray(record + hexRecord(0x8000, 0, bytes(1)) + hexEnd)
        << QStringLiteral("goes up to address 0x8000, the chip ends below 0x8000");
    QTest::newRow("record across the end of the chip")
        << QByteArray(record + hexRecord(0x7ffe, 0, bytes(4)) + hexEnd)
        << QStringLiteral("goes up to address 0x8001");
    QTest::newRow("addresses of a larger chip")
        << QByteArray(hexRecord(0, 4, QByteArray("\0\1", 2)) + record + hexEnd)
        << QStringLiteral("goes up to address 0x10003");
    QTest::newRow("two images in one file")
        << QByteArray(hexImage(bytes(4)) + hexRecord(0x7e00, 0, bytes(4)) + hexEnd) << goesOn;
    QTest::newRow("garbage behind the end") << QByteArray(hexImage(bytes(4)) + "more\n") << goesOn;
}

void tst_PublisherInput::imageIsRefused()
{
    QFETCH(const QByteArray, image);
    QFETCH(const QString, problem);
    const QString fileName = publisher->addSketch(QStringLiteral("Blink__3"), image);

    const Publisher::Result result = publisher->publish();
    QCOMPARE(result.exitStatus, refused);
    QVERIFY2(result.problems.contains(fileName + QLatin1Char(' ')), qPrintable(result.problems));
    QVERIFY2(result.problems.contains(problem), qPrintable(result.problems));
    QVERIFY(!QFileInfo::exists(publisher->served()));
}

void tst_PublisherInput::anythingButFilesIsRefused_data()
{
    QTest::addColumn<QString>("kind");
    for (const char *kind : {"folder", "pipe", "link to nothing"})
        QTest::newRow(kind) << QString::fromLatin1(kind);
}

void tst_PublisherInput::anythingButFilesIsRefused()
{
    QFETCH(const QString, kind);
    const QString path = publisher->sketches() + QLatin1Char('/')
        + ApplicationDirectory::sketchFileName(QStringLiteral("Blink__3"));
    if (kind == QLatin1String("folder"))
        QVERIFY(QDir().mkdir(path));
    else if (kind == QLatin1String("pipe"))
        QCOMPARE(mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    else
        QVERIFY(QFile::link(QStringLiteral("nowhere"), path));

    const Publisher::Result result = publisher->publish();
    QCOMPARE(result.exitStatus, refused);
    QVERIFY2(result.problems.contains(QLatin1String("hex is not a regular file\n")),
             qPrintable(result.problems));
}

void tst_PublisherInput::unreadableSketchIsRefused()
{
    const QString fileName = publisher->addSketch(QStringLiteral("Blink__3"));
    QVERIFY(QFile::setPermissions(publisher->sketches() + QLatin1Char('/') + fileName, {}));

    const Publisher::Result result = publisher->publishUnder(boundByPermissions());
    QCOMPARE(result.exitStatus, refused);
    QVERIFY2(result.problems.contains(fileName + QLatin1String(" cannot be read: Permission")),
             qPrintable(result.problems));
}

void tst_PublisherInput::emptyFolderIsRefused()
{
    const Publisher::Result result = publisher->publish();
    QCOMPARE(result.exitStatus, refused);
    QVERIFY2(result.problems.contains(QLatin1String("contains no sketches")),
             qPrintable(result.problems));
}

void tst_PublisherInput::olderVersionIsPublishedWithAWarning()
{
    const QString newer = publisher->addSketch(QStringLiteral("Blink__10"));
    publisher->addSketch(QStringLiteral("Servo__1"));
    QCOMPARE(publisher->publish().problems, QString());

    publisher->removeFile(newer);
    const QString older = publisher->addSketch(QStringLiteral("Blink__9"));
    for (const QStringList &options : {QStringList(QStringLiteral("--dry-run")), QStringList()}) {
        const Publisher::Result result = publisher->publish(options);
        QCOMPARE(result.exitStatus, done);
        QCOMPARE(result.problems,
                 QStringLiteral("publish-repository: warning: %1 is older than the published "
                                "version 10: no device that runs version 10 is told to update\n")
                     .arg(older));
    }
    QVERIFY(publisher->index().startsWith(older.toUtf8()));
}

void tst_PublisherInput::secondVersionIsRefused()
{
    publisher->addSketch(QStringLiteral("Blink__2"));
    publisher->addSketch(QStringLiteral("Blink__10"));

    const Publisher::Result result = publisher->publish();
    QCOMPARE(result.exitStatus, refused);
    QVERIFY2(result.problems.contains(QLatin1String("--latest publishes the highest version")),
             qPrintable(result.problems));
    QVERIFY(!QFileInfo::exists(publisher->served()));
}

void tst_PublisherInput::latestVersionIsPublishedOnRequest()
{
    const QString second = publisher->addSketch(QStringLiteral("Blink__2"));
    const QString tenth = publisher->addSketch(QStringLiteral("Blink__10"));
    const QString other = publisher->addSketch(QStringLiteral("Servo__1"));

    const Publisher::Result result = publisher->publish({QStringLiteral("--latest")});
    QCOMPARE(result.exitStatus, done);
    QCOMPARE(result.steps,
             QStringList({step("skip", second), step("add", tenth), step("add", other),
                          step("add", QStringLiteral("file_list.txt"))}));
    QCOMPARE(publisher->index(), (tenth + QLatin1Char('\n') + other).toUtf8());
    QVERIFY(!QFileInfo::exists(publisher->servedFile(second)));
}

void tst_PublisherInput::sameVersionTwiceIsRefused()
{
    publisher->addSketch(QStringLiteral("Blink__2"));
    publisher->addSketch(QStringLiteral("Blink__02"));

    const Publisher::Result result = publisher->publish({QStringLiteral("--latest")});
    QCOMPARE(result.exitStatus, refused);
    QVERIFY2(result.problems.contains(QLatin1String("has the same name and version as Blink__02")),
             qPrintable(result.problems));
}

void tst_PublisherInput::namesThatDifferOnlyInCaseAreRefused()
{
    publisher->addSketch(QStringLiteral("Blink__2"));
    publisher->addSketch(QStringLiteral("blink__2"));

    const Publisher::Result result = publisher->publish();
    QCOMPARE(result.exitStatus, refused);
    QVERIFY2(result.problems.contains(QLatin1String("differs only in case from Blink__2")),
             qPrintable(result.problems));
}

void tst_PublisherInput::allProblemsAreListedAtOnce()
{
    const QString changed = publisher->addSketch(QStringLiteral("Changed__1"));
    QCOMPARE(publisher->publish().exitStatus, done);
    const QStringList state = publisher->servedState();

    publisher->addSketch(QStringLiteral("Changed__1"), hexImage("changed"));
    const QString bad = publisher->addSketch(QStringLiteral("Bad sum__x"), ":00000001FE\n");
    const QString first = publisher->addSketch(QStringLiteral("Two__1"));
    const QString second = publisher->addSketch(QStringLiteral("Two__2"));
    publisher->addSketch(QStringLiteral("Fine__1"));
    publisher->addFile(QStringLiteral("README"), "read me");

    const Publisher::Result result = publisher->publish();
    QCOMPARE(result.exitStatus, refused);
    QCOMPARE(result.steps, QStringList());
    const QStringList expected = {
        QStringLiteral("publish-repository: refused, nothing was changed:"),
        QStringLiteral("  %1 has unfit characters in its name: ' '").arg(bad),
        QStringLiteral("  %1 has a version that is not written in digits alone: 'x'").arg(bad),
        QStringLiteral("  %1 is not a valid image: line 1: checksum mismatch (FF != 00)").arg(bad),
        QStringLiteral("  README is not named "
                       "<name>__<version>.ino.with_bootloader.standard.hex"),
        QStringLiteral("  %1 has the same name as %2; --latest publishes the highest version")
            .arg(second, first),
        QStringLiteral("  %1 differs from the published file of this name, which no client "
                       "fetches again once it has it; see --replace")
            .arg(changed),
    };
    QCOMPARE(result.problems.split(QLatin1Char('\n'), Qt::SkipEmptyParts), expected);
    QCOMPARE(publisher->servedState(), state);
}

QTEST_GUILESS_MAIN(tst_PublisherInput)

#include "tst_publisherinput.moc"
