// Message boxes, the fade and the optional style.
#include "mainwindow/mainwindow.h"
#include "support/applicationdirectory.h"
#include "support/messageboxdriver.h"
#include "support/patience.h"
#include "support/windowdriver.h"

#include <QApplication>
#include <QGraphicsOpacityEffect>
#include <QLabel>
#include <QListWidget>
#include <QPointer>
#include <QPropertyAnimation>
#include <QScrollBar>
#include <QTest>

#include <memory>

namespace {

using Answer = MessageBoxDriver::Answer;

const QString labelSheet =
    QStringLiteral("QLabel {color : rgb(163,118,20);        font-weight: bold }");
const QString listSheet = QStringLiteral(
    "QListWidget::item {background-color: white;}QListWidget::item:selected {background-color: "
    "rgb(163,118,20);color: rgb(255,255,255)}QListWidget::item:hover:!selected{background-color: "
    "rgba(163,118,20,80);}");
const QString scrollBarSheet = QStringLiteral(
    "QScrollBar:vertical {border: 2px solid grey;background: rgb(163,118,20);width: 10px;margin: "
    "5px 0px 5px 0px;}QScrollBar::handle:vertical {background: white;min-width: 10px;}");

// An animation as it was when it deleted itself.
struct EndedFade
{
    QByteArray property;
    QEasingCurve::Type easing = QEasingCurve::Linear;
    int duration = 0; // ms
    QVariant startValue;
    QVariant endValue;
    bool hasParent = false;
    QObject *effect = nullptr;
};

// Animations have no owner and delete themselves; only the event that does so can be seen.
class FadeWatcher : public QObject
{
    Q_OBJECT

public:
    FadeWatcher() { qApp->installEventFilter(this); }

    QList<EndedFade> ended;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        const auto *animation = qobject_cast<QPropertyAnimation *>(watched);
        if (animation != nullptr && event->type() == QEvent::DeferredDelete)
            ended.append(takeDown(*animation));
        return QObject::eventFilter(watched, event);
    }

private:
    static EndedFade takeDown(const QPropertyAnimation &animation)
    {
        EndedFade fade;
        fade.property = animation.propertyName();
        fade.easing = animation.easingCurve().type();
        fade.duration = animation.duration();
        fade.startValue = animation.startValue();
        fade.endValue = animation.endValue();
        fade.hasParent = animation.parent() != nullptr;
        fade.effect = animation.targetObject();
        return fade;
    }
};

QGraphicsOpacityEffect *effectOf(const QWidget &widget)
{
    return qobject_cast<QGraphicsOpacityEffect *>(widget.graphicsEffect());
}

} // namespace

class tst_Appearance : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void boxes_data();
    void boxes();
    void answers_data();
    void answers();
    void boxesStandAlone_data();
    void boxesStandAlone();

    void fade();
    void fadesAgain();
    void fadeEndsWithItsEffect();

    void styleIsNotApplied();
    void style();
    void styleSelectsTheFirstProgram();
    void styleWithoutPrograms();

private:
    int show(bool warning, const QString &text, const QString &informativeText,
             QMessageBox::StandardButtons buttons);

    std::unique_ptr<MainWindow> window;
};

void tst_Appearance::init()
{
    ApplicationDirectory::clear();
    ApplicationDirectory::addSketch(QStringLiteral("Blink__2"));
    ApplicationDirectory::addSketch(QStringLiteral("Fade__1"));
    window = std::make_unique<MainWindow>();
}

void tst_Appearance::cleanup()
{
    window.reset();
    ApplicationDirectory::clear();
}

int tst_Appearance::show(bool warning, const QString &text, const QString &informativeText,
                         QMessageBox::StandardButtons buttons)
{
    return warning ? window->displayWarningBox(text, informativeText, buttons)
                   : window->displayInformationBox(text, informativeText, buttons);
}

void tst_Appearance::boxes_data()
{
    QTest::addColumn<bool>("warning");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("informativeText");
    QTest::addColumn<int>("buttons");
    QTest::addColumn<int>("icon");
    QTest::addColumn<int>("defaultButton");

    const QString text = QStringLiteral("Upload successfull.");
    const QString informative = QStringLiteral("Uploaded program ready to be used.");
    const int ok = QMessageBox::Ok;
    QTest::newRow("a warning shows the warning sign")
        << true << text << informative << ok << int(QMessageBox::Warning) << ok;
    QTest::newRow("an information shows no sign")
        << false << text << informative << ok << int(QMessageBox::NoIcon) << ok;
    QTest::newRow("a warning with a choice prefers Ok")
        << true << text << informative << int(QMessageBox::Cancel | QMessageBox::Ok)
        << int(QMessageBox::Warning) << ok;
    QTest::newRow("an information with a choice prefers Ok")
        << false << text << informative << int(QMessageBox::Save | QMessageBox::Ok)
        << int(QMessageBox::NoIcon) << ok;
    QTest::newRow("a warning without Ok prefers nothing")
        << true << text << informative << int(QMessageBox::Yes | QMessageBox::No)
        << int(QMessageBox::Warning) << int(QMessageBox::NoButton);
    QTest::newRow("an information without Ok prefers nothing")
        << false << text << informative << int(QMessageBox::Yes | QMessageBox::No)
        << int(QMessageBox::NoIcon) << int(QMessageBox::NoButton);
    QTest::newRow("texts with blanks at the ends and marks keep them")
        << true << QStringLiteral("  100 % <b>& more</b>\n") << QStringLiteral(" %1\tC:\\x ") << ok
        << int(QMessageBox::Warning) << ok;
    QTest::newRow("a warning without texts")
        << true << QString() << QString() << ok << int(QMessageBox::Warning) << ok;
}

