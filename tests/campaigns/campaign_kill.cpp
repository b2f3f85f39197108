// The real program killed at random moments: a sketch's file is never partial.
#include "campaign.h"
#include "support/installedprogram.h"
#include "support/numberedsketches.h"
#include "support/patience.h"
#include "support/repositoryserver.h"

#include <QElapsedTimer>
#include <QTest>
#include <QThread>

namespace {

constexpr int sketches = 100;

const QString program = QStringLiteral(VTUPDATER_PROGRAM);

// Files in the directory that are not sketches.
int fragmentsIn(const InstalledProgram &installed)
{
    const QStringList all =
        QDir(installed.sketches().path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
    return int(all.size()) - installed.sketchCount();
}

bool synchronise(InstalledProgram *installed)
{
    return installed->start()
        && QTest::qWaitFor([&] { return installed->hasSketches(sketches); }, patience);
}

} // namespace

class campaign_Kill : public QObject
{
    Q_OBJECT

private slots:
    void killedAtRandomMoments();
};

void campaign_Kill::killedAtRandomMoments()
{
    const int kills = Campaign::count(4, 200);
    qInfo("%d kills, seed %u", kills, Campaign::seed());
    RepositoryServer server;
    NumberedSketches::serve(&server, sketches);
    InstalledProgram measured(program);
    QElapsedTimer time;
    time.start();
    QVERIFY(synchronise(&measured));
    const int duration = int(time.elapsed());
    measured.kill();

    Campaign::Dice dice;
    int inBetween = 0;
    int fragments = 0;
    for (int number = 0; number < kills; ++number) {
        InstalledProgram installed(program);
        server.forgetRequests();
        // Every other one as soon as the files come, which is a short part of the whole time.
        const int firstFiles = number % 2 == 0 ? 0 : 1 + dice.below(sketches);
        const int moment = dice.below(duration);
        QVERIFY(installed.start());
        if (firstFiles == 0)
            QThread::msleep(ulong(moment));
        else
            while (!installed.hasSketches(firstFiles) && installed.isRunning())
                QThread::usleep(200);
        installed.kill();

        const int stored = installed.sketchCount();
        inBetween += stored > 0 && stored < sketches ? 1 : 0;
        fragments += fragmentsIn(installed);
        QCOMPARE(NumberedSketches::damaged(installed.sketches()), QStringList());
        QVERIFY(synchronise(&installed));
        installed.kill();
        QCOMPARE(installed.sketchCount(), sketches);
        QCOMPARE(NumberedSketches::damaged(installed.sketches()), QStringList());
    }
    qInfo("a synchronisation takes %d ms; %d kills in the middle of the files; %d fragments under "
          "names that are no sketch's",
          duration, inBetween, fragments);
    QVERIFY(inBetween > kills / 5);
}

QTEST_MAIN(campaign_Kill)

#include "campaign_kill.moc"
