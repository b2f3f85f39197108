// The program as a user starts it, from its first line of output to its exit status.
#include "support/desktop.h"
#include "support/patience.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace {

constexpr int keyPatience = 1000; // ms
const QString mainTitle = QStringLiteral("VTUpdater v1.0 beta 6");
const QString aboutTitle = QStringLiteral("About VTUpdater");
const QString boxTitle = QStringLiteral("Vantrel Updater");
const QPoint updateButton(320, 262); // below the menu bar, in the middle of the button

// What the program prints at every start.
const QString unmatchedSlot =
    QStringLiteral("warning: QMetaObject::connectSlotsByName: No matching signal for "
                   "on_openserialmonitorbutton_clicked()");

const QByteArray germanTexts = R"(<?xml version="1.0" encoding="utf-8"?>
<TS version="2.1" language="de_DE"><context><name>MainWindow</name><message>
<source>Vantrel Updater</source><translation>Vantrel-Aktualisierung</translation>
</message></context><context><name>about</name><message>
<source>About VTUpdater</source><translation>Hinweise zu VTUpdater</translation>
</message></context></TS>
)";
const QString germanAboutTitle = QStringLiteral("Hinweise zu VTUpdater");

const QString strangersSketch =
    QStringLiteral("compiled_sketches/Metronome__1.ino.with_bootloader.standard.hex");
const QString refusal =
    QStringLiteral("The program cannot tell in which directory it is. Perhaps its file was "
                   "replaced or removed while it was starting. Nothing was changed. Please start "
                   "it again.");

QString debugLine(const QString &text)
{
    return QStringLiteral("debug: \"") + text + QLatin1Char('"');
}

void write(const QString &path, const QByteArray &content)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), qint64(content.size()));
}

// All files and directories below a directory.
QStringList contentOf(const QString &directory)
{
    QStringList content;
    QDirIterator entries(directory, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden,
                         QDirIterator::Subdirectories);
    while (entries.hasNext())
        content.append(QDir(directory).relativeFilePath(entries.next()));
    content.sort();
    return content;
}

// The soft and the hard limit of open files of a running process.
QStringList openFilesLimits(qint64 process)
{
    QFile file(QStringLiteral("/proc/%1/limits").arg(process));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    static const QRegularExpression pattern(QStringLiteral("Max open files +(\\S+) +(\\S+)"));
    const QRegularExpressionMatch match = pattern.match(QString::fromLatin1(file.readAll()));
    return {match.captured(1), match.captured(2)};
}

} // namespace

class tst_Startup : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void saysLocaleAndDirectory_data();
    void saysLocaleAndDirectory();
    void makesTheLocalRepository();
    void raisesTheLimitOfOpenFiles();
    void translatesByTheLocaleName_data();
    void translatesByTheLocaleName();
    void translatesTheForms();
    void keepsItsSize();
    void growsWithTheDisplay_data();
    void growsWithTheDisplay();
    void endsWithItsWindow();
    void refusesToRunWithoutItsDirectory_data();
    void refusesToRunWithoutItsDirectory();

private:
    void installTranslation(const QString &fileName);
    QProcessEnvironment environment(const QString &language) const;
    void start(const QString &language);
    // In another directory with sketches, from a file that is removed between its start and the
    // first line of the program.
    void startNameless(const QString &loss, const QProcessEnvironment &environment);
    // Both are true if it happened in time.
    bool openWindow(const QString &language = QStringLiteral("en_US.UTF-8"));
    bool closeWindow();
    // In whichever language.
    bool openAboutDialogByKeyboard();
    QStringList messages();

    std::unique_ptr<Desktop> desktop;
    std::unique_ptr<QTemporaryDir> place;
    QString directory;
    QProcess program;
};

void tst_Startup::initTestCase()
{
    const QString missing = Desktop::missingProgram();
    if (!missing.isEmpty()) {
        QTest::qSkip(qPrintable(missing + QStringLiteral(" is not installed: no screen")), __FILE__,
                     __LINE__);
        return;
    }
    desktop = std::make_unique<Desktop>();
    QVERIFY(desktop->start());
}

