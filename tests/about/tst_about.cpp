// The about dialog: what it shows, and that nothing in it has an effect.
#include "about/about.h"
#include "mainwindow/mainwindow.h"
#include "support/applicationdirectory.h"
#include "support/windowdriver.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDesktopServices>
#include <QLabel>
#include <QSignalSpy>
#include <QTest>
#include <QUrl>

#include <memory>

namespace {

constexpr int step = 4; // pixels, less than a letter

// Clicks along the middle of the label until the link has been hit.
bool clickLink(QLabel *label, const QSignalSpy &activated)
{
    for (int x = 0; x < label->width() && activated.isEmpty(); x += step)
        QTest::mouseClick(label, Qt::LeftButton, Qt::NoModifier, QPoint(x, label->height() / 2));
    return !activated.isEmpty();
}

QMap<QString, QString> textsOf(const QWidget &window)
{
    QMap<QString, QString> texts;
    const QList<QLabel *> labels = window.findChildren<QLabel *>();
    for (const QLabel *label : labels)
        texts.insert(label->objectName(), label->text());
    return texts;
}

} // namespace

class tst_About : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void noSignalsAndSlots();
    void versionAsGiven_data();
    void versionAsGiven();
    void startsHidden();
    void size();
    void opensModeless();
    void opensTwice();
    void reopens();
    void noButtons();
    void linksDoNothing_data();
    void linksDoNothing();

public slots:
    // Takes what would go to the browser.
    void openUrl(const QUrl &url) { opened.append(url); }

private:
    about *dialog() const;

    QList<QUrl> opened;
    std::unique_ptr<MainWindow> window;
};

void tst_About::init()
{
    ApplicationDirectory::clear();
    window = std::make_unique<MainWindow>();
    window->show();
    opened.clear();
    for (const char *scheme : {"http", "https"})
        QDesktopServices::setUrlHandler(QLatin1String(scheme), this, "openUrl");
}

void tst_About::cleanup()
{
    for (const char *scheme : {"http", "https"})
        QDesktopServices::unsetUrlHandler(QLatin1String(scheme));
    window.reset();
    ApplicationDirectory::clear();
}

about *tst_About::dialog() const
{
    return window->findChild<about *>();
}

void tst_About::noSignalsAndSlots()
{
    const QMetaObject &meta = about::staticMetaObject;
    QCOMPARE(QLatin1String(meta.className()), QLatin1String("about"));
    QCOMPARE(meta.superClass(), &QDialog::staticMetaObject);
    QCOMPARE(meta.methodCount(), meta.methodOffset());
    QCOMPARE(meta.propertyCount(), meta.propertyOffset());
}

void tst_About::versionAsGiven_data()
{
    QTest::addColumn<QString>("version");

    QTest::newRow("a version") << QStringLiteral("1.0 beta 6");
    QTest::newRow("blanks at its ends are kept") << QStringLiteral("  2.1 ");
    QTest::newRow("no version") << QString();
}

void tst_About::versionAsGiven()
{
    QFETCH(QString, version);

    about dialog(nullptr);
    const auto *label = child<QLabel>(dialog, "label_version");
    QCOMPARE(label->text(), QString());
    dialog.setVersion(QStringLiteral("before"));
    dialog.setVersion(version);
    QCOMPARE(label->text(), version);
}

void tst_About::startsHidden()
{
    QCOMPARE(window->findChildren<about *>().size(), 1);
    QVERIFY(dialog()->isHidden());
    QCOMPARE(dialog()->parentWidget(), window.get());
    QVERIFY(dialog()->isWindow());
}

void tst_About::size()
{
    const QSize fixed(264, 215);
    QVERIFY(chooseMenuEntry(*window, "actionAbout"));
    QCOMPARE(dialog()->size(), fixed);
    QCOMPARE(dialog()->minimumSize(), fixed);
    QCOMPARE(dialog()->maximumSize(), fixed);
    dialog()->resize(600, 400);
    QCOMPARE(dialog()->size(), fixed);
    dialog()->resize(10, 10);
    QCOMPARE(dialog()->size(), fixed);
}

void tst_About::opensModeless()
{
    QVERIFY(chooseMenuEntry(*window, "actionAbout"));
    // The menu entry is available again at once, and the main window still accepts clicks.
    QVERIFY(dialog()->isVisible());
    QVERIFY(!dialog()->isModal());
    QVERIFY(QApplication::activeModalWidget() == nullptr);
    QVERIFY(window->isEnabled());
}

void tst_About::opensTwice()
{
    const about *first = dialog();
    for (int i = 0; i < 2; ++i) {
        QVERIFY(chooseMenuEntry(*window, "actionAbout"));
        QCOMPARE(dialog(), first);
        QVERIFY(dialog()->isVisible());
        QCOMPARE(child<QLabel>(*dialog(), "label_version")->text(), QStringLiteral("1.0 beta 6"));
        QCOMPARE(window->findChildren<about *>().size(), 1);
    }
}

void tst_About::reopens()
{
    const about *first = dialog();
    QVERIFY(chooseMenuEntry(*window, "actionAbout"));
    QVERIFY(dialog()->close());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(dialog()->isHidden());
    QVERIFY(window->isVisible());

    QVERIFY(chooseMenuEntry(*window, "actionAbout"));
    QCOMPARE(dialog(), first);
    QVERIFY(dialog()->isVisible());
    QCOMPARE(child<QLabel>(*dialog(), "label_version")->text(), QStringLiteral("1.0 beta 6"));
}

void tst_About::noButtons()
{
    QVERIFY(dialog()->findChildren<QAbstractButton *>().isEmpty());
}

void tst_About::linksDoNothing_data()
{
    QTest::addColumn<QString>("label");

    QTest::newRow("the developer's site") << QStringLiteral("label_2");
    QTest::newRow("Qt") << QStringLiteral("label_5");
    QTest::newRow("avrdude") << QStringLiteral("label_4");
    QTest::newRow("libusb") << QStringLiteral("label_3");
}

void tst_About::linksDoNothing()
{
    QFETCH(QString, label);

    QVERIFY(chooseMenuEntry(*window, "actionAbout"));
    QVERIFY(QTest::qWaitForWindowExposed(dialog()));
    const QMap<QString, QString> before = textsOf(*dialog());
    auto *link = dialog()->findChild<QLabel *>(label);
    const QSignalSpy activated(link, &QLabel::linkActivated);
    QVERIFY(clickLink(link, activated));

    QVERIFY(opened.isEmpty());
    QVERIFY(dialog()->isVisible());
    QCOMPARE(textsOf(*dialog()), before);
    QVERIFY(QApplication::activeModalWidget() == nullptr);
}

QTEST_MAIN(tst_About)

#include "tst_about.moc"
