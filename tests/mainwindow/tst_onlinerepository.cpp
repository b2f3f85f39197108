// The online repository: index, removal of stale sketches, downloads, and what the user sees of it.
#include "mainwindow/mainwindow.h"
#include "support/applicationdirectory.h"
#include "support/footprint.h"
#include "support/isolation.h"
#include "support/messageboxdriver.h"
#include "support/patience.h"
#include "support/repositoryserver.h"
#include "support/windowdriver.h"
#include "support/withoutfileprivileges.h"

#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QLabel>
#include <QListWidget>
#include <QNetworkAccessManager>
#include <QNetworkInterface>
#include <QNetworkReply>
#include <QProcess>
#include <QProgressBar>
#include <QSaveFile>
#include <QScrollBar>
#include <QSet>
#include <QSignalSpy>
#include <QTest>

#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <utility>

namespace {

const QString repository = QStringLiteral("http://updates.korvex.example/vt_updater/");
const QString indexAddress = QStringLiteral("http://updates.korvex.example/vt_updater/"
                                            "file_list.txt");

const QString contactError =
    QStringLiteral("Error contacting online repository. Are you online? [hidden]");
const QString upToDate = QStringLiteral("Local repository up-to-date [hidden]");
// As long as a file system takes it.
const QString longestName = QString(255, QLatin1Char('n'));
const QString creationError = QStringLiteral("Failed creating file...");

QString hex(const char *baseName)
{
    return ApplicationDirectory::sketchFileName(QString::fromUtf8(baseName));
}

QByteArray lines(const QStringList &entries)
{
    return entries.join(QLatin1Char('\n')).toUtf8();
}

QStringList sorted(QStringList list)
{
    list.sort();
    return list;
}

QString describe(const QProgressBar &bar)
{
    if (!bar.isVisible())
        return QStringLiteral("[hidden]");
    if (bar.minimum() == 0 && bar.maximum() == 0)
        return QStringLiteral("[busy]");
    return QStringLiteral("[%1 in %2..%3]").arg(bar.value()).arg(bar.minimum()).arg(bar.maximum());
}

// Everything outside the local repository: paths, sizes and times.
QStringList surroundings()
{
    QStringList result;
    QDirIterator files(ApplicationDirectory::path(),
                       QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                       QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const QString path = files.next();
        if (path.startsWith(ApplicationDirectory::sketchesPath().chopped(1)))
            continue;
        const QFileInfo info = files.fileInfo();
        result.append(QStringLiteral("%1 %2 %3")
                          .arg(path)
                          .arg(info.isDir() ? 0 : info.size())
                          .arg(info.lastModified().toMSecsSinceEpoch()));
    }
    return sorted(result);
}

// What the user saw whenever the bar was painted.
class PaintLog : public QObject
{
public:
    PaintLog(QProgressBar *watchedBar, const QLabel *watchedLabel)
        : bar(watchedBar)
        , label(watchedLabel)
    {
        bar->installEventFilter(this);
    }

    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Paint)
            sights.append(label->text() + QLatin1Char(' ') + describe(*bar));
        return false;
    }

    QStringList sights;

private:
    QProgressBar *bar;
    const QLabel *label;
};

// A small disk mounted over the local repository, seen by this thread only.
class SmallDisk
{
public:
    SmallDisk()
    {
        QDir().mkpath(ApplicationDirectory::sketchesPath());
        mounted = unshare(CLONE_NEWNS) == 0
            && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
            && mount("disk", path.constData(), "tmpfs", 0, "size=64k") == 0;
    }

    ~SmallDisk()
    {
        if (mounted)
            umount2(path.constData(), MNT_DETACH);
    }

    SmallDisk(const SmallDisk &) = delete;
    SmallDisk &operator=(const SmallDisk &) = delete;

    bool isMounted() const { return mounted; }

    bool makeReadOnly()
    {
        return mount(nullptr, path.constData(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
    }

private:
    const QByteArray path = QFile::encodeName(ApplicationDirectory::sketchesPath());
    bool mounted;
};

// No file of this process grows beyond this size.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t size)
        : earlierHandler(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &earlier);
        const rlimit limit = {size, earlier.rlim_max};
        set = setrlimit(RLIMIT_FSIZE, &limit) == 0;
    }

    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &earlier);
        std::signal(SIGXFSZ, earlierHandler);
    }

    FileSizeLimit(const FileSizeLimit &) = delete;
    FileSizeLimit &operator=(const FileSizeLimit &) = delete;

    bool isSet() const { return set; }

private:
    void (*earlierHandler)(int);
    rlimit earlier = {};
    bool set;
};

struct NamedAnswer
{
    const char *name;
    Answer answer;
};

// Qt reports no error for 1xx and 2xx responses, nor for 3xx responses that lead nowhere.
QList<NamedAnswer> answersOfAnotherStatus(const QByteArray &body)
{
    return {
        {"101, switching protocols", Answer::failure(101, body)},
        {"199, of no known meaning", Answer::failure(199, body)},
        {"201, created", Answer::failure(201, body)},
        {"202, accepted for later", Answer::failure(202, body)},
        {"203, changed on the way", Answer::failure(203, body)},
        {"204, without content", Answer::failure(204, body)},
        {"205, reset content", Answer::failure(205, body)},
        {"206, a part of the content", Answer::failure(206, body)},
        {"226, changes against an earlier answer", Answer::failure(226, body)},
        {"299, of no known meaning", Answer::failure(299, body)},
        {"300, an offer of several places", Answer::failure(300, body)},
        {"304, not modified", Answer::failure(304, body)},
        {"306, reserved", Answer::failure(306, body)},
    };
}

// A stream of the coding "deflate".
QByteArray deflated(const QByteArray &body)
{
    return qCompress(body).mid(4);
}

// A stream of the coding "gzip" that ends in the middle.
QByteArray cutGzip(const QByteArray &body)
{
    const QByteArray header("\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\xff", 10);
    const QByteArray stream = deflated(body).mid(2);
    return header + stream.left(stream.size() / 2);
}

QList<NamedAnswer> codedAnswers(const QByteArray &body)
{
    const QByteArray gzip = "Content-Encoding: gzip\r\n";
    return {
        {"packed by gzip and cut short", Answer::with(gzip, cutGzip(body))},
        {"packed by deflate, whole", Answer::with("Content-Encoding: deflate\r\n", deflated(body))},
        {"said to be packed, but plain", Answer::with(gzip, body)},
        {"packed by gzip, in capitals", Answer::with("CONTENT-ENCODING: GZIP\r\n", body)},
        {"in a coding that nobody knows", Answer::with("Content-Encoding: rot13\r\n", body)},
        {"in two codings", Answer::with("Content-Encoding: identity, gzip\r\n", body)},
        {"transferred by gzip", Answer::with("Transfer-Encoding: gzip\r\n", body)},
    };
}

QByteArray chunk(const QByteArray &content)
{
    return QByteArray::number(content.size(), 16) + "\r\n" + content + "\r\n";
}

// Qt also accepts most unreadable ones.
QList<NamedAnswer> chunkedAnswers(const QByteArray &body)
{
    const QByteArray first = chunk(body.left(body.size() / 2));
    const QByteArray second = chunk(body.mid(body.size() / 2));
    const QByteArray end = "0\r\n\r\n";
    const QByteArray lost = "\r\n" + body + "\r\n" + end;
    return {
        {"in chunks, each of them readable", Answer::chunked(first + second + end)},
        {"in chunks with a trailer", Answer::chunked(first + second + "0\r\nSum: 1\r\n\r\n")},
        {"in chunks, the first without a size", Answer::chunked("zz" + lost)},
        {"in chunks, the second without a size", Answer::chunked(first + "zz" + lost)},
        {"in chunks, a size that could be the end's", Answer::chunked(first + "zz\r\n\r\n")},
        {"in chunks, a size below zero", Answer::chunked(first + "-5" + lost)},
        {"in chunks, a size of minus one", Answer::chunked(first + "-1" + lost)},
        {"in chunks, a size beyond all numbers",
         Answer::chunked(first + QByteArray(20, 'F') + lost)},
        {"in chunks, a word behind a size", Answer::chunked(first + "5 x" + lost)},
        {"in chunks, no line end behind the first",
         Answer::chunked(first.chopped(2) + second + end)},
    };
}

QList<NamedAnswer> pages(const QByteArray &body)
{
    const QByteArray mark = "\xEF\xBB\xBF";
    const QByteArray page = "<html>\n" + body + "\n</html>";
    return {
        {"a page", Answer::ok(page)},
        {"a page in capitals", Answer::ok("<HTML LANG=en>\n" + body)},
        {"a page with its document type", Answer::ok("<!doctype html>\n" + body)},
        {"a document type in capitals", Answer::ok("<!DOCTYPE HTML PUBLIC>\n" + body)},
        {"a page behind blanks of all kinds", Answer::ok(" \t\r\n\v\f" + page)},
        {"a page behind many blanks", Answer::ok(QByteArray(100000, ' ') + page)},
        {"a page across two blocks", Answer::ok(QByteArray(65533, ' ') + page)},
        {"a document type across two blocks",
         Answer::ok(QByteArray(65536 - 9, ' ') + "<!doctype html>\n" + body)},
        {"a page behind a byte order mark", Answer::ok(mark + page)},
        {"a page behind a mark across two blocks",
         Answer::ok(QByteArray(65535, ' ') + mark + page)},
        {"a page behind a mark and blanks", Answer::ok(mark + "\r\n " + page)},
        {"a page behind blanks and a mark", Answer::ok("\n" + mark + page)},
        {"a page without a length", Answer::withoutLength(page)},
        {"a page and no more", Answer::ok("<html")},
    };
}

// What has the body, or a part of it, and is not to be taken for it.
QList<NamedAnswer> wrongAnswers(const QByteArray &body)
{
    return answersOfAnotherStatus(body) + codedAnswers(body) + chunkedAnswers(body) + pages(body);
}

const QStringList sketchFiles {QStringLiteral("*ino.with_bootloader.standard.hex")};

QSet<QString> setOf(const QStringList &list)
{
    return QSet<QString>(list.cbegin(), list.cend());
}

QString addressOf(const QString &entry)
{
    return QString::fromLatin1(QUrl(repository + entry).toEncoded());
}

