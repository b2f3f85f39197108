// The publishing guide: its web server serves a published folder to the real program.
#include "support/applicationdirectory.h"
#include "support/installedprogram.h"
#include "support/patience.h"
#include "support/publisher.h"

#include <QDir>
#include <QLocale>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QTest>
#include <QUrl>

#include <cmath>
#include <memory>
#include <utility>

namespace {

const QByteArray folder = "/vt_updater/";
const QByteArray indexAddress = "/vt_updater/file_list.txt";

QString guide()
{
    return QString::fromUtf8(ApplicationDirectory::contentOf(QStringLiteral(PUBLISHING_GUIDE)));
}

QString configurationOfTheGuide()
{
    static const QRegularExpression block(QStringLiteral("```nginx\n(.*?)```"),
                                          QRegularExpression::DotMatchesEverythingOption);
    return block.match(guide()).captured(1);
}

// The guide's web server; only places, port and user are this machine's.
class WebServer
{
public:
    explicit WebServer(const QString &servedPlace)
        : place(servedPlace)
    {
    }

    ~WebServer() { stop(); }

    WebServer(const WebServer &) = delete;
    WebServer &operator=(const WebServer &) = delete;

    bool start()
    {
        if (!writeConfiguration())
            return false;
        // It does not outlive a test that is killed.
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(QStringLiteral("setpriv"),
                      {QStringLiteral("--pdeathsig"), QStringLiteral("TERM"),
                       QStringLiteral(LOOPBACK_SERVER), QStringLiteral("--configuration"),
                       inPlace("guide.conf"), place},
                      QIODevice::ReadOnly);
        if (!process.waitForReadyRead(patience))
            return false;
        url = QUrl(QString::fromLatin1(process.readLine().trimmed()));
        return answerTo("/").startsWith("HTTP/1.1 404 ");
    }

    // Ends normally, with all lines in the log.
    void stop()
    {
        if (process.state() == QProcess::NotRunning)
            return;
        process.terminate();
        process.waitForFinished(patience);
    }

    QString address() const { return url.toString(); }

    // The whole answer, header and body.
    QByteArray answerTo(const QByteArray &path) const
    {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, quint16(url.port()));
        socket.write("GET " + path + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
        QByteArray answer;
        while (socket.waitForReadyRead(patience))
            answer += socket.readAll();
        return answer;
    }

    // The fields of the log's lines; complete after it has stopped.
    QList<QStringList> log() const
    {
        QList<QStringList> lines;
        const QStringList text =
            QString::fromUtf8(ApplicationDirectory::contentOf(inPlace("access.log")))
                .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        for (const QString &line : text)
            lines.append(line.split(QLatin1Char(' ')));
        return lines;
    }

private:
    QString inPlace(const char *fileName) const
    {
        return place + QLatin1Char('/') + QLatin1String(fileName);
    }

    QString quotedInPlace(const char *fileName) const
    {
        return QLatin1Char('"') + inPlace(fileName) + QLatin1Char('"');
    }

    static void exchange(QString *text, const QString &found, const QString &wanted)
    {
        if (text->count(found) != 1)
            qFatal("the guide's configuration lacks %s", qPrintable(found));
        text->replace(found, wanted);
    }

    QString configuration() const
    {
        QString text = configurationOfTheGuide();
        exchange(&text, QStringLiteral("user www-data"), QStringLiteral("user root"));
        exchange(&text, QStringLiteral("/run/nginx.pid"), quotedInPlace("nginx.pid"));
        exchange(&text, QStringLiteral("/var/log/nginx/error.log"), quotedInPlace("error.log"));
        exchange(&text, QStringLiteral("/var/log/nginx/access.log"), quotedInPlace("access.log"));
        exchange(&text, QStringLiteral("/srv/vantrel;"), QStringLiteral("\"%1\";").arg(place));
        exchange(&text, QStringLiteral("listen 80 "), QStringLiteral("listen 127.0.0.1:@PORT@ "));
        text.append(QStringLiteral("daemon off;\n"));
        exchange(&text, QStringLiteral("http {"), QStringLiteral("http {") + temporaryPaths());
        return text;
    }

    // Only root can write to the system's.
    QString temporaryPaths() const
    {
        QString paths;
        for (const char *kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
            paths += QLatin1String(kind) + QStringLiteral("_temp_path ") + quotedInPlace(kind)
                + QLatin1Char(';');
        return paths;
    }

    bool writeConfiguration() const
    {
        QFile file(inPlace("guide.conf"));
        return file.open(QIODevice::WriteOnly) && file.write(configuration().toUtf8()) > 0;
    }

    QString place;
    QUrl url;
    QProcess process;
};

// The program of a user whose repository is on the server.
class ServedProgram : public InstalledProgram
{
public:
    explicit ServedProgram(const QString &server)
        : InstalledProgram(QStringLiteral(VTUPDATER_PROGRAM))
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("http_proxy"), server);
        environment.remove(QStringLiteral("no_proxy"));
        environment.remove(QStringLiteral("NO_PROXY"));
        setEnvironment(environment);
    }

