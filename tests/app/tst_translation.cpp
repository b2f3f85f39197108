// Translations: the texts that translators get, and the program in another language.
#include "mainwindow/mainwindow.h"
#include "serialmonitor/serialmonitor.h"
#include "support/applicationdirectory.h"
#include "support/desktop.h"
#include "support/installedprogram.h"
#include "support/isolation.h"
#include "support/messageboxdriver.h"
#include "support/patience.h"
#include "support/repositoryserver.h"
#include "support/scripteddevice.h"
#include "support/usbtestbed.h"
#include "support/windowdriver.h"

#include <QAbstractButton>
#include <QAction>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <QTranslator>
#include <QXmlStreamReader>

#include <memory>

namespace {

const QString mark = QStringLiteral("Translated ");
const QString germanFile = QStringLiteral("de_DE.ts");
const QString frenchFile = QStringLiteral("fr_FR.ts");
const QString unknownSketch = QStringLiteral("Unknown sketch");
const QStringList offlineTexts = {
    QStringLiteral("No internet connection?"),
    QStringLiteral("Your computer needs to be online to update the program list. Please check "
                   "your cable or wireless connection and try again."),
};
// Asked for before there is a window.
const QString startText =
    QStringLiteral("The program cannot tell in which directory it is. Perhaps its file was "
                   "replaced or removed while it was starting. Nothing was changed. Please start "
                   "it again.");
const QByteArray unknownOnDevice = "Version:no sketch\r\n";

// "context: text", as the template has it and as the program asks for it.
QString entry(const QString &context, const QString &text)
{
    return context + QStringLiteral(": ") + text;
}

QStringList sorted(const QSet<QString> &texts)
{
    QStringList list = texts.values();
    list.sort();
    return list;
}

QStringList textsOf(const QString &translationFile)
{
    QFile file(translationFile);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList texts;
    QString context;
    QXmlStreamReader reader(&file);
    while (!reader.atEnd()) {
        if (reader.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (reader.name() == QLatin1String("name"))
            context = reader.readElementText();
        else if (reader.name() == QLatin1String("source"))
            texts.append(entry(context, reader.readElementText()));
    }
    texts.sort();
    return texts;
}

// Translates each text to itself behind a mark, but for the one that has to stay.
bool fill(const QString &translationFile, const QString &untranslated)
{
    QFile file(translationFile);
    if (!file.open(QIODevice::ReadWrite))
        return false;
    QString content = QString::fromUtf8(file.readAll());
    static const QRegularExpression open(
        QStringLiteral("<source>([^<]*)</source>((?:(?!</message>).)*)<translation "
                       "type=\"unfinished\"></translation>"),
        QRegularExpression::DotMatchesEverythingOption);
    content.replace(open,
                    QStringLiteral("<source>\\1</source>\\2<translation>") + mark
                        + QStringLiteral("\\1</translation>"));
    content.replace(
        QStringLiteral("<translation>") + mark + untranslated + QStringLiteral("</translation>"),
        QStringLiteral("<translation>") + untranslated + QStringLiteral("</translation>"));
    return file.seek(0) && file.write(content.toUtf8()) > 0;
}

// What a translator runs; the translation is stored beside this program.
bool runTranslate(const QString &translationFile)
{
    return QProcess::execute(QStringLiteral(VTUPDATER_TRANSLATE),
                             {QStringLiteral("--build"), QStringLiteral(VTUPDATER_BUILD),
                              QStringLiteral("--beside"), ApplicationDirectory::path(),
                              translationFile})
        == 0;
}

// Installed as the program installs its own.
class Language
{
public:
    explicit Language(const QLocale &locale)
        : loaded(translator.load(locale.name(), QCoreApplication::applicationDirPath()))
    {
        QCoreApplication::installTranslator(&translator);
    }

    bool isLoaded() const { return loaded; }

private:
    QTranslator translator;
    bool loaded;
};

// Records what the program wants translated, and translates nothing.
class Listener : public QTranslator
{
public:
    Listener() { QCoreApplication::installTranslator(this); }

    bool isEmpty() const override { return false; }

    QString translate(const char *context, const char *text, const char *, int) const override
    {
        static const QStringList ours = {QStringLiteral("MainWindow"),
                                         QStringLiteral("SerialMonitor"), QStringLiteral("about")};
        if (ours.contains(QLatin1String(context)))
            heard.insert(entry(QLatin1String(context), QString::fromUtf8(text)));
        return QString();
    }

    void add(const QString &context, const QStringList &texts)
    {
        for (const QString &text : texts)
            heard.insert(entry(context, text));
    }

    QStringList texts() const { return sorted(heard); }

private:
    mutable QSet<QString> heard;
};

// Makes the window show every text. Each step is true when it could be done.
class Walk
{
public:
    Walk()
        : port(UsbTestbed::uniquePortName())
        , deadPort(UsbTestbed::uniquePortName(QStringLiteral("B")))
    {
        usb.plug(port, device.portName());
        ApplicationDirectory::addSketch(QStringLiteral("Blink__2"));
        const QString index = ApplicationDirectory::sketchFileName(QStringLiteral("Blink__2"));
        server.serveEverythingElse(Answer::ok(index.toUtf8()));
        window = std::make_unique<MainWindow>();
        window->show();
        status = child<QLabel>(*window, "label_status");
    }

    bool everything()
    {
        return synchronise() && askWithoutSelection() && readVersions() && missUploader()
            && missSketch() && failUpload() && upload() && loseDevice() && openDeadPort()
            && findNoDevice();
    }

    bool synchronise() const
    {
        return QTest::qWaitFor(
            [this] {
                return status->text().endsWith(QLatin1String("Local repository up-to-date"));
            },
            patience);
    }

    bool askWithoutSelection() const
    {
        return pressUpdate() && chooseMonitor() && selectDevice() && pressUpdate()
            && selectRow(*window, "listWidget_programlist", 0);
    }

    // Selecting the device has read an old version.
    bool readVersions()
    {
        device.setAnswers({"Version:Blink__2\r\n"});
        const bool latest = pressAsk();
        device.setAnswers({unknownOnDevice});
        return latest && pressAsk();
    }

    bool missUploader() const
    {
        const QString uploader = ApplicationDirectory::uploaderPath();
        const bool withoutDirectory = pressUpdate();
        ApplicationDirectory::installUploader("#!/bin/sh\n");
        return QFile::remove(uploader + QStringLiteral("avrdude")) && withoutDirectory
            && pressUpdate();
    }

    bool missSketch() const
    {
        ApplicationDirectory::installUploader("#!/bin/sh\n");
        const QString sketch = ApplicationDirectory::sketchesPath()
            + ApplicationDirectory::sketchFileName(QStringLiteral("Blink__2"));
        const bool pressed = QFile::remove(sketch) && pressUpdate();
        ApplicationDirectory::addSketch(QStringLiteral("Blink__2"));
        return pressed;
    }

    bool failUpload() const
    {
        const QString uploader = ApplicationDirectory::uploaderPath() + QStringLiteral("avrdude");
        return QFile::setPermissions(uploader, QFile::ReadOwner) && pressUpdate()
            && QFile::setPermissions(uploader, QFile::ReadOwner | QFile::ExeOwner);
    }

    bool upload() const { return pressUpdate(); }

    // With a text that is still to be sent, so that both losses are reported.
    bool loseDevice()
    {
        if (!chooseMonitor())
            return false;
        auto *monitor = child<SerialMonitor>(*window, "SerialMonitor");
        const auto before = driver.boxes().size();
        child<QLineEdit>(*monitor, "lineEdit")->setText(QStringLiteral("hello"));
        usb.unplug(port);
        device.unplug();
        return click(*monitor, "pushButton")
            && QTest::qWaitFor([this, before] { return driver.boxes().size() >= before + 2; },
                               patience);
    }

    bool openDeadPort()
    {
        usb.plug(deadPort);
        return pressFind() && selectDevice() && chooseMonitor() && selectDevice() && pressUpdate();
    }

    bool findNoDevice()
    {
        usb.unplug(deadPort);
        return pressFind();
    }

    bool refreshOffline() const
    {
        const Isolation offline;
        return offline.isIsolated() && click(*window, "pushButton_programlist_refresh");
    }

    bool pressUpdate() const { return click(*window, "pushButton_update"); }
    bool pressAsk() const { return click(*window, "pushButton_programondevice_refresh"); }
    bool pressFind() const { return click(*window, "pushButton_devicelist_refresh"); }
    bool selectDevice() const { return selectRow(*window, "listWidget_devicelist", 0); }
    bool chooseMonitor() const { return chooseMenuEntry(*window, "actionSerial_Monitor"); }

    RepositoryServer server;
    ScriptedDevice device {QList<QByteArray> {"Version:Blink__1\r\n"}};
    UsbTestbed usb;
    const QString port;
    const QString deadPort;
    MessageBoxDriver driver;
    std::unique_ptr<MainWindow> window;
    QLabel *status;
};

// All texts of the window and of its child windows.
QStringList visibleTexts(const QWidget &window)
{
    QStringList texts;
    const QList<QWidget *> widgets = window.findChildren<QWidget *>();
    for (const QWidget *widget : widgets)
        texts << widget->toolTip() << (widget->isWindow() ? widget->windowTitle() : QString());
    for (const auto *label : window.findChildren<QLabel *>())
        texts << label->text();
    for (const auto *button : window.findChildren<QAbstractButton *>())
        texts << button->text();
    for (const auto *action : window.findChildren<QAction *>())
        texts << action->text();
    texts.removeAll(QString());
    return texts;
}

} // namespace

class tst_Translation : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

