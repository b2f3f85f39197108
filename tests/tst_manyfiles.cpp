// A thousand files and a thousand refreshes: all arrives, nothing is used up; and a killed program.
#include "mainwindow/mainwindow.h"
#include "support/applicationdirectory.h"
#include "support/repositoryserver.h"
#include "support/windowdriver.h"

#include <QDir>
#include <QElapsedTimer>
#include <QNetworkReply>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <sys/resource.h>

#include <memory>

namespace {

constexpr int patience = 120000; // ms, for a loaded machine and a sanitized program
constexpr int sketchSize = 30000;

const QString repository = QStringLiteral("http://updates.korvex.example/vt_updater/");
const QString indexAddress = QStringLiteral("http://updates.korvex.example/vt_updater/"
                                            "file_list.txt");
const QString sketchPattern = QStringLiteral("*ino.with_bootloader.standard.hex");

QString nameOf(int number)
{
    return ApplicationDirectory::sketchFileName(QStringLiteral("Sketch%1__1").arg(number));
}

QByteArray contentOf(int number)
{
    const QByteArray line = ':' + QByteArray::number(number) + '\n';
    return line.repeated(sketchSize / line.size() + 1).left(sketchSize);
}

QByteArray indexOf(int count)
{
    QStringList names;
    for (int number = 0; number < count; ++number)
        names.append(nameOf(number));
    return names.join(QLatin1Char('\n')).toUtf8();
}

void serve(RepositoryServer *server, int count)
{
    server->serve(indexAddress, {Answer::ok(indexOf(count))});
    for (int number = 0; number < count; ++number)
        server->serve(repository + nameOf(number), {Answer::ok(contentOf(number))});
}

struct Usage
{
    int threads = 0;
    int descriptors = 0;
};

bool operator==(Usage one, Usage other)
{
    return one.threads == other.threads && one.descriptors == other.descriptors;
}

QByteArray describe(Usage usage)
{
    return QByteArray::number(usage.threads) + " threads, " + QByteArray::number(usage.descriptors)
        + " descriptors";
}

int entryCount(const QString &directory)
{
    return QDir(directory).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

Usage usageOf(qint64 process)
{
    const QString directory = QStringLiteral("/proc/%1/").arg(process);
    return {entryCount(directory + QStringLiteral("task")),
            entryCount(directory + QStringLiteral("fd"))};
}

// The usage once it has not changed for a second.
Usage settledUsageOf(qint64 process)
{
    Usage usage = usageOf(process);
    QElapsedTimer unchanged;
    unchanged.start();
    while (unchanged.elapsed() < 1000) {
        QTest::qWait(20);
        const Usage now = usageOf(process);
        if (now == usage)
            continue;
        usage = now;
        unchanged.restart();
    }
    return usage;
}

// The program in a directory of its own, started with the usual limit of open files.
class InstalledProgram
{
public:
    InstalledProgram()
    {
        const QString source = QStringLiteral(VTUPDATER_PROGRAM);
        if (!QFile::copy(source, program()))
            qFatal("cannot copy %s", qPrintable(source));
    }

    ~InstalledProgram() { kill(); }

    InstalledProgram(const InstalledProgram &) = delete;
    InstalledProgram &operator=(const InstalledProgram &) = delete;

    bool start()
    {
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(
            QStringLiteral("bash"),
            {QStringLiteral("-c"), QStringLiteral("ulimit -Sn 1024 && exec \"$0\""), program()});
        return process.waitForStarted();
    }

    // At once, as a loss of power would end it.
    void kill()
    {
        process.kill();
        process.waitForFinished();
    }

    bool isRunning() const { return process.state() == QProcess::Running; }
    qint64 id() const { return process.processId(); }

    QDir sketches() const
    {
        return QDir(directory.filePath(QStringLiteral("compiled_sketches")), sketchPattern);
    }
    int sketchCount() const { return static_cast<int>(sketches().count()); }
    bool hasSketches(int count) const { return sketchCount() >= count; }

    // The names of sketches whose content is not that of the repository.
    QStringList damagedSketches() const
    {
        QStringList damaged = sketches().entryList();
        for (int number = 0; number < 1000; ++number) {
            if (ApplicationDirectory::contentOf(sketches().filePath(nameOf(number)))
                == contentOf(number))
                damaged.removeOne(nameOf(number));
        }
        return damaged;
    }

private:
    QString program() const { return directory.filePath(QStringLiteral("VTUpdater")); }

    QTemporaryDir directory;
    QProcess process;
};

} // namespace

class tst_ManyFiles : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void thousandMissingFiles();
    void thousandRefreshes();
    void killedWhileReceiving();
    void killedWhileStoring_data();
    void killedWhileStoring();

private:
    std::unique_ptr<RepositoryServer> server;
};

