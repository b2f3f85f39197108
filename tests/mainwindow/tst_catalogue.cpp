// The sketch catalogue: the listing of the local repository and the program list of the window.
#include "mainwindow/mainwindow.h"
#include "support/applicationdirectory.h"
#include "support/messageboxdriver.h"
#include "support/messagerecorder.h"
#include "support/windowdriver.h"
#include "support/withoutfileprivileges.h"

#include <QDir>
#include <QFrame>
#include <QLabel>
#include <QListWidget>
#include <QTest>

#include <sys/stat.h>

namespace {

QString missingDirectoryWarning(const QString &absolutePath)
{
    return QStringLiteral("Cannot find directory  \"%1\"").arg(absolutePath);
}

QString withoutSlash(const QString &directory)
{
    return directory.chopped(1);
}

QListWidget *programList(const MainWindow &window)
{
    return child<QListWidget>(window, "listWidget_programlist");
}

QStringList programs(const MainWindow &window)
{
    QStringList texts;
    for (int row = 0; row < programList(window)->count(); ++row)
        texts.append(programList(window)->item(row)->text());
    return texts;
}

QList<int> weights(const MainWindow &window)
{
    QList<int> result;
    for (int row = 0; row < programList(window)->count(); ++row)
        result.append(programList(window)->item(row)->font().weight());
    return result;
}

void relist(MainWindow &window, const QString &path = ApplicationDirectory::sketchesPath())
{
    window.updateCompiledSketckesList(path);
    window.updateProgramlist();
}

void addSketches(const QStringList &baseNames)
{
    for (const QString &baseName : baseNames)
        ApplicationDirectory::addSketch(baseName);
}

QString sketchPath(const QString &baseName)
{
    return ApplicationDirectory::sketchesPath() + ApplicationDirectory::sketchFileName(baseName);
}

bool makeLink(const QString &path, const QString &target)
{
    return QDir().mkpath(ApplicationDirectory::sketchesPath()) && QFile::link(target, path);
}

bool makeFile(const QString &path, const QByteArray &content = "sketch")
{
    return ApplicationDirectory::addFile(QFileInfo(path).fileName(), content) == path;
}

bool makeEntry(const QString &kind, const QString &path)
{
    if (kind == QLatin1String("file"))
        return makeFile(path);
    if (kind == QLatin1String("empty file"))
        return makeFile(path, QByteArray());
    if (kind == QLatin1String("unreadable file"))
        return makeFile(path) && QFile::setPermissions(path, QFileDevice::Permissions());
    if (kind == QLatin1String("directory"))
        return QDir().mkpath(path);
    if (kind == QLatin1String("link to file"))
        return makeLink(path, ApplicationDirectory::addFile(QStringLiteral("other")));
    if (kind == QLatin1String("link to directory"))
        return makeLink(path, ApplicationDirectory::sketchesPath());
    if (kind == QLatin1String("link to nothing"))
        return makeLink(path, ApplicationDirectory::sketchesPath() + QStringLiteral("missing"));
    return QDir().mkpath(ApplicationDirectory::sketchesPath())
        && mkfifo(QFile::encodeName(path).constData(), 0600) == 0;
}

QString fileFoundFor(MainWindow &window, const QString &name)
{
    return window.findSketchByName(name).fileInfo.fileName();
}

bool isNoSketch(const Sketch &sketch)
{
    return sketch.version == -1 && sketch.name.isEmpty() && sketch.fileInfo.filePath().isEmpty();
}

} // namespace

class tst_Catalogue : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void startListsRepository();
    void startWithEmptyRepository();
    void startMakesMissingRepository();
    void fileNamesThatAreListed_data();
    void fileNamesThatAreListed();
    void kindsOfEntries_data();
    void kindsOfEntries();
    void order_data();
    void order();
    void rowsShowNamesOnly();
    void malformedNamesGiveEmptyRows();
    void versionsOfOneSketchAreTwoRows();
    void pathMayLackItsSlash();
    void anyDirectoryCanBeListed();

    void missingDirectoryIsMade_data();
    void missingDirectoryIsMade();
    void existingDirectoryGivesNoWarning();
    void directoryThatCannotBeMade_data();
    void directoryThatCannotBeMade();
    void unreadableDirectoryIsEmpty();
    void failedListingForgetsSketches();

    void listingReplacesCatalogue();
    void listIsShownOnRequestOnly();
    void findsFirstInFileNameOrder();
    void findsFirstWhateverTheCase();
    void findsExactNamesOnly_data();
    void findsExactNamesOnly();
    void emptyNameFindsMalformedFile();

    void noRowIsCurrentAfterRefill();
    void clickedRowTurnsBold();
    void keyboardMovesBoldRow();
    void weightOfPreviousRow_data();
    void weightOfPreviousRow();
    void otherFontPropertiesStay();
    void plainPreviousRowGetsFont();
    void missingRowsAreIgnored();
    void selectionTouchesNothingElse();
};

