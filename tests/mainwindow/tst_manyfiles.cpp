// A thousand files, a thousand refreshes and a killed program: all files arrive, nothing leaks.
#include "mainwindow/mainwindow.h"
#include "support/applicationdirectory.h"
#include "support/footprint.h"
#include "support/installedprogram.h"
#include "support/numberedsketches.h"
#include "support/patience.h"
#include "support/repositoryserver.h"
#include "support/windowdriver.h"

#include <QElapsedTimer>
#include <QNetworkReply>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

#include <sys/resource.h>

#include <memory>

namespace {

// Each file is flushed to the disk. On a busy disk, no more than ten a second were seen.
constexpr int manyPatience = 2 * patience;

const QString program = QStringLiteral(VTUPDATER_PROGRAM);

ProcessUsage greater(const ProcessUsage &one, const ProcessUsage &other)
{
    return {qMax(one.threads, other.threads), qMax(one.descriptors, other.descriptors)};
}

// The connections to the server, one per line.
QString connectionsTo(const RepositoryServer &server)
{
    const QString port = server.proxyAddress().section(QLatin1Char(':'), -1);
    QProcess list;
    list.start(QStringLiteral("ss"),
               {QStringLiteral("-tinHO"), QStringLiteral("dport"), QStringLiteral("="),
                QLatin1Char(':') + port});
    list.waitForFinished(patience);
    return QString::fromUtf8(list.readAll());
}

// Whether one connection has received half a sketch but not a whole one, and nothing is left to
// read.
bool hasReadAPart(const RepositoryServer &server)
{
    static const QRegularExpression line(QStringLiteral("^ESTAB +0 .* bytes_received:(\\d+) "),
                                         QRegularExpression::MultilineOption);
    const auto sketch = NumberedSketches::content(1).size();
    QRegularExpressionMatchIterator found = line.globalMatch(connectionsTo(server));
    while (found.hasNext()) {
        const int received = found.next().captured(1).toInt();
        if (received >= sketch / 2 && received < sketch)
            return true;
    }
    return false;
}

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

// This process also holds the server's ends of a thousand connections.
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
    NumberedSketches::serve(server.get(), 1);
    InstalledProgram one(program);
    QVERIFY(one.start());
    QVERIFY(QTest::qWaitFor([&] { return one.hasSketches(1); }, patience));
    const ProcessUsage usageAfterOne = settledUsageOf(one.id());
    one.kill();

    NumberedSketches::serve(server.get(), 1000);
    InstalledProgram installed(program);
    QElapsedTimer time;
    time.start();
    QVERIFY(installed.start());
    ProcessUsage peak;
    const auto arrived = [&] {
        peak = greater(peak, usageOf(installed.id()));
        return !installed.isRunning() || installed.hasSketches(1000);
    };
    QVERIFY(QTest::qWaitFor(arrived, manyPatience));
    const qint64 duration = time.elapsed();
    QVERIFY(installed.isRunning());
    QCOMPARE(installed.sketchCount(), 1000);
    QCOMPARE(NumberedSketches::damaged(installed.sketches()), QStringList());

    const ProcessUsage left = settledUsageOf(installed.id());
    qInfo("1000 files in %lld ms; at most %s; left %s", duration, describe(peak).constData(),
          describe(left).constData());
    QVERIFY(peak.descriptors > 1024);
    QVERIFY(comesDownTo(usageAfterOne, installed.id()));
    QCOMPARE(server->requests().size(), 2 + 1001);
}

void tst_ManyFiles::thousandRefreshes()
{
    server->serve(NumberedSketches::indexAddress(),
                  {Answer::ok(NumberedSketches::fileName(0).toUtf8())});
    ApplicationDirectory::addFile(NumberedSketches::fileName(0));
    MainWindow window;
    window.show();
    if (!window.areYouOnline())
        QSKIP("without a network interface that is up every refresh is refused");
    const auto settled = [&] {
        return window.findChildren<QNetworkReply *>().isEmpty();
    };
    QVERIFY(QTest::qWaitFor(settled, patience));
    const ProcessUsage usageAfterOne = settledUsageOf(QCoreApplication::applicationPid());

    QElapsedTimer time;
    time.start();
    ProcessUsage peak;
    for (int round = 0; round < 50; ++round) {
        for (int number = 0; number < 20; ++number)
            QVERIFY(click(window, "pushButton_programlist_refresh"));
        peak = greater(peak, Footprint::usage());
        QVERIFY(QTest::qWaitFor(settled, patience));
    }
    const qint64 duration = time.elapsed();
    QCOMPARE(server->requests().size(), 1001);
    const ProcessUsage left = settledUsageOf(QCoreApplication::applicationPid());
    qInfo("1000 refreshes, 20 at a time, in %lld ms; at most %s; left %s", duration,
          describe(peak).constData(), describe(left).constData());
    QVERIFY(comesDownTo(usageAfterOne, QCoreApplication::applicationPid()));
}

void tst_ManyFiles::killedWhileReceiving()
{
    server->serve(NumberedSketches::indexAddress(), {Answer::ok(NumberedSketches::index(2))});
    server->serve(NumberedSketches::address(0), {Answer::ok(NumberedSketches::content(0))});
    server->serve(NumberedSketches::address(1), {Answer::halfHeld(NumberedSketches::content(1))});
    InstalledProgram installed(program);
    QVERIFY(installed.start());
    QVERIFY(QTest::qWaitFor([&] { return installed.hasSketches(1); }, patience));
    QTRY_COMPARE_WITH_TIMEOUT(server->requestCount(NumberedSketches::address(1)), 1, patience);
    QTRY_VERIFY_WITH_TIMEOUT(hasReadAPart(*server), patience);

    installed.kill();
    QCOMPARE(installed.sketches().entryList(), QStringList {NumberedSketches::fileName(0)});
    QCOMPARE(NumberedSketches::damaged(installed.sketches()), QStringList());
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
    NumberedSketches::serve(server.get(), 200);
    InstalledProgram installed(program);
    QVERIFY(installed.start());
    QElapsedTimer time;
    time.start();
    while (!installed.hasSketches(stored))
        QVERIFY(time.elapsed() < patience);
    installed.kill();
    qInfo("%d sketches when killed", installed.sketchCount());
    QCOMPARE(NumberedSketches::damaged(installed.sketches()), QStringList());

    QVERIFY(installed.start());
    QVERIFY(QTest::qWaitFor([&] { return installed.hasSketches(200); }, patience));
    QCOMPARE(installed.sketchCount(), 200);
    QCOMPARE(NumberedSketches::damaged(installed.sketches()), QStringList());
}

QTEST_MAIN(tst_ManyFiles)

#include "tst_manyfiles.moc"