    QStringList sketchNames() const { return sketches().entryList(QDir::Files, QDir::Name); }
};

QByteArray headerOf(const QByteArray &answer)
{
    return answer.left(answer.indexOf("\r\n\r\n") + 4);
}

QByteArray bodyOf(const QByteArray &answer)
{
    return answer.mid(headerOf(answer).size());
}

// The guide's assumptions.
constexpr double starts = 2;
constexpr double indexSize = 1200;
constexpr double sketchSize = 60000;
constexpr double headerSize = 300;
constexpr double missingFiles = 1;
constexpr double cachePlaces = 10;

QString number(double value)
{
    return QLocale(QLocale::English).toString(value, 'f', 0);
}

QString megabytes(double count)
{
    return QLocale(QLocale::English).toString(count / 1e6, 'f', 2);
}

QString row(const QStringList &fields)
{
    return QStringLiteral("\n| %1 |\n").arg(fields.join(QLatin1String(" | ")));
}

} // namespace

class tst_PublishingGuide : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void indexMayBeCachedForAMinute();
    void sketchMayBeCachedForGood();
    void nothingElseIsServed_data();
    void nothingElseIsServed();
    void programMirrorsWhatIsPublished();
    void newVersionReachesTheProgram();
    void eachRequestHasItsOwnConnection();
    void reckoningWithoutCache_data();
    void reckoningWithoutCache();
    void reckoningBehindACache_data();
    void reckoningBehindACache();

private:
    void publish(const QStringList &baseNames);

    std::unique_ptr<Publisher> publisher;
    std::unique_ptr<WebServer> server;
    QStringList published;
};

void tst_PublishingGuide::init()
{
    publisher = std::make_unique<Publisher>();
    server = std::make_unique<WebServer>(publisher->place());
    published.clear();
}

void tst_PublishingGuide::cleanup()
{
    server.reset();
    publisher.reset();
}

void tst_PublishingGuide::publish(const QStringList &baseNames)
{
    for (const QString &fileName : std::as_const(published))
        publisher->removeFile(fileName);
    published.clear();
    for (const QString &baseName : baseNames)
        published.append(publisher->addSketch(baseName, hexImage(baseName.toUtf8().repeated(300))));
    published.sort();
    const Publisher::Result result = publisher->publish();
    QVERIFY2(result.exitStatus == 0, qPrintable(result.problems));
}

void tst_PublishingGuide::indexMayBeCachedForAMinute()
{
    publish({QStringLiteral("Blink__3"), QStringLiteral("Servo__1")});
    QVERIFY(server->start());

    const QByteArray answer = server->answerTo(indexAddress);
    QVERIFY2(answer.startsWith("HTTP/1.1 200 OK\r\n"), answer.constData());
    QVERIFY(headerOf(answer).contains("\r\nCache-Control: public, max-age=60\r\n"));
    QVERIFY(headerOf(answer).contains("\r\nContent-Type: text/plain; charset=utf-8\r\n"));
    QCOMPARE(bodyOf(answer), publisher->index());
}

void tst_PublishingGuide::sketchMayBeCachedForGood()
{
    publish({QStringLiteral("Blink__3")});
    QVERIFY(server->start());

    const QByteArray answer = server->answerTo(folder + published.first().toUtf8());
    QVERIFY2(answer.startsWith("HTTP/1.1 200 OK\r\n"), answer.constData());
    QVERIFY(
        headerOf(answer).contains("\r\nCache-Control: public, max-age=31536000, immutable\r\n"));
    const QByteArray image = hexImage(QByteArray("Blink__3").repeated(300));
    QVERIFY(headerOf(answer).contains("\r\nContent-Length: " + QByteArray::number(image.size())
                                      + "\r\n"));
    QCOMPARE(bodyOf(answer), image);
    QVERIFY2(std::abs(int(headerOf(answer).size()) - headerSize) < 50,
             headerOf(answer).constData());
}

void tst_PublishingGuide::nothingElseIsServed_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::newRow("missing sketch")
        << QByteArray("/vt_updater/Gone__1.ino.with_bootloader.standard.hex");
    QTest::newRow("folder") << folder;
    QTest::newRow("folder above") << QByteArray("/");
    QTest::newRow("unfinished file") << QByteArray("/vt_updater/.publish-repository.unfinished");
    QTest::newRow("foreign file") << QByteArray("/vt_updater/notes.txt");
    QTest::newRow("sketch elsewhere")
        << QByteArray("/compiled%20sketches/Blink__3.ino.with_bootloader.standard.hex");
}