void tst_Catalogue::initTestCase()
{
    // Users install programs in such places.
    QVERIFY(ApplicationDirectory::path().contains(QLatin1Char(' ')));
}

void tst_Catalogue::init()
{
    ApplicationDirectory::clear();
}

void tst_Catalogue::cleanup()
{
    ApplicationDirectory::clear();
}

void tst_Catalogue::startListsRepository()
{
    addSketches({QStringLiteral("Servo__1"), QStringLiteral("Blink__2")});
    MainWindow window;
    QCOMPARE(programs(window), QStringList({QStringLiteral("Blink"), QStringLiteral("Servo")}));
    QCOMPARE(programList(window)->currentRow(), -1);
    QCOMPARE(window.findSketchByName(QStringLiteral("Servo")).fileInfo.absoluteFilePath(),
             sketchPath(QStringLiteral("Servo__1")));
}

void tst_Catalogue::startWithEmptyRepository()
{
    QVERIFY(QDir().mkpath(ApplicationDirectory::sketchesPath()));
    MainWindow window;
    window.show();
    QCOMPARE(programList(window)->count(), 0);
    QCOMPARE(programList(window)->currentRow(), -1);
    QVERIFY(child<QFrame>(window, "frame_deviceinfo")->isHidden());
}

void tst_Catalogue::startMakesMissingRepository()
{
    const MessageRecorder recorder;
    MessageBoxDriver boxes;
    MainWindow window;
    QCOMPARE(
        recorder.warnings().filter(QStringLiteral("directory")),
        QStringList(missingDirectoryWarning(withoutSlash(ApplicationDirectory::sketchesPath()))));
    QVERIFY(QFileInfo(ApplicationDirectory::sketchesPath()).isDir());
    QCOMPARE(programList(window)->count(), 0);
    QCOMPARE(boxes.texts(), QStringList());
}

void tst_Catalogue::fileNamesThatAreListed_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<bool>("listed");

    QTest::newRow("sketch") << QStringLiteral("Blink__2.ino.with_bootloader.standard.hex") << true;
    QTest::newRow("letter directly before the tail")
        << QStringLiteral("xino.with_bootloader.standard.hex") << true;
    QTest::newRow("tail alone") << QStringLiteral("ino.with_bootloader.standard.hex") << true;
    QTest::newRow("tail twice") << QStringLiteral("Blink__2.ino.with_bootloader.standard.hex"
                                                  ".ino.with_bootloader.standard.hex")
                                << true;
    QTest::newRow("tail in capitals")
        << QStringLiteral("Blink__2.INO.WITH_BOOTLOADER.STANDARD.HEX") << true;
    QTest::newRow("blank in the name")
        << QStringLiteral("My Blink__2.ino.with_bootloader.standard.hex") << true;
    QTest::newRow("wildcards in the name")
        << QStringLiteral("[B]l?nk*__2.ino.with_bootloader.standard.hex") << true;
    QTest::newRow("other scripts")
        << QStringLiteral("灯__2.ino.with_bootloader.standard.hex") << true;

    QTest::newRow("hidden") << QStringLiteral(".Blink__2.ino.with_bootloader.standard.hex")
                            << false;
    QTest::newRow("hidden tail alone")
        << QStringLiteral(".ino.with_bootloader.standard.hex") << false;
    QTest::newRow("something after the tail")
        << QStringLiteral("Blink__2.ino.with_bootloader.standard.hex.part") << false;
    QTest::newRow("one letter short")
        << QStringLiteral("Blink__2.ino.with_bootloader.standard.he") << false;
    QTest::newRow("without the boot loader")
        << QStringLiteral("Blink__2.ino.standard.hex") << false;
    QTest::newRow("letters in place of the dots")
        << QStringLiteral("Blink__2.inoxwith_bootloaderxstandardxhex") << false;
    QTest::newRow("blank at the end")
        << QStringLiteral("Blink__2.ino.with_bootloader.standard.hex ") << false;
    QTest::newRow("index") << QStringLiteral("file_list.txt") << false;
    QTest::newRow("name without a tail") << QStringLiteral("Blink__2") << false;
}

