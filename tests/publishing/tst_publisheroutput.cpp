// The publishing tool at work: what it writes, in which order, and what it leaves alone.
#include "support/applicationdirectory.h"
#include "support/patience.h"
#include "support/publisher.h"

#include <QDir>
#include <QMutex>
#include <QProcess>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <thread>

namespace {

constexpr int done = 0;
constexpr int refused = 1;
constexpr int wrongUsage = 2;
constexpr int failed = 3;
constexpr int busy = 4;

constexpr int publications = 100;

const QString indexName = QStringLiteral("file_list.txt");
const QString tail = QStringLiteral(".ino.with_bootloader.standard.hex");

QString inShell(const QString &line)
{
    return line + QStringLiteral(" && exec \"$@\"");
}

// The settings of the shell line apply to the command that follows.
QStringList afterShell(const QString &line)
{
    return {QStringLiteral("bash"), QStringLiteral("-c"), inShell(line), QStringLiteral("bash")};
}

// Root would bypass file permissions.
QStringList boundByPermissions()
{
    if (geteuid() != 0)
        return {};
    return {QStringLiteral("setpriv"),
            QStringLiteral("--bounding-set=-dac_override,-dac_read_search")};
}

QByteArray permissionsOf(const QString &path)
{
    struct stat status = {};
    if (stat(QFile::encodeName(path).constData(), &status) != 0)
        return "none";
    return QByteArray::number(status.st_mode & 0777U, 8);
}

void writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
}

QString nameOf(const QString &name, int version)
{
    return QStringLiteral("%1__%2").arg(name).arg(version);
}

// Its content tells a whole file from a part, and one version from another.
QByteArray imageOf(const QByteArray &baseName)
{
    return hexImage(baseName.repeated(200));
}

// A client that asks for the index and its files all the time.
class Client
{
public:
    explicit Client(const Publisher *served)
        : publisher(served)
        , thread([this] { read(); })
    {
    }

    ~Client() { stop(); }

    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    void stop()
    {
        stopped = true;
        if (thread.joinable())
            thread.join();
    }

    bool hasSeen(const QByteArray &index) const
    {
        const QMutexLocker guard(&lock);
        return seen == index;
    }

    // Once it has stopped.
    QStringList faults;

private:
    void read()
    {
        while (!stopped) {
            const QByteArray index = publisher->index();
            note(index);
            const QList<QByteArray> fileNames = index.split('\n');
            for (const QByteArray &fileName : fileNames)
                check(fileName, index);
        }
    }

    void note(const QByteArray &index)
    {
        const QMutexLocker guard(&lock);
        seen = index;
    }

    // A file may be gone when the index no longer names it.
    void check(const QByteArray &fileName, const QByteArray &index)
    {
        const QByteArray content =
            ApplicationDirectory::contentOf(publisher->servedFile(QString::fromUtf8(fileName)));
        const QByteArray baseName = fileName.left(fileName.indexOf('.'));
        if (content != imageOf(baseName) && publisher->index() == index)
            faults.append(QStringLiteral("%1 has %2 bytes")
                              .arg(QString::fromUtf8(fileName))
                              .arg(content.size()));
    }

    const Publisher *publisher;
    mutable QMutex lock;
    QByteArray seen; // the latest index
    std::atomic<bool> stopped {false};
    std::thread thread;
};

} // namespace

class tst_PublisherOutput : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void firstPublication();
    void renewal();
    void nothingNewTouchesNothing();
    void removalAloneChangesTheIndex();
    void foreignFilesAreLeftAlone();
    void changedFileIsRefused();
    void changedFileIsReplacedOnRequest();
    void dryRunSaysTheSameAndChangesNothing();
    void dryRunMakesNoFolder();
    void webServerMayRead();

    void filesComeBeforeTheIndex();
    void filesGoAfterTheIndex();
    void indexIsExchangedInOneStep();
    void leftoverOfAKilledRunGoes();
    void clientNeverMissesAFile();
    void secondRunIsTurnedAway();

    void unusableServedFileIsRefused_data();
    void unusableServedFileIsRefused();
    void folderThatCannotBeWritten_data();
    void folderThatCannotBeWritten();
    void placeThatCannotBeWritten_data();
    void placeThatCannotBeWritten();
    void missingImageReader();
    void usage_data();
    void usage();
    void help();

