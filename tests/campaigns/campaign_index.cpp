// Generated indexes from a hostile server: they change nothing outside the local repository.
#include "campaign.h"
#include "mainwindow/mainwindow.h"
#include "support/applicationdirectory.h"
#include "support/footprint.h"
#include "support/patience.h"
#include "support/repositoryserver.h"
#include "support/windowdriver.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QNetworkReply>
#include <QPixmapCache>
#include <QTest>
#include <QUrl>

#include <memory>
#include <utility>

namespace {

constexpr qint64 memoryBound = 8LL * 1024 * 1024; // bytes

constexpr int threadsAtRest = 20; // a request that stays takes one

// Managers stay until their window goes, so a window's share of memory is limited by its indexes.
constexpr int indexesPerWindow = 100;

// A user who cannot wait; one after the other they take much longer, for nothing but waiting.
constexpr int indexesAtOnce = 5;

const QString indexAddress = QStringLiteral("http://updates.korvex.example/vt_updater/"
                                            "file_list.txt");
const QString sketchTail = QStringLiteral(".ino.with_bootloader.standard.hex");
const QByteArray marker = "Intruder"; // in the name of each file that could come to be

QByteArray sketchName(Campaign::Dice *dice)
{
    return marker + QByteArray::number(dice->below(12)) + "__" + QByteArray::number(dice->below(3))
        + sketchTail.toLatin1();
}

QByteArray bytes(Campaign::Dice *dice)
{
    QByteArray result;
    for (int left = dice->below(12); left > 0; --left)
        result.append(char(dice->below(256)));
    return result;
}

// The many paths out of a directory, and other prefixes of a name.
QByteArray prefix(Campaign::Dice *dice)
{
    static const QList<QByteArray> prefixes = {
        "../",
        "../../",
        "..%2f",
        "%2e%2e/",
        "%2e%2e%2f",
        "..%5c",
        "/",
        "//",
        "%2f",
        "/etc/",
        "./",
        "file:///",
        "http://",
        "http://x/../",
        "?",
        "#",
        "a/b/",
        "%00",
        "%",
        "%zz",
        " ",
        "\\",
        ":",
        "..%252f",
        "@",
        "\xff\xfe",
        "%c0%ae/",
        "compiled_sketches/",
        "../avrdude/",
        "../VTUpdater/",
        "..%00/",
        "\t",
        ";",
        "%0a",
        "%2e%2e%2favrdude%2f",
    };
    return dice->oneOf(prefixes);
}

QByteArray entry(Campaign::Dice *dice)
{
    switch (dice->below(12)) {
    case 0:
        return prefix(dice) + sketchName(dice);
    case 1:
        return prefix(dice) + prefix(dice) + prefix(dice) + sketchName(dice);
    case 2:
        return prefix(dice) + "avrdude/avrdude";
    case 3:
        return bytes(dice);
    case 4:
        return sketchName(dice) + bytes(dice);
    case 5:
        return sketchName(dice) + (dice->oneIn(2) ? "\r" : "%00.txt");
    case 6:
        return dice->oneIn(4) ? sketchName(dice).repeated(1 + dice->below(200)) : QByteArray("..");
    default:
        return sketchName(dice);
    }
}

QByteArray indexFor(Campaign::Dice *dice)
{
    QList<QByteArray> entries;
    for (int left = dice->below(5); left > 0; --left)
        entries.append(entry(dice));
    if (dice->oneIn(4))
        entries.append(QByteArray());
    return entries.join(dice->oneIn(20) ? "\r\n" : "\n");
}

bool isInRepository(const QString &path)
{
    return path.startsWith(ApplicationDirectory::sketchesPath());
}

QByteArray describe(const QFileInfo &file)
{
    QByteArray content = "directory";
    if (file.isFile())
        content = ApplicationDirectory::contentOf(file.filePath());
    return file.filePath().toUtf8() + ' '
        + QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex();
}

// Everything outside the local repository, and files with the marker elsewhere.
QList<QByteArray> neighbours()
{
    QList<QByteArray> found;
    const QDir::Filters all = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
    QDirIterator own(ApplicationDirectory::path(), all, QDirIterator::Subdirectories);
    while (own.hasNext()) {
        own.next();
        if (!isInRepository(own.filePath()))
            found.append(describe(own.fileInfo()));
    }
    QList<QDir> others = {QDir(QStringLiteral("/etc"))}; // some entries name it
    QDir above(ApplicationDirectory::path());
    while (above.cdUp())
        others.append(above);
    for (const QDir &other : std::as_const(others)) {
        const QFileInfoList marked =
            other.entryInfoList({QString::fromLatin1('*' + marker + '*')}, all);
        for (const QFileInfo &file : marked)
            found.append(describe(file));
    }
    std::sort(found.begin(), found.end());
    return found;
}

// The names that the served addresses can have given to files.
QStringList servedNames(const RepositoryServer &server)
{
    QStringList names;
    const QStringList addresses = server.requests();
    for (const QString &address : addresses) {
        QByteArray path = address.toUtf8();
        path.truncate(path.indexOf('?') < 0 ? path.size() : path.indexOf('?'));
        const QByteArray decoded = QByteArray::fromPercentEncoding(path);
        // The system takes a name up to a NUL byte.
        const QByteArray name = decoded.mid(decoded.lastIndexOf('/') + 1);
        names.append(QString::fromUtf8(name.constData()));
    }
    return names;
}

// A name that begins with a dot makes a hidden file, which the catalogue does not list.
QStringList localSketches()
{
    return QDir(ApplicationDirectory::sketchesPath(), QLatin1Char('*') + sketchTail, QDir::NoSort,
                QDir::Files)
        .entryList();
}

// Local sketches that neither an index lists nor a file that it lists has brought.
QStringList strangers(const QList<QByteArray> &indexes, const RepositoryServer &server)
{
    QStringList known = servedNames(server);
    for (const QByteArray &index : indexes)
        known += QString::fromUtf8(index.constData()).split(QLatin1Char('\n'));
    QStringList unknown = localSketches();
    const auto isKnown = [&](const QString &name) {
        return known.contains(name);
    };
    unknown.erase(std::remove_if(unknown.begin(), unknown.end(), isKnown), unknown.end());
    return unknown;
}

// As soon as all replies have been handled; QTest's own waits sleep in between.
bool settle(const QObject &window)
{
    QElapsedTimer time;
    time.start();
    while (!window.findChildren<QNetworkReply *>().isEmpty()) {
        if (time.elapsed() > patience)
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return true;
}

// Qt keeps the pictures of each window, up to ten megabytes of them.
qint64 memoryInUse()
{
    QPixmapCache::clear();
    return Footprint::trimmedBytes();
}

} // namespace

class campaign_Index : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void generatedIndexes();

private:
    void refreshOneWindow(Campaign::Dice *dice, int count);