QString describe(const Sketch &sketch)
{
    return QStringLiteral("%1, version %2, %3")
        .arg(sketch.name)
        .arg(sketch.version)
        .arg(sketch.fileInfo.filePath());
}

// Of each row the sketch that is found by its text.
QStringList rowsOf(MainWindow &window)
{
    const auto *list = child<QListWidget>(window, "listWidget_programlist");
    QStringList rows;
    for (int row = 0; row < list->count(); ++row)
        rows.append(describe(window.findSketchByName(list->item(row)->text())));
    return rows;
}

// The rows of the directory as it is now, read by nobody but this.
QStringList rowsOfDirectory()
{
    QList<Sketch> sketches;
    const QDir directory(ApplicationDirectory::sketchesPath());
    const QFileInfoList entries = directory.entryInfoList(sketchFiles);
    for (const QFileInfo &entry : entries)
        sketches.append(Sketch(entry));
    QStringList rows;
    for (const Sketch &sketch : std::as_const(sketches)) {
        const auto isNamesake = [&](const Sketch &other) {
            return other.name == sketch.name;
        };
        rows.append(describe(*std::find_if(sketches.cbegin(), sketches.cend(), isNamesake)));
    }
    return rows;
}

bool isPlain(const QListWidget &list)
{
    for (int row = 0; row < list.count(); ++row) {
        if (list.item(row)->data(Qt::FontRole).isValid())
            return false;
    }
    return list.currentRow() == -1 && list.selectedItems().isEmpty();
}

// What others may do to the local repository, or with the window, between two files.
bool meddle(MainWindow &window, const QString &how)
{
    const QString path = ApplicationDirectory::sketchesPath();
    const QString others = path + hex("Guest__1");
    const QString ours = path + hex("Blink__1");
    if (how == QLatin1String("a file is put"))
        return QFile::copy(ours, others);
    if (how == QLatin1String("our file is removed"))
        return QFile::remove(ours);
    if (how == QLatin1String("our file is renamed"))
        return QFile::rename(ours, others);
    if (how == QLatin1String("a file is moved in"))
        return QFile::copy(ours, path + QStringLiteral("../guest"))
            && QFile::rename(path + QStringLiteral("../guest"), others);
    if (how == QLatin1String("a link lies in the way"))
        return QFile::link(QStringLiteral("missing"), path + hex("Fade__1"));
    if (how == QLatin1String("a directory is made"))
        return QDir().mkdir(others);
    if (how == QLatin1String("a file comes and goes"))
        return QFile::copy(ours, others) && QFile::remove(others);
    if (how == QLatin1String("the repository is replaced"))
        return QDir().rename(path, path.chopped(1) + QStringLiteral(".old")) && QDir().mkdir(path);
    if (how == QLatin1String("another directory is listed"))
        window.updateCompiledSketckesList(ApplicationDirectory::path());
    if (how == QLatin1String("the catalogue is read, but not shown")) {
        QFile::copy(ours, others);
        window.updateCompiledSketckesList(path);
    }
    return true;
}

bool runIp(const QString &arguments)
{
    return QProcess::execute(QStringLiteral("ip"), arguments.split(QLatin1Char(' '))) == 0;
}

bool isUp(const QString &interface)
{
    return QNetworkInterface::interfaceFromName(interface).flags().testFlag(
        QNetworkInterface::IsUp);
}

} // namespace

class tst_OnlineRepository : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void asksForTheIndexAtStart();
    void asksForTheIndexOffline();
    void asksForNoCoding();
    void readsTheIndex_data();
    void readsTheIndex();
    void asksInTheOrderOfTheIndex();
    void longIndex();
    void indexFails_data();
    void indexFails();
    void indexErrorKeepsThePreviousList();
    void fileFails_data();
    void fileFails();
    void anyOtherBodyIsStoredAsItIs_data();
    void anyOtherBodyIsStoredAsItIs();
    void bodyWithoutLengthEndsWithTheConnection();
    void followsARedirectAtHome();
    void silentServer();

    void isBusyWhileChecking();
    void allPresent();
    void barComesBackWithTheNextDownload();
    void somePresent();
    void allMissing();
    void repliesInReversedOrder();
    void refreshWhileDownloading();
    void moreRepliesThanEntries();
    void listedAgainIsFetchedAgain();

    void eachFileGetsItsPlace_data();
    void eachFileGetsItsPlace();
    void othersAreSeenWithTheNextFile_data();
    void othersAreSeenWithTheNextFile();
    void unreadableRepositoryIsSeenWithTheNextFile();
    void eachFileTakesTheChoiceAway();
    void eachFileLeavesTheViewWhereItIs();
    void aFileAloneNeedsNoRefill();

    void refreshReadsTheDiskAtOnce();
    void refreshIsRefusedOffline();
    void online_data();
    void online();

    void emptyEntryNamesNoFile();
    void pageInPlaceOfTheDirectory();
    void fullDisk_data();
    void fullDisk();
    void fileThatCannotBeReplaced();
    void largerThanAFileMayBe();
    void readOnlyDirectory();
    void directoryInTheWay();
    void refusedByTheSystem_data();
    void refusedByTheSystem();
    void readOnlyFileOnAReadOnlyDisk();
    void linkInTheWay_data();
    void linkInTheWay();
    void linkThatCannotBeRemoved();
    void nameIsDecoded_data();
    void nameIsDecoded();
    void directoryIsNotPruned();
    void staleLinkGoesAlone();
    void repositoryIsMissing();
    void halfAFileIsNoFile();
    void failedDownloadKeepsTheOldContent();
    void remainsOfAnInterruptedWriteAreNotShown();

    void staysInsideTheRepository_data();
    void staysInsideTheRepository();
    void givesThreadsAndDescriptorsBack();

private:
    void serveIndex(const QByteArray &body) { server->serve(indexAddress, {Answer::ok(body)}); }
    void start();
    // False where no network interface is up, which would be refused with a box.
    bool refresh()
    {
        return window->areYouOnline() && click(*window, "pushButton_programlist_refresh");
    }
    // The entries of the index are held back until they are let through one by one.
    void startHolding(const QStringList &entries);
    // True when its replies have been handled: as many as there were requests.
    bool letThrough(const QString &entry);
    // All replies have been handled.
    bool isSettled() const { return window->findChildren<QNetworkReply *>().isEmpty(); }
    QString label() const { return child<QLabel>(*window, "label_status")->text(); }
    QString shown() const;
    QStringList programs() const;

    std::unique_ptr<RepositoryServer> server;
    std::unique_ptr<MainWindow> window;
};

void tst_OnlineRepository::init()
{
    ApplicationDirectory::clear();
    server = std::make_unique<RepositoryServer>();
}

void tst_OnlineRepository::cleanup()
{
    window.reset();
    server.reset();
    ApplicationDirectory::clear();
}

void tst_OnlineRepository::start()
{
    window = std::make_unique<MainWindow>();
    window->show();
}

QString tst_OnlineRepository::shown() const
{
    return label() + QLatin1Char(' ') + describe(*child<QProgressBar>(*window, "progressBar"));
}

QStringList tst_OnlineRepository::programs() const
{
    const auto *list = child<QListWidget>(*window, "listWidget_programlist");
    QStringList result;
    for (int row = 0; row < list->count(); ++row)
        result.append(list->item(row)->text());
    return result;
}

void tst_OnlineRepository::asksForTheIndexAtStart()
{
    ApplicationDirectory::addSketch(QStringLiteral("Blink__1"));
    server->serve(indexAddress, {Answer::held(hex("Blink__1").toUtf8())});

    start();
    QTRY_COMPARE_WITH_TIMEOUT(server->requests(), QStringList {indexAddress}, patience);
    QCOMPARE(label(), QString());
    QCOMPARE(programs(), QStringList {QStringLiteral("Blink")});

    server->release(indexAddress);
    QTRY_COMPARE_WITH_TIMEOUT(shown(), upToDate, patience);
    QCOMPARE(server->requests(), QStringList {indexAddress});
}

// The refresh button would refuse.
void tst_OnlineRepository::asksForTheIndexOffline()
{
    const Isolation isolation;
    if (!isolation.isIsolated())
        QSKIP("only root can leave the network");

    start();
    QTRY_COMPARE_WITH_TIMEOUT(shown(), contactError, patience);
    QVERIFY(!window->areYouOnline());
}

void tst_OnlineRepository::asksForNoCoding()
{
    const QString moved = QStringLiteral("http://updates.korvex.example/store/") + hex("Tone__4");
    serveIndex(lines({hex("Tone__3")}));
    server->serve(repository + hex("Tone__3"), {Answer::redirect(moved.toLatin1())});
    server->serve(moved, {Answer::ok("tone")});

    start();
    QTRY_COMPARE_WITH_TIMEOUT(shown(), upToDate, patience);
    for (const QString &address : {indexAddress, repository + hex("Tone__3"), moved}) {
        const QByteArray fields = server->requestFields(address).toLower();
        QVERIFY2(fields.contains("accept-encoding: identity\r\n"), fields.constData());
        QCOMPARE(fields.count("accept-encoding"), 1);
    }
}