void tst_Catalogue::fileNamesThatAreListed()
{
    QFETCH(const QString, fileName);
    QFETCH(const bool, listed);

    ApplicationDirectory::addFile(fileName);
    MainWindow window;
    QCOMPARE(programList(window)->count(), listed ? 1 : 0);
    QVERIFY(QFileInfo::exists(ApplicationDirectory::sketchesPath() + fileName));
}

void tst_Catalogue::kindsOfEntries_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("listed");

    QTest::newRow("file") << QStringLiteral("file") << true;
    QTest::newRow("empty file") << QStringLiteral("empty file") << true;
    QTest::newRow("file that nobody may read") << QStringLiteral("unreadable file") << true;
    QTest::newRow("directory") << QStringLiteral("directory") << true;
    QTest::newRow("link to a file") << QStringLiteral("link to file") << true;
    QTest::newRow("link to a directory") << QStringLiteral("link to directory") << true;
    QTest::newRow("link to nothing") << QStringLiteral("link to nothing") << false;
    QTest::newRow("pipe") << QStringLiteral("pipe") << false;
}

void tst_Catalogue::kindsOfEntries()
{
    QFETCH(const QString, kind);
    QFETCH(const bool, listed);

    const QString path = sketchPath(QStringLiteral("Blink__2"));
    QVERIFY(makeEntry(kind, path));

    MainWindow window;
    const WithoutFilePrivileges asUser;
    relist(window);
    QCOMPARE(programs(window), listed ? QStringList(QStringLiteral("Blink")) : QStringList());
    QCOMPARE(window.findSketchByName(QStringLiteral("Blink")).version, listed ? 2 : -1);
}

void tst_Catalogue::order_data()
{
    QTest::addColumn<QStringList>("baseNames");
    QTest::addColumn<QStringList>("rows");

    QTest::newRow("case does not count")
        << QStringList({QStringLiteral("b__1"), QStringLiteral("C__1"), QStringLiteral("A__1"),
                        QStringLiteral("d__1")})
        << QStringList({QStringLiteral("A"), QStringLiteral("b"), QStringLiteral("C"),
                        QStringLiteral("d")});
    QTest::newRow("case does not count within a name")
        << QStringList({QStringLiteral("aB__1"), QStringLiteral("Aa__1"), QStringLiteral("ac__1")})
        << QStringList({QStringLiteral("Aa"), QStringLiteral("aB"), QStringLiteral("ac")});
    QTest::newRow("digits come before letters")
        << QStringList({QStringLiteral("a__1"), QStringLiteral("9__1"), QStringLiteral("B__1")})
        << QStringList({QStringLiteral("9"), QStringLiteral("a"), QStringLiteral("B")});
    QTest::newRow("numbers are compared digit by digit")
        << QStringList({QStringLiteral("s2__1"), QStringLiteral("s10__1")})
        << QStringList({QStringLiteral("s10"), QStringLiteral("s2")});
    QTest::newRow("the longer name goes by its next letter")
        << QStringList({QStringLiteral("Blink2__1"), QStringLiteral("Blink__1")})
        << QStringList({QStringLiteral("Blink2"), QStringLiteral("Blink")});
}

void tst_Catalogue::order()
{
    QFETCH(const QStringList, baseNames);
    QFETCH(const QStringList, rows);

    addSketches(baseNames);
    MainWindow window;
    QCOMPARE(programs(window), rows);
}

void tst_Catalogue::rowsShowNamesOnly()
{
    addSketches({QStringLiteral("Blink__2"), QStringLiteral("Clock__v3"),
                 QStringLiteral(" padded __4"), QStringLiteral("under_score__5")});
    MainWindow window;
    QCOMPARE(programs(window),
             QStringList({QStringLiteral(" padded "), QStringLiteral("Blink"),
                          QStringLiteral("Clock"), QStringLiteral("under_score")}));
}