void tst_Startup::init()
{
    place = std::make_unique<QTemporaryDir>();
    directory = place->filePath(QStringLiteral("My Applications/Vantrel Updater"));
    QVERIFY(QDir().mkpath(directory));
    QVERIFY(
        QFile::copy(QStringLiteral(VTUPDATER_PROGRAM), directory + QStringLiteral("/VTUpdater")));
    directory = QFileInfo(directory).canonicalFilePath();
}

void tst_Startup::cleanup()
{
    if (desktop != nullptr)
        desktop->setDotsPerInch(96);
    if (program.state() != QProcess::NotRunning) {
        program.kill();
        program.waitForFinished(patience);
    }
}

void tst_Startup::installTranslation(const QString &fileName)
{
    const QString source = place->filePath(QStringLiteral("texts.ts"));
    write(source, germanTexts);
    QCOMPARE(QProcess::execute(QStringLiteral(VTUPDATER_LRELEASE),
                               {QStringLiteral("-silent"), source, QStringLiteral("-qm"),
                                directory + QLatin1Char('/') + fileName}),
             0);
}

QProcessEnvironment tst_Startup::environment(const QString &language) const
{
    QProcessEnvironment environment =
        desktop->environment(QProcessEnvironment::systemEnvironment());
    environment.remove(QStringLiteral("LC_ALL"));
    environment.remove(QStringLiteral("LANGUAGE"));
    environment.insert(QStringLiteral("LANG"), language);
    environment.insert(QStringLiteral("QT_MESSAGE_PATTERN"), QStringLiteral("%{type}: %{message}"));
    environment.insert(QStringLiteral("QT_FORCE_STDERR_LOGGING"), QStringLiteral("1"));
    return environment;
}

void tst_Startup::start(const QString &language)
{
    program.setProcessEnvironment(environment(language));
    // As few open files as macOS allows the programs that it starts.
    program.start(QStringLiteral("/bin/sh"),
                  {QStringLiteral("-c"), QStringLiteral("ulimit -Sn 256; exec \"$0\""),
                   directory + QStringLiteral("/VTUpdater")});
}

void tst_Startup::startNameless(const QString &loss, const QProcessEnvironment &environment)
{
    const QString elsewhere = place->filePath(QStringLiteral("elsewhere"));
    QVERIFY(QDir().mkpath(elsewhere + QStringLiteral("/compiled_sketches")));
    write(elsewhere + QLatin1Char('/') + strangersSketch, "the only copy");
    program.setProcessEnvironment(environment);
    program.setWorkingDirectory(elsewhere);
    program.start(
        QStringLiteral("/bin/sh"),
        {QStringLiteral("-c"),
         QStringLiteral("exec 3<\"$0\"; ") + loss + QStringLiteral("; exec /proc/self/fd/3"),
         directory + QStringLiteral("/VTUpdater")});
    program.setWorkingDirectory(QString());
}

bool tst_Startup::openWindow(const QString &language)
{
    start(language);
    return QTest::qWaitFor([this] { return desktop->count(mainTitle) == 1; }, patience);
}

bool tst_Startup::closeWindow()
{
    // The window may not be the active one yet, and a key that it misses is lost.
    return QTest::qWaitFor(
        [this] {
            desktop->click(mainTitle, QPoint(215, 320));
            desktop->closeActiveWindow();
            return program.waitForFinished(keyPatience);
        },
        patience);
}

// From "Tools" to "Help" and its only entry.
bool tst_Startup::openAboutDialogByKeyboard()
{
    const auto isOpen = [this] {
        return desktop->count(aboutTitle) + desktop->count(germanAboutTitle) == 1;
    };
    // As with closing: a key that the window misses is lost.
    return QTest::qWaitFor(
        [&] {
            desktop->click(mainTitle, QPoint(10, 100));
            desktop->press({QStringLiteral("Alt_L"), QStringLiteral("Right"),
                            QStringLiteral("Down"), QStringLiteral("Return")});
            return QTest::qWaitFor(isOpen, keyPatience);
        },
        patience);
}