void tst_Appearance::boxes()
{
    QFETCH(bool, warning);
    QFETCH(QString, text);
    QFETCH(QString, informativeText);
    QFETCH(int, buttons);

    const bool hasOk = (buttons & QMessageBox::Ok) != 0;
    const MessageBoxDriver driver({hasOk ? Answer::PressOk : Answer::PressYes});
    show(warning, text, informativeText, QMessageBox::StandardButtons(buttons));
    QCOMPARE(driver.boxes().size(), 1);
    const SeenBox &box = driver.boxes().first();
    QCOMPARE(box.text, text);
    QCOMPARE(box.informativeText, informativeText);
    QCOMPARE(box.title, QStringLiteral("Vantrel Updater"));
    QCOMPARE(int(box.buttons), buttons);
    QTEST(int(box.icon), "icon");
    QTEST(int(box.defaultButton), "defaultButton");
}

void tst_Appearance::answers_data()
{
    QTest::addColumn<int>("buttons");
    QTest::addColumn<int>("answer");
    QTest::addColumn<int>("result");

    const int ok = QMessageBox::Ok;
    const int okCancel = QMessageBox::Ok | QMessageBox::Cancel;
    const int yesNo = QMessageBox::Yes | QMessageBox::No;
    const int cancel = QMessageBox::Cancel;
    QTest::newRow("Ok alone: pressed") << ok << int(Answer::PressOk) << ok;
    QTest::newRow("Ok alone: Escape counts as Ok") << ok << int(Answer::PressEscape) << ok;
    QTest::newRow("Ok alone: closing counts as Ok") << ok << int(Answer::CloseBox) << ok;
    QTest::newRow("Ok alone: Return") << ok << int(Answer::PressReturn) << ok;
    QTest::newRow("Ok or Cancel: Ok pressed") << okCancel << int(Answer::PressOk) << ok;
    QTest::newRow("Ok or Cancel: Cancel pressed") << okCancel << int(Answer::PressCancel) << cancel;
    QTest::newRow("Ok or Cancel: Escape counts as Cancel")
        << okCancel << int(Answer::PressEscape) << cancel;
    QTest::newRow("Ok or Cancel: closing counts as Cancel")
        << okCancel << int(Answer::CloseBox) << cancel;
    QTest::newRow("Ok or Cancel: Return counts as Ok")
        << okCancel << int(Answer::PressReturn) << ok;
    QTest::newRow("Yes or No: Yes pressed")
        << yesNo << int(Answer::PressYes) << int(QMessageBox::Yes);
    QTest::newRow("Yes or No: Escape counts as No")
        << yesNo << int(Answer::PressEscape) << int(QMessageBox::No);
}

void tst_Appearance::answers()
{
    QFETCH(int, buttons);
    QFETCH(int, answer);

    for (const bool warning : {true, false}) {
        const MessageBoxDriver driver({Answer(answer)});
        QTEST(show(warning, QStringLiteral("Question?"), QString(),
                   QMessageBox::StandardButtons(buttons)),
              "result");
        QCOMPARE(driver.boxes().size(), 1);
    }
}

void tst_Appearance::boxesStandAlone_data()
{
    QTest::addColumn<bool>("warning");

    QTest::newRow("a warning") << true;
    QTest::newRow("an information") << false;
}

void tst_Appearance::boxesStandAlone()
{
    QFETCH(bool, warning);

    window->show();
    const QPixmap emblem(QStringLiteral(":/images/korvex_icon.png"));
    QImage icon;
    MessageBoxDriver driver;
    driver.whileOpen([&icon, &emblem] {
        icon = QApplication::activeModalWidget()->windowIcon().pixmap(emblem.size()).toImage();
    });
    show(warning, QStringLiteral("Text"), QString(), QMessageBox::Ok);
    const SeenBox &box = driver.boxes().first();
    QVERIFY(!box.hasParent);
    QVERIFY(box.hasWindowIcon);
    QCOMPARE(icon, emblem.toImage());
    QCOMPARE(box.modality, Qt::ApplicationModal);
    // The box has been destroyed.
    const QWidgetList topLevels = QApplication::topLevelWidgets();
    for (const QWidget *widget : topLevels)
        QVERIFY(qobject_cast<const QMessageBox *>(widget) == nullptr);
}