private:
    std::unique_ptr<Publisher> publisher;
};

void tst_PublisherOutput::init()
{
    publisher = std::make_unique<Publisher>();
}

void tst_PublisherOutput::cleanup()
{
    publisher.reset();
}

void tst_PublisherOutput::firstPublication()
{
    const QString servo = publisher->addSketch(QStringLiteral("servo__1"), hexImage("servo"));
    const QString blink = publisher->addSketch(QStringLiteral("Blink__3"), hexImage("blink"));
    const QString tower = publisher->addSketch(QStringLiteral("Tower__12"), hexImage("tower"));

    const Publisher::Result result = publisher->publish();
    QCOMPARE(result.problems, QString());
    QCOMPARE(result.exitStatus, done);
    QCOMPARE(result.steps,
             QStringList({step("add", blink), step("add", tower), step("add", servo),
                          step("add", indexName)}));
    QCOMPARE(publisher->index(),
             QByteArray("Blink__3.ino.with_bootloader.standard.hex\n"
                        "Tower__12.ino.with_bootloader.standard.hex\n"
                        "servo__1.ino.with_bootloader.standard.hex"));
    QCOMPARE(ApplicationDirectory::contentOf(publisher->servedFile(servo)), hexImage("servo"));
    QCOMPARE(ApplicationDirectory::contentOf(publisher->servedFile(blink)), hexImage("blink"));
    QCOMPARE(ApplicationDirectory::contentOf(publisher->servedFile(tower)), hexImage("tower"));
    QCOMPARE(publisher->servedState().size(), 4);
}

void tst_PublisherOutput::renewal()
{
    const QString kept = publisher->addSketch(QStringLiteral("Blink__3"));
    const QString old = publisher->addSketch(QStringLiteral("Servo__1"));
    QCOMPARE(publisher->publish().exitStatus, done);

    publisher->removeFile(old);
    const QString renewed = publisher->addSketch(QStringLiteral("Servo__2"), hexImage("new"));
    const Publisher::Result result = publisher->publish();
    QCOMPARE(result.exitStatus, done);
    QCOMPARE(result.steps,
             QStringList({step("keep", kept), step("add", renewed), step("replace", indexName),
                          step("remove", old)}));
    QCOMPARE(publisher->index(), (kept + QLatin1Char('\n') + renewed).toUtf8());
    QCOMPARE(ApplicationDirectory::contentOf(publisher->servedFile(renewed)), hexImage("new"));
    QVERIFY(!QFileInfo::exists(publisher->servedFile(old)));
    QCOMPARE(publisher->servedState().size(), 3);
}

void tst_PublisherOutput::nothingNewTouchesNothing()
{
    const QString blink = publisher->addSketch(QStringLiteral("Blink__3"));
    QCOMPARE(publisher->publish().exitStatus, done);
    const QStringList state = publisher->servedState();

    publisher->addSketch(QStringLiteral("Blink__3")); // the same content, written anew
    const Publisher::Result result = publisher->publish();
    QCOMPARE(result.exitStatus, done);
    QCOMPARE(result.steps, QStringList({step("keep", blink), step("keep", indexName)}));
    QCOMPARE(publisher->servedState(), state);
}

void tst_PublisherOutput::removalAloneChangesTheIndex()
{
    const QString blink = publisher->addSketch(QStringLiteral("Blink__3"));
    const QString servo = publisher->addSketch(QStringLiteral("Servo__1"));
    QCOMPARE(publisher->publish().exitStatus, done);

    publisher->removeFile(servo);
    QCOMPARE(publisher->publish().exitStatus, done);
    QCOMPARE(publisher->index(), blink.toUtf8());
    QVERIFY(!QFileInfo::exists(publisher->servedFile(servo)));
}

void tst_PublisherOutput::foreignFilesAreLeftAlone()
{
    const QString page = publisher->servedFile(QStringLiteral("index.html"));
    QVERIFY(QDir().mkdir(publisher->served()));
    writeFile(page, "page");
    publisher->addSketch(QStringLiteral("Blink__3"));

    QCOMPARE(publisher->publish().exitStatus, done);
    QCOMPARE(ApplicationDirectory::contentOf(page), QByteArray("page"));
    QCOMPARE(publisher->index(), QByteArray("Blink__3.ino.with_bootloader.standard.hex"));
}