void tst_OnlineRepository::readsTheIndex_data()
{
    QTest::addColumn<QByteArray>("index");
    QTest::addColumn<QStringList>("asked"); // after the repository's address
    QTest::addColumn<QStringList>("kept");

    const QByteArray blink = hex("Blink__1").toUtf8();
    const QByteArray fade = hex("Fade__2").toUtf8();
    const QByteArray tone = hex("Tone__3").toUtf8();
    const QStringList both {hex("Blink__1"), hex("Fade__2")};
    const QStringList none;

    QTest::newRow("no final line feed") << blink + '\n' + fade << none << both;
    QTest::newRow("a final line feed adds an empty entry") << blink + '\n' + fade + '\n'
                                                           << QStringList {QString()} << both;
    QTest::newRow("an empty line is an entry")
        << blink + "\n\n" + fade << QStringList {QString()} << both;
    QTest::newRow("an empty body is one empty entry")
        << QByteArray("") << QStringList {QString()} << none;
    QTest::newRow("carriage returns belong to the entries")
        << blink + "\r\n" + fade + "\r\n"
        << QStringList {QString(), hex("Blink__1") + QStringLiteral("%0D"),
                        hex("Fade__2") + QStringLiteral("%0D")}
        << none;
    QTest::newRow("blanks belong to the entries")
        << ' ' + blink + '\n' + fade + ' '
        << QStringList {QStringLiteral("%20") + hex("Blink__1"),
                        hex("Fade__2") + QStringLiteral("%20")}
        << none;
    QTest::newRow("all after a NUL is ignored")
        << blink + QByteArray("\0", 1) + '\n' + fade << none << QStringList {hex("Blink__1")};
    QTest::newRow("a NUL at the beginning leaves an empty entry")
        << QByteArray("\0", 1) + blink << QStringList {QString()} << none;
    QTest::newRow("an index without local files prunes all")
        << tone << QStringList {hex("Tone__3")} << none;
    QTest::newRow("a part of the local files")
        << fade + '\n' + tone << QStringList {hex("Tone__3")} << QStringList {hex("Fade__2")};
    QTest::newRow("names differ by case")
        << blink.toUpper() + '\n' + fade << QStringList {hex("Blink__1").toUpper()}
        << QStringList {hex("Fade__2")};
    QTest::newRow("a missing file listed twice is asked twice")
        << blink + '\n' + tone + '\n' + tone << QStringList {hex("Tone__3"), hex("Tone__3")}
        << QStringList {hex("Blink__1")};
    QTest::newRow("a present file listed twice is not asked")
        << blink + '\n' + blink << none << QStringList {hex("Blink__1")};
    QTest::newRow("names that are no sketch's")
        << blink + "\nREADME.md\nnotes"
        << QStringList {QStringLiteral("README.md"), QStringLiteral("notes")}
        << QStringList {hex("Blink__1")};
    QTest::newRow("names in UTF-8")
        << QByteArray("h\xC3\xB6her.txt") << QStringList {QStringLiteral("h%C3%B6her.txt")} << none;
}

void tst_OnlineRepository::readsTheIndex()
{
    QFETCH(QByteArray, index);
    QFETCH(QStringList, asked);
    QFETCH(QStringList, kept);
    ApplicationDirectory::addSketch(QStringLiteral("Blink__1"));
    ApplicationDirectory::addSketch(QStringLiteral("Fade__2"));
    serveIndex(index);

    start();
    QTRY_VERIFY_WITH_TIMEOUT(!label().isEmpty() && isSettled(), patience);

    QStringList expected {indexAddress};
    for (const QString &entry : std::as_const(asked))
        expected.append(repository + entry);
    QCOMPARE(sorted(server->requests()), sorted(expected));
    QCOMPARE(server->requests().first(), indexAddress);
    QCOMPARE(ApplicationDirectory::repositoryFiles(), kept);
}

void tst_OnlineRepository::asksInTheOrderOfTheIndex()
{
    ApplicationDirectory::addSketch(QStringLiteral("Blink__1"));
    server->serveEverythingElse(Answer::silence());
    serveIndex(lines({hex("Tone__3"), hex("Blink__1"), hex("Alarm__9"), hex("Fade__2")}));

    start();
    QTRY_COMPARE_WITH_TIMEOUT(server->requests().size(), 4, patience);
    QStringList pending;
    const auto replies = window->findChildren<QNetworkReply *>();
    for (const QNetworkReply *reply : replies)
        pending.append(reply->url().toString());
    QCOMPARE(pending,
             (QStringList {repository + hex("Tone__3"), repository + hex("Alarm__9"),
                           repository + hex("Fade__2")}));
    // All at once, each by its own manager.
    QCOMPARE(window->findChildren<QNetworkAccessManager *>().size(), 4);
}

void tst_OnlineRepository::longIndex()
{
    QStringList entries;
    for (int number = 0; number < 100; ++number)
        entries.append(hex(("Sketch" + QByteArray::number(number) + "__1").constData()));
    for (const QString &entry : std::as_const(entries))
        ApplicationDirectory::addFile(entry);
    while (entries.size() < 9999)
        entries.append(entries.at(entries.size() - 100));
    entries.insert(5000, hex("Missing__1"));
    serveIndex(lines(entries));
    server->serve(repository + hex("Missing__1"), {Answer::ok("new")});

    start();
    QTRY_COMPARE_WITH_TIMEOUT(shown(), QStringLiteral("Downloading file... [1 in 0..10000]"),
                              patience);
    QCOMPARE(server->requests(), (QStringList {indexAddress, repository + hex("Missing__1")}));
    QCOMPARE(ApplicationDirectory::repositoryFiles().size(), 101);
    QCOMPARE(programs().size(), 101);
}

void tst_OnlineRepository::indexFails_data()
{
    QTest::addColumn<Answer>("answer");
    QTest::addColumn<int>("requests");

    const QByteArray index = lines({hex("Tone__3"), hex("Alarm__9")});
    QTest::newRow("not found") << Answer::failure(404, index) << 1;
    QTest::newRow("an error of the server") << Answer::failure(500, index) << 1;
    QTest::newRow("cut off in the middle") << Answer::cutOff(index) << 1;
    QTest::newRow("to the login page of another host")
        << Answer::redirect("http://login.hotel.example/", index) << 1;
    QTest::newRow("to another port")
        << Answer::redirect("http://updates.korvex.example:8080/vt_updater/file_list.txt", index)
        << 1;
    QTest::newRow("to another scheme")
        << Answer::redirect("https://updates.korvex.example/vt_updater/file_list.txt", index) << 1;
    QTest::newRow("to nowhere") << Answer::redirect("", index) << 1;
    // Qt 6.8 waits for another answer after one with a status below 200, and asks again.
    for (const NamedAnswer &wrong : wrongAnswers(index))
        QTest::newRow(wrong.name) << wrong.answer
                                  << int(!wrong.answer.sentAtOnce.contains(" 199 "));
    QTest::newRow("in a circle") << Answer::redirect("file_list.txt", index) << 0;
    QTest::newRow("closed without a word") << Answer::closedAtOnce() << 0;
}

void tst_OnlineRepository::indexFails()
{
    QFETCH(Answer, answer);
    QFETCH(int, requests);
    ApplicationDirectory::addSketch(QStringLiteral("Blink__1"));
    server->serve(indexAddress, {answer});

    start();
    QTRY_COMPARE_WITH_TIMEOUT(shown(), contactError, patience);
    QVERIFY(isSettled() || QTest::qWaitFor([this] { return isSettled(); }, patience));
    if (requests > 0)
        QCOMPARE(server->requests().size(), requests);
    QCOMPARE(server->requests().size(), server->requestCount(indexAddress));
    QCOMPARE(ApplicationDirectory::repositoryFiles(), QStringList {hex("Blink__1")});
    QCOMPARE(programs(), QStringList {QStringLiteral("Blink")});
}

void tst_OnlineRepository::indexErrorKeepsThePreviousList()
{
    ApplicationDirectory::addSketch(QStringLiteral("Blink__1"));
    server->serve(indexAddress,
                  {Answer::ok(lines({hex("Blink__1"), hex("Tone__3")})),
                   Answer::failure(500, hex("Alarm__9").toUtf8())});
    start();
    QTRY_VERIFY_WITH_TIMEOUT(!label().isEmpty() && isSettled(), patience);
    QVERIFY(refresh());
    QTRY_COMPARE_WITH_TIMEOUT(shown(), contactError, patience);
    QCOMPARE(server->requests().size(), 3);

    window->downloadFilesFromOnlineRepository();
    QTRY_COMPARE_WITH_TIMEOUT(server->requests().size(), 4, patience);
    QCOMPARE(server->requests().last(), repository + hex("Tone__3"));
    QCOMPARE(ApplicationDirectory::repositoryFiles(), QStringList {hex("Blink__1")});
}

void tst_OnlineRepository::fileFails_data()
{
    QTest::addColumn<Answer>("answer");

    QTest::newRow("not found") << Answer::failure(404);
    QTest::newRow("an error of the server") << Answer::failure(500);
    QTest::newRow("cut off in the middle") << Answer::cutOff(QByteArray(100000, 'x'));
    QTest::newRow("closed without a word") << Answer::closedAtOnce();
    QTest::newRow("to another host") << Answer::redirect("http://login.hotel.example/a.hex");
    QTest::newRow("in a circle") << Answer::redirect(hex("Tone__3").toLatin1());
    for (const NamedAnswer &wrong : wrongAnswers(":00000001FF\n"))
        QTest::newRow(wrong.name) << wrong.answer;
}

void tst_OnlineRepository::fileFails()
{
    QFETCH(Answer, answer);
    server->serveEverythingElse(Answer::ok("page of another host"));
    server->serve(repository + hex("Tone__3"), {answer});
    server->serve(repository + hex("Fade__2"), {Answer::held("fade")});
    serveIndex(lines({hex("Tone__3"), hex("Fade__2")}));

    start();
    // Counted, but not reported.
    QTRY_COMPARE_WITH_TIMEOUT(shown(), QStringLiteral("Downloading file... [1 in 0..2]"), patience);
    QCOMPARE(ApplicationDirectory::repositoryFiles(), QStringList());
    QTRY_COMPARE_WITH_TIMEOUT(server->requestCount(repository + hex("Fade__2")), 1, patience);
    server->release(repository + hex("Fade__2"));
    QTRY_COMPARE_WITH_TIMEOUT(shown(), upToDate, patience);
    QTRY_VERIFY_WITH_TIMEOUT(isSettled(), patience);
    QCOMPARE(ApplicationDirectory::repositoryFiles(), QStringList {hex("Fade__2")});
    QCOMPARE(programs(), QStringList {QStringLiteral("Fade")});
}

void tst_OnlineRepository::anyOtherBodyIsStoredAsItIs_data()
{
    QTest::addColumn<QByteArray>("fields");
    QTest::addColumn<QByteArray>("body");

    const QByteArray mark = "\xEF\xBB\xBF";
    const auto plain = [](const char *title, const QByteArray &body) {
        QTest::newRow(title) << QByteArray() << body;
    };
    plain("nothing", "");
    plain("one byte", "x");
    plain("blanks alone", " \t\r\n\v\f");
    plain("more blanks than a buffer holds", QByteArray(100000, ' '));
    plain("a byte order mark alone", mark);
    plain("a part of a byte order mark", mark.left(2));
    plain("two byte order marks before a tag", mark + mark + "<html>");
    plain("a tag that is not the first", "x<html>");
    plain("the beginning of a tag", "<htm");
    plain("a document of another type", "<!doctype svg>");
    plain("a NUL before a tag", QByteArray("\0<html>", 7));
    plain("more than a block", QByteArray(200001, 'x'));
    QTest::newRow("said to be plain")
        << QByteArray("Content-Encoding: Identity \r\n") << QByteArray("plain");
    QTest::newRow("a coding without a name")
        << QByteArray("Content-Encoding:\r\n") << QByteArray("plain");
}