void tst_Catalogue::malformedNamesGiveEmptyRows()
{
    addSketches({QStringLiteral("Apart"), QStringLiteral("Blink__2"), QStringLiteral("My__own__3"),
                 QStringLiteral("zzz____1")});
    MainWindow window;
    QCOMPARE(programs(window),
             QStringList({QString(), QStringLiteral("Blink"), QString(), QString()}));
    QVERIFY(isNoSketch(window.findSketchByName(QStringLiteral("Apart"))));
}

void tst_Catalogue::versionsOfOneSketchAreTwoRows()
{
    addSketches({QStringLiteral("Blink__2"), QStringLiteral("Blink__3")});
    MainWindow window;
    QCOMPARE(programs(window), QStringList({QStringLiteral("Blink"), QStringLiteral("Blink")}));
}

void tst_Catalogue::pathMayLackItsSlash()
{
    MainWindow window;
    ApplicationDirectory::addSketch(QStringLiteral("Blink__2"));
    relist(window, withoutSlash(ApplicationDirectory::sketchesPath()));
    QCOMPARE(programs(window), QStringList(QStringLiteral("Blink")));
    QCOMPARE(window.findSketchByName(QStringLiteral("Blink")).fileInfo.absoluteFilePath(),
             sketchPath(QStringLiteral("Blink__2")));
}

void tst_Catalogue::anyDirectoryCanBeListed()
{
    ApplicationDirectory::addSketch(QStringLiteral("Blink__2"));
    MainWindow window;
    const QString other = ApplicationDirectory::sketchesPath() + QStringLiteral("older/");
    QVERIFY(QDir().mkpath(other));
    QVERIFY(QFile::rename(sketchPath(QStringLiteral("Blink__2")),
                          other + ApplicationDirectory::sketchFileName(QStringLiteral("Old__1"))));
    relist(window, other);
    QCOMPARE(programs(window), QStringList(QStringLiteral("Old")));
}

void tst_Catalogue::missingDirectoryIsMade_data()
{
    QTest::addColumn<QString>("ending");

    QTest::newRow("path with its slash") << QStringLiteral("/");
    QTest::newRow("path without its slash") << QString();
}

void tst_Catalogue::missingDirectoryIsMade()
{
    QFETCH(const QString, ending);

    MessageBoxDriver boxes;
    MainWindow window;
    const QString path = withoutSlash(ApplicationDirectory::sketchesPath());
    QVERIFY(QDir().rmdir(path));
    const QString status = child<QLabel>(window, "label_status")->text();
    {
        const MessageRecorder recorder;
        relist(window, path + ending);
        QCOMPARE(recorder.warnings(), QStringList(missingDirectoryWarning(path)));
    }
    QVERIFY(QFileInfo(path).isDir());
    QCOMPARE(programList(window)->count(), 0);
    QCOMPARE(child<QLabel>(window, "label_status")->text(), status);
    QCOMPARE(boxes.texts(), QStringList());
}

void tst_Catalogue::existingDirectoryGivesNoWarning()
{
    addSketches({QStringLiteral("Blink__2"), QStringLiteral("malformed")});
    MainWindow window;
    const MessageRecorder recorder;
    relist(window);
    QCOMPARE(recorder.warnings(), QStringList());
}

void tst_Catalogue::directoryThatCannotBeMade_data()
{
    QTest::addColumn<QString>("path");

    const QString directory = ApplicationDirectory::sketchesPath();
    QTest::newRow("its parent is missing") << QString(directory + QStringLiteral("a/b/"));
    QTest::newRow("a file stands in its place") << QString(directory + QStringLiteral("file/"));
    QTest::newRow("its parent is a file") << QString(directory + QStringLiteral("file/b/"));
    QTest::newRow("its parent may not be changed")
        << QString(directory + QStringLiteral("locked/b/"));
}