// Everything that the program printed, without Qt 6's complaint about a system that does not have
// the language's locale.
QStringList tst_Startup::messages()
{
    static const QRegularExpression complaint(
        QStringLiteral("^warning: Detected locale .*for more information\\.\n"),
        QRegularExpression::DotMatchesEverythingOption);
    const QString said = QString::fromLocal8Bit(program.readAllStandardError()).remove(complaint);
    return said.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

void tst_Startup::saysLocaleAndDirectory_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("locale");

    QTest::newRow("German") << QStringLiteral("de_DE.UTF-8") << QStringLiteral("de_DE");
    QTest::newRow("Portuguese of Brazil")
        << QStringLiteral("pt_BR.UTF-8") << QStringLiteral("pt_BR");
    QTest::newRow("no language") << QStringLiteral("C.UTF-8") << QStringLiteral("C");
}

// It prints nothing else, although there is no translation, uploader or device.
void tst_Startup::saysLocaleAndDirectory()
{
    QFETCH(QString, language);
    QFETCH(QString, locale);

    QVERIFY(QDir(directory).mkdir(QStringLiteral("compiled_sketches")));
    QVERIFY(openWindow(language));
    QCOMPARE(desktop->count(boxTitle), 0);
    QVERIFY(closeWindow());
    QCOMPARE(messages(), QStringList({debugLine(locale), debugLine(directory), unmatchedSlot}));
    QCOMPARE(program.readAllStandardOutput(), QByteArray());
}

void tst_Startup::makesTheLocalRepository()
{
    QVERIFY(openWindow());
    QCOMPARE(QDir(directory).entryList(QDir::AllEntries | QDir::NoDotAndDotDot, QDir::Name),
             QStringList({QStringLiteral("VTUpdater"), QStringLiteral("compiled_sketches")}));
    QCOMPARE(desktop->count(boxTitle), 0);
    QVERIFY(closeWindow());
    QCOMPARE(messages().last(),
             QStringLiteral("warning: Cannot find directory  \"") + directory
                 + QStringLiteral("/compiled_sketches\""));
}

void tst_Startup::raisesTheLimitOfOpenFiles()
{
    QVERIFY(openWindow());
    const QStringList limits = openFilesLimits(program.processId());
    QCOMPARE(limits.size(), 2);
    QVERIFY(limits.first() != QLatin1String("256"));
    QCOMPARE(limits.first(), limits.last());
}

void tst_Startup::translatesByTheLocaleName_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("title");

    const QString german = QStringLiteral("Vantrel-Aktualisierung");
    QTest::newRow("the locale's own file")
        << QStringLiteral("de_DE.qm") << QStringLiteral("de_DE.UTF-8") << german;
    QTest::newRow("a file for the language alone")
        << QStringLiteral("de.qm") << QStringLiteral("de_DE.UTF-8") << german;
    QTest::newRow("another locale's file leaves the English texts")
        << QStringLiteral("fr_FR.qm") << QStringLiteral("de_DE.UTF-8") << boxTitle;
}

// The title of a box is the text that can be seen from another process.
void tst_Startup::translatesByTheLocaleName()
{
    QFETCH(QString, file);
    QFETCH(QString, language);
    QFETCH(QString, title);

    installTranslation(file);
    QVERIFY(openWindow(language));
    desktop->click(mainTitle, updateButton);
    QTRY_COMPARE_WITH_TIMEOUT(desktop->count(title), 1, patience);
}

// Unlike a box, a form asks for its texts once, while the window is built. The about dialog's form
// has the one that can be seen from another process.
void tst_Startup::translatesTheForms()
{
    installTranslation(QStringLiteral("de_DE.qm"));
    QVERIFY(openWindow(QStringLiteral("de_DE.UTF-8")));
    QVERIFY(openAboutDialogByKeyboard());
    QCOMPARE(desktop->count(germanAboutTitle), 1);
}

