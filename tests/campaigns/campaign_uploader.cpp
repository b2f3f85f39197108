// A bad uploader: it floods or closes its outputs, leaves children behind, ignores signals, or is
// replaced while it runs. Each time the update ends and the window works again.
#include "support/applicationdirectory.h"
#include "support/footprint.h"
#include "support/messageboxdriver.h"
#include "support/windowdriver.h"
#include "support/workplace.h"

#include <QElapsedTimer>
#include <QTest>

#include <csignal>
#include <unistd.h>

namespace {

constexpr qint64 mebibyte = qint64(1024) * 1024;
constexpr int outputSize = 100; // MiB
constexpr int uploadTimeout = 30000; // ms
constexpr int grace = 10000; // ms that a loaded machine may take for the rest

const QString confirmation = QStringLiteral("DO NOT REMOVE OR TURN OFF THE DEVICE.");
const QString success = QStringLiteral("Upload successfull.");
const QString failure = QStringLiteral("Unable to upload to device.");

QByteArray script(const QByteArray &body)
{
    return "#!/bin/sh\nhere=$(dirname \"$0\")\n" + body + "\n";
}

QByteArray written(const char *fileName)
{
    return ApplicationDirectory::contentOf(ApplicationDirectory::uploaderPath()
                                           + QLatin1String(fileName));
}

// The process whose number the uploader has left in a file.
pid_t processIn(const char *fileName)
{
    return written(fileName).trimmed().toInt();
}

bool isAlive(pid_t process)
{
    return process > 0 && kill(process, 0) == 0;
}

} // namespace

class campaign_Uploader : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void cleanupTestCase();

    void outputsFillNoMemory_data();
    void outputsFillNoMemory();
    void outputsMayBeClosed_data();
    void outputsMayBeClosed();
    void aChildThatOutlivesItHoldsNothingUp_data();
    void aChildThatOutlivesItHoldsNothingUp();
    void anUploaderThatWillNotEndIsKilled();
    void itsFileMayChangeWhileItRuns_data();
    void itsFileMayChangeWhileItRuns();

private:
    // True when the update with this script showed these boxes and the window works again.
    bool update(const QByteArray &body, const QStringList &expectedBoxes);

    qint64 elapsed = 0; // ms, of the last update
    QList<bool> aliveWhileBoxOpen; // the uploader, at each box of the last update
};

void campaign_Uploader::init()
{
    ApplicationDirectory::clear();
}

void campaign_Uploader::cleanup()
{
    ApplicationDirectory::clear();
}

void campaign_Uploader::cleanupTestCase()
{
    letFadesEnd();
}

bool campaign_Uploader::update(const QByteArray &body, const QStringList &expectedBoxes)
{
    ApplicationDirectory::installUploader(script(body));
    Workplace workplace;
    if (!workplace.selectProgram() || !workplace.selectDevice())
        return false;
    Footprint::forgetPeak();
    aliveWhileBoxOpen.clear();
    QElapsedTimer timer;
    timer.start();
    {
        MessageBoxDriver boxes;
        boxes.whileOpen([this] { aliveWhileBoxOpen.append(isAlive(processIn("process"))); });
        if (!workplace.pressUpdate() || boxes.texts() != expectedBoxes)
            return false;
    }
    elapsed = timer.elapsed();
    return workplace.serves();
}

void campaign_Uploader::outputsFillNoMemory_data()
{
    QTest::addColumn<QByteArray>("body");

    const QByteArray size = QByteArray::number(outputSize * mebibyte);
    const QByteArray pour = "head -c " + size + " /dev/zero";
    QTest::newRow("standard output") << QByteArray(pour);
    QTest::newRow("standard error") << QByteArray(pour + " >&2");
    QTest::newRow("one after the other") << QByteArray(pour + "\n" + pour + " >&2");
    QTest::newRow("both at once") << QByteArray(pour + " &\n" + pour + " >&2\nwait");
    QTest::newRow("lines") << QByteArray("yes 'avrdude: not in sync' | head -c " + size);
}

void campaign_Uploader::outputsFillNoMemory()
{
    QFETCH(const QByteArray, body);
    QVERIFY(update("true", {confirmation, success})); // whatever comes with the first update
    const qint64 before = Footprint::residentBytes();

    QVERIFY(update(body + "\necho ran > \"$here/ran\"", {confirmation, success}));

    QCOMPARE(written("ran"), QByteArray("ran\n"));
    const qint64 peak = Footprint::peakBytes() - before;
    const qint64 kept = Footprint::residentBytes() - before;
    qInfo("%d MiB each: %.1f MiB more at the peak, %.1f MiB afterwards, %.1f s", outputSize,
          double(peak) / mebibyte, double(kept) / mebibyte, double(elapsed) / 1000);
    QVERIFY(Footprint::staysWithin(peak, outputSize * mebibyte / 4));
    QVERIFY(Footprint::staysWithin(kept, outputSize * mebibyte / 10));
}

