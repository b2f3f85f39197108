// The serial monitor: its window, how it is opened, and the text that the user types and sees.
#include "mainwindow/mainwindow.h"
#include "serialmonitor/serialmonitor.h"
#include "support/applicationdirectory.h"
#include "support/desktop.h"
#include "support/installedprogram.h"
#include "support/messageboxdriver.h"
#include "support/patience.h"
#include "support/pluggeddevice.h"
#include "support/pollwatch.h"
#include "support/windowdriver.h"

#include <QAbstractTextDocumentLayout>
#include <QCheckBox>
#include <QElapsedTimer>
#include <QFontMetrics>
#include <QFrame>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMetaMethod>
#include <QPointer>
#include <QPushButton>
#include <QRandomGenerator>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextFrame>
#include <QTextLayout>

namespace {

constexpr double endOfQtsPage = 8388607; // px
constexpr double endOfQtsScrollBar = 21474836; // px
constexpr double mostHeight = 8000000; // px
constexpr int mostCharacters = 15000000;
constexpr int mostAtOnce = 200000; // characters
// Nested tables taken as HTML would freeze the window for four times as long.
constexpr int moment = 5000; // ms

const QString mainTitle = QStringLiteral("VTUpdater v1.0 beta 6");
const QString monitorTitle = QStringLiteral("Vantrel Serial Monitor");
const QPoint firstDevice(300, 74); // in the main window
const QPoint titleBar(100, -10);

QLineEdit *line(const QWidget &monitor)
{
    return child<QLineEdit>(monitor, "lineEdit");
}

QTextBrowser *view(const QWidget &monitor)
{
    return child<QTextBrowser>(monitor, "textBrowser");
}

QRect placeOf(const QWidget &monitor, const char *name)
{
    const auto *widget = child<QWidget>(monitor, name);
    return {widget->mapTo(&monitor, QPoint(0, 0)), widget->size()};
}

enum class Sending { ByReturn, ByButton };

bool send(const QWidget &monitor, const QString &text, Sending how)
{
    QTest::keyClicks(line(monitor), text);
    if (how == Sending::ByButton)
        return click(monitor, "pushButton");
    QTest::keyClick(line(monitor), Qt::Key_Return);
    return true;
}

void addWaysOfSending()
{
    QTest::addColumn<Sending>("how");
    QTest::newRow("Return in the line") << Sending::ByReturn;
    QTest::newRow("Send button") << Sending::ByButton;
}

// Far more text than the view can show.
void fill(SerialMonitor &monitor)
{
    for (int number = 0; number < 200; ++number)
        monitor.appendToSerialMonitor(QStringLiteral("line %1").arg(number));
}

// Makes thousands of lines as tall as a million normal ones.
void useLinesOf(int pixels, const SerialMonitor &monitor)
{
    QFont font = view(monitor)->font();
    font.setPixelSize(pixels);
    view(monitor)->setFont(font);
}

void useTallLines(const SerialMonitor &monitor)
{
    useLinesOf(1000, monitor);
}

// Measured in the empty view, because the view may round its font's line spacing.
double lineHeightOf(SerialMonitor &monitor)
{
    const QTextDocument *document = view(monitor)->document();
    monitor.appendToSerialMonitor(QStringLiteral("a"));
    const double one = document->size().height();
    monitor.appendToSerialMonitor(QStringLiteral("a"));
    const double two = document->size().height();
    view(monitor)->clear();
    return two - one;
}

// Lines of one letter each, so that each takes one line at any width.
QString letters(int count)
{
    static QRandomGenerator random(328);
    QString lines;
    for (int number = 0; number < count; ++number) {
        lines += QLatin1Char(char('a' + random.bounded(26)));
        lines += QLatin1Char('\n');
    }
    lines.chop(1);
    return lines;
}

QString paragraphOf(int lines)
{
    const QString first = QStringLiteral("x");
    return first + (QChar(QChar::LineSeparator) + first).repeated(lines - 1);
}

bool isLaidOutThroughout(const QTextDocument &document)
{
    for (QTextBlock block = document.firstBlock(); block.isValid(); block = block.next()) {
        if (block.layout()->lineCount() == 0)
            return false;
    }
    return true;
}

// Fills the view with more text than a narrower one can hold. Returns the text without line ends.
QString fillWideView(SerialMonitor &monitor)
{
    monitor.resize(1000, monitor.height());
    useLinesOf(100, monitor);
    QString received;
    while (view(monitor)->document()->size().height() < 4500000) {
        const QString more(10000, QLatin1Char('x'));
        received += more;
        monitor.appendToSerialMonitor(more);
    }
    return received;
}

// The text repeats one letter. Lines that Qt has not laid out are included.
double heightOfLines(const QString &text, const QTextDocument &document)
{
    const QTextLine line = document.firstBlock().layout()->lineAt(0);
    return double(text.size()) / line.textLength() * line.height();
}

// The position of the first visible character, counted from the end of the text.
int placeOfTopLine(const SerialMonitor &monitor)
{
    const QTextBrowser *text = view(monitor);
    return text->document()->characterCount() - text->cursorForPosition(QPoint(0, 1)).position();
}

// Texts from a device that a text browser would take for HTML.
void addMarkup()
{
    QTest::addColumn<QString>("text");

    QTest::newRow("tag and comparison") << QStringLiteral("temp <b>21.5   C, limit < 30");
    QTest::newRow("comparisons") << QStringLiteral("if (a<p && b>q) stop");
    QTest::newRow("table") << QStringLiteral("cmd: <table> <row>");
    QTest::newRow("style") << QStringLiteral("<style>x");
    QTest::newRow("style sheet") << QStringLiteral("<style>* { color: red }</style>x");
    QTest::newRow("nested tables") << QStringLiteral("<table><tr><td>").repeated(30);
    QTest::newRow("picture without end") << QStringLiteral("<img src=\"/dev/zero\">");
    QTest::newRow("link") << QStringLiteral("<a href=\"/etc/hostname\">name</a>");
    QTest::newRow("bold and large") << QStringLiteral("<h1><b>x</b></h1>");
    QTest::newRow("page") << QStringLiteral("<!DOCTYPE html><html><body><p>a<p>b</body></html>");
    QTest::newRow("entities") << QStringLiteral("<i>&lt;&amp;&nbsp;&#65;</i>");
    QTest::newRow("comment") << QStringLiteral("<b></b><!-- x --> y");
    QTest::newRow("blanks around tags") << QStringLiteral("   <b>  </b>   a\t\tb   ");
    QTest::newRow("line feeds between tags") << QStringLiteral("<p>a\nb\n\n<br>c\n");
}

bool hasDefaultFormatThroughout(const QTextBlock &paragraph)
{
    for (QTextBlock::iterator part = paragraph.begin(); !part.atEnd(); ++part) {
        if (part.fragment().charFormat() != QTextCharFormat())
            return false;
    }
    return paragraph.charFormat() == QTextCharFormat()
        && paragraph.blockFormat() == QTextBlockFormat();
}

bool hasDefaultFormatThroughout(const QTextDocument &document)
{
    for (QTextBlock block = document.firstBlock(); block.isValid(); block = block.next()) {
        if (!hasDefaultFormatThroughout(block))
            return false;
    }
    return document.rootFrame()->childFrames().isEmpty();
}

// The places of all visible characters.
QList<QPoint> placesOfCharacters(const QTextBrowser &text)
{
    QList<QPoint> places;
    QTextCursor cursor(text.document());
    do {
        places.append(text.cursorRect(cursor).center());
    } while (cursor.movePosition(QTextCursor::NextCharacter));
    return places;
}

void select(QTextBrowser *text, int from, int to)
{
    QTextCursor cursor = text->textCursor();
    cursor.setPosition(from);
    cursor.setPosition(to, QTextCursor::KeepAnchor);
    text->setTextCursor(cursor);
}

QPair<int, int> selection(const QTextBrowser &text)
{
    return {text.textCursor().anchor(), text.textCursor().position()};
}

QStringList ownSlots(const QMetaObject &metaObject)
{
    QStringList signatures;
    for (int i = metaObject.methodOffset(); i < metaObject.methodCount(); ++i) {
        const QMetaMethod method = metaObject.method(i);
        if (method.methodType() == QMetaMethod::Slot)
            signatures.append(QString::fromLatin1(method.methodSignature()));
    }
    return signatures;
}

// The program on a screen with a window manager, with its device and its user.
class Session
{
public:
    // True when the window is shown and the device has been selected.
    bool start()
    {
        if (!desktop.start())
            return false;
        program.setEnvironment(desktop.environment(QProcessEnvironment::systemEnvironment()));
        if (!program.start()
            || !QTest::qWaitFor([this] { return desktop.count(mainTitle) == 1; }, patience))
            return false;
        desktop.click(mainTitle, firstDevice);
        return QTest::qWaitFor([this] { return device.requests() == 1; }, patience);
    }

