// The publishing guide: its commands do what it says, and its web server serves a published folder
// to the real program.
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

#include <unistd.h>

#include <cmath>
#include <memory>
#include <utility>

namespace {

const QByteArray folder = "/vt_updater/";
const QByteArray indexAddress = "/vt_updater/file_list.txt";
const QString portMark = QStringLiteral("@PORT@"); // for scripts/loopback-server

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

// The commands of the guide that follow this text.
QStringList commandsAfter(const QString &text)
{
    const QString all = guide();
    if (all.count(text) != 1)
        qFatal("the guide says this not once: %s", qPrintable(text));
    const QRegularExpression block(QRegularExpression::escape(text)
                                   + QStringLiteral("\n\n((?:    .*\n)+)"));
    QStringList commands =
        block.match(all).captured(1).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (QString &command : commands)
        command = command.trimmed();
    return commands;
}

// How to check, load and ask the web server.
QStringList commandsOfTheServer()
{
    const QStringList commands =
        commandsAfter(QStringLiteral("Check it, load it, and make sure that it answers:"));
    if (commands.size() != 3)
        qFatal("the guide does not check, load and ask the web server");
    return commands;
}

void exchange(QString *text, const QString &found, const QString &wanted)
{
    if (text->count(found) != 1)
        qFatal("the guide lacks %s", qPrintable(found));
    text->replace(found, wanted);
}

// For the shell.
QString quoted(const QString &path)
{
    return QLatin1Char('"') + path + QLatin1Char('"');
}

struct Outcome
{
    int exitStatus = -1;
    QByteArray output;
    QByteArray problems;
};

// Runs a command of the guide where the guide's reader does. The tests have the rights that it
// needs without sudo.
Outcome follow(QString command)
{
    command.remove(QRegularExpression(QStringLiteral("^sudo ")));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char *name : {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"})
        environment.remove(QLatin1String(name));
    environment.insert(QStringLiteral("USER"), QString::number(getuid()));
    environment.insert(QStringLiteral("PATH"),
                       environment.value(QStringLiteral("PATH")) + QStringLiteral(":/usr/sbin"));
    QProcess shell;
    shell.setProcessEnvironment(environment);
    shell.setWorkingDirectory(
        QFileInfo(QStringLiteral(PUBLISHING_GUIDE)).dir().filePath(QStringLiteral("..")));
    shell.start(QStringLiteral("sh"), {QStringLiteral("-c"), command}, QIODevice::ReadOnly);
    Outcome outcome;
    if (!shell.waitForFinished(patience) || shell.exitStatus() != QProcess::NormalExit)
        return outcome;
    outcome.exitStatus = shell.exitCode();
    outcome.output = shell.readAllStandardOutput();
    outcome.problems = shell.readAllStandardError();
    return outcome;
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

    bool start() { return startWith(configuration()); }

    // As the package leaves it: without the guide's configuration.
    bool startAsInstalled()
    {
        QString text = configuration();
        static const QRegularExpression locations(QStringLiteral("location = .*(?=location / )"),
                                                  QRegularExpression::DotMatchesEverythingOption);
        return startWith(text.remove(locations));
    }

    // Takes the place of the one that the server was started with.
    bool install(QString text) const
    {
        exchange(&text, portMark, QString::number(url.port()));
        return write("nginx.conf", text);
    }

    // The guide's configuration, with a mark for the port.
    QString configuration() const
    {
        QString text = configurationOfTheGuide();
        exchange(&text, QStringLiteral("user www-data"), QStringLiteral("user root"));
        exchange(&text, QStringLiteral("/run/nginx.pid"), quotedInPlace("nginx.pid"));
        exchange(&text, QStringLiteral("/var/log/nginx/error.log"), quotedInPlace("error.log"));
        exchange(&text, QStringLiteral("/var/log/nginx/access.log"), quotedInPlace("access.log"));
        exchange(&text, QStringLiteral("/srv/vantrel;"), quoted(place) + QLatin1Char(';'));
        exchange(&text, QStringLiteral("listen 80 "),
                 QStringLiteral("listen 127.0.0.1:%1 ").arg(portMark));
        text.append(QStringLiteral("daemon off;\n"));
        exchange(&text, QStringLiteral("http {"), QStringLiteral("http {") + temporaryPaths());
        return text;
    }

    // Runs a command of the guide on this server. There is no systemd, whose unit for nginx reloads
    // with the same signal.
    Outcome perform(QString command) const
    {
        const QString nginx = QStringLiteral("nginx -e %1 -c %2 ")
                                  .arg(quotedInPlace("error.log"), quotedInPlace("nginx.conf"));
        command.replace(QStringLiteral("systemctl reload nginx"),
                        QStringLiteral("nginx -s reload"));
        if (command.contains(QStringLiteral("systemctl")))
            qFatal("this is for the system's server: %s", qPrintable(command));
        command.replace(QStringLiteral("nginx -"), nginx + QLatin1Char('-'));
        command.replace(
            QRegularExpression(QStringLiteral("http://(127\\.0\\.0\\.1|updates\\.example\\.org)/")),
            address() + QLatin1Char('/'));
        command.replace(QStringLiteral("/var/log/nginx/access.log"), quotedInPlace("access.log"));
        return follow(command);
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

    QString quotedInPlace(const char *fileName) const { return quoted(inPlace(fileName)); }

    // Only root can write to the system's.
    QString temporaryPaths() const
    {
        QString paths;
        for (const char *kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
            paths += QLatin1String(kind) + QStringLiteral("_temp_path ") + quotedInPlace(kind)
                + QLatin1Char(';');
        return paths;
    }

    bool write(const char *fileName, const QString &text) const
    {
        QFile file(inPlace(fileName));
        return file.open(QIODevice::WriteOnly) && file.write(text.toUtf8()) > 0;
    }

    bool startWith(const QString &text)
    {
        if (!write("guide.conf", text))
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

    void commandsPublishTheFirstRelease();
    void commandsLoadTheConfiguration();
    void commandFindsABrokenConfiguration();
    void commandsWatchARelease();
    void commandShowsHowTheServerAnswers();
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

void tst_PublishingGuide::commandsPublishTheFirstRelease()
{
    const QString sketch = publisher->addSketch(QStringLiteral("Blink__4"));
    const QString above = publisher->place() + QStringLiteral("/srv/a server");
    const QString served = above + QStringLiteral("/vt_updater");
    QStringList once = commandsAfter(
        QStringLiteral("The tool creates it, but not the folder above; create that once:"));
    for (QString &command : once)
        exchange(&command, QStringLiteral("/srv/vantrel"), quoted(above));
    QStringList release = commandsAfter(QStringLiteral("Then, for each release:"));
    for (QString &command : release)
        exchange(&command, QStringLiteral("SKETCHES SERVED"),
                 quoted(publisher->sketches()) + QLatin1Char(' ') + quoted(served));

    QCOMPARE(once.size(), 2);
    QCOMPARE(release.size(), 2);
    for (const QString &command : once + release) {
        QVERIFY(!QFile::exists(served));
        const Outcome outcome = follow(command);
        QVERIFY2(outcome.exitStatus == 0, outcome.problems.constData());
    }
    QCOMPARE(ApplicationDirectory::contentOf(served + QStringLiteral("/file_list.txt")),
             sketch.toUtf8());
}

void tst_PublishingGuide::commandsLoadTheConfiguration()
{
    publish({QStringLiteral("Blink__3"), QStringLiteral("Servo__1")});
    QVERIFY(server->startAsInstalled());
    const QStringList commands = commandsOfTheServer();
    QVERIFY(server->install(server->configuration()));

    const Outcome test = server->perform(commands.at(0));
    QVERIFY2(test.exitStatus == 0, test.problems.constData());
    QVERIFY2(test.problems.contains("test is successful"), test.problems.constData());
    Outcome answer = server->perform(commands.at(2));
    QVERIFY2(answer.output.startsWith("HTTP/1.1 404 "), answer.output.constData());

    const Outcome reload = server->perform(commands.at(1));
    QVERIFY2(reload.exitStatus == 0, reload.problems.constData());
    const auto showsTheIndex = [&] {
        answer = server->perform(commands.at(2));
        return answer.output.contains("200 OK\r\n");
    };
    QTRY_VERIFY2_WITH_TIMEOUT(showsTheIndex(), answer.output.constData(), patience);
    QCOMPARE(bodyOf(answer.output), publisher->index());
}

void tst_PublishingGuide::commandFindsABrokenConfiguration()
{
    QVERIFY(server->startAsInstalled());
    QString broken = server->configuration();
    exchange(&broken, QStringLiteral("sendfile on;"), QStringLiteral("sendfile on"));
    QVERIFY(server->install(broken));

    const Outcome test = server->perform(commandsOfTheServer().at(0));
    QCOMPARE(test.exitStatus, 1);
    QVERIFY2(test.problems.contains("test failed"), test.problems.constData());
}

void tst_PublishingGuide::commandsWatchARelease()
{
    publish({QStringLiteral("Blink__4"), QStringLiteral("Servo__1")});
    QVERIFY(server->start());
    const QStringList commands =
        commandsAfter(QStringLiteral("The server must deliver the new index and the file:"));
    QCOMPARE(commands.size(), 2);
    QCOMPARE(server->perform(commands.at(0)).output, publisher->index());
    const Outcome file = server->perform(commands.at(1));
    QVERIFY2(file.exitStatus == 0, file.problems.constData());

    publish({QStringLiteral("Servo__1")});
    QVERIFY(server->perform(commands.at(1)).exitStatus != 0);

    server->stop();
    const QStringList search =
        commandsAfter(QStringLiteral("The server's log shows each client that fetches the file:"));
    QCOMPARE(search.size(), 1);
    QCOMPARE(server->perform(search.first()).output.count('\n'), 2);
}

void tst_PublishingGuide::commandShowsHowTheServerAnswers()
{
    publish({QStringLiteral("Blink__3")});
    QVERIFY(server->start());
    const QStringList commands = commandsAfter(QStringLiteral("To check your server:"));
    QCOMPARE(commands.size(), 1);
    const Outcome answer = server->perform(commands.first());
    QVERIFY2(answer.output.startsWith("HTTP/1.1 200 "), answer.problems.constData());
    QVERIFY(answer.output.contains("\r\nContent-Length: "));
    QVERIFY(!answer.output.contains("\r\nContent-Encoding: "));
    QVERIFY(!answer.output.contains("\r\nTransfer-Encoding: "));
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