void tst_Catalogue::directoryThatCannotBeMade()
{
    QFETCH(const QString, path);

    ApplicationDirectory::addFile(QStringLiteral("file"));
    const QString locked = ApplicationDirectory::sketchesPath() + QStringLiteral("locked");
    QVERIFY(QDir().mkdir(locked));
    QVERIFY(QFile::setPermissions(locked, QFileDevice::ReadOwner | QFileDevice::ExeOwner));
    ApplicationDirectory::addSketch(QStringLiteral("Blink__2"));
    MessageBoxDriver boxes;
    MainWindow window;
    const QString status = child<QLabel>(window, "label_status")->text();

    const WithoutFilePrivileges asUser;
    {
        const MessageRecorder recorder;
        relist(window, path);
        QCOMPARE(recorder.warnings(), QStringList(missingDirectoryWarning(withoutSlash(path))));
    }
    QVERIFY(!QFileInfo(path).isDir());
    QCOMPARE(programList(window)->count(), 0);
    QVERIFY(isNoSketch(window.findSketchByName(QStringLiteral("Blink"))));
    QCOMPARE(child<QLabel>(window, "label_status")->text(), status);
    QCOMPARE(boxes.texts(), QStringList());
}

void tst_Catalogue::unreadableDirectoryIsEmpty()
{
    ApplicationDirectory::addSketch(QStringLiteral("Blink__2"));
    MainWindow window;
    QCOMPARE(programList(window)->count(), 1);
    QVERIFY(
        QFile::setPermissions(ApplicationDirectory::sketchesPath(), QFileDevice::Permissions()));

    const WithoutFilePrivileges asUser;
    const MessageRecorder recorder;
    relist(window);
    QCOMPARE(programList(window)->count(), 0);
    QCOMPARE(recorder.warnings(), QStringList());
}

void tst_Catalogue::failedListingForgetsSketches()
{
    ApplicationDirectory::addSketch(QStringLiteral("Blink__2"));
    MainWindow window;
    QCOMPARE(fileFoundFor(window, QStringLiteral("Blink")),
             ApplicationDirectory::sketchFileName(QStringLiteral("Blink__2")));
    ApplicationDirectory::clear();
    QFile file(withoutSlash(ApplicationDirectory::sketchesPath()));
    QVERIFY(file.open(QIODevice::WriteOnly));

    relist(window);
    QVERIFY(isNoSketch(window.findSketchByName(QStringLiteral("Blink"))));
    QCOMPARE(programList(window)->count(), 0);
    QVERIFY(file.exists());
}

void tst_Catalogue::listingReplacesCatalogue()
{
    addSketches({QStringLiteral("Blink__2"), QStringLiteral("Servo__1")});
    MainWindow window;
    QVERIFY(QFile::remove(sketchPath(QStringLiteral("Blink__2"))));
    ApplicationDirectory::addSketch(QStringLiteral("Radio__4"));

    relist(window);
    QCOMPARE(programs(window), QStringList({QStringLiteral("Radio"), QStringLiteral("Servo")}));
    QVERIFY(isNoSketch(window.findSketchByName(QStringLiteral("Blink"))));
    QCOMPARE(window.findSketchByName(QStringLiteral("Radio")).version, 4);

    relist(window);
    QCOMPARE(programs(window), QStringList({QStringLiteral("Radio"), QStringLiteral("Servo")}));
}

void tst_Catalogue::listIsShownOnRequestOnly()
{
    ApplicationDirectory::addSketch(QStringLiteral("Blink__2"));
    MainWindow window;
    ApplicationDirectory::addSketch(QStringLiteral("Servo__1"));

    window.updateCompiledSketckesList(ApplicationDirectory::sketchesPath());
    QCOMPARE(programs(window), QStringList(QStringLiteral("Blink")));
    QCOMPARE(window.findSketchByName(QStringLiteral("Servo")).version, 1);

    window.updateProgramlist();
    QCOMPARE(programs(window), QStringList({QStringLiteral("Blink"), QStringLiteral("Servo")}));
}

void tst_Catalogue::findsFirstInFileNameOrder()
{
    addSketches(
        {QStringLiteral("Blink__2"), QStringLiteral("Blink__10"), QStringLiteral("Blink__9")});
    MainWindow window;
    const Sketch sketch = window.findSketchByName(QStringLiteral("Blink"));
    QCOMPARE(sketch.version, 10);
    QCOMPARE(sketch.name, QStringLiteral("Blink"));
    QCOMPARE(sketch.fileInfo.absoluteFilePath(), sketchPath(QStringLiteral("Blink__10")));
}

void tst_Catalogue::findsFirstWhateverTheCase()
{
    addSketches(
        {QStringLiteral("Blink__B"), QStringLiteral("Blink__a"), QStringLiteral("Blink__C")});
    MainWindow window;
    const Sketch sketch = window.findSketchByName(QStringLiteral("Blink"));
    QCOMPARE(sketch.fileInfo.absoluteFilePath(), sketchPath(QStringLiteral("Blink__a")));
}