void tst_OnlineRepository::anyOtherBodyIsStoredAsItIs()
{
    QFETCH(QByteArray, fields);
    QFETCH(QByteArray, body);
    server->serve(indexAddress, {Answer::with(fields, hex("Tone__3").toUtf8())});
    server->serve(repository + hex("Tone__3"), {Answer::with(fields, body)});

    start();
    QTRY_COMPARE_WITH_TIMEOUT(shown(), upToDate, patience);
    QTRY_COMPARE_WITH_TIMEOUT(ApplicationDirectory::repositoryFiles(), QStringList {hex("Tone__3")},
                              patience);
    QCOMPARE(ApplicationDirectory::contentOf(ApplicationDirectory::sketchesPath() + hex("Tone__3")),
             body);
}

// Without a length nothing tells the whole body from a part of it.
void tst_OnlineRepository::bodyWithoutLengthEndsWithTheConnection()
{
    ApplicationDirectory::addSketch(QStringLiteral("Blink__1"));
    server->serve(indexAddress, {Answer::withoutLength(hex("Tone__3").toUtf8())});
    server->serve(repository + hex("Tone__3"), {Answer::withoutLength("first hal")});

    start();
    QTRY_COMPARE_WITH_TIMEOUT(shown(), upToDate, patience);
    QCOMPARE(ApplicationDirectory::repositoryFiles(), QStringList {hex("Tone__3")});
    QCOMPARE(ApplicationDirectory::contentOf(ApplicationDirectory::sketchesPath() + hex("Tone__3")),
             QByteArray("first hal"));
}

void tst_OnlineRepository::followsARedirectAtHome()
{
    const QString store = QStringLiteral("http://updates.korvex.example/store/");
    server->serve(indexAddress, {Answer::redirect("/store/index")});
    server->serve(store + QStringLiteral("index"), {Answer::ok(hex("Tone__3").toUtf8())});
    server->serve(
        repository + hex("Tone__3"),
        {Answer::redirect("http://updates.korvex.example/store/" + hex("Tone__4").toLatin1())});
    server->serve(store + hex("Tone__4"), {Answer::ok("newer")});

    start();
    QTRY_COMPARE_WITH_TIMEOUT(shown(), upToDate, patience);
    const QStringList expected = {indexAddress, store + QStringLiteral("index"),
                                  repository + hex("Tone__3"), store + hex("Tone__4")};
    // Qt repeats a request that meets a connection about to be closed.
    QStringList asked = server->requests();
    asked.removeDuplicates();
    QCOMPARE(asked.join(QLatin1Char(' ')), expected.join(QLatin1Char(' ')));
    // The address that answered names the file.
    QCOMPARE(ApplicationDirectory::repositoryFiles(), QStringList {hex("Tone__4")});
}

// Takes half a minute, which is how long the program waits for the next byte.
void tst_OnlineRepository::silentServer()
{
    const QByteArray slow(35, 's');
    server->serve(indexAddress,
                  {Answer::ok(lines({hex("Hanging__1"), hex("HalfWay__1"), hex("Slow__1")})),
                   Answer::silence()});
    server->serve(repository + hex("Hanging__1"), {Answer::silence()});
    server->serve(repository + hex("HalfWay__1"), {Answer::halfHeld(QByteArray(1000, 'h'))});
    server->serve(repository + hex("Slow__1"), {Answer::trickle(slow, 1000)});

    start();
    QTRY_COMPARE_WITH_TIMEOUT(server->requests().size(), 4, patience);
    QVERIFY(refresh());
    QTRY_COMPARE_WITH_TIMEOUT(server->requests().size(), 5, patience);
    QElapsedTimer time;
    time.start();

    QTRY_COMPARE_WITH_TIMEOUT(shown(), contactError, 30000 + patience);
    QVERIFY2(time.elapsed() > 29000, qPrintable(QString::number(time.elapsed())));
    QCOMPARE(ApplicationDirectory::repositoryFiles(), QStringList());
    QTRY_COMPARE_WITH_TIMEOUT(shown(), upToDate, patience);
    QVERIFY(isSettled() || QTest::qWaitFor([this] { return isSettled(); }, patience));
    QCOMPARE(ApplicationDirectory::repositoryFiles(), QStringList {hex("Slow__1")});
    QCOMPARE(ApplicationDirectory::contentOf(ApplicationDirectory::sketchesPath() + hex("Slow__1")),
             slow);
    QCOMPARE(server->requests().size(), 5);
}

void tst_OnlineRepository::isBusyWhileChecking()
{
    server->serve(indexAddress, {Answer::held("a\nb\nc")});
    server->serveEverythingElse(Answer::silence());
    start();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    QTRY_COMPARE_WITH_TIMEOUT(server->requests().size(), 1, patience);

    const PaintLog log(child<QProgressBar>(*window, "progressBar"),
                       child<QLabel>(*window, "label_status"));
    server->release(indexAddress);
    QTRY_COMPARE_WITH_TIMEOUT(shown(), QStringLiteral("Downloading file... [-1 in 0..3]"),
                              patience);
    QTRY_COMPARE_WITH_TIMEOUT(log.sights.last(), shown(), patience);
    QVERIFY2(log.sights.contains(QStringLiteral("Checking online repository for files. [busy]")),
             qPrintable(log.sights.join(QLatin1Char('|'))));
}

void tst_OnlineRepository::allPresent()
{
    ApplicationDirectory::addSketch(QStringLiteral("Blink__1"));
    ApplicationDirectory::addSketch(QStringLiteral("Fade__2"));
    serveIndex(lines({hex("Fade__2"), hex("Blink__1")}));

    start();
    QTRY_COMPARE_WITH_TIMEOUT(shown(), upToDate, patience);
    QCOMPARE(child<QProgressBar>(*window, "progressBar")->maximum(), 2);
    QCOMPARE(server->requests(), QStringList {indexAddress});
}

void tst_OnlineRepository::barComesBackWithTheNextDownload()
{
    ApplicationDirectory::addSketch(QStringLiteral("Blink__1"));
    serveIndex(lines({hex("Blink__1")}));
    start();
    QTRY_COMPARE_WITH_TIMEOUT(shown(), upToDate, patience);

    serveIndex(lines({hex("Blink__1"), hex("Fade__2")}));
    server->serve(repository + hex("Fade__2"), {Answer::held("fade")});
    QVERIFY(refresh());
    QTRY_COMPARE_WITH_TIMEOUT(label(), QStringLiteral("Downloading file..."), patience);
    QVERIFY(child<QProgressBar>(*window, "progressBar")->isVisible());
}

void tst_OnlineRepository::somePresent()
{
    ApplicationDirectory::addSketch(QStringLiteral("Blink__1"), "old");
    serveIndex(lines({hex("Blink__1"), hex("Fade__2"), hex("Tone__3")}));
    server->serve(repository + hex("Fade__2"), {Answer::ok("fade")});
    server->serve(repository + hex("Tone__3"), {Answer::held("tone")});

    start();
    QTRY_COMPARE_WITH_TIMEOUT(shown(), QStringLiteral("Downloading file... [1 in 0..3]"), patience);
    QTRY_COMPARE_WITH_TIMEOUT(
        programs(), (QStringList {QStringLiteral("Blink"), QStringLiteral("Fade")}), patience);
    QTRY_COMPARE_WITH_TIMEOUT(server->requests().size(), 3, patience);
    server->release(repository + hex("Tone__3"));
    QTRY_VERIFY_WITH_TIMEOUT(isSettled(), patience);
    QCOMPARE(shown(), QStringLiteral("Downloading file... [2 in 0..3]"));
    QCOMPARE(
        programs(),
        (QStringList {QStringLiteral("Blink"), QStringLiteral("Fade"), QStringLiteral("Tone")}));
    QCOMPARE(
        ApplicationDirectory::contentOf(ApplicationDirectory::sketchesPath() + hex("Blink__1")),
        QByteArray("old"));
}

void tst_OnlineRepository::allMissing()
{
    QByteArray binary;
    for (int byte = 0; byte < 256; ++byte)
        binary.append(static_cast<char>(byte));
    serveIndex(lines({hex("Fade__2"), hex("Tone__3")}));
    server->serve(repository + hex("Fade__2"), {Answer::ok(binary)});
    server->serve(repository + hex("Tone__3"), {Answer::ok("")});

    start();
    QTRY_COMPARE_WITH_TIMEOUT(shown(), upToDate, patience);
    QCOMPARE(child<QProgressBar>(*window, "progressBar")->value(), 2);
    QCOMPARE(ApplicationDirectory::repositoryFiles(),
             (QStringList {hex("Fade__2"), hex("Tone__3")}));
    QCOMPARE(ApplicationDirectory::contentOf(ApplicationDirectory::sketchesPath() + hex("Fade__2")),
             binary);
}

void tst_OnlineRepository::repliesInReversedOrder()
{
    const QStringList names {hex("Alarm__1"), hex("Blink__2"), hex("Fade__3")};
    serveIndex(lines(names));
    for (const QString &name : names)
        server->serve(repository + name, {Answer::held("of " + name.toUtf8())});
    start();
    QTRY_COMPARE_WITH_TIMEOUT(server->requests().size(), 4, patience);
    QCOMPARE(shown(), QStringLiteral("Downloading file... [-1 in 0..3]"));

    server->release(repository + names.at(2));
    QTRY_COMPARE_WITH_TIMEOUT(shown(), QStringLiteral("Downloading file... [1 in 0..3]"), patience);
    QCOMPARE(programs(), QStringList {QStringLiteral("Fade")});
    server->release(repository + names.at(1));
    QTRY_COMPARE_WITH_TIMEOUT(shown(), QStringLiteral("Downloading file... [2 in 0..3]"), patience);
    QCOMPARE(programs(), (QStringList {QStringLiteral("Blink"), QStringLiteral("Fade")}));
    server->release(repository + names.at(0));
    QTRY_COMPARE_WITH_TIMEOUT(shown(), upToDate, patience);

    QCOMPARE(ApplicationDirectory::repositoryFiles(), names);
    for (const QString &name : names) {
        QCOMPARE(ApplicationDirectory::contentOf(ApplicationDirectory::sketchesPath() + name),
                 "of " + name.toUtf8());
    }
}