void tst_Startup::keepsItsSize()
{
    QVERIFY(openWindow());
    const QSize size(430, 332);
    QCOMPARE(desktop->sizeOf(mainTitle), size);
    desktop->resize(mainTitle, QSize(800, 600));
    desktop->doubleClick(mainTitle, QPoint(100, -10)); // maximizes from the title bar
    // The click comes after both wishes.
    desktop->click(mainTitle, updateButton);
    QTRY_COMPARE_WITH_TIMEOUT(desktop->count(boxTitle), 1, patience);
    QCOMPARE(desktop->sizeOf(mainTitle), size);
}

void tst_Startup::growsWithTheDisplay_data()
{
    QTest::addColumn<int>("dotsPerInch");
    QTest::addColumn<QSize>("windowSize");
    QTest::addColumn<QSize>("aboutSize");

    QTest::newRow("96 dots per inch") << 96 << QSize(430, 332) << QSize(264, 215);
    QTest::newRow("120 dots per inch") << 120 << QSize(538, 415) << QSize(330, 269);
    QTest::newRow("144 dots per inch") << 144 << QSize(645, 498) << QSize(396, 323);
    QTest::newRow("192 dots per inch") << 192 << QSize(860, 664) << QSize(528, 430);
}

void tst_Startup::growsWithTheDisplay()
{
    QFETCH(int, dotsPerInch);

    QVERIFY(desktop->setDotsPerInch(dotsPerInch));
    QVERIFY(openWindow());
    QTEST(desktop->sizeOf(mainTitle), "windowSize");
    QVERIFY(openAboutDialogByKeyboard());
    QTEST(desktop->sizeOf(aboutTitle), "aboutSize");
}

void tst_Startup::endsWithItsWindow()
{
    QVERIFY(openWindow());
    QVERIFY(closeWindow());
    QCOMPARE(program.exitStatus(), QProcess::NormalExit);
    QCOMPARE(program.exitCode(), 0);
}

void tst_Startup::refusesToRunWithoutItsDirectory_data()
{
    QTest::addColumn<QString>("loss");
    QTest::addColumn<QStringList>("left");

    QTest::newRow("its file was removed") << QStringLiteral("rm \"$0\"") << QStringList();
    QTest::newRow("its file was replaced")
        << QStringLiteral("cp \"$0\" \"$0.new\"; mv \"$0.new\" \"$0\"")
        << QStringList({QStringLiteral("VTUpdater")});
}

// The current directory is not the program's own, so it must change nothing there, and must not
// request the index.
void tst_Startup::refusesToRunWithoutItsDirectory()
{
    QFETCH(QString, loss);
    QFETCH(QStringList, left);

    QTcpServer proxy;
    QVERIFY(proxy.listen(QHostAddress::LocalHost));
    QProcessEnvironment surroundings = environment(QStringLiteral("en_US.UTF-8"));
    surroundings.insert(QStringLiteral("http_proxy"),
                        QStringLiteral("http://127.0.0.1:%1").arg(proxy.serverPort()));
    startNameless(loss, surroundings);
    QTRY_COMPARE_WITH_TIMEOUT(desktop->count(boxTitle) + desktop->count(mainTitle), 1, patience);
    QCOMPARE(desktop->count(mainTitle), 0);
    QVERIFY(QTest::qWaitFor(
        [this] {
            desktop->closeActiveWindow();
            return program.waitForFinished(keyPatience);
        },
        patience));
    QCOMPARE(program.exitStatus(), QProcess::NormalExit);
    QCOMPARE(program.exitCode(), 1);
    QCOMPARE(messages(), QStringList(refusal));
    QCOMPARE(contentOf(directory), left);
    QCOMPARE(contentOf(place->filePath(QStringLiteral("elsewhere"))),
             QStringList({QStringLiteral("compiled_sketches"), strangersSketch}));
    QVERIFY(!proxy.waitForNewConnection(0));
}

QTEST_GUILESS_MAIN(tst_Startup)

#include "tst_startup.moc"