void tst_PublisherOutput::changedFileIsRefused()
{
    const QString blink = publisher->addSketch(QStringLiteral("Blink__3"));
    QCOMPARE(publisher->publish().exitStatus, done);
    const QStringList state = publisher->servedState();

    publisher->addSketch(QStringLiteral("Blink__3"), hexImage("changed"));
    publisher->addSketch(QStringLiteral("Servo__1"));
    const Publisher::Result result = publisher->publish();
    QCOMPARE(result.exitStatus, refused);
    QVERIFY2(result.problems.contains(blink + QLatin1String(" differs from the published file")),
             qPrintable(result.problems));
    QCOMPARE(publisher->servedState(), state);
}

void tst_PublisherOutput::changedFileIsReplacedOnRequest()
{
    const QString blink = publisher->addSketch(QStringLiteral("Blink__3"));
    QCOMPARE(publisher->publish().exitStatus, done);

    publisher->addSketch(QStringLiteral("Blink__3"), hexImage("changed"));
    const Publisher::Result result = publisher->publish({QStringLiteral("--replace")});
    QCOMPARE(result.exitStatus, done);
    QCOMPARE(result.steps, QStringList({step("replace", blink), step("keep", indexName)}));
    QCOMPARE(ApplicationDirectory::contentOf(publisher->servedFile(blink)), hexImage("changed"));
}

void tst_PublisherOutput::dryRunSaysTheSameAndChangesNothing()
{
    const QString changed = publisher->addSketch(QStringLiteral("Changed__1"));
    const QString removed = publisher->addSketch(QStringLiteral("Removed__1"));
    QCOMPARE(publisher->publish().exitStatus, done);
    publisher->addSketch(QStringLiteral("Changed__1"), hexImage("changed"));
    publisher->addSketch(QStringLiteral("Added__1"));
    publisher->removeFile(removed);
    const QStringList state = publisher->servedState();

    const QString replace = QStringLiteral("--replace");
    const Publisher::Result tried = publisher->publish({QStringLiteral("--dry-run"), replace});
    QCOMPARE(tried.exitStatus, done);
    QCOMPARE(publisher->servedState(), state);

    const Publisher::Result result = publisher->publish({replace});
    QCOMPARE(result.exitStatus, done);
    QCOMPARE(tried.steps, result.steps);
    QCOMPARE(result.steps.size(), 4);
}

void tst_PublisherOutput::dryRunMakesNoFolder()
{
    publisher->addSketch(QStringLiteral("Blink__3"));
    const Publisher::Result result = publisher->publish({QStringLiteral("--dry-run")});
    QCOMPARE(result.exitStatus, done);
    QCOMPARE(result.steps.size(), 2);
    QVERIFY(!QFileInfo::exists(publisher->served()));
}

void tst_PublisherOutput::webServerMayRead()
{
    const QString blink = publisher->addSketch(QStringLiteral("Blink__3"));
    const Publisher::Result result =
        publisher->publishUnder(afterShell(QStringLiteral("umask 077")));
    QCOMPARE(result.exitStatus, done);
    QCOMPARE(permissionsOf(publisher->served()), QByteArray("755"));
    QCOMPARE(permissionsOf(publisher->servedFile(blink)), QByteArray("644"));
    QCOMPARE(permissionsOf(publisher->servedFile(indexName)), QByteArray("644"));
}

// The second sketch is larger than a file may be.
void tst_PublisherOutput::filesComeBeforeTheIndex()
{
    publisher->addSketch(QStringLiteral("Before__1"));
    QCOMPARE(publisher->publish().exitStatus, done);
    const QByteArray index = publisher->index();

    const QString small = publisher->addSketch(QStringLiteral("New__1"));
    const QString large =
        publisher->addSketch(QStringLiteral("New_too__1"), hexImage(QByteArray(4000, 'd')));
    const Publisher::Result result =
        publisher->publishUnder(afterShell(QStringLiteral("ulimit -f 4")));
    QCOMPARE(result.exitStatus, failed);
    QVERIFY2(result.problems.contains(QLatin1String("File too large")),
             qPrintable(result.problems));
    QCOMPARE(publisher->index(), index);
    QVERIFY(QFileInfo::exists(publisher->servedFile(small)));
    QVERIFY(!QFileInfo::exists(publisher->servedFile(large)));

    QCOMPARE(publisher->publish().exitStatus, done);
    QCOMPARE(ApplicationDirectory::contentOf(publisher->servedFile(large)),
             hexImage(QByteArray(4000, 'd')));
    QCOMPARE(publisher->servedState().size(), 4);
}

