// The sketch record and the file-name rule that fills it.
#include "sketch/sketch.h"

#include <QTest>

#include <functional>
#include <type_traits>

namespace {

const QString tail = QStringLiteral(".ino.with_bootloader.standard.hex");
const QString directory = QStringLiteral("/some where/compiled_sketches.d/my__dir/");

// One row for the bare file name, as a device reports it, and one for a path, as a listing gives
// it.
void addFile(const QByteArray &title, const QString &fileName, const QString &name, int version)
{
    QTest::newRow((title + ", bare name").constData()) << fileName << name << version;
    QTest::newRow((title + ", absolute path").constData())
        << QString(directory + fileName) << name << version;
}

void add(const QByteArray &title, const QString &baseName, const QString &name, int version)
{
    addFile(title, baseName + tail, name, version);
}

bool standsBefore(const void *first, const void *second)
{
    return std::less<>()(first, second);
}

} // namespace

class tst_Sketch : public QObject
{
    Q_OBJECT

private slots:
    void noSketch();
    void nameAndVersion_data();
    void nameAndVersion();
    void fileIsKeptAsGiven_data();
    void fileIsKeptAsGiven();
    void emptyFileIsNoSketch();
    void caseDistinguishesSketches();
    void copyIsIndependent();
    void listHoldsCopies();
    void isPlainValue();
    void fieldsKeepTheirOrder();
};

void tst_Sketch::noSketch()
{
    const Sketch sketch;
    QCOMPARE(sketch.version, -1);
    QCOMPARE(sketch.name, QString());
    QCOMPARE(sketch.fileInfo.filePath(), QString());
    QVERIFY(!sketch.fileInfo.isFile());
}

void tst_Sketch::nameAndVersion_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("version");

    const QString blink = QStringLiteral("Blink");
    const QString none;

    add("name and version", QStringLiteral("Blink__3"), blink, 3);
    add("no version", QStringLiteral("Blink__"), blink, 0);
    add("no name", QStringLiteral("__7"), none, 7);
    add("neither name nor version", QStringLiteral("__"), none, 0);
    add("no-break blanks around the version", QStringLiteral("Blink__\u00a03\u00a0"), blink, 3);
    add("a typographer's minus", QStringLiteral("Blink__\u22123"), blink, -3);
    add("grouped digits", QStringLiteral("Blink__1,234"), blink, 0);
    add("no separator", QStringLiteral("Blink"), none, -1);
    add("nothing before the tail", none, none, -1);
    add("single underscores only", QStringLiteral("my_sketch_2"), none, -1);
    add("two separators", QStringLiteral("my__sketch__2"), none, -1);
    add("two separators and short parts", QStringLiteral("A__B__1"), none, -1);
    add("separator at both ends", QStringLiteral("__Blink__"), none, -1);
    add("three underscores", QStringLiteral("Blink___2"), blink, 0);
    add("four underscores", QStringLiteral("Blink____2"), none, -1);
    add("five underscores", QStringLiteral("Blink_____2"), none, -1);
    add("underscore inside the name", QStringLiteral("my_sketch__2"), QStringLiteral("my_sketch"),
        2);

    add("letter before the digits", QStringLiteral("Blink__v2"), blink, 0);
    add("letter after the digits", QStringLiteral("Blink__2b"), blink, 0);
    add("hexadecimal digits", QStringLiteral("Blink__0x10"), blink, 0);
    add("thousands separator", QStringLiteral("Blink__1,000"), blink, 0);
    add("exponent", QStringLiteral("Blink__1e3"), blink, 0);
    add("leading zeros", QStringLiteral("Blink__007"), blink, 7);
    add("zero", QStringLiteral("Blink__0"), blink, 0);
    add("plus sign", QStringLiteral("Blink__+3"), blink, 3);
    add("minus sign", QStringLiteral("Blink__-3"), blink, -3);
    add("version that reads as none", QStringLiteral("Blink__-1"), blink, -1);
    add("sign alone", QStringLiteral("Blink__-"), blink, 0);
    add("two signs", QStringLiteral("Blink__--3"), blink, 0);
    add("blanks around the version", QStringLiteral("Blink__ 3 "), blink, 3);
    add("blank inside the version", QStringLiteral("Blink__1 2"), blink, 0);
    add("blank version", QStringLiteral("Blink__ "), blink, 0);
    add("largest version", QStringLiteral("Blink__2147483647"), blink, 2147483647);
    add("above the largest version", QStringLiteral("Blink__2147483648"), blink, 0);
    add("smallest version", QStringLiteral("Blink__-2147483648"), blink, -2147483647 - 1);
    add("below the smallest version", QStringLiteral("Blink__-2147483649"), blink, 0);
    add("more digits than any integer holds", QStringLiteral("Blink__99999999999999999999"), blink,
        0);

    add("dot in the name", QStringLiteral("Blink.new__3"), none, -1);
    add("dot in the version", QStringLiteral("Blink__3.5"), blink, 3);
    add("dot before the name", QStringLiteral(".Blink__3"), none, -1);
    add("blanks around the name", QStringLiteral(" Blink __3"), QStringLiteral(" Blink "), 3);
    add("signs in the name", QStringLiteral("-Blink+(1)&$x__3"), QStringLiteral("-Blink+(1)&$x"),
        3);
    add("lower-case name", QStringLiteral("blink__1"), QStringLiteral("blink"), 1);
    add("upper-case name", QStringLiteral("BLINK__1"), QStringLiteral("BLINK"), 1);
    add("name of other scripts", QStringLiteral("Blinkén_灯__4"), QStringLiteral("Blinkén_灯"), 4);
    const QString longName(10000, QLatin1Char('n'));
    add("very long name", longName + QStringLiteral("__5"), longName, 5);

    addFile("no tail", QStringLiteral("Blink__3"), blink, 3);
    addFile("other tail", QStringLiteral("Blink__3.hex"), blink, 3);
    addFile("tail without its first dot",
            QStringLiteral("Blink__3ino.with_bootloader.standard.hex"), blink, 0);
}