void tst_OnlineRepository::refreshWhileDownloading()
{
    const QString alarm = repository + hex("Alarm__1");
    const QString blink = repository + hex("Blink__2");
    const QString fade = repository + hex("Fade__3");
    serveIndex(lines({hex("Alarm__1"), hex("Blink__2"), hex("Fade__3")}));
    for (const QString &address : {alarm, blink, fade})
        server->serve(address, {Answer::held("content")});
    start();
    QTRY_COMPARE_WITH_TIMEOUT(server->requests().size(), 4, patience);
    server->release(alarm);
    QTRY_COMPARE_WITH_TIMEOUT(shown(), QStringLiteral("Downloading file... [1 in 0..3]"), patience);

    QVERIFY(refresh());
    // The second index finds two files missing that are already on their way.
    QTRY_COMPARE_WITH_TIMEOUT(server->requests().size(), 7, patience);
    QTRY_COMPARE_WITH_TIMEOUT(shown(), QStringLiteral("Downloading file... [-1 in 0..3]"),
                              patience);
    QCOMPARE(server->requestCount(alarm), 1);

    server->release(blink); // once for each request
    QTRY_COMPARE_WITH_TIMEOUT(shown(), QStringLiteral("Downloading file... [2 in 0..3]"), patience);
    server->release(fade);
    QTRY_VERIFY_WITH_TIMEOUT(isSettled(), patience);
    QCOMPARE(shown(), upToDate);
    QCOMPARE(child<QProgressBar>(*window, "progressBar")->value(), 3);
    QCOMPARE(ApplicationDirectory::repositoryFiles().size(), 3);
}

// The replies of the first index are counted against the entries of the second.
void tst_OnlineRepository::moreRepliesThanEntries()
{
    const QString alarm = repository + hex("Alarm__1");
    const QString blink = repository + hex("Blink__2");
    server->serve(indexAddress,
                  {Answer::ok(lines({hex("Alarm__1"), hex("Blink__2")})),
                   Answer::ok(hex("Alarm__1").toUtf8()), Answer::failure(500)});
    for (const QString &address : {alarm, blink})
        server->serve(address, {Answer::held("content")});
    start();
    QTRY_COMPARE_WITH_TIMEOUT(server->requests().size(), 3, patience);
    QVERIFY(refresh());
    QTRY_COMPARE_WITH_TIMEOUT(server->requests().size(), 5, patience);
    server->release(alarm); // once for each request
    QTRY_COMPARE_WITH_TIMEOUT(window->findChildren<QNetworkReply *>().size(), 1, patience);
    QCOMPARE(shown(), upToDate);

    QVERIFY(refresh());
    QTRY_COMPARE_WITH_TIMEOUT(shown(), contactError, patience);
    server->release(blink);
    QTRY_VERIFY_WITH_TIMEOUT(isSettled(), patience);
    QCOMPARE(shown(), contactError);
    QCOMPARE(ApplicationDirectory::repositoryFiles(),
             (QStringList {hex("Alarm__1"), hex("Blink__2")}));
}

void tst_OnlineRepository::listedAgainIsFetchedAgain()
{
    const QString tone = ApplicationDirectory::sketchesPath() + hex("Tone__3");
    const QStringList both {QStringLiteral("Blink"), QStringLiteral("Tone")};
    const QByteArray blinkAlone = hex("Blink__1").toUtf8();
    const QByteArray all = lines({hex("Blink__1"), hex("Tone__3")});
    ApplicationDirectory::addSketch(QStringLiteral("Blink__1"));
    server->serve(indexAddress, {Answer::ok(all), Answer::ok(blinkAlone), Answer::ok(all)});
    server->serve(repository + hex("Tone__3"), {Answer::ok("first"), Answer::ok("second")});
    start();
    QTRY_VERIFY_WITH_TIMEOUT(isSettled(), patience);
    QCOMPARE(ApplicationDirectory::contentOf(tone), QByteArray("first"));

    QVERIFY(refresh());
    QTRY_VERIFY_WITH_TIMEOUT(isSettled(), patience);
    QVERIFY(!QFile::exists(tone));
    QCOMPARE(programs(), both); // until the next refresh

    QVERIFY(refresh());
    QCOMPARE(programs(), QStringList {QStringLiteral("Blink")});
    QTRY_VERIFY_WITH_TIMEOUT(isSettled(), patience);
    QCOMPARE(ApplicationDirectory::contentOf(tone), QByteArray("second"));
    QCOMPARE(programs(), both);
}

void tst_OnlineRepository::startHolding(const QStringList &entries)
{
    serveIndex(lines(entries));
    for (const QString &entry : entries)
        server->serve(addressOf(entry), {Answer::held("sketch")});
    start();
    QTRY_COMPARE_WITH_TIMEOUT(server->requests().size(), 1 + entries.size(), patience);
    QTRY_COMPARE_WITH_TIMEOUT(window->findChildren<QNetworkReply *>().size(), entries.size(),
                              patience);
}

bool tst_OnlineRepository::letThrough(const QString &entry)
{
    const auto left =
        window->findChildren<QNetworkReply *>().size() - server->requestCount(addressOf(entry));
    server->release(addressOf(entry));
    return QTest::qWaitFor([&] { return window->findChildren<QNetworkReply *>().size() <= left; },
                           patience);
}

void tst_OnlineRepository::eachFileGetsItsPlace_data()
{
    QTest::addColumn<QStringList>("entries");

    QTest::newRow("in rising order")
        << QStringList {hex("a__1"), hex("b__1"), hex("c__1"), hex("d__1")};
    QTest::newRow("in falling order")
        << QStringList {hex("d__1"), hex("c__1"), hex("b__1"), hex("a__1")};
    QTest::newRow("in both cases")
        << QStringList {hex("m__1"), hex("B__1"),  hex("a__1"),  hex("C__1"),
                        hex("Z__1"), hex("_x__1"), hex("[x__1"), hex("Ab__1")};
    QTest::newRow("with digits") << QStringList {hex("s2__1"), hex("s10__1"), hex("s1__1"),
                                                 hex("s__1"),  hex("S9__1"),  hex("9__1")};
    QTest::newRow("in other scripts") << QStringList {hex("Zebra__1"),
                                                      hex("\xC3\x9C"
                                                          "bung__1"),
                                                      hex("\xC3\xA4ther__1"),
                                                      hex("\xC3\x84rger__1"),
                                                      hex("Apfel__1"),
                                                      hex("\xE7\x81\xAF__1"),
                                                      hex("\xC3\xBC"
                                                          "berall__1"),
                                                      hex("stra\xC3\x9F"
                                                          "e__1")};
    QTest::newRow("versions of one sketch")
        << QStringList {hex("Blink__2"), hex("Blink__10"), hex("Blink__9"), hex("Blink__1")};
    QTest::newRow("that differ by case alone") << QStringList {
        hex("Blink__1"), hex("Tone__1"), hex("blink__1"), hex("BLINK__1"), hex("Alarm__1")};
    QTest::newRow("without a version")
        << QStringList {hex("Tone__1"), hex("My__own__1"), hex("Apart"), hex("zzz____1")};
    QTest::newRow("that are no sketches, or hidden") << QStringList {
        hex("Tone__1"),  QStringLiteral("README.md"), hex("Fade__1"), hex(".Fade__1"),
        hex("Alarm__1"), QStringLiteral("notes"),     hex("Blink__1")};
    QTest::newRow("with a tail in capitals")
        << QStringList {hex("Tone__1"), hex("Blink__1").toUpper(), hex("Fade__1")};
    QTest::newRow("one without a name")
        << QStringList {hex("Tone__1"), QString(), hex("Fade__1"), hex("Blink__1")};
    QTest::newRow("one of them twice")
        << QStringList {hex("Tone__1"), hex("Fade__1"), hex("Fade__1"), hex("Blink__1")};
}

// As if all had been read and filled in anew after each of them.
void tst_OnlineRepository::eachFileGetsItsPlace()
{
    QFETCH(QStringList, entries);
    startHolding(entries);
    entries.removeDuplicates();
    for (const QString &entry : std::as_const(entries)) {
        QVERIFY(letThrough(entry));
        QCOMPARE(rowsOf(*window), rowsOfDirectory());
        QVERIFY(isPlain(*child<QListWidget>(*window, "listWidget_programlist")));
    }

    // What is listed is not asked for again.
    window->downloadFilesFromOnlineRepository();
    const QDir directory(ApplicationDirectory::sketchesPath());
    const QSet<QString> asked = setOf(entries) - setOf(directory.entryList(sketchFiles));
    QCOMPARE(window->findChildren<QNetworkReply *>().size(), asked.size());
}

void tst_OnlineRepository::othersAreSeenWithTheNextFile_data()
{
    QTest::addColumn<QString>("how");

    for (const char *how : {"a file is put", "our file is removed", "our file is renamed",
                            "a file is moved in", "a directory is made", "a link lies in the way",
                            "a file comes and goes", "the repository is replaced",
                            "another directory is listed", "the catalogue is read, but not shown"})
        QTest::newRow(how) << QString::fromLatin1(how);
}

void tst_OnlineRepository::othersAreSeenWithTheNextFile()
{
    QFETCH(QString, how);
    startHolding({hex("Tone__1"), hex("Blink__1"), hex("Fade__1"), hex("Alarm__1")});
    QVERIFY(letThrough(hex("Tone__1")));
    QVERIFY(letThrough(hex("Blink__1")));

    QVERIFY(meddle(*window, how));
    QVERIFY(letThrough(hex("Fade__1")));
    QCOMPARE(rowsOf(*window), rowsOfDirectory());
    QVERIFY(letThrough(hex("Alarm__1")));
    QCOMPARE(rowsOf(*window), rowsOfDirectory());
    QDir(ApplicationDirectory::path() + QStringLiteral("compiled_sketches.old"))
        .removeRecursively();
}