void tst_Appearance::fade()
{
    QWidget widget;
    const FadeWatcher watcher;
    window->setVisibleWithFade(&widget);
    QVERIFY(widget.isVisible());
    const QPointer<QGraphicsOpacityEffect> effect = effectOf(widget);
    QVERIFY(effect != nullptr);
    QCOMPARE(effect->parent(), &widget);
    QCOMPARE(effect->opacity(), 0.01);

    QTRY_COMPARE_WITH_TIMEOUT(watcher.ended.size(), 1, patience);
    QCOMPARE(effect->opacity(), 1.0);
    const EndedFade &fade = watcher.ended.first();
    QCOMPARE(fade.effect, effect.data());
    QCOMPARE(fade.property, QByteArrayLiteral("opacity"));
    QCOMPARE(fade.easing, QEasingCurve::InOutQuad);
    QCOMPARE(fade.duration, 500);
    QCOMPARE(fade.startValue, QVariant(0.01));
    QCOMPARE(fade.endValue, QVariant(1.0));
    QVERIFY(!fade.hasParent);
    QVERIFY(widget.isVisible());
}

void tst_Appearance::fadesAgain()
{
    QWidget widget;
    const FadeWatcher watcher;
    window->setVisibleWithFade(&widget);
    const QPointer<QGraphicsOpacityEffect> first = effectOf(widget);
    window->setVisibleWithFade(&widget);
    QVERIFY(first.isNull());
    const QPointer<QGraphicsOpacityEffect> second = effectOf(widget);
    QVERIFY(second != nullptr);
    QCOMPARE(second->opacity(), 0.01);
    // The first fade has lost its effect on the way; the second runs to its end.
    QTRY_COMPARE_WITH_TIMEOUT(watcher.ended.size(), 2, patience);
    QCOMPARE(widget.graphicsEffect(), second.data());
    QCOMPARE(second->opacity(), 1.0);
}

void tst_Appearance::fadeEndsWithItsEffect()
{
    auto widget = std::make_unique<QWidget>();
    const FadeWatcher watcher;
    window->setVisibleWithFade(widget.get());
    widget->setGraphicsEffect(nullptr);
    QTRY_COMPARE_WITH_TIMEOUT(watcher.ended.size(), 1, patience);
    window->setVisibleWithFade(widget.get());
    widget.reset();
    QTRY_COMPARE_WITH_TIMEOUT(watcher.ended.size(), 2, patience);
    QVERIFY(watcher.ended.last().effect == nullptr);
}

void tst_Appearance::styleIsNotApplied()
{
    window->show();
    QTRY_VERIFY_WITH_TIMEOUT(!child<QLabel>(*window, "label_status")->text().isEmpty(), patience);
    QCOMPARE(window->styleSheet(), QString());
    const QList<QWidget *> widgets = window->findChildren<QWidget *>();
    for (const QWidget *widget : widgets)
        QCOMPARE(widget->styleSheet(), QString());
}

void tst_Appearance::style()
{
    QVERIFY(QMetaObject::invokeMethod(window.get(), "set_style_1"));
    QMap<QString, QString> sheets;
    const QList<QWidget *> widgets = window->findChildren<QWidget *>();
    for (const QWidget *widget : widgets) {
        if (!widget->styleSheet().isEmpty() && qobject_cast<const QScrollBar *>(widget) == nullptr)
            sheets.insert(widget->objectName(), widget->styleSheet());
    }
    const QMap<QString, QString> expected = {
        {QStringLiteral("label_static_devicelist"), labelSheet},
        {QStringLiteral("label_static_programlist"), labelSheet},
        {QStringLiteral("label_static_programondevice"), labelSheet},
        {QStringLiteral("label_status"), labelSheet},
        {QStringLiteral("listWidget_programlist"), listSheet},
        {QStringLiteral("listWidget_devicelist"), listSheet},
    };
    QCOMPARE(sheets, expected);
    for (const char *name : {"listWidget_devicelist", "listWidget_programlist"}) {
        const auto *list = child<QListWidget>(*window, name);
        QCOMPARE(list->verticalScrollBar()->styleSheet(), scrollBarSheet);
        QCOMPARE(list->horizontalScrollBar()->styleSheet(), QString());
    }
}

void tst_Appearance::styleSelectsTheFirstProgram()
{
    const auto *list = child<QListWidget>(*window, "listWidget_programlist");
    QVERIFY(list->selectedItems().isEmpty());
    QVERIFY(QMetaObject::invokeMethod(window.get(), "set_style_1"));
    QCOMPARE(list->selectedItems(), QList<QListWidgetItem *>({list->item(0)}));
}

void tst_Appearance::styleWithoutPrograms()
{
    ApplicationDirectory::clear();
    MainWindow empty;
    QVERIFY(QMetaObject::invokeMethod(&empty, "set_style_1"));
    const auto *list = child<QListWidget>(empty, "listWidget_programlist");
    QCOMPARE(list->styleSheet(), listSheet);
    QVERIFY(list->selectedItems().isEmpty());
}

QTEST_MAIN(tst_Appearance)

#include "tst_appearance.moc"
