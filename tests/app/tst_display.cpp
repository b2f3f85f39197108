// What the screen shows at 96 to 192 dots per inch: the windows are scaled as a whole, no text is
// cut off, and the menu bar leaves room for the status line.
#include "about/about.h"
#include "app/displayscaling.h"
#include "mainwindow/mainwindow.h"
#include "support/applicationdirectory.h"
#include "support/desktop.h"
#include "support/patience.h"
#include "support/scripteddevice.h"
#include "support/windowdriver.h"

#include <QApplication>
#include <QFontInfo>
#include <QFrame>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QPainter>
#include <QProcess>
#include <QPushButton>
#include <QScreen>
#include <QStyle>
#include <QStyleFactory>
#include <QStyleOptionButton>
#include <QTest>
#include <QtMath>

#include <memory>

namespace {

constexpr int textMargin = 20; // pixels, more than any text extends beyond its label
const char *const dotsVariable = "VTUPDATER_TEST_DOTS_PER_INCH";

int dotsPerInch()
{
    return qEnvironmentVariableIntValue(dotsVariable);
}

QImage inPixelsOfTheScreen(const QPixmap &picture)
{
    QImage image = picture.toImage().convertToFormat(QImage::Format_RGB32);
    image.setDevicePixelRatio(1);
    return image;
}

// The window's part of the screen.
QImage seen(const QWidget &window)
{
    return inPixelsOfTheScreen(window.screen()->grabWindow(window.winId()));
}

QColor background(const QWidget &window)
{
    return window.palette().color(QPalette::Window);
}

// The screen's pixels that belong only to this area.
QRect onScreen(const QWidget &window, const QRect &area)
{
    const qreal factor = window.devicePixelRatioF();
    const QPoint topLeft(qCeil(area.left() * factor), qCeil(area.top() * factor));
    const QPoint end(qFloor((area.right() + 1) * factor), qFloor((area.bottom() + 1) * factor));
    return {topLeft, end - QPoint(1, 1)};
}

QRect areaOf(const QWidget &widget)
{
    return QRect(widget.mapTo(widget.window(), QPoint()), widget.size());
}

QRect areaOf(const QMenuBar &bar, QAction *entry)
{
    return bar.actionGeometry(entry).translated(areaOf(bar).topLeft());
}

// Beyond the picture it is empty.
QImage partOf(const QImage &picture, const QRect &area, const QWidget &window)
{
    const QRect part = onScreen(window, area);
    QImage image(part.size(), QImage::Format_RGB32);
    image.fill(background(window));
    QPainter(&image).drawImage(-part.topLeft(), picture);
    return image;
}

QImage seenPart(const QWidget &window, const QRect &area)
{
    return partOf(seen(window), area, window);
}

bool isUniform(const QImage &image)
{
    QImage uniform(image.size(), image.format());
    uniform.fill(image.pixel(0, 0));
    return image == uniform;
}

QMargins marginsAround(const QLabel &label)
{
    const bool centred = label.alignment().testFlag(Qt::AlignHCenter);
    return {centred ? textMargin : 0, textMargin, textMargin, textMargin};
}

// A label like another of a window, drawn at the same place of an empty window, with space around
// it.
class LoneLabel
{
public:
    explicit LoneLabel(const QLabel &model)
        : area(areaOf(model))
        , space(area.marginsAdded(marginsAround(model)))
        , label(model.text(), &window)
    {
        window.setFixedSize(model.window()->size() + QSize(2 * textMargin, 4 * textMargin));
        label.setFont(model.font());
        label.setAlignment(model.alignment());
        label.setGeometry(space);
        drawn = inPixelsOfTheScreen(window.grab());
    }

    QImage text() const { return partOf(drawn, area, window); }