void tst_PublishingGuide::nothingElseIsServed()
{
    QFETCH(const QByteArray, path);
    publish({QStringLiteral("Blink__3")});
    for (const char *fileName : {".publish-repository.unfinished", "notes.txt"})
        QVERIFY(QFile::copy(publisher->servedFile(QStringLiteral("file_list.txt")),
                            publisher->servedFile(QLatin1String(fileName))));
    QVERIFY(server->start());

    const QByteArray answer = server->answerTo(path);
    QVERIFY2(answer.startsWith("HTTP/1.1 404 "), answer.constData());
}

void tst_PublishingGuide::programMirrorsWhatIsPublished()
{
    QStringList baseNames = {QStringLiteral("Blinkén_灯+&[1]=x__4"), QStringLiteral("servo__12")};
    for (int count = 0; count < 50; ++count)
        baseNames.append(QStringLiteral("Sketch%1__1").arg(count));
    publish(baseNames);
    QVERIFY(server->start());
    ServedProgram program(server->address());

    QVERIFY(program.start());
    QTRY_COMPARE_WITH_TIMEOUT(program.sketchCount(), published.size(), patience);
    for (const QString &fileName : std::as_const(published)) {
        const QByteArray image =
            ApplicationDirectory::contentOf(program.sketches().filePath(fileName));
        QVERIFY2(!image.isEmpty(), qPrintable(fileName));
        QCOMPARE(image, ApplicationDirectory::contentOf(publisher->servedFile(fileName)));
    }
}

void tst_PublishingGuide::newVersionReachesTheProgram()
{
    publish({QStringLiteral("Blink__3"), QStringLiteral("Servo__1")});
    QVERIFY(server->start());
    ServedProgram program(server->address());
    QVERIFY(program.start());
    QTRY_COMPARE_WITH_TIMEOUT(program.sketchNames(), published, patience);
    program.kill();

    publish({QStringLiteral("Blink__4"), QStringLiteral("Servo__1")});
    QVERIFY(program.start());
    QTRY_COMPARE_WITH_TIMEOUT(program.sketchNames(), published, patience);
}

void tst_PublishingGuide::eachRequestHasItsOwnConnection()
{
    publish({QStringLiteral("Blink__3"), QStringLiteral("Servo__1"), QStringLiteral("Tower__1")});
    QVERIFY(server->start());
    ServedProgram program(server->address());
    for (int start = 0; start < 2; ++start) {
        QVERIFY(program.start());
        QTRY_COMPARE_WITH_TIMEOUT(program.sketchNames(), published, patience);
        program.kill();
        publish(
            {QStringLiteral("Blink__4"), QStringLiteral("Servo__1"), QStringLiteral("Tower__1")});
    }
    server->stop();

    // Three files at the first start, the new one at the second, and the index at both.
    QStringList connections;
    QMap<QString, int> requests;
    const QList<QStringList> lines = server->log();
    for (const QStringList &fields : lines) {
        if (!fields.last().startsWith(QLatin1String("/vt_updater/")))
            continue;
        QCOMPARE(fields.at(2), QStringLiteral("200"));
        connections.append(fields.at(1));
        ++requests[fields.last().section(QLatin1Char('/'), -1)];
    }
    QCOMPARE(connections.removeDuplicates(), 0);
    QCOMPARE(connections.size(), 6);
    QCOMPARE(requests.size(), 5);
    QCOMPARE(requests.value(QStringLiteral("file_list.txt")), 2);
}

void tst_PublishingGuide::reckoningWithoutCache_data()
{
    QTest::addColumn<double>("clients");
    for (const double clients : {1e1, 1e3, 1e5, 1e6})
        QTest::newRow(qPrintable(number(clients))) << clients;
}

void tst_PublishingGuide::reckoningWithoutCache()
{
    QFETCH(const double, clients);
    const double indexRequests = clients * starts;
    const double fileRequests = clients * missingFiles;
    const double open = std::ceil(10 * clients * (starts + missingFiles) / 86400);
    const QString expected =
        row({number(clients), number(indexRequests),
             megabytes(indexRequests * (indexSize + headerSize)), number(fileRequests),
             megabytes(fileRequests * (sketchSize + headerSize)), number(open)});
    QVERIFY2(guide().contains(expected), qPrintable(expected));
}

void tst_PublishingGuide::reckoningBehindACache_data()
{
    reckoningWithoutCache_data();
}

void tst_PublishingGuide::reckoningBehindACache()
{
    QFETCH(const double, clients);
    const double indexRequests = std::fmin(clients * starts, 1440 * cachePlaces);
    const double fileRequests = std::fmin(clients, cachePlaces) * missingFiles;
    const QString expected =
        row({number(clients), number(indexRequests),
             megabytes(indexRequests * (indexSize + headerSize)), number(fileRequests),
             megabytes(fileRequests * (sketchSize + headerSize))});
    QVERIFY2(guide().contains(expected), qPrintable(expected));
}

QTEST_GUILESS_MAIN(tst_PublishingGuide)

#include "tst_publishingguide.moc"
