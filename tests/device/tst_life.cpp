// A whole life of the program: it mirrors an online repository, updates a device, talks to it,
// loses it and finds it again, follows the repository to the next version and updates once more.
#include "mainwindow/mainwindow.h"
#include "serialmonitor/serialmonitor.h"
#include "support/applicationdirectory.h"
#include "support/chip.h"
#include "support/messageboxdriver.h"
#include "support/patience.h"
#include "support/repositoryserver.h"
#include "support/windowdriver.h"

#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QTest>
#include <QTextBrowser>

namespace {

const QString repository = QStringLiteral("http://updates.korvex.example/vt_updater/");
const QString upToDate = QStringLiteral("Local repository up-to-date");

} // namespace

class tst_Life : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    // Each continues where the previous one stopped.
    void startsWithAnEmptyRepositoryAndFillsIt();
    void recommendsTheUpdateOfTheDevice();
    void updatesTheDevice();
    void exchangesTextWithTheDevice();
    void losesTheDeviceAndFindsItAgain();
    void followsTheRepositoryToTheNextVersion();
    void updatesTheDeviceAgain();
    void quits();

private:
    void publish(const QStringList &baseNames);
    QString text(const char *label) const { return child<QLabel>(*window, label)->text(); }
    void update();

    RepositoryServer server;
    MainWindow *window = nullptr;
};

void tst_Life::publish(const QStringList &baseNames)
{
    QStringList index;
    for (const QString &name : baseNames) {
        index.append(ApplicationDirectory::sketchFileName(name));
        server.serve(repository + index.last(), {Answer::ok(Chip::image(name))});
    }
    server.serve(repository + QStringLiteral("file_list.txt"),
                 {Answer::ok(index.join(QLatin1Char('\n')).toUtf8())});
}

void tst_Life::initTestCase()
{
    ApplicationDirectory::clear();
    Chip::installAvrdude();
    publish({QStringLiteral("Lantern__1"), QStringLiteral("Metronome__2")});
    window = new MainWindow;
    window->show();
}

void tst_Life::cleanupTestCase()
{
    delete window;
    letFadesEnd();
    ApplicationDirectory::clear();
}

void tst_Life::startsWithAnEmptyRepositoryAndFillsIt()
{
    QCOMPARE(child<QListWidget>(*window, "listWidget_programlist")->count(), 0);
    QTRY_COMPARE_WITH_TIMEOUT(text("label_status"), upToDate, patience);
    QTRY_COMPARE_WITH_TIMEOUT(child<QListWidget>(*window, "listWidget_programlist")->count(), 2,
                              patience);
    QCOMPARE(ApplicationDirectory::repositoryFiles(),
             (QStringList {ApplicationDirectory::sketchFileName(QStringLiteral("Lantern__1")),
                           ApplicationDirectory::sketchFileName(QStringLiteral("Metronome__2"))}));
}

void tst_Life::recommendsTheUpdateOfTheDevice()
{
    QVERIFY(selectRow(*window, "listWidget_programlist", 1));
    QVERIFY(selectRow(*window, "listWidget_devicelist", 0));
    QCOMPARE(text("label_programondevice"), QStringLiteral("Metronome"));
    QCOMPARE(text("label_updaterecommendation"),
             QStringLiteral("<font color='red'>Update recommended.</font>"));
}

void tst_Life::update()
{
    const MessageBoxDriver boxes;
    QVERIFY(click(*window, "pushButton_update"));
    QCOMPARE(boxes.texts(),
             (QStringList {QStringLiteral("DO NOT REMOVE OR TURN OFF THE DEVICE."),
                           QStringLiteral("Upload successfull.")}));
    QCOMPARE(text("label_updaterecommendation"),
             QStringLiteral("<font color='green'>Latest version on device.</font>"));
}

void tst_Life::updatesTheDevice()
{
    update();
    QVERIFY(Chip::holds(QStringLiteral("Metronome__2")));
}

void tst_Life::exchangesTextWithTheDevice()
{
    QVERIFY(chooseMenuEntry(*window, "actionSerial_Monitor"));
    const auto *monitor = window->findChild<SerialMonitor *>();
    auto *line = child<QLineEdit>(*monitor, "lineEdit");
    QTest::keyClicks(line, QStringLiteral("good day"));
    QVERIFY(click(*monitor, "pushButton"));
    // The adapter may hand a line over in two pieces, each a line of the monitor.
    const auto shownText = [monitor] {
        return child<QTextBrowser>(*monitor, "textBrowser")
            ->toPlainText()
            .remove(QLatin1Char('\n'));
    };
    QTRY_VERIFY_WITH_TIMEOUT(shownText().endsWith(QStringLiteral("Heard: good day")), patience);
}

void tst_Life::losesTheDeviceAndFindsItAgain()
{
    const MessageBoxDriver boxes;
    QVERIFY(Chip::unplug());
    QTRY_COMPARE_WITH_TIMEOUT(child<QListWidget>(*window, "listWidget_devicelist")->count(), 0,
                              patience);
    QVERIFY(!window->findChild<SerialMonitor *>()->isVisible());
    QCOMPARE(boxes.texts(), QStringList {QStringLiteral("Unable to communicate with device")});

    QVERIFY(Chip::replug());
    QVERIFY(click(*window, "pushButton_devicelist_refresh"));
    QCOMPARE(child<QListWidget>(*window, "listWidget_devicelist")->count(), 1);
}

void tst_Life::followsTheRepositoryToTheNextVersion()
{
    QVERIFY2(window->areYouOnline(), "this machine has no network interface but the loopback");
    publish({QStringLiteral("Lantern__1"), QStringLiteral("Metronome__3")});
    QVERIFY(click(*window, "pushButton_programlist_refresh"));
    QTRY_COMPARE_WITH_TIMEOUT(
        ApplicationDirectory::repositoryFiles(),
        (QStringList {ApplicationDirectory::sketchFileName(QStringLiteral("Lantern__1")),
                      ApplicationDirectory::sketchFileName(QStringLiteral("Metronome__3"))}),
        patience);
    QTRY_COMPARE_WITH_TIMEOUT(child<QListWidget>(*window, "listWidget_programlist")->count(), 2,
                              patience);
}

void tst_Life::updatesTheDeviceAgain()
{
    recommendsTheUpdateOfTheDevice();
    update();
    QVERIFY(Chip::holds(QStringLiteral("Metronome__3")));
}

void tst_Life::quits()
{
    QVERIFY(window->close());
    QVERIFY(!window->isVisible());
}

QTEST_MAIN(tst_Life)

#include "tst_life.moc"