    // Opens the monitor by keyboard from the main window. True when the device has been asked.
    bool chooseMonitor()
    {
        const int before = device.requests();
        if (!goToMainWindow())
            return false;
        desktop.press({QStringLiteral("Alt_L"), QStringLiteral("Down"), QStringLiteral("Return")});
        return QTest::qWaitFor([&] { return device.requests() > before; }, patience);
    }

    bool goToMainWindow()
    {
        desktop.activate(mainTitle);
        return QTest::qWaitFor([this] { return desktop.isActive(mainTitle); }, patience)
            && QTest::qWaitFor([this] { return desktop.isInFront(mainTitle); }, patience);
    }

    bool maximizeMonitor() const
    {
        const QSize before = desktop.sizeOf(monitorTitle);
        desktop.doubleClick(monitorTitle, titleBar);
        return QTest::qWaitFor(
            [&] { return desktop.sizeOf(monitorTitle).width() > before.width(); }, patience);
    }

    bool minimizeMonitor()
    {
        desktop.minimize(monitorTitle);
        return QTest::qWaitFor([this] { return desktop.count(monitorTitle) == 0; }, patience);
    }

    bool seesMonitorInFront()
    {
        return QTest::qWaitFor(
            [this] { return desktop.isActive(monitorTitle) && desktop.isInFront(monitorTitle); },
            patience);
    }

    Desktop desktop;

private:
    PluggedDevice device;
    InstalledProgram program {QStringLiteral(VTUPDATER_PROGRAM)};
};

} // namespace

Q_DECLARE_METATYPE(Sending)

class tst_SerialMonitor : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void cleanupTestCase();

    void form();
    void arrangement();
    void metaObject();
    void aSeparateWindowOfTheMainWindow();

    void sendingFillsTheOutbox_data();
    void sendingFillsTheOutbox();
    void schedulingSendsAsWell();
    void sendingNothingEmptiesTheOutbox_data();
    void sendingNothingEmptiesTheOutbox();
    void theLastTextReplacesTheOneBefore_data();
    void theLastTextReplacesTheOneBefore();
    void theTextStaysAsTyped_data();
    void theTextStaysAsTyped();

    void eachCallAppendsAParagraph();
    void markupIsShownAsSent_data();
    void markupIsShownAsSent();
    void markupIsShownAsSentAfterClear_data();
    void markupIsShownAsSentAfterClear();
    void nothingIsALink();
    void aParagraphTakesNoFormatFromBefore_data();
    void aParagraphTakesNoFormatFromBefore();
    void plainTextIsShownAsInATextBrowser_data();
    void plainTextIsShownAsInATextBrowser();
    void blanksTakeTheirWidth_data();
    void blanksTakeTheirWidth();
    void theSelectionStays_data();
    void theSelectionStays();
    void automaticScroll_data();
    void automaticScroll();
    void automaticScrollGoesToTheEndBeforeTheTextComes();
    void aTextNarrowedForAMomentStays();
    void theOldestTextGoesWhenTheViewIsFull_data();
    void theOldestTextGoesWhenTheViewIsFull();
    void theOldestTextGoesHoweverMuchComesAtOnce_data();
    void theOldestTextGoesHoweverMuchComesAtOnce();
    void aParagraphThatAloneIsTooTallStaysForNow();
    void aParagraphOfMoreThanATickIsCut();
    void theOldestTextGoesWhenTheViewIsNarrowed();
    void aNarrowedViewShowsTheOldestTextThatIsLeft();
    void theOldestTextGoesWhenThereIsTooMuch();
    void theOldestParagraphGoesHoweverFewThereAre();
    void clearEmptiesTheViewOnly();

    void noDeviceIsSelected();
    void openingAsksTheDeviceFirst();
    void openingAgainAsksAgain();
    void openingReplacesAnotherDevicesPort();
    void aDeviceThatDoesNotOpenIsReported();
    void aDeviceThatDoesNotOpenAgainIsReported();
    void aDeviceThatDoesNotOpenIsReportedBeforeTheScan();
    void choosingItAgainBringsTheWindowBack_data();
    void choosingItAgainBringsTheWindowBack();
    void choosingItAgainRaisesTheWindow();
    void aWindowHiddenWhileMinimizedIsRestored();
    void textIsKeptWhileTheWindowIsHidden();
    void closingTheWindowClosesThePort();
    void theWindowGoesWithTheMainWindow();
    void textGoesThereAndBack_data();
    void textGoesThereAndBack();
};