    // Whether the text needs no more space than the model has.
    bool fits() const
    {
        QImage around = partOf(drawn, space, window);
        const QRect inside = onScreen(window, area).translated(-onScreen(window, space).topLeft());
        QPainter(&around).fillRect(inside, background(window));
        return isUniform(around);
    }

private:
    QRect area;
    QRect space;
    QWidget window;
    QLabel label;
    QImage drawn;
};

QList<const QLabel *> shownLabels(const QWidget &window)
{
    QList<const QLabel *> labels;
    const QList<QLabel *> all = window.findChildren<QLabel *>();
    for (const QLabel *label : all) {
        if (label->isVisible() && label->window() == &window && !label->text().isEmpty())
            labels.append(label);
    }
    return labels;
}

// What is wrong with the label's text on the screen; empty if it is complete.
QString flawOf(const QLabel &label)
{
    const LoneLabel alone(label);
    if (!alone.fits())
        return QStringLiteral("too large for its label");
    const QImage text = alone.text();
    const bool whole =
        QTest::qWaitFor([&] { return seenPart(*label.window(), areaOf(label)) == text; }, patience);
    return whole ? QString() : QStringLiteral("covered or cut");
}

// "name: flaw" for each label whose text is not complete.
QStringList flawsOf(const QWidget &window)
{
    QStringList flaws;
    const QList<const QLabel *> labels = shownLabels(window);
    for (const QLabel *label : labels) {
        const QString flaw = flawOf(*label);
        if (!flaw.isEmpty())
            flaws.append(label->objectName() + QStringLiteral(": ") + flaw);
    }
    return flaws;
}

bool textFits(const QPushButton &button)
{
    QStyleOptionButton option;
    option.initFrom(&button);
    option.text = button.text();
    option.icon = button.icon();
    option.iconSize = button.iconSize();
    const QRect contents =
        button.style()->subElementRect(QStyle::SE_PushButtonContents, &option, &button);
    const QSize text = button.fontMetrics().size(Qt::TextShowMnemonic, button.text());
    return text.width() + button.iconSize().width() <= contents.width()
        && text.height() <= contents.height();
}

// The smallest part that holds all letters, which are darker than anything else.
QRect lettersIn(const QImage &image)
{
    QRect letters;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (qGray(image.pixel(x, y)) < 128)
                letters |= QRect(x, y, 1, 1);
        }
    }
    return letters;
}

QImage row(const QImage &image, int y)
{
    return image.copy(0, y, image.width(), 1);
}

// How many rows are equal.
int unchangedRows(const QImage &before, const QImage &after)
{
    int unchanged = 0;
    for (int y = 0; y < before.height(); ++y)
        unchanged += int(row(before, y) == row(after, y));
    return unchanged;
}

// Rows of pixels that differ from the background at the left edge.
QList<QImage> rulesOf(const QImage &bar, const QColor &background)
{
    QList<QImage> rules;
    for (int y = 0; y < bar.height(); ++y) {
        if (bar.pixelColor(0, y) != background)
            rules.append(row(bar, y));
    }
    return rules;
}

} // namespace

class tst_Display : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void windowsAreScaledAsAWhole();
    void textsOfTheWindow();
    void textsOfTheAboutDialog();
    void picturesAreSharp();

    void statusText_data();
    void statusText();
    void menuEntries_data();
    void menuEntries();
    void ruleBelowTheMenuBar_data();
    void ruleBelowTheMenuBar();
    void openMenu_data();
    void openMenu();

private:
    // Why the window cannot look like this; empty when it can.
    QString missingLook(const QString &style, const QFont &font) const;
    // True when the window has come to the screen.
    bool open(const QString &style, const QFont &font);
    // As above; the test that calls it is skipped, or has failed, when this is false.
    bool openOrSkip(const QString &style, const QFont &font);

    QFont usualFont;
    std::unique_ptr<MainWindow> window;
};

void tst_Display::initTestCase()
{
    const QString missing = Desktop::missingProgram();
    if (!missing.isEmpty())
        QSKIP(qPrintable(missing + QStringLiteral(" is not installed: no screen")));
    usualFont = QApplication::font();
}

void tst_Display::init()
{
    ApplicationDirectory::clear();
    ApplicationDirectory::addSketch(QStringLiteral("Metronome__2"));
    QVERIFY(open(QStringLiteral("fusion"), usualFont));
}

void tst_Display::cleanup()
{
    window.reset();
    ApplicationDirectory::clear();
}

QString tst_Display::missingLook(const QString &style, const QFont &font) const
{
    if (!QStyleFactory::keys().contains(style, Qt::CaseInsensitive))
        return style + QStringLiteral(" is not installed");
    if (font != usualFont && QFontInfo(font).family() != font.family())
        return font.family() + QStringLiteral(" is not installed");
    return QString();
}

bool tst_Display::open(const QString &style, const QFont &font)
{
    window.reset();
    QApplication::setStyle(style);
    QApplication::setFont(font);
    window = std::make_unique<MainWindow>();
    window->show();
    return QTest::qWaitForWindowExposed(window.get());
}

bool tst_Display::openOrSkip(const QString &style, const QFont &font)
{
    const QString missing = missingLook(style, font);
    if (!missing.isEmpty()) {
        QTest::qSkip(qPrintable(missing), __FILE__, __LINE__);
        return false;
    }
    return QTest::qVerify(open(style, font), "open(style, font)", "", __FILE__, __LINE__);
}