    void templateHoldsWhatTheProgramAsksFor();
    void newTranslationHoldsTheTemplate();
    void finishedTextsSurviveAnUpdate();
    void textsThatAreGoneAreKept();
    void fileNamesWithoutLocaleAreRefused_data();
    void fileNamesWithoutLocaleAreRefused();

    void everyTextOfTheWindowsIsTranslated();
    void everyBoxIsTranslated();
    void buttonsComeWithTheTranslation();
    void someStatusTextsStayEnglish();
    void translatedUnknownSketchHidesItsBox();
    void programStartsInTheLanguageOfItsUser();

private:
    QTemporaryDir work;
    QString german;
    QString french;
};

void tst_Translation::initTestCase()
{
    german = work.filePath(germanFile);
    french = work.filePath(frenchFile);
    for (const QString &file : {german, french}) {
        QVERIFY(runTranslate(file));
        QVERIFY(fill(file, file == german ? unknownSketch : QString()));
        QVERIFY(runTranslate(file));
    }
}

void tst_Translation::init()
{
    ApplicationDirectory::clear();
}

void tst_Translation::cleanupTestCase()
{
    letFadesEnd();
}

void tst_Translation::cleanup()
{
    ApplicationDirectory::clear();
}

void tst_Translation::templateHoldsWhatTheProgramAsksFor()
{
    Listener listener;
    Walk walk;
    QVERIFY(walk.everything());
    // Without the right to leave the network this box does not appear.
    if (!walk.refreshOffline())
        listener.add(QStringLiteral("MainWindow"), offlineTexts);
    listener.add(QStringLiteral("main"), {startText});
    const QStringList asked = listener.texts();
    QCOMPARE(textsOf(QStringLiteral(VTUPDATER_TEMPLATE)), asked);
}