void tst_SerialMonitor::init()
{
    ApplicationDirectory::clear();
}

void tst_SerialMonitor::cleanup()
{
    ApplicationDirectory::clear();
}

void tst_SerialMonitor::cleanupTestCase()
{
    letFadesEnd();
}

void tst_SerialMonitor::form()
{
    const SerialMonitor monitor(nullptr);

    QCOMPARE(monitor.objectName(), QStringLiteral("SerialMonitor"));
    QCOMPARE(monitor.size(), QSize(458, 438));
    QCOMPARE(monitor.windowTitle(), QStringLiteral("Vantrel Serial Monitor"));
    QCOMPARE(child<QPushButton>(monitor, "pushButton")->text(), QStringLiteral("Send"));
    QCOMPARE(child<QPushButton>(monitor, "pushButton_2")->text(), QStringLiteral("Clear"));
    QCOMPARE(child<QCheckBox>(monitor, "checkBox")->text(), QStringLiteral("Automatic scroll"));
    QVERIFY(child<QCheckBox>(monitor, "checkBox")->isChecked());
    QCOMPARE(monitor.centralWidget()->objectName(), QStringLiteral("centralwidget"));
    QCOMPARE(monitor.pendingText(), QString());
    QCOMPARE(view(monitor)->toPlainText(), QString());
    QCOMPARE(line(monitor)->text(), QString());
}

void tst_SerialMonitor::arrangement()
{
    SerialMonitor monitor(nullptr);
    monitor.show();
    const QRect typed = placeOf(monitor, "lineEdit");
    const QRect sendButton = placeOf(monitor, "pushButton");
    const QRect text = placeOf(monitor, "textBrowser");
    const QRect scroll = placeOf(monitor, "checkBox");
    const QRect clearButton = placeOf(monitor, "pushButton_2");

    QVERIFY(typed.right() < sendButton.left());
    QVERIFY(typed.bottom() < text.top());
    QVERIFY(sendButton.bottom() < text.top());
    QVERIFY(text.bottom() < scroll.top());
    QVERIFY(text.bottom() < clearButton.top());
    QVERIFY(scroll.right() + 40 <= clearButton.left());
    QCOMPARE(clearButton.right(), text.right());
}

void tst_SerialMonitor::metaObject()
{
    const QMetaObject &metaObject = SerialMonitor::staticMetaObject;

    QCOMPARE(ownSlots(metaObject),
             QStringList({QStringLiteral("on_pushButton_2_clicked()"),
                          QStringLiteral("on_pushButton_clicked()"),
                          QStringLiteral("on_lineEdit_returnPressed()")}));
    QCOMPARE(metaObject.methodCount() - metaObject.methodOffset(), 3);
    QCOMPARE(metaObject.superClass(), &QMainWindow::staticMetaObject);
}

void tst_SerialMonitor::aSeparateWindowOfTheMainWindow()
{
    const MainWindow window;
    const QMainWindow *monitor = serialMonitor(window);

    QCOMPARE(monitor->parent(), &window);
    QVERIFY(monitor->isWindow());
    QVERIFY(!monitor->isVisible());
    QCOMPARE(window.findChildren<SerialMonitor *>().size(), 1);
}

void tst_SerialMonitor::sendingFillsTheOutbox_data()
{
    addWaysOfSending();
}

void tst_SerialMonitor::sendingFillsTheOutbox()
{
    QFETCH(Sending, how);
    SerialMonitor monitor(nullptr);
    monitor.show();

    QVERIFY(send(monitor, QStringLiteral("hello"), how));

    QCOMPARE(monitor.pendingText(), QStringLiteral("hello"));
    QCOMPARE(line(monitor)->text(), QString());
    QCOMPARE(view(monitor)->toPlainText(), QString());
}

void tst_SerialMonitor::schedulingSendsAsWell()
{
    SerialMonitor monitor(nullptr);
    line(monitor)->setText(QStringLiteral("hello"));

    monitor.scheduleToSendAndClear();

    QCOMPARE(monitor.pendingText(), QStringLiteral("hello"));
    QCOMPARE(line(monitor)->text(), QString());
}

void tst_SerialMonitor::sendingNothingEmptiesTheOutbox_data()
{
    addWaysOfSending();
}

void tst_SerialMonitor::sendingNothingEmptiesTheOutbox()
{
    QFETCH(Sending, how);
    SerialMonitor monitor(nullptr);
    monitor.show();
    QVERIFY(send(monitor, QStringLiteral("hello"), how));

    QVERIFY(send(monitor, QString(), how));

    QCOMPARE(monitor.pendingText(), QString());
}

void tst_SerialMonitor::theLastTextReplacesTheOneBefore_data()
{
    addWaysOfSending();
}

void tst_SerialMonitor::theLastTextReplacesTheOneBefore()
{
    QFETCH(Sending, how);
    SerialMonitor monitor(nullptr);
    monitor.show();

    QVERIFY(send(monitor, QStringLiteral("first"), how));
    QVERIFY(send(monitor, QStringLiteral("second"), how));

    QCOMPARE(monitor.pendingText(), QStringLiteral("second"));
}

void tst_SerialMonitor::theTextStaysAsTyped_data()
{
    QTest::addColumn<QString>("text");

    QTest::newRow("blanks around it") << QStringLiteral("  a b  ");
    QTest::newRow("nothing but a blank") << QStringLiteral(" ");
    QTest::newRow("capital letters and marks") << QStringLiteral("AT+X=<b>1</b>\\n");
}