void tst_Display::windowsAreScaledAsAWhole()
{
    QVERIFY(chooseMenuEntry(*window, "actionAbout"));
    const auto *dialog = window->findChild<about *>();
    const qreal factor = dotsPerInch() / 96.0;
    QCOMPARE(window->size(), QSize(430, 332));
    QCOMPARE(dialog->size(), QSize(264, 215));
    for (const QWidget *shown :
         {static_cast<const QWidget *>(window.get()), static_cast<const QWidget *>(dialog)}) {
        QCOMPARE(shown->devicePixelRatioF(), factor);
        QTRY_COMPARE_WITH_TIMEOUT(seen(*shown).size(), (QSizeF(shown->size()) * factor).toSize(),
                                  patience);
    }
}

void tst_Display::textsOfTheWindow()
{
    const ScriptedDevice device({"Version:Metronome__1\r\n"});
    QVERIFY(selectRow(*window, "listWidget_programlist", 0));
    child<QFrame>(*window, "frame_deviceinfo")->setVisible(true);
    QVERIFY(window->OpenSerialPort(device.portName()));
    const auto *status = child<QLabel>(*window, "label_status");
    QTRY_VERIFY_WITH_TIMEOUT(!status->text().isEmpty(), patience);
    QCOMPARE(shownLabels(*window).size(), 6);
    QCOMPARE(flawsOf(*window).join(QStringLiteral(", ")), QString());
    QVERIFY(textFits(*child<QPushButton>(*window, "pushButton_update")));
}

void tst_Display::textsOfTheAboutDialog()
{
    QVERIFY(chooseMenuEntry(*window, "actionAbout"));
    const auto *dialog = window->findChild<about *>();
    QCOMPARE(shownLabels(*dialog).size(), 8);
    QCOMPARE(flawsOf(*dialog).join(QStringLiteral(", ")), QString());
}

// The emblem's own picture is larger than the button shows it at 96 dots per inch.
void tst_Display::picturesAreSharp()
{
    const auto *button = child<QPushButton>(*window, "pushButton_update");
    const QPixmap emblem = button->icon().pixmap(button->iconSize());
    const int height = qMin(111, qRound(50 * dotsPerInch() / 96.0));
    QVERIFY2(emblem.height() == height, qPrintable(QString::number(emblem.height())));
}

void tst_Display::statusText_data()
{
    QTest::addColumn<QString>("style");
    QTest::addColumn<QFont>("font");

    for (const char *style : {"Fusion", "Breeze"}) {
        QTest::addRow("%s, the usual letters", style) << QString::fromLatin1(style) << usualFont;
        QTest::addRow("%s, DejaVu Sans of 10 points", style)
            << QString::fromLatin1(style) << QFont(QStringLiteral("DejaVu Sans"), 10);
        QTest::addRow("%s, Noto Sans of 10 points", style)
            << QString::fromLatin1(style) << QFont(QStringLiteral("Noto Sans"), 10);
    }
}

void tst_Display::statusText()
{
    QFETCH(QString, style);
    QFETCH(QFont, font);

    if (!openOrSkip(style, font))
        return;
    auto *status = child<QLabel>(*window, "label_status");
    QTRY_VERIFY_WITH_TIMEOUT(!status->text().isEmpty(), patience);
    for (const QString &text :
         {QStringLiteral("Checking online repository for files."),
          QStringLiteral("Error contacting online repository. Are you online?"),
          QStringLiteral("Failed creating file...No space left on device"),
          QStringLiteral("Failed creating file...Too many levels of symbolic links")}) {
        status->setText(text);
        const QImage expected = LoneLabel(*status).text();
        QVERIFY(!isUniform(expected));
        QTRY_COMPARE_WITH_TIMEOUT(seenPart(*window, areaOf(*status)), expected, patience);
    }
}

void tst_Display::menuEntries_data()
{
    statusText_data();
    ruleBelowTheMenuBar_data();
}