void tst_OnlineRepository::unreadableRepositoryIsSeenWithTheNextFile()
{
    const QByteArray directory = QFile::encodeName(ApplicationDirectory::sketchesPath());
    startHolding({hex("Tone__1"), hex("Blink__1"), hex("Fade__1")});
    QVERIFY(letThrough(hex("Tone__1")));
    QVERIFY(letThrough(hex("Blink__1")));
    QCOMPARE(programs().size(), 2);
    QCOMPARE(chmod(directory.constData(), 0300), 0);

    const WithoutFilePrivileges asUser;
    QVERIFY(letThrough(hex("Fade__1")));
    QCOMPARE(programs(), QStringList());
    QVERIFY(QFile::exists(ApplicationDirectory::sketchesPath() + hex("Fade__1")));
}

void tst_OnlineRepository::eachFileTakesTheChoiceAway()
{
    startHolding(
        {hex("Tone__1"), hex("Blink__1"), hex("Fade__1"), hex("Alarm__1"), hex("Zebra__1")});
    auto *list = child<QListWidget>(*window, "listWidget_programlist");
    QVERIFY(letThrough(hex("Tone__1")));
    QVERIFY(letThrough(hex("Blink__1")));
    QVERIFY(selectRow(*window, "listWidget_programlist", 0));
    QVERIFY(letThrough(hex("Fade__1")));
    QVERIFY(isPlain(*list));
    QCOMPARE(rowsOf(*window), rowsOfDirectory());

    // Chosen without being current.
    list->item(1)->setSelected(true);
    QCOMPARE(list->currentRow(), -1);
    QVERIFY(letThrough(hex("Alarm__1")));
    QVERIFY(isPlain(*list));

    // Current without being chosen.
    list->setCurrentRow(2, QItemSelectionModel::NoUpdate);
    QVERIFY(list->selectedItems().isEmpty());
    QVERIFY(letThrough(hex("Zebra__1")));
    QVERIFY(isPlain(*list));
}

void tst_OnlineRepository::eachFileLeavesTheViewWhereItIs()
{
    for (int number = 100; number < 150; ++number)
        ApplicationDirectory::addSketch(QStringLiteral("Sketch%1__1").arg(number));
    const QStringList present = ApplicationDirectory::repositoryFiles();
    startHolding({hex("Tone__1"), hex("Alarm__1"), hex("Blink__1")});
    QCOMPARE(ApplicationDirectory::repositoryFiles(), QStringList());
    for (const QString &fileName : present)
        ApplicationDirectory::addFile(fileName);
    QVERIFY(letThrough(hex("Tone__1")));

    QScrollBar *bar = child<QListWidget>(*window, "listWidget_programlist")->verticalScrollBar();
    const auto positionAfter = [&](const QString &entry) {
        const bool done = QTest::qWaitFor([&] { return bar->maximum() > 0; }, patience);
        bar->setValue(bar->maximum() / 2);
        const int before = bar->value();
        return done && letThrough(entry) ? bar->value() - before : -1;
    };
    // One by one, and with a change that makes the list be filled anew.
    QCOMPARE(positionAfter(hex("Alarm__1")), 0);
    QVERIFY(QFile::remove(ApplicationDirectory::sketchesPath() + present.constFirst()));
    QCOMPARE(positionAfter(hex("Blink__1")), 0);
}

// Else the time for many files grows with the square of their number.
void tst_OnlineRepository::aFileAloneNeedsNoRefill()
{
    QStringList entries;
    for (int number = 0; number < 20; ++number)
        entries.append(hex(("Sketch" + QByteArray::number(number) + "__1").constData()));
    startHolding(entries);
    const auto *list = child<QListWidget>(*window, "listWidget_programlist");
    const QSignalSpy refills(list->model(), SIGNAL(modelReset()));
    for (const QString &entry : std::as_const(entries))
        QVERIFY(letThrough(entry));
    QCOMPARE(list->count(), 20);
    QCOMPARE(refills.count(), 1);
}

void tst_OnlineRepository::refreshReadsTheDiskAtOnce()
{
    server->serve(indexAddress, {Answer::ok("absent"), Answer::silence()});
    start();
    QTRY_COMPARE_WITH_TIMEOUT(shown(), upToDate, patience);
    QVERIFY(window->areYouOnline());
    ApplicationDirectory::addSketch(QStringLiteral("Blink__1"));
    QCOMPARE(programs(), QStringList());

    QVERIFY(refresh());
    QCOMPARE(programs(), QStringList {QStringLiteral("Blink")});
    QTRY_COMPARE_WITH_TIMEOUT(server->requestCount(indexAddress), 2, patience);
    QCOMPARE(shown(), upToDate);
}

void tst_OnlineRepository::refreshIsRefusedOffline()
{
    serveIndex(hex("Blink__1").toUtf8());
    start();
    QTRY_VERIFY_WITH_TIMEOUT(!label().isEmpty() && isSettled(), patience);
    ApplicationDirectory::addSketch(QStringLiteral("Blink__1"));
    ApplicationDirectory::addSketch(QStringLiteral("Stale__1"));
    const QStringList files = ApplicationDirectory::repositoryFiles();
    const auto managers = window->findChildren<QNetworkAccessManager *>();
    const QString earlier = shown();
    const QStringList requests = server->requests();

    const Isolation isolation;
    if (!isolation.isIsolated())
        QSKIP("only root can leave the network");
    MessageBoxDriver boxes;
    QVERIFY(click(*window, "pushButton_programlist_refresh"));
    QCOMPARE(boxes.boxes().size(), 1);
    QCOMPARE(boxes.boxes().first().text, QStringLiteral("No internet connection?"));
    QCOMPARE(boxes.boxes().first().informativeText,
             QStringLiteral("Your computer needs to be online to update the program list. Please "
                            "check your cable or wireless connection and try again."));
    QVERIFY(boxes.boxes().first().icon == QMessageBox::Warning);
    QVERIFY(boxes.boxes().first().buttons == QMessageBox::Ok);

    QCOMPARE(window->findChildren<QNetworkAccessManager *>(), managers);
    QVERIFY(isSettled());
    QCOMPARE(server->requests(), requests);
    QCOMPARE(shown(), earlier);
    QCOMPARE(programs(), QStringList());
    QCOMPARE(ApplicationDirectory::repositoryFiles(), files);
}

void tst_OnlineRepository::online_data()
{
    QTest::addColumn<QStringList>("commands");
    QTest::addColumn<bool>("connected");
    QTest::addColumn<bool>("online");

    const QStringList cable {QStringLiteral("link add cable0 type veth peer name cable1"),
                             QStringLiteral("link set cable0 addrgenmode none"),
                             QStringLiteral("link set cable1 addrgenmode none")};
    const QString address = QStringLiteral("address add 192.0.2.1/24 dev cable0");
    const QString up = QStringLiteral("link set cable0 up");
    const QString farEndUp = QStringLiteral("link set cable1 up");
    const QString loopbackUp = QStringLiteral("link set lo up");
    QTest::newRow("no interface is up") << QStringList() << false << false;
    QTest::newRow("only the loopback is up") << QStringList {loopbackUp} << false << false;
    QTest::newRow("an interface is up without an address")
        << cable + QStringList {loopbackUp, up, farEndUp} << true << false;
    QTest::newRow("an interface with an address is down")
        << cable + QStringList {address} << false << false;
    QTest::newRow("an interface with an address is up")
        << cable + QStringList {address, up, farEndUp} << true << true;
}

void tst_OnlineRepository::online()
{
    QFETCH(QStringList, commands);
    QFETCH(bool, connected);
    QFETCH(bool, online);
    start();
    const Isolation isolation;
    if (!isolation.isIsolated())
        QSKIP("only root can leave the network");
    for (const QString &command : std::as_const(commands)) {
        if (!runIp(command))
            QSKIP(qPrintable(QStringLiteral("this system refuses: ip ") + command));
    }
    QTRY_COMPARE_WITH_TIMEOUT(isUp(QStringLiteral("cable0")), connected, patience);
    QCOMPARE(window->areYouOnline(), online);
}

void tst_OnlineRepository::emptyEntryNamesNoFile()
{
    ApplicationDirectory::addSketch(QStringLiteral("Blink__1"));
    serveIndex("");
    server->serve(repository, {Answer::ok("listing")});

    start();
    QTRY_COMPARE_WITH_TIMEOUT(label(), creationError + QStringLiteral("Is a directory"), patience);
    QCOMPARE(server->requests(), (QStringList {indexAddress, repository}));
    QCOMPARE(ApplicationDirectory::repositoryFiles(), QStringList());
    QVERIFY(!child<QProgressBar>(*window, "progressBar")->isVisible());
    QCOMPARE(child<QProgressBar>(*window, "progressBar")->maximum(), 1);
}

void tst_OnlineRepository::pageInPlaceOfTheDirectory()
{
    serveIndex("");
    server->serve(repository, {Answer::ok("<html>listing</html>")});

    start();
    QTRY_COMPARE_WITH_TIMEOUT(server->requestCount(repository), 1, patience);
    QTRY_VERIFY_WITH_TIMEOUT(isSettled(), patience);
    QCOMPARE(shown(), upToDate);
    QCOMPARE(ApplicationDirectory::repositoryFiles(), QStringList());
}

void tst_OnlineRepository::fullDisk_data()
{
    QTest::addColumn<int>("used");
    QTest::addColumn<int>("size");

    QTest::newRow("no room for a small sketch") << 64 * 1024 << 100;
    QTest::newRow("no room for a large sketch") << 64 * 1024 << 100000;
    QTest::newRow("room for a part of a small sketch") << 60 * 1024 << 8000;
    QTest::newRow("room for a part of a large sketch") << 20 * 1024 << 100000;
}

void tst_OnlineRepository::fullDisk()
{
    QFETCH(int, used);
    QFETCH(int, size);
    const SmallDisk disk;
    if (!disk.isMounted())
        QSKIP("only root can mount a small disk");
    ApplicationDirectory::addFile(QStringLiteral("filler"), QByteArray(used, 'f'));
    serveIndex(hex("Tone__3").toUtf8());
    server->serve(repository + hex("Tone__3"), {Answer::ok(QByteArray(size, 't'))});

    start();
    QTRY_COMPARE_WITH_TIMEOUT(label(), creationError + QStringLiteral("No space left on device"),
                              patience);
    QCOMPARE(ApplicationDirectory::repositoryFiles(), QStringList {QStringLiteral("filler")});
    QCOMPARE(programs(), QStringList());
}