void tst_SerialMonitor::theTextStaysAsTyped()
{
    QFETCH(QString, text);
    SerialMonitor monitor(nullptr);
    monitor.show();

    QVERIFY(send(monitor, text, Sending::ByReturn));

    QCOMPARE(monitor.pendingText(), text);
}

void tst_SerialMonitor::eachCallAppendsAParagraph()
{
    SerialMonitor monitor(nullptr);

    monitor.appendToSerialMonitor(QStringLiteral("a"));
    monitor.appendToSerialMonitor(QStringLiteral("b c"));
    monitor.appendToSerialMonitor(QStringLiteral("d"));

    QCOMPARE(view(monitor)->document()->blockCount(), 3);
    QCOMPARE(view(monitor)->toPlainText(), QStringLiteral("a\nb c\nd"));
}

void tst_SerialMonitor::markupIsShownAsSent_data()
{
    addMarkup();
}

void tst_SerialMonitor::markupIsShownAsSent()
{
    QFETCH(QString, text);
    SerialMonitor monitor(nullptr);
    monitor.show();
    QElapsedTimer time;
    time.start();

    monitor.appendToSerialMonitor(text);
    monitor.appendToSerialMonitor(text);
    monitor.appendToSerialMonitor(QStringLiteral("end"));
    view(monitor)->repaint();

    QVERIFY(time.elapsed() < moment);
    QCOMPARE(view(monitor)->toPlainText(),
             QStringList({text, text, QStringLiteral("end")}).join(QLatin1Char('\n')));
    QVERIFY(hasDefaultFormatThroughout(*view(monitor)->document()));
}

void tst_SerialMonitor::markupIsShownAsSentAfterClear_data()
{
    addMarkup();
}

void tst_SerialMonitor::markupIsShownAsSentAfterClear()
{
    QFETCH(QString, text);
    SerialMonitor monitor(nullptr);
    monitor.show();
    monitor.appendToSerialMonitor(text);
    QVERIFY(click(monitor, "pushButton_2"));

    monitor.appendToSerialMonitor(text);

    QCOMPARE(view(monitor)->toPlainText(), text);
    QVERIFY(hasDefaultFormatThroughout(*view(monitor)->document()));
}

void tst_SerialMonitor::nothingIsALink()
{
    const QString received = QStringLiteral("<a href=\"/etc/hostname\">name</a>\n"
                                            "/etc/hostname file:///etc/hostname");
    SerialMonitor monitor(nullptr);
    monitor.show();
    monitor.appendToSerialMonitor(received);

    for (const QPoint &place : placesOfCharacters(*view(monitor))) {
        QCOMPARE(view(monitor)->anchorAt(place), QString());
        QTest::mouseClick(view(monitor)->viewport(), Qt::LeftButton, Qt::NoModifier, place);
    }

    QCOMPARE(view(monitor)->toPlainText(), received);
    QCOMPARE(view(monitor)->source(), QUrl());
}

void tst_SerialMonitor::aParagraphTakesNoFormatFromBefore_data()
{
    QTest::addColumn<bool>("cleared");
    QTest::newRow("behind it") << false;
    QTest::newRow("in its place") << true;
}

// Not even from text that no device can send.
void tst_SerialMonitor::aParagraphTakesNoFormatFromBefore()
{
    QFETCH(bool, cleared);
    SerialMonitor monitor(nullptr);
    monitor.show();
    view(monitor)->setHtml(QStringLiteral("<h1><center><a href=\"/etc/hostname\">x</a>"));
    view(monitor)->moveCursor(QTextCursor::End);
    QVERIFY(!hasDefaultFormatThroughout(*view(monitor)->document()));
    QVERIFY(!cleared || click(monitor, "pushButton_2"));

    monitor.appendToSerialMonitor(QStringLiteral("plain"));

    QCOMPARE(view(monitor)->document()->lastBlock().text(), QStringLiteral("plain"));
    QVERIFY(hasDefaultFormatThroughout(view(monitor)->document()->lastBlock()));
}

void tst_SerialMonitor::plainTextIsShownAsInATextBrowser_data()
{
    QTest::addColumn<QString>("text");

    QTest::newRow("line feed") << QStringLiteral("a\nb");
    QTest::newRow("line feeds around it") << QStringLiteral("\na\n");
    QTest::newRow("line feed alone") << QStringLiteral("\n");
    QTest::newRow("empty lines") << QStringLiteral("a\n\n\nb");
    QTest::newRow("carriage return") << QStringLiteral("a\rb");
    QTest::newRow("both") << QStringLiteral("a\r\nb\n\rc");
    QTest::newRow("line separator") << QStringLiteral("a\u2028b");
    QTest::newRow("paragraph separator") << QStringLiteral("a\u2029b");
    QTest::newRow("no-break space") << QStringLiteral("a\u00a0\u00a0b");
    QTest::newRow("blanks and tabs") << QStringLiteral("  a  \t b  ");
    QTest::newRow("other white space") << QStringLiteral("a\v\f\u0085\u3000b");
    QTest::newRow("frame marks of a text document") << QStringLiteral("a\ufdd0b\ufdd1c");
    QTest::newRow("object replacement") << QStringLiteral("a\ufffcb");
    QTest::newRow("control characters") << QStringLiteral("a\u0001\u001b[1mb");
    QTest::newRow("from right to left") << QStringLiteral("a\u202eb\u05d0");
    QTest::newRow("beyond the basic plane") << QStringLiteral("a\U0001f600b");
    QTest::newRow("comparison") << QStringLiteral("a > b && c");
}

// In an empty view, after a paragraph and before one.
void tst_SerialMonitor::plainTextIsShownAsInATextBrowser()
{
    QFETCH(QString, text);
    QVERIFY(!Qt::mightBeRichText(text));
    SerialMonitor monitor(nullptr);
    QTextBrowser browser;

    for (const QString &paragraph : {text, QStringLiteral("x"), text, text}) {
        monitor.appendToSerialMonitor(paragraph);
        browser.append(paragraph);

        QCOMPARE(view(monitor)->toPlainText(), browser.toPlainText());
        QCOMPARE(view(monitor)->toHtml(), browser.toHtml());
        QCOMPARE(view(monitor)->document()->blockCount(), browser.document()->blockCount());
    }
}