void tst_Translation::newTranslationHoldsTheTemplate()
{
    const QString file = work.filePath(QStringLiteral("nl_NL.ts"));
    QVERIFY(runTranslate(file));
    const QStringList texts = textsOf(file);
    QVERIFY(!texts.isEmpty());
    QCOMPARE(texts, textsOf(QStringLiteral(VTUPDATER_TEMPLATE)));
    QVERIFY(QFile::exists(ApplicationDirectory::path() + QStringLiteral("nl_NL.qm")));
}

void tst_Translation::finishedTextsSurviveAnUpdate()
{
    const QByteArray before = ApplicationDirectory::contentOf(german);
    QVERIFY(before.contains("<translation>" + mark.toUtf8() + "Tools</translation>"));
    QVERIFY(!before.contains("unfinished"));
    QVERIFY(runTranslate(german));
    QCOMPARE(ApplicationDirectory::contentOf(german), before);
}

void tst_Translation::textsThatAreGoneAreKept()
{
    const QString path = work.filePath(QStringLiteral("it_IT.ts"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(R"(<?xml version="1.0" encoding="utf-8"?>
<TS version="2.1" language="it_IT" sourcelanguage="en"><context><name>MainWindow</name><message>
<source>Earlier text</source><translation>Testo passato</translation>
</message></context></TS>
)");
    file.close();

    QVERIFY(runTranslate(path));
    QVERIFY(ApplicationDirectory::contentOf(path).contains(
        "<translation type=\"vanished\">Testo passato</translation>"));
    QStringList texts = textsOf(path);
    QVERIFY(texts.removeOne(entry(QStringLiteral("MainWindow"), QStringLiteral("Earlier text"))));
    QCOMPARE(texts, textsOf(QStringLiteral(VTUPDATER_TEMPLATE)));
}

void tst_Translation::fileNamesWithoutLocaleAreRefused_data()
{
    QTest::addColumn<QString>("fileName");

    QTest::newRow("a language without its country") << QStringLiteral("de.ts");
    QTest::newRow("another name") << QStringLiteral("texts.ts");
    QTest::newRow("another ending") << QStringLiteral("de_DE.qm");
}

void tst_Translation::fileNamesWithoutLocaleAreRefused()
{
    QFETCH(QString, fileName);

    QVERIFY(!runTranslate(work.filePath(fileName)));
    QVERIFY(!QFile::exists(work.filePath(fileName)));
}

void tst_Translation::everyTextOfTheWindowsIsTranslated()
{
    const Language language(QLocale(QLocale::German, QLocale::Germany));
    QVERIFY(language.isLoaded());
    Walk walk;
    QVERIFY(walk.synchronise());
    QVERIFY(walk.selectDevice());
    QVERIFY(walk.selectDevice());

    QStringList english;
    const QStringList texts = visibleTexts(*walk.window);
    for (const QString &text : texts) {
        if (!text.startsWith(mark))
            english.append(text);
    }
    english.sort();
    QCOMPARE(english, QStringList({QStringLiteral("1.0 beta 6"), QStringLiteral("Blink")}));
    QVERIFY(texts.contains(mark + QStringLiteral("Update Vantrel")));
    QVERIFY(texts.contains(mark + QStringLiteral("<font color='red'>Update recommended.</font>")));
    QVERIFY(texts.contains(mark + QStringLiteral("Local repository up-to-date")));
    QVERIFY(texts.contains(mark + QStringLiteral("Vantrel Serial Monitor")));
    QVERIFY(texts.contains(mark + QStringLiteral("Automatic scroll")));
    QVERIFY(texts.contains(mark + QStringLiteral("About VTUpdater")));
    QCOMPARE(walk.window->windowTitle(), QStringLiteral("VTUpdater v1.0 beta 6"));
}

void tst_Translation::everyBoxIsTranslated()
{
    const Language language(QLocale(QLocale::German, QLocale::Germany));
    Walk walk;
    QVERIFY(walk.everything());
    QCOMPARE(walk.driver.boxes().size(), 21);
    for (const SeenBox &box : walk.driver.boxes()) {
        QVERIFY2(box.title.startsWith(mark), qPrintable(box.title));
        QVERIFY2(box.text.startsWith(mark), qPrintable(box.text));
        QVERIFY2(box.informativeText.startsWith(mark), qPrintable(box.informativeText));
    }
}

// They are Qt's own, and Qt's texts are in the same file.
void tst_Translation::buttonsComeWithTheTranslation()
{
    const Language language(QLocale(QLocale::German, QLocale::Germany));
    QMessageBox box(QMessageBox::Warning, QString(), QString(),
                    QMessageBox::Ok | QMessageBox::Cancel);
    QCOMPARE(box.button(QMessageBox::Cancel)->text(), QStringLiteral("Abbrechen"));
}

void tst_Translation::someStatusTextsStayEnglish()
{
    const Language language(QLocale(QLocale::German, QLocale::Germany));
    MainWindow window;
    QTRY_COMPARE_WITH_TIMEOUT(child<QLabel>(window, "label_status")->text(),
                              QStringLiteral("Error contacting online repository. Are you online?"),
                              patience);
}

// The button looks for the English text.
void tst_Translation::translatedUnknownSketchHidesItsBox()
{
    const Language language(QLocale(QLocale::French, QLocale::France));
    QVERIFY(language.isLoaded());
    Walk walk;
    walk.device.setAnswers({unknownOnDevice});
    QVERIFY(walk.selectDevice());
    QVERIFY(walk.pressAsk());
    QCOMPARE(child<QLabel>(*walk.window, "label_programondevice")->text(), mark + unknownSketch);
    QCOMPARE(walk.driver.texts(), QStringList());
}

void tst_Translation::programStartsInTheLanguageOfItsUser()
{
    const QString missing = Desktop::missingProgram();
    if (!missing.isEmpty()) {
        QTest::qSkip(qPrintable(missing + QStringLiteral(" is not installed: no screen")), __FILE__,
                     __LINE__);
        return;
    }
    Desktop desktop;
    QVERIFY(desktop.start());

    InstalledProgram installed(QStringLiteral(VTUPDATER_PROGRAM));
    const QString translation = QStringLiteral("de_DE.qm");
    QVERIFY(
        QFile::copy(ApplicationDirectory::path() + translation, installed.filePath(translation)));
    QProcessEnvironment environment = desktop.environment(QProcessEnvironment::systemEnvironment());
    environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("de_DE.UTF-8"));
    installed.setEnvironment(environment);
    QVERIFY(installed.start());

    const QString title = QStringLiteral("VTUpdater v1.0 beta 6");
    const QPoint updateButton(320, 262); // below the menu bar, in the middle of the button
    QTRY_COMPARE_WITH_TIMEOUT(desktop.count(title), 1, patience);
    desktop.click(title, updateButton);
    QTRY_COMPARE_WITH_TIMEOUT(desktop.count(mark + QStringLiteral("Vantrel Updater")), 1, patience);
}

QTEST_MAIN(tst_Translation)

#include "tst_translation.moc"