void tst_OnlineRepository::fileThatCannotBeReplaced()
{
    const SmallDisk disk;
    if (!disk.isMounted())
        QSKIP("only root can mount a small disk");
    // Not a sketch's name, so it is requested although it exists.
    const QString notes = ApplicationDirectory::addFile(QStringLiteral("notes"), "kept");
    ApplicationDirectory::addSketch(QStringLiteral("Blink__1"));
    serveIndex(lines({QStringLiteral("notes"), hex("Blink__1")}));
    server->serve(repository + QStringLiteral("notes"), {Answer::held(QByteArray(100000, 'n'))});
    start();
    QTRY_COMPARE_WITH_TIMEOUT(server->requests().size(), 2, patience);
    QVERIFY(selectRow(*window, "listWidget_programlist", 0));

    server->release(repository + QStringLiteral("notes"));
    QTRY_COMPARE_WITH_TIMEOUT(label(), creationError + QStringLiteral("No space left on device"),
                              patience);
    QCOMPARE(ApplicationDirectory::contentOf(notes), QByteArray("kept"));
    QCOMPARE(ApplicationDirectory::repositoryFiles(),
             (QStringList {hex("Blink__1"), QStringLiteral("notes")}));
    // Nothing has changed, and the choice has not been lost.
    QCOMPARE(child<QListWidget>(*window, "listWidget_programlist")->currentRow(), 0);
}

void tst_OnlineRepository::largerThanAFileMayBe()
{
    constexpr int size = 1000000;
    const FileSizeLimit limit(size);
    QVERIFY(limit.isSet());
    serveIndex(hex("Tone__3").toUtf8());
    server->serve(repository + hex("Tone__3"), {Answer::ok(QByteArray(size + 1, 't'))});

    start();
    QTRY_COMPARE_WITH_TIMEOUT(label(), creationError + QStringLiteral("File too large"), patience);
    QCOMPARE(ApplicationDirectory::repositoryFiles(), QStringList());
}

void tst_OnlineRepository::readOnlyDirectory()
{
    SmallDisk disk;
    if (!disk.isMounted())
        QSKIP("only root can mount a small disk");
    ApplicationDirectory::addSketch(QStringLiteral("Blink__1"), "old");
    ApplicationDirectory::addSketch(QStringLiteral("Stale__1"), "stale");
    QVERIFY(disk.makeReadOnly());
    serveIndex(lines({hex("Blink__1"), hex("Tone__3")}));
    server->serve(repository + hex("Tone__3"), {Answer::ok("tone")});

    start();
    QTRY_COMPARE_WITH_TIMEOUT(label(), creationError + QStringLiteral("Read-only file system"),
                              patience);
    QCOMPARE(ApplicationDirectory::repositoryFiles(),
             (QStringList {hex("Blink__1"), hex("Stale__1")}));
}

void tst_OnlineRepository::directoryInTheWay()
{
    const QString inTheWay = ApplicationDirectory::sketchesPath() + QStringLiteral("notes/");
    QDir().mkpath(inTheWay + QStringLiteral("deep"));
    serveIndex("notes");
    server->serve(repository + QStringLiteral("notes"), {Answer::ok("text")});

    start();
    QTRY_COMPARE_WITH_TIMEOUT(label(), creationError + QStringLiteral("Is a directory"), patience);
    QCOMPARE(ApplicationDirectory::repositoryFiles(), QStringList {QStringLiteral("notes")});
    QVERIFY(QFileInfo(inTheWay + QStringLiteral("deep")).isDir());
}

void tst_OnlineRepository::refusedByTheSystem_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<uint>("mode"); // of the local repository
    QTest::addColumn<QString>("reason");

    const QString denied = QStringLiteral("Permission denied");
    const QString directory = QStringLiteral("Is a directory");
    const QString tooLong = QStringLiteral("File name too long");
    QTest::newRow("a read-only file in the way") << QStringLiteral("file") << 0700U << denied;
    QTest::newRow("a read-only directory in the way")
        << QStringLiteral("directory") << 0700U << directory;
    QTest::newRow("a read-only local repository") << QStringLiteral("new") << 0500U << denied;
    QTest::newRow("a file in the way, in a read-only local repository")
        << QStringLiteral("writable") << 0500U << denied;
    QTest::newRow("an entry without a name, in a read-only local repository")
        << QString() << 0500U << directory;
    QTest::newRow("a name that is too long") << QString(256, QLatin1Char('n')) << 0700U << tooLong;
    QTest::newRow("a file in the way whose name leaves no room for a temporary one")
        << longestName << 0700U << tooLong;
}

void tst_OnlineRepository::refusedByTheSystem()
{
    QFETCH(QString, name);
    QFETCH(uint, mode);
    QFETCH(QString, reason);
    const QString file = ApplicationDirectory::addFile(QStringLiteral("file"), "kept");
    const QString writable = ApplicationDirectory::addFile(QStringLiteral("writable"), "kept");
    const QString longest = ApplicationDirectory::addFile(longestName, "kept");
    const QByteArray directory =
        QFile::encodeName(ApplicationDirectory::sketchesPath() + QStringLiteral("directory"));
    QCOMPARE(mkdir(directory.constData(), 0500), 0);
    QCOMPARE(chmod(QFile::encodeName(file).constData(), 0400), 0);
    QCOMPARE(chmod(QFile::encodeName(ApplicationDirectory::sketchesPath()).constData(), mode), 0);
    serveIndex(name.toUtf8());
    server->serveEverythingElse(Answer::ok("new content"));

    const WithoutFilePrivileges asUser;
    if (QFileInfo(file).isWritable())
        QSKIP("this system lets root write to read-only files");
    start();
    QTRY_COMPARE_WITH_TIMEOUT(label(), creationError + reason, patience);
    QCOMPARE(ApplicationDirectory::repositoryFiles(),
             (QStringList {QStringLiteral("directory"), QStringLiteral("file"), longestName,
                           QStringLiteral("writable")}));
    QCOMPARE(ApplicationDirectory::contentOf(file), QByteArray("kept"));
    QCOMPARE(ApplicationDirectory::contentOf(writable), QByteArray("kept"));
    QCOMPARE(ApplicationDirectory::contentOf(longest), QByteArray("kept"));
}

void tst_OnlineRepository::readOnlyFileOnAReadOnlyDisk()
{
    SmallDisk disk;
    if (!disk.isMounted())
        QSKIP("only root can mount a small disk");
    const QString file = ApplicationDirectory::addFile(QStringLiteral("notes"), "kept");
    QVERIFY(disk.makeReadOnly());
    serveIndex("notes");
    server->serve(repository + QStringLiteral("notes"), {Answer::ok("new")});

    start();
    QTRY_COMPARE_WITH_TIMEOUT(label(), creationError + QStringLiteral("Read-only file system"),
                              patience);
    QCOMPARE(ApplicationDirectory::contentOf(file), QByteArray("kept"));
}

void tst_OnlineRepository::linkInTheWay_data()
{
    QTest::addColumn<bool>("targetExists");

    QTest::newRow("to a file outside") << true;
    QTest::newRow("to nothing") << false;
}

void tst_OnlineRepository::linkInTheWay()
{
    QFETCH(bool, targetExists);
    const QString target = ApplicationDirectory::path() + QStringLiteral("of the user");
    const QString link = ApplicationDirectory::sketchesPath() + QStringLiteral("notes");
    QFile::remove(target);
    if (targetExists) {
        QFile file(target);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write("kept") == 4);
    }
    QDir().mkpath(ApplicationDirectory::sketchesPath());
    QVERIFY(QFile::link(target, link));
    serveIndex("notes");
    server->serve(repository + QStringLiteral("notes"), {Answer::ok("text")});

    start();
    QTRY_COMPARE_WITH_TIMEOUT(shown(), upToDate, patience);
    QTRY_COMPARE_WITH_TIMEOUT(ApplicationDirectory::contentOf(link), QByteArray("text"), patience);
    QVERIFY(!QFileInfo(link).isSymLink());
    QCOMPARE(ApplicationDirectory::contentOf(target), QByteArray(targetExists ? "kept" : ""));
    QCOMPARE(QFile::exists(target), targetExists);
    QFile::remove(target);
}

void tst_OnlineRepository::linkThatCannotBeRemoved()
{
    const QString target = ApplicationDirectory::path() + QStringLiteral("of the user");
    QFile file(target);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write("kept") == 4);
    file.close();
    QDir().mkpath(ApplicationDirectory::sketchesPath());
    QVERIFY(QFile::link(target, ApplicationDirectory::sketchesPath() + QStringLiteral("notes")));
    QCOMPARE(chmod(QFile::encodeName(ApplicationDirectory::sketchesPath()).constData(), 0500), 0);
    serveIndex("notes");
    server->serve(repository + QStringLiteral("notes"), {Answer::ok("text")});

    const WithoutFilePrivileges asUser;
    start();
    QTRY_COMPARE_WITH_TIMEOUT(label(), creationError + QStringLiteral("Permission denied"),
                              patience);
    QCOMPARE(ApplicationDirectory::contentOf(target), QByteArray("kept"));
    QVERIFY(QFile::remove(target));
}

void tst_OnlineRepository::nameIsDecoded_data()
{
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QString>("file");

    QTest::newRow("blank") << QStringLiteral("My Blink__1.hex")
                           << QStringLiteral("My Blink__1.hex");
    QTest::newRow("other script") << QStringLiteral("\u00dcbung__1.hex")
                                  << QStringLiteral("\u00dcbung__1.hex");
    QTest::newRow("encoded percent sign")
        << QStringLiteral("50%25__1.hex") << QStringLiteral("50%__1.hex");
    QTest::newRow("encoded letter") << QStringLiteral("%41b__1.hex") << QStringLiteral("Ab__1.hex");
}

void tst_OnlineRepository::nameIsDecoded()
{
    QFETCH(QString, entry);
    QFETCH(QString, file);
    serveIndex(entry.toUtf8());
    server->serveEverythingElse(Answer::ok("sketch"));

    start();
    QTRY_COMPARE_WITH_TIMEOUT(ApplicationDirectory::repositoryFiles(), QStringList {file},
                              patience);
}

