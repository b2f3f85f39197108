// A faulty server and a system short of descriptors: a refresh brings everything that is missing.
#include "campaign.h"
#include "mainwindow/mainwindow.h"
#include "support/applicationdirectory.h"
#include "support/footprint.h"
#include "support/installedprogram.h"
#include "support/numberedsketches.h"
#include "support/patience.h"
#include "support/repositoryserver.h"
#include "support/windowdriver.h"

#include <QCoreApplication>
#include <QDir>
#include <QNetworkReply>
#include <QTest>

#include <sys/resource.h>

#include <memory>

namespace {

constexpr int connectionsAtOnce = 50;
constexpr int second = 1000; // ms
constexpr int usedAtRest = 20; // threads or descriptors; a download that stays takes one or two

// Each download takes a thread's descriptor and a connection's.
const QString narrowLimit = QStringLiteral("-n 256");
constexpr int narrowLimitFiles = 100;
// More threads at once than descriptors: no machine is quick enough to get through.
constexpr int tooManyFiles = 300;

const QString program = QStringLiteral(VTUPDATER_PROGRAM);

bool settle(const QObject &window)
{
    return QTest::qWaitFor([&] { return window.findChildren<QNetworkReply *>().isEmpty(); },
                           patience);
}

QDir localRepository()
{
    return {ApplicationDirectory::sketchesPath(), QStringLiteral("*.hex")};
}

int stored()
{
    return static_cast<int>(localRepository().count());
}

QStringList damaged()
{
    return NumberedSketches::damaged(localRepository());
}

// Three in ten fail, each in one of the ways in which servers do.
Answer faultyAnswer(Campaign::Dice *dice, const QByteArray &content)
{
    static const QList<Answer> failures = {
        Answer::failure(500),
        Answer::failure(404),
        Answer::closedAtOnce(),
        Answer::redirect("http://login.example/", "<html>login</html>"),
    };
    if (dice->below(10) >= 3)
        return Answer::ok(content);
    return dice->oneIn(2) ? Answer::cutOff(content) : dice->oneOf(failures);
}

void serveWithFaults(RepositoryServer *server, Campaign::Dice *dice, int count)
{
    for (int number = 0; number < count; ++number) {
        const QByteArray content = NumberedSketches::content(number);
        server->serve(NumberedSketches::address(number), {faultyAnswer(dice, content)});
    }
}

} // namespace

class campaign_Server : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void fiftyConnectionsAtATime();
    void aByteASecond();
    void threeInTenFail();
    void aFaultyIndex_data();
    void aFaultyIndex();
    void restartsInTheMiddle();
    void fewDescriptors_data();
    void fewDescriptors();
    void tooFewDescriptorsLoseNothing();

private:
    void failAndRecover(Campaign::Dice *dice, int files);
    void restartAndRecover(Campaign::Dice *dice, int files);

    std::unique_ptr<RepositoryServer> server;
    ProcessUsage usage; // of this process, after a window
};

// This process also has the server's ends of the connections.
void campaign_Server::initTestCase()
{
    rlimit limit = {};
    QCOMPARE(getrlimit(RLIMIT_NOFILE, &limit), 0);
    if (limit.rlim_max < 8192)
        QSKIP("this system allows too few open files for a thousand connections");
    limit.rlim_cur = limit.rlim_max;
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &limit), 0);
    qInfo("seed %u", Campaign::seed());

    server = std::make_unique<RepositoryServer>();
    MainWindow window;
    if (!window.areYouOnline())
        QSKIP("without a network interface that is up every refresh is refused");
    // Qt 6 paints with threads of its own, which stay for half a minute.
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QVERIFY(settle(window));
    server.reset();
}

void campaign_Server::init()
{
    ApplicationDirectory::clear();
    server = std::make_unique<RepositoryServer>();
    if (usage.threads == 0)
        usage = settledUsageOf(QCoreApplication::applicationPid());
}

void campaign_Server::cleanup()
{
    if (!QTest::currentTestFailed())
        QVERIFY(comesDownTo(usage, QCoreApplication::applicationPid()));
    server.reset();
    ApplicationDirectory::clear();
}

void campaign_Server::fiftyConnectionsAtATime()
{
    const int files = Campaign::count(150, 1000);
    NumberedSketches::serve(server.get(), files);
    server->acceptAtMost(connectionsAtOnce);
    MainWindow window;
    QElapsedTimer time;
    time.start();

    QVERIFY(settle(window));

    QCOMPARE(stored(), files);
    QCOMPARE(damaged(), QStringList());
    QCOMPARE(server->mostConnections(), connectionsAtOnce);
    qInfo("%d files in %lld ms", files, time.elapsed());
}

void campaign_Server::aByteASecond()
{
    const int files = Campaign::count(5, 50);
    // The long run takes longer than a transfer may go without traffic.
    const QByteArray content = QByteArray(":00FF\n").repeated(Campaign::count(1, 7));
    server->serve(NumberedSketches::indexAddress(),
                  {Answer::trickle(NumberedSketches::index(files), 1)});
    server->serveEverythingElse(Answer::trickle(content, second));
    MainWindow window;

    QVERIFY(settle(window));

    QCOMPARE(stored(), files);
    const QStringList names = localRepository().entryList();
    for (const QString &name : names)
        QCOMPARE(ApplicationDirectory::contentOf(localRepository().filePath(name)), content);
    qInfo("%d files of %d bytes", files, int(content.size()));
}