void tst_SerialMonitor::blanksTakeTheirWidth_data()
{
    QTest::addColumn<QString>("text");

    QTest::newRow("between words") << QStringLiteral("a        b");
    QTest::newRow("at the start") << QStringLiteral("        a");
    QTest::newRow("at the end") << QStringLiteral("a        ");
    QTest::newRow("beside a tag") << QStringLiteral("<b>21.5        C");
}

void tst_SerialMonitor::blanksTakeTheirWidth()
{
    QFETCH(QString, text);
    SerialMonitor monitor(nullptr);
    monitor.show();
    monitor.appendToSerialMonitor(text);

    QTextCursor cursor(view(monitor)->document());
    const int start = view(monitor)->cursorRect(cursor).x();
    cursor.movePosition(QTextCursor::End);
    const int width = view(monitor)->cursorRect(cursor).x() - start;
    const int expected = QFontMetrics(view(monitor)->font()).horizontalAdvance(text);
    QVERIFY2(qAbs(width - expected) <= 1,
             qPrintable(QStringLiteral("%1 px instead of %2").arg(width).arg(expected)));
}

void tst_SerialMonitor::theSelectionStays_data()
{
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");

    QTest::newRow("nothing, at the start") << 0 << 0;
    QTest::newRow("nothing, in the middle") << 4 << 4;
    QTest::newRow("nothing, at the end") << 11 << 11;
    QTest::newRow("a word") << 0 << 5;
    QTest::newRow("a word, backwards") << 5 << 0;
    QTest::newRow("the last word") << 6 << 11;
    QTest::newRow("everything") << 0 << 11;
}

// As in a text browser.
void tst_SerialMonitor::theSelectionStays()
{
    QFETCH(int, from);
    QFETCH(int, to);
    SerialMonitor monitor(nullptr);
    QTextBrowser browser;
    for (QTextBrowser *text : {view(monitor), &browser}) {
        text->setPlainText(QStringLiteral("hello world"));
        select(text, from, to);
    }

    monitor.appendToSerialMonitor(QStringLiteral("more"));
    browser.append(QStringLiteral("more"));

    QCOMPARE(selection(*view(monitor)), selection(browser));
    if (to < 11)
        QCOMPARE(selection(*view(monitor)), qMakePair(from, to));
}

void tst_SerialMonitor::automaticScroll_data()
{
    QTest::addColumn<bool>("automatic");
    QTest::addColumn<int>("percent"); // where the view stands before

    QTest::newRow("on, from the start") << true << 0;
    QTest::newRow("on, from the middle") << true << 50;
    QTest::newRow("on, from the end") << true << 100;
    QTest::newRow("off, from the start") << false << 0;
    QTest::newRow("off, from the middle") << false << 50;
    QTest::newRow("off, from the end") << false << 100;
}

void tst_SerialMonitor::automaticScroll()
{
    QFETCH(bool, automatic);
    QFETCH(int, percent);
    SerialMonitor monitor(nullptr);
    monitor.show();
    fill(monitor);
    QScrollBar *bar = view(monitor)->verticalScrollBar();
    QVERIFY(bar->maximum() > 0);
    child<QCheckBox>(monitor, "checkBox")->setChecked(automatic);
    bar->setValue(bar->maximum() * percent / 100);
    const int before = bar->value();
    const int oldMaximum = bar->maximum();

    monitor.appendToSerialMonitor(QStringLiteral("one more"));

    QVERIFY(bar->maximum() > oldMaximum);
    QCOMPARE(bar->value(), automatic ? bar->maximum() : before);
}

void tst_SerialMonitor::automaticScrollGoesToTheEndBeforeTheTextComes()
{
    SerialMonitor monitor(nullptr);
    monitor.show();
    fill(monitor);
    QScrollBar *bar = view(monitor)->verticalScrollBar();
    const int oldMaximum = bar->maximum();
    bar->setValue(0);
    const QSignalSpy moves(bar, &QScrollBar::valueChanged);

    monitor.appendToSerialMonitor(QStringLiteral("one more"));

    QVERIFY(bar->maximum() > oldMaximum);
    QCOMPARE(moves, QList<QVariantList>({{oldMaximum}, {bar->maximum()}}));
}

// Nothing is dropped without new text, even while the view cannot hold all of it.
void tst_SerialMonitor::aTextNarrowedForAMomentStays()
{
    SerialMonitor monitor(nullptr);
    monitor.show();
    const QString received = fillWideView(monitor);
    const double height = view(monitor)->document()->size().height();
    const QSize size = monitor.size();

    monitor.resize(monitor.minimumSizeHint());
    QVERIFY(view(monitor)->document()->size().height() > endOfQtsPage);
    monitor.resize(size);

    QCOMPARE(view(monitor)->document()->size().height(), height);
    QVERIFY(isLaidOutThroughout(*view(monitor)->document()));
    QVERIFY(view(monitor)->toPlainText().remove(QLatin1Char('\n')) == received);
    QTRY_COMPARE_WITH_TIMEOUT(view(monitor)->verticalScrollBar()->maximum(),
                              int(height) - view(monitor)->viewport()->height(), patience);
}

void tst_SerialMonitor::theOldestTextGoesWhenTheViewIsFull_data()
{
    QTest::addColumn<bool>("automatic");
    QTest::newRow("while the view follows the text") << true;
    QTest::newRow("while the view stays where it is") << false;
}

void tst_SerialMonitor::theOldestTextGoesWhenTheViewIsFull()
{
    QFETCH(bool, automatic);
    SerialMonitor monitor(nullptr);
    monitor.show();
    useTallLines(monitor);
    child<QCheckBox>(monitor, "checkBox")->setChecked(automatic);
    const QScrollBar *bar = view(monitor)->verticalScrollBar();

    QString received = letters(500);
    monitor.appendToSerialMonitor(received);
    while (bar->maximum() < mostHeight * 9 / 10) {
        QCOMPARE(view(monitor)->toPlainText(), received);
        const QString more = letters(500);
        received += QLatin1Char('\n') + more;
        monitor.appendToSerialMonitor(more);
    }
    view(monitor)->verticalScrollBar()->setValue(bar->maximum() / 2);
    int place = placeOfTopLine(monitor);
    while (view(monitor)->toPlainText() == received) {
        const QString more = letters(500);
        received += QLatin1Char('\n') + more;
        place += 1 + int(more.size());
        monitor.appendToSerialMonitor(more);
    }

    const QString kept = view(monitor)->toPlainText();
    QVERIFY(kept.size() > received.size() * 8 / 10);
    QVERIFY(received.endsWith(QLatin1Char('\n') + kept));
    if (automatic)
        QCOMPARE(bar->value(), bar->maximum());
    else
        QCOMPARE(placeOfTopLine(monitor), place);
}