// The new index is larger than a file may be.
void tst_PublisherOutput::filesGoAfterTheIndex()
{
    const QString removed = publisher->addSketch(QStringLiteral("Removed__1"));
    QCOMPARE(publisher->publish().exitStatus, done);
    const QByteArray index = publisher->index();

    publisher->removeFile(removed);
    for (int number = 0; number < 30; ++number)
        publisher->addSketch(nameOf(QStringLiteral("Sketch%1").arg(number), 1));
    const Publisher::Result result =
        publisher->publishUnder(afterShell(QStringLiteral("ulimit -f 1")));
    QCOMPARE(result.exitStatus, failed);
    QCOMPARE(result.steps.size(), 30);
    QCOMPARE(publisher->index(), index);
    QVERIFY(QFileInfo::exists(publisher->servedFile(removed)));

    QCOMPARE(publisher->publish().exitStatus, done);
    QVERIFY(!QFileInfo::exists(publisher->servedFile(removed)));
    QCOMPARE(publisher->servedState().size(), 31);
}

// A client that has begun to read the old index can read all of it.
void tst_PublisherOutput::indexIsExchangedInOneStep()
{
    publisher->addSketch(QStringLiteral("Blink__3"));
    QCOMPARE(publisher->publish().exitStatus, done);
    const QByteArray index = publisher->index();
    QFile open(publisher->servedFile(indexName));
    QVERIFY(open.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    QCOMPARE(open.read(5), index.left(5));

    publisher->addSketch(QStringLiteral("Another__1"));
    QCOMPARE(publisher->publish().exitStatus, done);
    QCOMPARE(open.readAll(), index.mid(5));
    QVERIFY(publisher->index() != index);
}

void tst_PublisherOutput::leftoverOfAKilledRunGoes()
{
    publisher->addSketch(QStringLiteral("Blink__3"));
    QCOMPARE(publisher->publish().exitStatus, done);
    const QStringList state = publisher->servedState();
    writeFile(publisher->servedFile(QStringLiteral(".publish-repository.unfinished")), "half");

    QCOMPARE(publisher->publish().exitStatus, done);
    QCOMPARE(publisher->servedState(), state);
}

void tst_PublisherOutput::clientNeverMissesAFile()
{
    const QStringList names = {QStringLiteral("Blink"), QStringLiteral("Servo")};
    std::unique_ptr<Client> client;
    for (int version = 1; version <= publications; ++version) {
        for (const QString &name : names) {
            const QString baseName = nameOf(name, version);
            publisher->addSketch(baseName, imageOf(baseName.toUtf8()));
            if (version > 1)
                publisher->removeFile(nameOf(name, version - 1) + tail);
        }
        QCOMPARE(publisher->publish().exitStatus, done);
        if (!client)
            client = std::make_unique<Client>(publisher.get());
        const QByteArray index = publisher->index();
        QVERIFY(QTest::qWaitFor([&] { return client->hasSeen(index); }, patience));
    }
    client->stop();
    QCOMPARE(client->faults, QStringList());
}

// The first run waits in the middle, where it reads its image.
void tst_PublisherOutput::secondRunIsTurnedAway()
{
    const QString blink = publisher->addSketch(QStringLiteral("Blink__3"));
    QCOMPARE(publisher->publish().exitStatus, done);
    publisher->addSketch(QStringLiteral("Servo__1"));

    const QString tools = publisher->place() + QStringLiteral("/tools");
    QVERIFY(QDir().mkdir(tools));
    const QString reader = tools + QStringLiteral("/srec_info");
    writeFile(reader,
              "#!/bin/sh\ntouch \"$0.waits\"\nwhile [ -e \"$0.waits\" ]; do sleep 0.01; "
              "done\nexec /usr/bin/srec_info \"$@\"\n");
    QVERIFY(QFile::setPermissions(reader, QFile::ReadOwner | QFile::ExeOwner));
    const QString waits = reader + QStringLiteral(".waits");

    QProcess first;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("PATH"),
                       tools + QLatin1Char(':') + environment.value(QStringLiteral("PATH")));
    first.setProcessEnvironment(environment);
    first.start(QStringLiteral(PUBLISH_REPOSITORY), {publisher->sketches(), publisher->served()});
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(waits), patience);

    for (const QStringList &options : {QStringList(), QStringList(QStringLiteral("--dry-run"))}) {
        const Publisher::Result second = publisher->publish(options);
        QCOMPARE(second.exitStatus, busy);
        QVERIFY2(second.problems.contains(QLatin1String("another run is publishing in")),
                 qPrintable(second.problems));
    }
    QCOMPARE(publisher->index(), blink.toUtf8());

    while (!first.waitForFinished(10))
        QFile::remove(waits);
    QCOMPARE(first.exitCode(), done);
    QCOMPARE(publisher->publish().exitStatus, done);
}