// A bar with the style's own padding shows them whole.
void tst_Display::menuEntries()
{
    QFETCH(QString, style);
    QFETCH(QFont, font);

    if (!openOrSkip(style, font))
        return;
    QMainWindow padded;
    padded.setFixedSize(window->size());
    const auto *bar = child<QMenuBar>(*window, "menuBar");
    for (const QAction *entry : bar->actions())
        padded.menuBar()->addMenu(entry->text());
    const QImage drawn = inPixelsOfTheScreen(padded.grab());
    QVERIFY(bar->height() <= padded.menuBar()->height());
    for (int i = 0; i < bar->actions().size(); ++i) {
        const QImage whole =
            partOf(drawn, areaOf(*padded.menuBar(), padded.menuBar()->actions().at(i)), padded);
        const QImage compact = seenPart(*window, areaOf(*bar, bar->actions().at(i)));
        QVERIFY(lettersIn(whole).height() > font.pointSize() / 2);
        QCOMPARE(compact.copy(lettersIn(compact)), whole.copy(lettersIn(whole)));
    }
}

void tst_Display::ruleBelowTheMenuBar_data()
{
    QTest::addColumn<QString>("style");
    QTest::addColumn<QFont>("font");

    for (const char *style : {"Fusion", "Breeze"}) {
        for (const int size : {7, 9, 12, 16, 24}) {
            QTest::addRow("%s, letters of %d points", style, size)
                << QString::fromLatin1(style) << QFont(QStringLiteral("DejaVu Sans"), size);
        }
    }
}

void tst_Display::ruleBelowTheMenuBar()
{
    QFETCH(QString, style);
    QFETCH(QFont, font);

    if (!openOrSkip(style, font))
        return;
    const auto *bar = child<QMenuBar>(*window, "menuBar");
    QVERIFY(!bar->isNativeMenuBar());
    const QList<QImage> rules = rulesOf(seenPart(*window, areaOf(*bar)), background(*window));
    // Breeze has none before version 6. Then its line ends one screen pixel before the window.
    const bool isBreeze = style == QLatin1String("Breeze");
    QVERIFY(!rules.isEmpty() || isBreeze);
    for (const QImage &rule : rules)
        QVERIFY(isUniform(rule.copy(0, 0, rule.width() - int(isBreeze), 1)));
}

void tst_Display::openMenu_data()
{
    QTest::addColumn<QString>("style");

    QTest::newRow("Fusion") << QStringLiteral("Fusion");
    QTest::newRow("Breeze") << QStringLiteral("Breeze");
}

// The highlight fills the entry from its upper to its lower edge, and the menu is right below it.
void tst_Display::openMenu()
{
    QFETCH(QString, style);

    if (!openOrSkip(style, usualFont))
        return;
    auto *bar = child<QMenuBar>(*window, "menuBar");
    const auto *menu = child<QMenu>(*window, "menuHelp");
    const QRect entry = bar->actionGeometry(menu->menuAction());
    const QImage plain = seenPart(*window, areaOf(*bar, menu->menuAction()));
    QTest::mouseClick(bar, Qt::LeftButton, Qt::NoModifier, entry.center());
    QTRY_VERIFY_WITH_TIMEOUT(menu->isVisible(), patience);
    // Scaled, Fusion leaves out the uppermost row of pixels, as it does in a bar of its own height.
    QTRY_VERIFY_WITH_TIMEOUT(
        unchangedRows(plain, seenPart(*window, areaOf(*bar, menu->menuAction()))) <= 1, patience);
    QCOMPARE(menu->mapToGlobal(QPoint()), bar->mapToGlobal(entry.bottomLeft() + QPoint(0, 1)));
    QTest::keyClick(bar, Qt::Key_Escape);
    QTRY_VERIFY_WITH_TIMEOUT(!menu->isVisible(), patience);
}

namespace {

int runTests(int argc, char *argv[])
{
    scaleWithTheDisplay();
    const QApplication application(argc, argv);
    tst_Display tests;
    return QTest::qExec(&tests, argc, argv);
}

// The tests in another process, on a screen with this many dots per inch.
int runOnScreen(int dotsPerInch)
{
    Desktop desktop;
    if (!desktop.start(dotsPerInch))
        qFatal("no screen");
    QProcessEnvironment environment = desktop.environment(QProcessEnvironment::systemEnvironment());
    environment.insert(QLatin1String(dotsVariable), QString::number(dotsPerInch));
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.start(QCoreApplication::applicationFilePath(), QCoreApplication::arguments().mid(1));
    process.waitForFinished(-1);
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : 1;
}

} // namespace

int main(int argc, char *argv[])
{
    if (dotsPerInch() != 0 || !Desktop::missingProgram().isEmpty())
        return runTests(argc, argv);

    const QCoreApplication application(argc, argv);
    int failures = 0;
    for (const int dots : {96, 120, 144, 192}) {
        printf("Dots per inch: %d\n", dots);
        fflush(stdout);
        failures += runOnScreen(dots);
    }
    return failures;
}

#include "tst_display.moc"