void tst_Catalogue::findsExactNamesOnly_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("version");

    QTest::newRow("same name") << QStringLiteral("Blink") << 2;
    QTest::newRow("same letters, other case") << QStringLiteral("bLINK") << 3;
    QTest::newRow("neither case is there") << QStringLiteral("BLINK") << -1;
    QTest::newRow("part of a name") << QStringLiteral("Blin") << -1;
    QTest::newRow("more than a name") << QStringLiteral("Blinks") << -1;
    QTest::newRow("blank before") << QStringLiteral(" Blink") << -1;
    QTest::newRow("blank after") << QStringLiteral("Blink ") << -1;
    QTest::newRow("with its version") << QStringLiteral("Blink__2") << -1;
    QTest::newRow("wildcard") << QStringLiteral("*") << -1;
    QTest::newRow("no name") << QString() << -1;
}

void tst_Catalogue::findsExactNamesOnly()
{
    QFETCH(const QString, name);
    QFETCH(const int, version);

    addSketches({QStringLiteral("Blink__2"), QStringLiteral("bLINK__3")});
    MainWindow window;
    const Sketch sketch = window.findSketchByName(name);
    QCOMPARE(sketch.version, version);
    QCOMPARE(isNoSketch(sketch), version == -1);
}

void tst_Catalogue::emptyNameFindsMalformedFile()
{
    addSketches({QStringLiteral("Blink__2"), QStringLiteral("malformed")});
    MainWindow window;
    const Sketch sketch = window.findSketchByName(QString());
    QCOMPARE(sketch.version, -1);
    QCOMPARE(sketch.fileInfo.absoluteFilePath(), sketchPath(QStringLiteral("malformed")));
}

void tst_Catalogue::noRowIsCurrentAfterRefill()
{
    addSketches({QStringLiteral("Blink__2"), QStringLiteral("Servo__1")});
    MainWindow window;
    window.show();
    QVERIFY(selectRow(window, "listWidget_programlist", 1));

    window.updateProgramlist();
    QCOMPARE(programList(window)->currentRow(), -1);
    QVERIFY(programList(window)->selectedItems().isEmpty());
    QCOMPARE(programs(window), QStringList({QStringLiteral("Blink"), QStringLiteral("Servo")}));
    QCOMPARE(weights(window), QList<int>({QFont::Normal, QFont::Normal}));
}

void tst_Catalogue::clickedRowTurnsBold()
{
    addSketches(
        {QStringLiteral("Blink__2"), QStringLiteral("Radio__4"), QStringLiteral("Servo__1")});
    MainWindow window;
    window.show();
    QCOMPARE(weights(window), QList<int>({QFont::Normal, QFont::Normal, QFont::Normal}));

    QVERIFY(selectRow(window, "listWidget_programlist", 1));
    QCOMPARE(weights(window), QList<int>({QFont::Normal, QFont::Bold, QFont::Normal}));
    QVERIFY(selectRow(window, "listWidget_programlist", 2));
    QCOMPARE(weights(window), QList<int>({QFont::Normal, QFont::Normal, QFont::Bold}));
    QVERIFY(selectRow(window, "listWidget_programlist", 2));
    QCOMPARE(weights(window), QList<int>({QFont::Normal, QFont::Normal, QFont::Bold}));
    QVERIFY(selectRow(window, "listWidget_programlist", 0));
    QCOMPARE(weights(window), QList<int>({QFont::Bold, QFont::Normal, QFont::Normal}));
}

void tst_Catalogue::keyboardMovesBoldRow()
{
    addSketches(
        {QStringLiteral("Blink__2"), QStringLiteral("Radio__4"), QStringLiteral("Servo__1")});
    MainWindow window;
    window.show();
    QVERIFY(selectRow(window, "listWidget_programlist", 0));

    QTest::keyClick(programList(window), Qt::Key_Down);
    QCOMPARE(weights(window), QList<int>({QFont::Normal, QFont::Bold, QFont::Normal}));
    QTest::keyClick(programList(window), Qt::Key_End);
    QCOMPARE(weights(window), QList<int>({QFont::Normal, QFont::Normal, QFont::Bold}));
    QTest::keyClick(programList(window), Qt::Key_Home);
    QCOMPARE(weights(window), QList<int>({QFont::Bold, QFont::Normal, QFont::Normal}));
}