void tst_SerialMonitor::theOldestTextGoesHoweverMuchComesAtOnce_data()
{
    QTest::addColumn<double>("portionOfLines"); // of what fits
    QTest::addColumn<int>("tallParagraphs");

    QTest::newRow("in lines") << 3.0 << 0;
    QTest::newRow("in lines, then in tall paragraphs") << 0.2 << 5;
}

void tst_SerialMonitor::theOldestTextGoesHoweverMuchComesAtOnce()
{
    QFETCH(double, portionOfLines);
    QFETCH(int, tallParagraphs);
    SerialMonitor monitor(nullptr);
    monitor.show();
    useTallLines(monitor);
    const double fitting = mostHeight / lineHeightOf(monitor);
    QString received = letters(int(fitting * portionOfLines));
    for (int number = 0; number < tallParagraphs; ++number)
        received += QLatin1Char('\n') + paragraphOf(int(fitting / 5));

    monitor.appendToSerialMonitor(received);

    const double height = view(monitor)->document()->size().height();
    QVERIFY(height <= mostHeight);
    QVERIFY(height > mostHeight / 2);
    QVERIFY(isLaidOutThroughout(*view(monitor)->document()));
    received.replace(QChar(QChar::LineSeparator), QLatin1Char('\n'));
    QVERIFY(received.endsWith(QLatin1Char('\n') + view(monitor)->toPlainText()));
    const QScrollBar *bar = view(monitor)->verticalScrollBar();
    QCOMPARE(bar->maximum(), int(height) - view(monitor)->viewport()->height());
    QCOMPARE(bar->value(), bar->maximum());
}

// There is nothing else to drop, and it is not tall enough for Qt to freeze.
void tst_SerialMonitor::aParagraphThatAloneIsTooTallStaysForNow()
{
    SerialMonitor monitor(nullptr);
    monitor.show();
    useTallLines(monitor);
    const QTextDocument *document = view(monitor)->document();

    monitor.appendToSerialMonitor(paragraphOf(int(mostHeight * 1.02 / lineHeightOf(monitor))));

    QVERIFY(document->size().height() > mostHeight);
    QVERIFY(document->size().height() < endOfQtsPage);
    monitor.appendToSerialMonitor(QStringLiteral("end"));
    QCOMPARE(view(monitor)->toPlainText(), QStringLiteral("end"));
}

void tst_SerialMonitor::aParagraphOfMoreThanATickIsCut()
{
    SerialMonitor monitor(nullptr);
    monitor.show();
    const int fitting = int(mostHeight / lineHeightOf(monitor));

    monitor.appendToSerialMonitor(paragraphOf(3 * fitting) + QStringLiteral("end"));

    const QTextDocument *document = view(monitor)->document();
    QCOMPARE(document->blockCount(), 1);
    QVERIFY(document->size().height() <= mostHeight);
    QCOMPARE(document->characterCount(), mostAtOnce + 1);
    QVERIFY(view(monitor)->toPlainText().endsWith(QStringLiteral("x\nxend")));
}

// A narrower view makes the text taller than a scroll bar can show.
void tst_SerialMonitor::theOldestTextGoesWhenTheViewIsNarrowed()
{
    SerialMonitor monitor(nullptr);
    monitor.show();
    const QString received = fillWideView(monitor);

    monitor.resize(monitor.minimumSizeHint());
    QVERIFY(heightOfLines(received, *view(monitor)->document()) > endOfQtsScrollBar);
    monitor.appendToSerialMonitor(QStringLiteral("end"));

    const double height = view(monitor)->document()->size().height();
    QVERIFY(height <= mostHeight);
    QVERIFY(height > mostHeight / 2);
    const QScrollBar *bar = view(monitor)->verticalScrollBar();
    QTRY_COMPARE_WITH_TIMEOUT(bar->maximum(), int(height) - view(monitor)->viewport()->height(),
                              patience);
    QVERIFY(view(monitor)->toPlainText().endsWith(QStringLiteral("x\nend")));
    QVERIFY(isLaidOutThroughout(*view(monitor)->document()));
}

// Qt 6.8 lays out only the beginning, and the text that goes ends below that.
void tst_SerialMonitor::aNarrowedViewShowsTheOldestTextThatIsLeft()
{
    SerialMonitor monitor(nullptr);
    monitor.show();
    const QString received = fillWideView(monitor);
    child<QCheckBox>(monitor, "checkBox")->setChecked(false);
    QScrollBar *bar = view(monitor)->verticalScrollBar();

    monitor.resize(monitor.minimumSizeHint());
    bar->setValue(int(mostHeight) / 2);
    monitor.appendToSerialMonitor(QStringLiteral("end"));

    QVERIFY(view(monitor)->toPlainText().size() < received.size() / 2);
    QCOMPARE(bar->value(), 0);
    QVERIFY(isLaidOutThroughout(*view(monitor)->document()));
}

// At any width, because the view may be narrowed later.
void tst_SerialMonitor::theOldestTextGoesWhenThereIsTooMuch()
{
    constexpr int paragraph = 1000;
    SerialMonitor monitor(nullptr);
    QString received = QString(paragraph, QLatin1Char('a'));
    received =
        (received + QLatin1Char('\n')).repeated(mostCharacters / (paragraph + 1) - 1) + received;
    view(monitor)->setPlainText(received);
    const int before = view(monitor)->document()->characterCount();
    QVERIFY(before < mostCharacters);

    monitor.appendToSerialMonitor(QString(paragraph, QLatin1Char('b')));

    const int after = view(monitor)->document()->characterCount();
    QVERIFY(after < before);
    QVERIFY(after > mostCharacters * 8 / 10);
    QCOMPARE(view(monitor)->document()->lastBlock().text(), QString(paragraph, QLatin1Char('b')));
}