void campaign_Server::failAndRecover(Campaign::Dice *dice, int files)
{
    ApplicationDirectory::clear();
    NumberedSketches::serve(server.get(), files);
    serveWithFaults(server.get(), dice, files);
    server->forgetRequests();
    MainWindow window;
    window.show();
    QVERIFY(settle(window));
    QVERIFY(stored() < files);
    QCOMPARE(damaged(), QStringList());

    NumberedSketches::serve(server.get(), files);
    server->forgetRequests();
    QVERIFY(click(window, "pushButton_programlist_refresh"));
    QVERIFY(settle(window));
    QCOMPARE(stored(), files);
    QCOMPARE(damaged(), QStringList());
}

void campaign_Server::threeInTenFail()
{
    const int rounds = Campaign::count(2, 50);
    const int files = Campaign::count(40, 200);
    Campaign::Dice dice;
    for (int round = 0; round < rounds; ++round) {
        failAndRecover(&dice, files);
        if (QTest::currentTestFailed())
            return;
    }
    qInfo("%d rounds of %d files", rounds, files);
}

void campaign_Server::aFaultyIndex_data()
{
    QTest::addColumn<Answer>("answer");

    const QByteArray index = NumberedSketches::index(20);
    QTest::newRow("server error") << Answer::failure(500, index);
    QTest::newRow("cut off") << Answer::cutOff(index);
    QTest::newRow("closed at once") << Answer::closedAtOnce();
    QTest::newRow("redirected") << Answer::redirect("http://login.example/");
}

void campaign_Server::aFaultyIndex()
{
    QFETCH(Answer, answer);
    constexpr int files = 20;
    NumberedSketches::serve(server.get(), files);
    MainWindow window;
    window.show();
    QVERIFY(settle(window));
    server->serve(NumberedSketches::indexAddress(), {answer});

    QVERIFY(click(window, "pushButton_programlist_refresh"));
    QVERIFY(settle(window));

    QCOMPARE(stored(), files);
    QCOMPARE(damaged(), QStringList());
}

void campaign_Server::restartAndRecover(Campaign::Dice *dice, int files)
{
    ApplicationDirectory::clear();
    NumberedSketches::serve(server.get(), files);
    const int last = dice->below(files); // the server never gets to send it
    server->serve(NumberedSketches::address(last),
                  {Answer::halfHeld(NumberedSketches::content(last))});
    MainWindow window;
    window.show();
    const int moment = dice->below(files);
    QVERIFY(QTest::qWaitFor([&] { return stored() >= moment; }, patience));

    server.reset();
    server = std::make_unique<RepositoryServer>();
    NumberedSketches::serve(server.get(), files);
    QVERIFY(settle(window));
    QVERIFY(stored() < files);
    QCOMPARE(damaged(), QStringList());

    QVERIFY(click(window, "pushButton_programlist_refresh"));
    QVERIFY(settle(window));
    QCOMPARE(stored(), files);
    QCOMPARE(damaged(), QStringList());
}

void campaign_Server::restartsInTheMiddle()
{
    const int rounds = Campaign::count(2, 50);
    const int files = Campaign::count(40, 200);
    Campaign::Dice dice;
    for (int round = 0; round < rounds; ++round) {
        restartAndRecover(&dice, files);
        if (QTest::currentTestFailed())
            return;
    }
    qInfo("%d rounds of %d files", rounds, files);
}

void campaign_Server::fewDescriptors_data()
{
    QTest::addColumn<QString>("limit");
    QTest::addColumn<int>("files");

    QTest::newRow("usual limit") << QStringLiteral("-Sn 1024") << Campaign::count(100, 1000);
    QTest::newRow("macOS's usual limit") << QStringLiteral("-Sn 256") << Campaign::count(150, 1000);
    QTest::newRow("hard limit of 256") << narrowLimit << narrowLimitFiles;
}

void campaign_Server::fewDescriptors()
{
    QFETCH(QString, limit);
    QFETCH(int, files);
    NumberedSketches::serve(server.get(), files);
    InstalledProgram installed(program);

    QVERIFY(installed.start(limit));
    const auto ended = [&] {
        return installed.hasSketches(files) || !installed.isRunning();
    };
    QVERIFY(QTest::qWaitFor(ended, patience));

    QVERIFY2(installed.isRunning(), installed.output().constData());
    QCOMPARE(installed.sketchCount(), files);
    QCOMPARE(NumberedSketches::damaged(installed.sketches()), QStringList());
    const ProcessUsage left = settledUsageOf(installed.id());
    qInfo("%d files, left %s", files, describe(left).constData());
    QVERIFY(left.descriptors < usedAtRest);
    QVERIFY(left.threads < usedAtRest);
}

// The system's library ends a process that has no descriptor left for another thread. On a busy
// machine the last threads may take theirs only after the first sketches are stored.
void campaign_Server::tooFewDescriptorsLoseNothing()
{
    NumberedSketches::serve(server.get(), tooManyFiles);
    InstalledProgram installed(program);
    QVERIFY(installed.start(narrowLimit));
    QVERIFY(QTest::qWaitFor([&] { return !installed.isRunning(); }, patience));
    QVERIFY(installed.output().contains("Too many open files"));
    QVERIFY(installed.sketchCount() < tooManyFiles);
    QCOMPARE(NumberedSketches::damaged(installed.sketches()), QStringList());

    QVERIFY(installed.start());
    QVERIFY(QTest::qWaitFor([&] { return installed.hasSketches(tooManyFiles); }, patience));
    QCOMPARE(NumberedSketches::damaged(installed.sketches()), QStringList());
}

QTEST_MAIN(campaign_Server)

#include "campaign_server.moc"