    std::unique_ptr<RepositoryServer> server;
    qint64 requests = 0;
};

void campaign_Index::init()
{
    ApplicationDirectory::clear();
    ApplicationDirectory::installUploader("#!/bin/sh\n");
    server = std::make_unique<RepositoryServer>();
    server->serveEverythingElse(Answer::ok(marker));
}

void campaign_Index::cleanup()
{
    server.reset();
    ApplicationDirectory::clear();
}

void campaign_Index::refreshOneWindow(Campaign::Dice *dice, int count)
{
    // Files that are not sketches stay, and would make each listing slower.
    QDir(ApplicationDirectory::sketchesPath()).removeRecursively();
    server->serve(indexAddress, {Answer::ok(QByteArray())});
    MainWindow window;
    window.show();
    QVERIFY(settle(window));
    for (int number = 0; number < count; number += indexesAtOnce) {
        QList<QByteArray> indexes;
        QList<Answer> answers;
        for (int left = indexesAtOnce; left > 0; --left) {
            indexes.append(indexFor(dice));
            answers.append(Answer::ok(indexes.last()));
        }
        server->serve(indexAddress, answers);
        server->forgetRequests();
        for (int left = indexesAtOnce; left > 0; --left)
            QVERIFY(click(window, "pushButton_programlist_refresh"));
        QVERIFY(settle(window));
        QCOMPARE(server->requestCount(indexAddress), indexesAtOnce);
        requests += server->requests().size();
        const QByteArray unknown = strangers(indexes, *server).join(QLatin1Char('\n')).toUtf8();
        QVERIFY2(unknown.isEmpty(),
                 (unknown.toPercentEncoding() + " is not in "
                  + indexes.join("\n--\n").toPercentEncoding())
                     .constData());
    }
    const auto isAtRest = [] {
        return Footprint::usage().threads < threadsAtRest;
    };
    QVERIFY(QTest::qWaitFor(isAtRest, patience));
}

void campaign_Index::generatedIndexes()
{
    const int windows = Campaign::count(6, 1000);
    const int warmUp = qMax(windows / 10, 3);
    qInfo("%d indexes, seed %u", windows * indexesPerWindow, Campaign::seed());
    if (!MainWindow().areYouOnline())
        QSKIP("without a network interface that is up every refresh is refused");
    Campaign::Dice dice;
    const QList<QByteArray> untouched = neighbours();
    const ProcessUsage usage = settledUsageOf(QCoreApplication::applicationPid());
    qint64 memory = 0;
    qint64 memoryAtHalf = 0;
    QElapsedTimer time;
    time.start();

    for (int number = 0; number < windows; ++number) {
        refreshOneWindow(&dice, indexesPerWindow);
        if (QTest::currentTestFailed())
            return;
        QCOMPARE(neighbours().join('\n'), untouched.join('\n'));
        if (number == warmUp)
            memory = memoryInUse();
        if (number == windows / 2)
            memoryAtHalf = memoryInUse();
    }

    const qint64 memoryAtEnd = memoryInUse();
    const qint64 growth = memoryAtEnd - memory;
    const qint64 lateGrowth = memoryAtEnd - memoryAtHalf;
    qInfo("%lld requests, %.0f indexes a second; memory grew from %lld KiB by %lld KiB, by %lld of "
          "them in the second half",
          requests, windows * indexesPerWindow * 1000.0 / double(time.elapsed()), memory / 1024,
          growth / 1024, lateGrowth / 1024);
    QVERIFY(Footprint::staysWithin(growth, memoryBound));
    QVERIFY(Footprint::staysWithin(lateGrowth, memoryBound / 4));
    QVERIFY(comesDownTo(usage, QCoreApplication::applicationPid()));
}

QTEST_MAIN(campaign_Index)

#include "campaign_index.moc"