// With few long paragraphs, a tenth of them is less than one.
void tst_SerialMonitor::theOldestParagraphGoesHoweverFewThereAre()
{
    SerialMonitor monitor(nullptr);
    monitor.show();
    useTallLines(monitor);
    const QTextDocument *document = view(monitor)->document();
    const int fitting = int(mostHeight / lineHeightOf(monitor));
    for (int time = 0; time < 3; ++time)
        monitor.appendToSerialMonitor(paragraphOf(fitting / 3));
    QCOMPARE(document->blockCount(), 3);
    const QSignalSpy layouts(document->documentLayout(), &QAbstractTextDocumentLayout::update);

    monitor.appendToSerialMonitor(paragraphOf(fitting / 100));

    QCOMPARE(document->blockCount(), 3);
    QCOMPARE(layouts.count(), 2); // what comes and what goes, but not once more what stays
    QVERIFY(document->size().height() < mostHeight);
}

void tst_SerialMonitor::clearEmptiesTheViewOnly()
{
    SerialMonitor monitor(nullptr);
    monitor.show();
    monitor.appendToSerialMonitor(QStringLiteral("received"));
    QVERIFY(send(monitor, QStringLiteral("pending"), Sending::ByReturn));
    QTest::keyClicks(line(monitor), QStringLiteral("typed"));

    QVERIFY(click(monitor, "pushButton_2"));

    QCOMPARE(view(monitor)->toPlainText(), QString());
    QCOMPARE(monitor.pendingText(), QStringLiteral("pending"));
    QCOMPARE(line(monitor)->text(), QStringLiteral("typed"));
}

void tst_SerialMonitor::noDeviceIsSelected()
{
    const PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();

    QVERIFY(chooseMenuEntry(window, "actionSerial_Monitor"));

    QCOMPARE(boxes.texts(), QStringList {QStringLiteral("No device selected.")});
    const SeenBox box = boxes.boxes().constFirst();
    QCOMPARE(box.informativeText,
             QStringLiteral("Please select a device before opening serial monitor."));
    QCOMPARE(box.icon, QMessageBox::Warning);
    QCOMPARE(box.buttons, QMessageBox::StandardButtons(QMessageBox::Ok));
    QVERIFY(!serialMonitor(window)->isVisible());
    QCOMPARE(device.requests(), 0);
}

void tst_SerialMonitor::openingAsksTheDeviceFirst()
{
    PluggedDevice device({"Version:Blink__3\r\n", "Version:Fade__4\r\n"});
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(selectRow(window, "listWidget_devicelist", 0));
    QCOMPARE(device.requests(), 1);

    QVERIFY(chooseMenuEntry(window, "actionSerial_Monitor"));

    QCOMPARE(device.requests(), 2);
    QCOMPARE(child<QLabel>(window, "label_programondevice")->text(), QStringLiteral("Fade"));
    QVERIFY(device.isOpen());
    QVERIFY(serialMonitor(window)->isVisible());
    QVERIFY(waitForTicks());
    QCOMPARE(view(*serialMonitor(window))->toPlainText(), QString());
    QVERIFY(device.isOpen());
    QCOMPARE(boxes.texts(), QStringList());
}

void tst_SerialMonitor::openingAgainAsksAgain()
{
    PluggedDevice device;
    MainWindow window;
    window.show();
    QVERIFY(openSerialMonitor(window));
    QCOMPARE(device.requests(), 2);

    QVERIFY(chooseMenuEntry(window, "actionSerial_Monitor"));

    QCOMPARE(device.requests(), 3);
    QVERIFY(device.isOpen());
    QVERIFY(serialMonitor(window)->isVisible());
    device.send("still here");
    QTRY_COMPARE_WITH_TIMEOUT(view(*serialMonitor(window))->toPlainText(),
                              QStringLiteral("still here"), patience);
}

void tst_SerialMonitor::openingReplacesAnotherDevicesPort()
{
    UsbTestbed usb;
    ScriptedDevice first({"Version:Blink__3\r\n"});
    ScriptedDevice second({"Version:Fade__4\r\n"});
    usb.plug(UsbTestbed::uniquePortName(QStringLiteral("A")), first.portName());
    usb.plug(UsbTestbed::uniquePortName(QStringLiteral("B")), second.portName());
    MainWindow window;
    window.show();
    QVERIFY(openSerialMonitor(window));
    QVERIFY(first.isOpen());

    QVERIFY(selectRow(window, "listWidget_devicelist", 1));
    QVERIFY(chooseMenuEntry(window, "actionSerial_Monitor"));

    QVERIFY(!first.isOpen());
    QVERIFY(second.isOpen());
    second.send("from the second");
    QTRY_COMPARE_WITH_TIMEOUT(view(*serialMonitor(window))->toPlainText(),
                              QStringLiteral("from the second"), patience);
}

void tst_SerialMonitor::aDeviceThatDoesNotOpenIsReported()
{
    PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(selectRow(window, "listWidget_devicelist", 0));
    device.pull();

    QVERIFY(chooseMenuEntry(window, "actionSerial_Monitor"));

    QCOMPARE(boxes.texts(), QStringList {QStringLiteral("Error opening device.")});
    const SeenBox box = boxes.boxes().constFirst();
    QCOMPARE(box.informativeText, QStringLiteral("Please check device connection and try again."));
    QCOMPARE(box.icon, QMessageBox::Warning);
    QCOMPARE(box.buttons, QMessageBox::StandardButtons(QMessageBox::Ok));
    QVERIFY(!serialMonitor(window)->isVisible());
    QVERIFY(!device.isOpen());
    QCOMPARE(child<QListWidget>(window, "listWidget_devicelist")->count(), 0);
    QVERIFY(!child<QFrame>(window, "frame_deviceinfo")->isVisible());
}

void tst_SerialMonitor::aDeviceThatDoesNotOpenAgainIsReported()
{
    PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(openSerialMonitor(window));
    device.removeNode();

    QVERIFY(chooseMenuEntry(window, "actionSerial_Monitor"));

    QCOMPARE(boxes.texts(), QStringList {QStringLiteral("Error opening device.")});
    QVERIFY(serialMonitor(window)->isVisible());
    QVERIFY(!device.isOpen());
    QCOMPARE(child<QListWidget>(window, "listWidget_devicelist")->count(), 0);
}