void tst_OnlineRepository::directoryIsNotPruned()
{
    const QString directory = ApplicationDirectory::sketchesPath() + hex("Folder__1");
    QDir().mkpath(directory);
    ApplicationDirectory::addSketch(QStringLiteral("Stale__1"));
    ApplicationDirectory::addFile(QStringLiteral("notes.txt"));
    serveIndex(hex("Tone__3").toUtf8());

    start();
    QTRY_COMPARE_WITH_TIMEOUT(shown(), upToDate, patience);
    // Nor are files that are not sketches.
    QCOMPARE(ApplicationDirectory::repositoryFiles(),
             (QStringList {hex("Folder__1"), QStringLiteral("notes.txt")}));
}

// The repository must not remove the target of a link.
void tst_OnlineRepository::staleLinkGoesAlone()
{
    const QString target = ApplicationDirectory::addFile(QStringLiteral("of the user"), "kept");
    const QString link = ApplicationDirectory::sketchesPath() + hex("Stale__1");
    QVERIFY(QFile::link(target, link));
    serveIndex(hex("Tone__3").toUtf8());

    start();
    QTRY_COMPARE_WITH_TIMEOUT(shown(), upToDate, patience);
    QVERIFY(!QFileInfo(link).isSymLink());
    QCOMPARE(ApplicationDirectory::contentOf(target), QByteArray("kept"));
}

void tst_OnlineRepository::repositoryIsMissing()
{
    serveIndex(hex("Tone__3").toUtf8());
    server->serve(repository + hex("Tone__3"), {Answer::held("tone")});
    start();
    QTRY_COMPARE_WITH_TIMEOUT(server->requests().size(), 2, patience);
    ApplicationDirectory::clear();

    server->release(repository + hex("Tone__3"));
    QTRY_COMPARE_WITH_TIMEOUT(label(), creationError + QStringLiteral("No such file or directory"),
                              patience);
    QVERIFY(!QFileInfo::exists(ApplicationDirectory::sketchesPath()));
}

void tst_OnlineRepository::halfAFileIsNoFile()
{
    const QByteArray content(200000, 'c');
    const QString tone = repository + hex("Tone__3");
    serveIndex(hex("Tone__3").toUtf8());
    server->serve(tone, {Answer::halfHeld(content)});
    start();

    const auto received = [this] {
        const auto replies = window->findChildren<QNetworkReply *>();
        return std::any_of(replies.cbegin(), replies.cend(), [](const QNetworkReply *reply) {
            return reply->bytesAvailable() == 100000;
        });
    };
    QTRY_VERIFY_WITH_TIMEOUT(received(), patience);
    QCOMPARE(ApplicationDirectory::repositoryFiles(), QStringList());
    server->release(tone);
    QTRY_COMPARE_WITH_TIMEOUT(shown(), upToDate, patience);
    QCOMPARE(ApplicationDirectory::contentOf(ApplicationDirectory::sketchesPath() + hex("Tone__3")),
             content);
}

void tst_OnlineRepository::failedDownloadKeepsTheOldContent()
{
    // Not a sketch's name, so each refresh requests it again.
    const QString notes = ApplicationDirectory::addFile(QStringLiteral("notes.txt"), "old");
    serveIndex("notes.txt");
    server->serve(repository + QStringLiteral("notes.txt"),
                  {Answer::cutOff(QByteArray(100000, 'n')), Answer::ok("new")});
    start();
    QTRY_COMPARE_WITH_TIMEOUT(shown(), upToDate, patience);
    QCOMPARE(ApplicationDirectory::contentOf(notes), QByteArray("old"));

    QVERIFY(refresh());
    QTRY_COMPARE_WITH_TIMEOUT(ApplicationDirectory::contentOf(notes), QByteArray("new"), patience);
    QCOMPARE(ApplicationDirectory::repositoryFiles(), QStringList {QStringLiteral("notes.txt")});
}

void tst_OnlineRepository::remainsOfAnInterruptedWriteAreNotShown()
{
    // What a killed process leaves where the file system has no unnamed files.
    ApplicationDirectory::addFile(hex("Tone__3") + QStringLiteral(".aBcDeF"), "half");
    serveIndex(hex("Tone__3").toUtf8());
    server->serve(repository + hex("Tone__3"), {Answer::ok("whole")});

    start();
    QCOMPARE(programs(), QStringList());
    QTRY_COMPARE_WITH_TIMEOUT(shown(), upToDate, patience);
    QCOMPARE(programs(), QStringList {QStringLiteral("Tone")});
    QCOMPARE(ApplicationDirectory::contentOf(ApplicationDirectory::sketchesPath() + hex("Tone__3")),
             QByteArray("whole"));
}

void tst_OnlineRepository::staysInsideTheRepository_data()
{
    QTest::addColumn<QByteArray>("entry");
    QTest::addColumn<QByteArray>("location"); // where the entry redirects to

    const auto listed = [](const char *title, const QByteArray &entry) {
        QTest::newRow(title) << entry << QByteArray();
    };
    listed("the directory itself", ".");
    listed("the directory above", "..");
    listed("a file above", "../evil.hex");
    listed("a file far above", "../../../../../../../../../../../../tmp/evil.hex");
    listed("an encoded slash", "..%2Fevil.hex");
    listed("encoded dots and slashes", "%2e%2e%2f%2e%2e%2fevil.hex");
    listed("a slash encoded twice", "..%252Fevil.hex");
    listed("an absolute path", "/etc/evil.hex");
    listed("an encoded absolute path", "%2Fetc%2Fevil.hex");
    listed("an encoded NUL", "evil%00.hex");
    listed("an encoded NUL before a slash", "..%2Fevil.hex%00%2Fx");
    listed("only an encoded NUL", "%00");
    listed("the directory above and an encoded NUL", "..%00");
    listed("4,000 characters", QByteArray(4000, 'e'));
    listed("control characters", "evil\x01\x1b[31m\t\r.hex");
    listed("encoded control characters", "evil%0A%0D%07.hex");
    listed("other scripts", "\xD0\xB7\xD0\xBB\xD0\xBE-\xE6\x82\xAA-\xF0\x9F\x98\x88.hex");
    listed("no UTF-8", "evil\xFF\xC0\xAF.hex");
    listed("a query", "?evil.hex");
    listed("a fragment", "#evil.hex");
    listed("another address", "http://other.example/evil.hex");
    listed("another host", "//other.example/evil.hex");
    listed("a file address", "file:///tmp/evil.hex");
    listed("backslashes", "\\..\\evil.hex");
    listed("encoded backslashes", "..%5C..%5Cevil.hex");
    listed("blanks", "   ");
    listed("a broken encoding", "evil%zz%.hex");
    listed("a shell command", "$(touch evil.hex);`touch evil.hex`|touch evil.hex");

    const auto redirected = [](const char *title, const QByteArray &location) {
        QTest::newRow(title) << QByteArray("plain.hex") << location;
    };
    redirected("to the root", "/");
    redirected("to the directory above", "/vt_updater/..");
    redirected("to encoded dots and slashes", "/vt_updater/%2e%2e%2f%2e%2e%2fevil.hex");
    redirected("to an encoded NUL", "/vt_updater/evil%00.hex");
    redirected("to a path far above", "/../../../../../tmp/evil.hex");
    redirected("to a local file", "file:///etc/passwd");
}

void tst_OnlineRepository::staysInsideTheRepository()
{
    QFETCH(QByteArray, entry);
    QFETCH(QByteArray, location);
    const QString neighbour = ApplicationDirectory::path() + QStringLiteral("neighbour/");
    QDir().mkpath(neighbour);
    QSaveFile kept(neighbour + QStringLiteral("evil.hex"));
    QVERIFY(kept.open(QIODevice::WriteOnly) && kept.write("kept") == 4 && kept.commit());
    const QStringList outside {QStringLiteral("/etc/evil.hex"), QStringLiteral("/tmp/evil.hex"),
                               ApplicationDirectory::path() + QStringLiteral("../evil.hex")};
    const QStringList before = surroundings();
    QVERIFY(before.size() > 2);
    server->serveEverythingElse(Answer::ok("evil"));
    if (!location.isEmpty())
        server->serve(repository + QStringLiteral("plain.hex"), {Answer::redirect(location)});
    serveIndex(entry + '\n' + hex("Good__1").toUtf8());

    start();
    QTRY_VERIFY_WITH_TIMEOUT(!label().isEmpty() && isSettled(), patience);
    QCOMPARE(programs(), QStringList {QStringLiteral("Good")});
    // Qt 6.8 asks nobody for an address with an encoded NUL.
    const int most = 3 + (location.startsWith('/') ? 1 : 0);
    const int fewest = (entry + location).contains("%00") ? most - 1 : most;
    QVERIFY(server->requests().size() >= fewest);
    QVERIFY(server->requests().size() <= most);

    // The next index may hold nothing of it.
    serveIndex(hex("Good__1").toUtf8());
    QVERIFY(refresh());
    QTRY_COMPARE_WITH_TIMEOUT(server->requestCount(indexAddress), 2, patience);
    QTRY_COMPARE_WITH_TIMEOUT(shown(), upToDate, patience);

    QCOMPARE(surroundings(), before);
    for (const QString &path : outside)
        QVERIFY2(!QFile::remove(path), qPrintable(path));
}

void tst_OnlineRepository::givesThreadsAndDescriptorsBack()
{
    QStringList names;
    for (int number = 0; number < 50; ++number)
        names.append(hex(("Sketch" + QByteArray::number(number) + "__1").constData()));
    server->serve(indexAddress, {Answer::ok(names.first().toUtf8()), Answer::ok(lines(names))});
    server->serveEverythingElse(Answer::ok("sketch"));
    start();
    QTRY_COMPARE_WITH_TIMEOUT(shown(), upToDate, patience);
    QTRY_VERIFY_WITH_TIMEOUT(isSettled(), patience);
    // The server's ends of the connections are of this process, too.
    const ProcessUsage usage = settledUsageOf(QCoreApplication::applicationPid());

    for (int number = 0; number < 50; ++number) {
        QVERIFY(refresh());
        QTRY_COMPARE_WITH_TIMEOUT(server->requestCount(indexAddress), 2 + number, patience);
        QTRY_VERIFY_WITH_TIMEOUT(isSettled(), patience);
    }
    QCOMPARE(ApplicationDirectory::repositoryFiles().size(), 50);
    QCOMPARE(window->findChildren<QNetworkAccessManager *>().size(), 2 + 50 + 49);
    QVERIFY(comesDownTo(usage, QCoreApplication::applicationPid()));
}

QTEST_MAIN(tst_OnlineRepository)

#include "tst_onlinerepository.moc"