// The server's ends of a thousand connections are this process's.
void tst_ManyFiles::initTestCase()
{
    rlimit limit = {};
    QCOMPARE(getrlimit(RLIMIT_NOFILE, &limit), 0);
    if (limit.rlim_max < 4096)
        QSKIP("this system allows too few open files for a thousand connections");
    limit.rlim_cur = limit.rlim_max;
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

void tst_ManyFiles::init()
{
    ApplicationDirectory::clear();
    server = std::make_unique<RepositoryServer>();
}

void tst_ManyFiles::cleanup()
{
    server.reset();
    ApplicationDirectory::clear();
}

void tst_ManyFiles::thousandMissingFiles()
{
    serve(server.get(), 1);
    InstalledProgram one;
    QVERIFY(one.start());
    QVERIFY(QTest::qWaitFor([&] { return one.hasSketches(1); }, patience));
    const Usage usageAfterOne = settledUsageOf(one.id());
    one.kill();

    serve(server.get(), 1000);
    InstalledProgram program;
    QElapsedTimer time;
    time.start();
    QVERIFY(program.start());
    Usage peak;
    const auto arrived = [&] {
        const Usage now = usageOf(program.id());
        peak.threads = qMax(peak.threads, now.threads);
        peak.descriptors = qMax(peak.descriptors, now.descriptors);
        return !program.isRunning() || program.hasSketches(1000);
    };
    QVERIFY(QTest::qWaitFor(arrived, patience));
    const qint64 duration = time.elapsed();
    QVERIFY(program.isRunning());
    QCOMPARE(program.sketchCount(), 1000);
    QCOMPARE(program.damagedSketches(), QStringList());

    const Usage left = settledUsageOf(program.id());
    qInfo("1000 files in %lld ms; at most %s; left %s", duration, describe(peak).constData(),
          describe(left).constData());
    QVERIFY(peak.descriptors > 1024);
    QCOMPARE(describe(left), describe(usageAfterOne));
    QCOMPARE(server->requests().size(), 2 + 1001);
}

void tst_ManyFiles::thousandRefreshes()
{
    server->serve(indexAddress, {Answer::ok(nameOf(0).toUtf8())});
    ApplicationDirectory::addFile(nameOf(0));
    MainWindow window;
    window.show();
    if (!window.areYouOnline())
        QSKIP("without a network interface that is up every refresh is refused");
    const auto settled = [&] {
        return window.findChildren<QNetworkReply *>().isEmpty();
    };
    QVERIFY(QTest::qWaitFor(settled, patience));
    const Usage usageAfterOne = settledUsageOf(QCoreApplication::applicationPid());

    for (int round = 0; round < 50; ++round) {
        for (int number = 0; number < 20; ++number)
            QVERIFY(click(window, "pushButton_programlist_refresh"));
        QVERIFY(QTest::qWaitFor(settled, patience));
    }
    QCOMPARE(server->requests().size(), 1001);
    const Usage left = settledUsageOf(QCoreApplication::applicationPid());
    QCOMPARE(describe(left), describe(usageAfterOne));
}

void tst_ManyFiles::killedWhileReceiving()
{
    server->serve(indexAddress, {Answer::ok(indexOf(2))});
    server->serve(repository + nameOf(0), {Answer::ok(contentOf(0))});
    server->serve(repository + nameOf(1), {Answer::halfHeld(contentOf(1))});
    InstalledProgram program;
    QVERIFY(program.start());
    QVERIFY(QTest::qWaitFor([&] { return program.hasSketches(1); }, patience));
    QTRY_COMPARE_WITH_TIMEOUT(server->requestCount(repository + nameOf(1)), 1, patience);
    QTest::qWait(500); // for the half to arrive, which nothing outside the program shows

    program.kill();
    QCOMPARE(program.sketches().entryList(), QStringList {nameOf(0)});
    QCOMPARE(program.damagedSketches(), QStringList());
}

void tst_ManyFiles::killedWhileStoring_data()
{
    QTest::addColumn<int>("stored");

    for (int stored : {1, 20, 100, 180})
        QTest::addRow("after %d of 200 sketches", stored) << stored;
}

void tst_ManyFiles::killedWhileStoring()
{
    QFETCH(int, stored);
    serve(server.get(), 200);
    InstalledProgram program;
    QVERIFY(program.start());
    QElapsedTimer time;
    time.start();
    while (!program.hasSketches(stored))
        QVERIFY(time.elapsed() < patience);
    program.kill();
    qInfo("%d sketches when killed", program.sketchCount());
    QCOMPARE(program.damagedSketches(), QStringList());

    QVERIFY(program.start());
    QVERIFY(QTest::qWaitFor([&] { return program.hasSketches(200); }, patience));
    QCOMPARE(program.sketchCount(), 200);
    QCOMPARE(program.damagedSketches(), QStringList());
}

QTEST_MAIN(tst_ManyFiles)

#include "tst_manyfiles.moc"