void tst_Catalogue::weightOfPreviousRow_data()
{
    QTest::addColumn<int>("weight");
    QTest::addColumn<int>("weightAfterwards");

    QTest::newRow("light") << int(QFont::Light) << int(QFont::Light);
    QTest::newRow("normal") << int(QFont::Normal) << int(QFont::Normal);
    QTest::newRow("just below bold") << int(QFont::Medium) << int(QFont::Medium);
    QTest::newRow("just bold") << QFont::Medium + 1 << int(QFont::Normal);
    QTest::newRow("bold") << int(QFont::Bold) << int(QFont::Normal);
    QTest::newRow("black") << int(QFont::Black) << int(QFont::Normal);
}

void tst_Catalogue::weightOfPreviousRow()
{
    QFETCH(const int, weight);

    addSketches({QStringLiteral("Blink__2"), QStringLiteral("Servo__1")});
    MainWindow window;
    window.show();
    QVERIFY(selectRow(window, "listWidget_programlist", 0));
    QFont font;
    font.setWeight(static_cast<QFont::Weight>(weight));
    programList(window)->item(0)->setFont(font);

    QVERIFY(selectRow(window, "listWidget_programlist", 1));
    QTEST(int(programList(window)->item(0)->font().weight()), "weightAfterwards");
    QCOMPARE(int(programList(window)->item(1)->font().weight()), int(QFont::Bold));
}

void tst_Catalogue::otherFontPropertiesStay()
{
    addSketches({QStringLiteral("Blink__2"), QStringLiteral("Servo__1")});
    MainWindow window;
    window.show();
    QFont font;
    font.setItalic(true);
    font.setPointSize(17);
    programList(window)->item(0)->setFont(font);

    QVERIFY(selectRow(window, "listWidget_programlist", 0));
    QFont bold = font;
    bold.setWeight(QFont::Bold);
    QCOMPARE(programList(window)->item(0)->font(), bold);
    QVERIFY(selectRow(window, "listWidget_programlist", 1));
    font.setWeight(QFont::Normal);
    QCOMPARE(programList(window)->item(0)->font(), font);
}

void tst_Catalogue::plainPreviousRowGetsFont()
{
    addSketches({QStringLiteral("Blink__2"), QStringLiteral("Servo__1")});
    MainWindow window;
    window.show();
    QVERIFY(selectRow(window, "listWidget_programlist", 0));
    programList(window)->item(0)->setData(Qt::FontRole, QVariant());

    QVERIFY(selectRow(window, "listWidget_programlist", 1));
    const QVariant font = programList(window)->item(0)->data(Qt::FontRole);
    QVERIFY(font.isValid());
    QCOMPARE(int(font.value<QFont>().weight()), int(QFont::Normal));
}

void tst_Catalogue::missingRowsAreIgnored()
{
    ApplicationDirectory::addSketch(QStringLiteral("Blink__2"));
    MainWindow window;
    QListWidgetItem *item = programList(window)->item(0);
    window.on_listWidget_programlist_currentItemChanged(nullptr, nullptr);
    QCOMPARE(weights(window), QList<int>({QFont::Normal}));
    window.on_listWidget_programlist_currentItemChanged(item, nullptr);
    QCOMPARE(weights(window), QList<int>({QFont::Bold}));
    window.on_listWidget_programlist_currentItemChanged(nullptr, item);
    QCOMPARE(weights(window), QList<int>({QFont::Normal}));
}

void tst_Catalogue::selectionTouchesNothingElse()
{
    ApplicationDirectory::addSketch(QStringLiteral("Blink__2"));
    MainWindow window;
    window.show();
    auto *onDevice = child<QLabel>(window, "label_programondevice");
    auto *recommendation = child<QLabel>(window, "label_updaterecommendation");
    const QStringList before {onDevice->text(), recommendation->text()};

    QVERIFY(selectRow(window, "listWidget_programlist", 0));
    QCOMPARE(QStringList({onDevice->text(), recommendation->text()}), before);
    QVERIFY(child<QFrame>(window, "frame_deviceinfo")->isHidden());
}

QTEST_MAIN(tst_Catalogue)

#include "tst_catalogue.moc"