void campaign_Uploader::outputsMayBeClosed_data()
{
    QTest::addColumn<QByteArray>("body");

    QTest::newRow("standard output") << QByteArray("exec >&-");
    QTest::newRow("standard error") << QByteArray("exec 2>&-");
    QTest::newRow("all three at once") << QByteArray("exec <&- >&- 2>&-");
}

void campaign_Uploader::outputsMayBeClosed()
{
    QFETCH(const QByteArray, body);

    QVERIFY(update(body + "\nsleep 1\necho ran > \"$here/ran\"", {confirmation, success}));

    QCOMPARE(written("ran"), QByteArray("ran\n"));
    QVERIFY(elapsed >= 1000); // it is waited for all the same
}

void campaign_Uploader::aChildThatOutlivesItHoldsNothingUp_data()
{
    QTest::addColumn<QByteArray>("child");

    QTest::newRow("silent") << QByteArray("sleep 300");
    QTest::newRow("deaf to signals") << QByteArray("trap '' HUP INT TERM PIPE; sleep 300");
    QTest::newRow("talking on") << QByteArray("while sleep 0.1; do echo on; echo on >&2; done");
    QTest::newRow("flooding the output") << QByteArray("exec yes");
    QTest::newRow("flooding the errors") << QByteArray("exec yes >&2");
}

void campaign_Uploader::aChildThatOutlivesItHoldsNothingUp()
{
    QFETCH(const QByteArray, child);
    const qint64 before = Footprint::residentBytes();

    QVERIFY(
        update("(" + child + ") &\necho $! > \"$here/child\"\nsleep 1", {confirmation, success}));

    const pid_t process = processIn("child");
    QVERIFY(process > 0);
    kill(process, SIGKILL); // one that writes has ended by itself
    QVERIFY(elapsed < grace);
    QVERIFY(Footprint::staysWithin(Footprint::peakBytes() - before, outputSize * mebibyte / 4));
}

// It writes as fast as it can, which exhausts the memory unless it is discarded.
void campaign_Uploader::anUploaderThatWillNotEndIsKilled()
{
    const qint64 before = Footprint::residentBytes();

    QVERIFY(update("echo $$ > \"$here/process\"\ntrap '' HUP INT TERM PIPE\nexec yes",
                   {confirmation, failure}));

    QVERIFY(elapsed >= uploadTimeout);
    QVERIFY(elapsed < uploadTimeout + grace);
    QCOMPARE(aliveWhileBoxOpen, QList<bool>({false, true}));
    QVERIFY(!isAlive(processIn("process")));
    QVERIFY(Footprint::staysWithin(Footprint::peakBytes() - before, outputSize * mebibyte / 4));
}

void campaign_Uploader::itsFileMayChangeWhileItRuns_data()
{
    QTest::addColumn<QByteArray>("change");

    const QByteArray other = "printf '#!/bin/sh\\nexit 1\\n' > ";
    QTest::newRow("removed") << QByteArray("rm \"$0\"");
    QTest::newRow("replaced by another file")
        << QByteArray(other + "\"$0.new\"; chmod +x \"$0.new\"; mv \"$0.new\" \"$0\"");
    QTest::newRow("renamed") << QByteArray("mv \"$0\" \"$0.old\"");
    QTest::newRow("its folder renamed") << QByteArray("mv \"$here\" \"$here.old\"");
    QTest::newRow("overwritten in place") << QByteArray(other + "\"$0\"");
}

void campaign_Uploader::itsFileMayChangeWhileItRuns()
{
    QFETCH(const QByteArray, change);

    // The shell has read the whole line before it changes its own file.
    QVERIFY(update("{ " + change + "; sleep 1; exit; }", {confirmation, success}));

    QVERIFY(elapsed >= 1000);
    // The next update works with what it finds then.
    QVERIFY(update("echo ran > \"$here/ran\"", {confirmation, success}));
    QCOMPARE(written("ran"), QByteArray("ran\n"));
}

QTEST_MAIN(campaign_Uploader)

#include "campaign_uploader.moc"