void tst_PublisherOutput::unusableServedFileIsRefused_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::newRow("sketch that is a folder") << QString(QStringLiteral("Servo__1") + tail);
    QTest::newRow("index that is a folder") << indexName;
}

void tst_PublisherOutput::unusableServedFileIsRefused()
{
    QFETCH(const QString, fileName);
    publisher->addSketch(QStringLiteral("Blink__3"));
    QVERIFY(QDir().mkpath(publisher->servedFile(fileName)));
    const QStringList state = publisher->servedState();

    const Publisher::Result result = publisher->publish();
    QCOMPARE(result.exitStatus, refused);
    QVERIFY2(result.problems.contains(fileName + QLatin1String(" is not a regular file")),
             qPrintable(result.problems));
    QCOMPARE(publisher->servedState(), state);
}

void tst_PublisherOutput::folderThatCannotBeWritten_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::newRow("publication") << QStringList();
    QTest::newRow("dry run") << QStringList(QStringLiteral("--dry-run"));
}

void tst_PublisherOutput::folderThatCannotBeWritten()
{
    QFETCH(const QStringList, options);
    publisher->addSketch(QStringLiteral("Blink__3"));
    QVERIFY(QDir().mkdir(publisher->served()));
    QVERIFY(QFile::setPermissions(publisher->served(), QFile::ReadOwner | QFile::ExeOwner));

    const Publisher::Result result = publisher->publishUnder(boundByPermissions(), options);
    QCOMPARE(result.exitStatus, failed);
    QCOMPARE(
        result.problems,
        QStringLiteral("publish-repository: %1: Permission denied\n").arg(publisher->served()));
    QCOMPARE(publisher->servedState(), QStringList());
}

void tst_PublisherOutput::placeThatCannotBeWritten_data()
{
    folderThatCannotBeWritten_data();
}