void tst_SerialMonitor::aDeviceThatDoesNotOpenIsReportedBeforeTheScan()
{
    PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    const auto *list = child<QListWidget>(window, "listWidget_devicelist");
    bool known = false;
    bool listed = false;
    boxes.whileOpen([&] {
        known = !window.findSerialInfoByName(device.listedName()).isNull();
        listed = list->count() == 1;
    });
    window.show();
    QVERIFY(selectRow(window, "listWidget_devicelist", 0));
    device.pull();

    QVERIFY(chooseMenuEntry(window, "actionSerial_Monitor"));

    QCOMPARE(boxes.texts(), QStringList {QStringLiteral("Error opening device.")});
    QVERIFY(known);
    QVERIFY(listed);
    QVERIFY(window.findSerialInfoByName(device.listedName()).isNull());
    QCOMPARE(list->count(), 0);
}

void tst_SerialMonitor::choosingItAgainBringsTheWindowBack_data()
{
    QTest::addColumn<bool>("maximized");
    QTest::addColumn<bool>("minimized");

    QTest::newRow("from behind the main window") << false << false;
    QTest::newRow("minimized") << false << true;
    QTest::newRow("maximized, from behind the main window") << true << false;
    QTest::newRow("maximized, then minimized") << true << true;
}

void tst_SerialMonitor::choosingItAgainBringsTheWindowBack()
{
    const QString missing = Desktop::missingProgram();
    if (!missing.isEmpty())
        QSKIP(qPrintable(missing + QStringLiteral(" is not installed: no screen")));
    QFETCH(bool, maximized);
    QFETCH(bool, minimized);
    Session user;
    QVERIFY(user.start());
    QVERIFY(user.chooseMonitor());
    QVERIFY(user.seesMonitorInFront());
    QVERIFY(!maximized || user.maximizeMonitor());
    const QSize size = user.desktop.sizeOf(monitorTitle);
    QVERIFY(!minimized || user.minimizeMonitor());
    QVERIFY(user.goToMainWindow());

    QVERIFY(user.chooseMonitor());

    QVERIFY(user.seesMonitorInFront());
    QCOMPARE(user.desktop.sizeOf(monitorTitle), size);
}

// Most window managers raise a window that is activated, but not all.
void tst_SerialMonitor::choosingItAgainRaisesTheWindow()
{
    const PluggedDevice device;
    MainWindow window;
    window.show();
    QVERIFY(openSerialMonitor(window));

    // This message shows that the platform was asked to raise the window.
    QTest::ignoreMessage(QtWarningMsg, "This plugin does not support raise()");
    QVERIFY(chooseMenuEntry(window, "actionSerial_Monitor"));
}

// The poll hides it in this way when the device is lost.
void tst_SerialMonitor::aWindowHiddenWhileMinimizedIsRestored()
{
    const PluggedDevice device;
    MainWindow window;
    window.show();
    QVERIFY(openSerialMonitor(window));
    serialMonitor(window)->showMinimized();
    serialMonitor(window)->setVisible(false);
    QTRY_VERIFY_WITH_TIMEOUT(!device.isOpen(), patience);

    QVERIFY(chooseMenuEntry(window, "actionSerial_Monitor"));

    QVERIFY(serialMonitor(window)->isVisible());
    QVERIFY(!serialMonitor(window)->isMinimized());
}

void tst_SerialMonitor::textIsKeptWhileTheWindowIsHidden()
{
    PluggedDevice device;
    MainWindow window;
    window.show();
    QVERIFY(openSerialMonitor(window));
    device.send("before");
    QTRY_COMPARE_WITH_TIMEOUT(view(*serialMonitor(window))->toPlainText(), QStringLiteral("before"),
                              patience);

    serialMonitor(window)->close();
    QTRY_VERIFY_WITH_TIMEOUT(!device.isOpen(), patience);
    QVERIFY(chooseMenuEntry(window, "actionSerial_Monitor"));

    QVERIFY(serialMonitor(window)->isVisible());
    QCOMPARE(view(*serialMonitor(window))->toPlainText(), QStringLiteral("before"));
    device.send("after");
    QTRY_COMPARE_WITH_TIMEOUT(view(*serialMonitor(window))->toPlainText(),
                              QStringLiteral("before\nafter"), patience);
}

void tst_SerialMonitor::closingTheWindowClosesThePort()
{
    const PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(openSerialMonitor(window));

    serialMonitor(window)->close();

    QTRY_VERIFY_WITH_TIMEOUT(!device.isOpen(), patience);
    QVERIFY(!serialMonitor(window)->isVisible());
    QVERIFY(window.isVisible());
    QCOMPARE(boxes.texts(), QStringList());
}

void tst_SerialMonitor::theWindowGoesWithTheMainWindow()
{
    const PluggedDevice device;
    QPointer<QMainWindow> monitor;
    {
        MainWindow window;
        window.show();
        QVERIFY(openSerialMonitor(window));
        monitor = serialMonitor(window);
    }

    QVERIFY(monitor.isNull());
    QVERIFY(!device.isOpen());
}

void tst_SerialMonitor::textGoesThereAndBack_data()
{
    addWaysOfSending();
}

void tst_SerialMonitor::textGoesThereAndBack()
{
    QFETCH(Sending, how);
    PluggedDevice device({"Version:Blink__3\r\n", "Version:Blink__3\r\n", "got it\r\n"});
    MainWindow window;
    window.show();
    QVERIFY(openSerialMonitor(window));

    // The device answers the one letter that it knows.
    QVERIFY(send(*serialMonitor(window), QStringLiteral("move"), how));

    QTRY_COMPARE_WITH_TIMEOUT(view(*serialMonitor(window))->toPlainText(), QStringLiteral("got it"),
                              patience);
    QTRY_COMPARE_WITH_TIMEOUT(device.received(), QByteArray("vvmove"), patience);
    QCOMPARE(line(*serialMonitor(window))->text(), QString());
}

QTEST_MAIN(tst_SerialMonitor)

#include "tst_serialmonitor.moc"