void tst_Sketch::nameAndVersion()
{
    QFETCH(const QString, file);
    QFETCH(const QString, name);

    const Sketch sketch {QFileInfo(file)};
    QCOMPARE(sketch.name, name);
    QTEST(sketch.version, "version");
}

void tst_Sketch::fileIsKeptAsGiven_data()
{
    QTest::addColumn<QString>("path");

    QTest::newRow("bare name") << QStringLiteral("Blink__3.ino.with_bootloader.standard.hex");
    QTest::newRow("relative path") << QStringLiteral("./here/../Blink__3.ino");
    QTest::newRow("absolute path") << QString(directory + QStringLiteral("Blink__3.ino"));
    QTest::newRow("malformed name") << QString(directory + QStringLiteral("Blink.ino"));
}

void tst_Sketch::fileIsKeptAsGiven()
{
    QFETCH(const QString, path);

    const Sketch sketch {QFileInfo(path)};
    QCOMPARE(sketch.fileInfo.filePath(), path);
    QCOMPARE(sketch.fileInfo, QFileInfo(path));
}

void tst_Sketch::emptyFileIsNoSketch()
{
    const Sketch sketch {QFileInfo()};
    QCOMPARE(sketch.version, -1);
    QCOMPARE(sketch.name, QString());
    QCOMPARE(sketch.fileInfo.filePath(), QString());
}

void tst_Sketch::caseDistinguishesSketches()
{
    const Sketch lower {QFileInfo(QStringLiteral("blink__1"))};
    const Sketch upper {QFileInfo(QStringLiteral("Blink__1"))};
    QVERIFY(lower.name != upper.name);
}

void tst_Sketch::copyIsIndependent()
{
    const Sketch original {QFileInfo(directory + QStringLiteral("Blink__3.ino"))};
    Sketch copy = original;
    QCOMPARE(copy.name, original.name);
    QCOMPARE(copy.version, original.version);
    QCOMPARE(copy.fileInfo, original.fileInfo);

    copy = Sketch(QFileInfo(QStringLiteral("Servo__4.ino")));
    QCOMPARE(copy.name, QStringLiteral("Servo"));
    QCOMPARE(original.name, QStringLiteral("Blink"));
    QCOMPARE(original.version, 3);
    QCOMPARE(original.fileInfo.fileName(), QStringLiteral("Blink__3.ino"));
}

void tst_Sketch::listHoldsCopies()
{
    Sketch sketch {QFileInfo(QStringLiteral("Blink__3.ino"))};
    const QList<Sketch> list {sketch};
    sketch.name.clear();
    sketch.version = 0;
    QCOMPARE(list.first().name, QStringLiteral("Blink"));
    QCOMPARE(list.first().version, 3);
}

void tst_Sketch::isPlainValue()
{
    QVERIFY(!std::is_polymorphic_v<Sketch>);
    QVERIFY(std::is_default_constructible_v<Sketch>);
    QVERIFY((std::is_constructible_v<Sketch, QFileInfo>));
    QVERIFY(std::is_copy_constructible_v<Sketch>);
    QVERIFY(std::is_copy_assignable_v<Sketch>);
    QVERIFY((std::is_same_v<decltype(Sketch::version), int>));
    QVERIFY((std::is_same_v<decltype(Sketch::name), QString>));
    QVERIFY((std::is_same_v<decltype(Sketch::fileInfo), QFileInfo>));
}

void tst_Sketch::fieldsKeepTheirOrder()
{
    const Sketch sketch;
    QCOMPARE(static_cast<const void *>(&sketch), static_cast<const void *>(&sketch.version));
    QVERIFY(standsBefore(&sketch.version, &sketch.name));
    QVERIFY(standsBefore(&sketch.name, &sketch.fileInfo));
}

QTEST_APPLESS_MAIN(tst_Sketch)

#include "tst_sketch.moc"