void tst_PublisherOutput::placeThatCannotBeWritten()
{
    QFETCH(const QStringList, options);
    publisher->addSketch(QStringLiteral("Blink__3"));
    QVERIFY(QFile::setPermissions(publisher->place(), QFile::ReadOwner | QFile::ExeOwner));

    const Publisher::Result result = publisher->publishUnder(boundByPermissions(), options);
    QVERIFY(QFile::setPermissions(publisher->place(),
                                  QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    QCOMPARE(result.exitStatus, failed);
    QCOMPARE(result.problems,
             QStringLiteral("publish-repository: %1: Permission denied\n").arg(publisher->place()));
    QVERIFY(!QFileInfo::exists(publisher->served()));
}

void tst_PublisherOutput::missingImageReader()
{
    publisher->addSketch(QStringLiteral("Blink__3"));
    const Publisher::Result result =
        publisher->publishUnder(afterShell(QStringLiteral("PATH=/nowhere")));
    QCOMPARE(result.exitStatus, failed);
    QVERIFY2(result.problems.contains(QLatin1String("srecord")), qPrintable(result.problems));
    QVERIFY(!QFileInfo::exists(publisher->served()));
}

void tst_PublisherOutput::usage_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("explanation");

    const QString sketches = QStringLiteral("SKETCHES");
    QTest::newRow("no folders") << QStringList() << QStringLiteral("required: SKETCHES, SERVED");
    QTest::newRow("one folder") << QStringList(sketches) << QStringLiteral("required: SERVED");
    QTest::newRow("three folders")
        << QStringList({sketches, QStringLiteral("vt_updater"), QStringLiteral("more")})
        << QStringLiteral("unrecognized arguments: more");
    QTest::newRow("unknown option")
        << QStringList({QStringLiteral("--force"), sketches, QStringLiteral("vt_updater")})
        << QStringLiteral("unrecognized arguments: --force");
    QTest::newRow("shortened option")
        << QStringList({QStringLiteral("--rep"), sketches, QStringLiteral("vt_updater")})
        << QStringLiteral("unrecognized arguments: --rep");
    QTest::newRow("no such folder of sketches")
        << QStringList({QStringLiteral("nowhere"), QStringLiteral("vt_updater")})
        << QStringLiteral("there is not a folder nowhere");
    QTest::newRow("no folder to make the served one in")
        << QStringList({sketches, QStringLiteral("nowhere/vt_updater")})
        << QStringLiteral("there is not a folder to make nowhere/vt_updater in");
    QTest::newRow("served folder that is a file") << QStringList({sketches, QStringLiteral("file")})
                                                  << QStringLiteral("file is not a folder");
    QTest::newRow("folder published in itself")
        << QStringList({sketches, sketches}) << QStringLiteral("must be different folders");
    QTest::newRow("folder published below itself")
        << QStringList({sketches, sketches + QStringLiteral("/vt_updater")})
        << QStringLiteral("SERVED must not be in SKETCHES");
    QTest::newRow("folder published below itself by another name")
        << QStringList({QStringLiteral("link"), sketches + QStringLiteral("/vt_updater")})
        << QStringLiteral("SERVED must not be in SKETCHES");
    QTest::newRow("pass over without a rehearsal")
        << QStringList({QStringLiteral("--pass-over"), QStringLiteral("Blink"), sketches,
                        QStringLiteral("vt_updater")})
        << QStringLiteral("--build and --pass-over are for --rehearse");
    QTest::newRow("build without a rehearsal")
        << QStringList({QStringLiteral("--build"), QStringLiteral("build"), sketches,
                        QStringLiteral("vt_updater")})
        << QStringLiteral("--build and --pass-over are for --rehearse");
    QTest::newRow("folder published in itself by another name")
        << QStringList({sketches, QStringLiteral("link")})
        << QStringLiteral("must be different folders");
}

void tst_PublisherOutput::usage()
{
    QFETCH(QStringList, arguments);
    QFETCH(const QString, explanation);
    arguments.replaceInStrings(QStringLiteral("SKETCHES"), publisher->sketches());
    publisher->addSketch(QStringLiteral("Blink__3"));
    writeFile(publisher->place() + QStringLiteral("/file"), "file");
    QVERIFY(QFile::link(publisher->sketches(), publisher->place() + QStringLiteral("/link")));
    QVERIFY(QDir::setCurrent(publisher->place()));

    const Publisher::Result result = Publisher::run(arguments);
    QVERIFY(QDir::setCurrent(ApplicationDirectory::path()));
    QCOMPARE(result.exitStatus, wrongUsage);
    QVERIFY2(result.problems.contains(explanation), qPrintable(result.problems));
    QVERIFY(!QFileInfo::exists(publisher->served()));
    QCOMPARE(QDir(publisher->sketches()).entryList(QDir::Files).size(), 1);
}

void tst_PublisherOutput::help()
{
    const Publisher::Result result = Publisher::run({QStringLiteral("--help")});
    QCOMPARE(result.exitStatus, done);
    const QString text = result.steps.join(QLatin1Char('\n'));
    for (int status = done; status <= busy; ++status)
        QVERIFY2(text.contains(QStringLiteral("\n  %1  ").arg(status)), qPrintable(text));
}

QTEST_GUILESS_MAIN(tst_PublisherOutput)

#include "tst_publisheroutput.moc"
