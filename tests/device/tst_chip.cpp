// The program and a real chip: the query after a reset, an update by avrdude, the serial monitor
// and a pulled plug. Runs on a simulated device that holds Metronome, version 1.
#include "mainwindow/mainwindow.h"
#include "serialmonitor/serialmonitor.h"
#include "support/applicationdirectory.h"
#include "support/chip.h"
#include "support/messageboxdriver.h"
#include "support/patience.h"
#include "support/windowdriver.h"

#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProcess>
#include <QTest>
#include <QTextBrowser>

namespace {

// In the middle of the upload: after all requests for the version, and within the first half of the
// 3 kB of the image.
constexpr int bytesInto = 1000;

const QString updateRecommended = QStringLiteral("<font color='red'>Update recommended.</font>");
const QString latestVersion =
    QStringLiteral("<font color='green'>Latest version on device.</font>");

QString labelText(const MainWindow &window, const char *name)
{
    return child<QLabel>(window, name)->text();
}

void send(const SerialMonitor &monitor, const QString &text)
{
    auto *line = child<QLineEdit>(monitor, "lineEdit");
    QTest::keyClicks(line, text);
    QTest::keyClick(line, Qt::Key_Return);
}

// Without the line ends: the adapter may hand a line over in two pieces, each a line of the
// monitor.
QString shownText(const SerialMonitor &monitor)
{
    return child<QTextBrowser>(monitor, "textBrowser")->toPlainText().remove(QLatin1Char('\n'));
}

} // namespace

class tst_Chip : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void cleanupTestCase();

    void answersTheQueryAfterTheResetOfOpening();
    void isAskedAgainByTheRefreshButton();
    void talksToTheSerialMonitor();
    void isMissedWhenThePlugIsPulled();
    void isMissedTwiceWhenTextWasPending();
    void isWrittenByAvrdude();
    void recoversFromAPlugPulledDuringTheUpload();

private:
    void openMonitor();

    MainWindow *window = nullptr;
    SerialMonitor *monitor = nullptr;
};

void tst_Chip::init()
{
    Chip::fillApplicationDirectory();
    window = new MainWindow;
    window->show();
    monitor = window->findChild<SerialMonitor *>();
    QVERIFY(selectRow(*window, "listWidget_programlist", 1));
}

void tst_Chip::cleanup()
{
    delete window;
    ApplicationDirectory::clear();
}

void tst_Chip::cleanupTestCase()
{
    letFadesEnd();
}

void tst_Chip::openMonitor()
{
    QVERIFY(selectRow(*window, "listWidget_devicelist", 0));
    QVERIFY(chooseMenuEntry(*window, "actionSerial_Monitor"));
    QVERIFY(monitor->isVisible());
}

void tst_Chip::answersTheQueryAfterTheResetOfOpening()
{
    QVERIFY(selectRow(*window, "listWidget_devicelist", 0));
    QCOMPARE(labelText(*window, "label_programondevice"), QStringLiteral("Metronome"));
    QCOMPARE(labelText(*window, "label_updaterecommendation"), updateRecommended);
}

void tst_Chip::isAskedAgainByTheRefreshButton()
{
    QVERIFY(selectRow(*window, "listWidget_devicelist", 0));
    child<QLabel>(*window, "label_programondevice")->clear();
    const MessageBoxDriver boxes;
    QVERIFY(click(*window, "pushButton_programondevice_refresh"));
    QCOMPARE(labelText(*window, "label_programondevice"), QStringLiteral("Metronome"));
    QCOMPARE(boxes.texts(), QStringList());
}

void tst_Chip::talksToTheSerialMonitor()
{
    openMonitor();
    send(*monitor, QStringLiteral("hello"));
    QTRY_VERIFY_WITH_TIMEOUT(shownText(*monitor).endsWith(QStringLiteral("Heard: hello")),
                             patience);
    send(*monitor, QStringLiteral("v"));
    QTRY_VERIFY_WITH_TIMEOUT(shownText(*monitor).endsWith(QStringLiteral("Version:Metronome__1")),
                             patience);
}

void tst_Chip::isMissedWhenThePlugIsPulled()
{
    openMonitor();
    MessageBoxDriver boxes;
    boxes.keepOpenFor(1000);
    QVERIFY(Chip::unplug());
    QTRY_VERIFY_WITH_TIMEOUT(!monitor->isVisible(), patience);
    QCOMPARE(boxes.texts(), QStringList {QStringLiteral("Unable to communicate with device")});
    QCOMPARE(child<QListWidget>(*window, "listWidget_devicelist")->count(), 0);

    QVERIFY(Chip::replug());
    QVERIFY(click(*window, "pushButton_devicelist_refresh"));
    QVERIFY(selectRow(*window, "listWidget_devicelist", 0));
    QCOMPARE(labelText(*window, "label_updaterecommendation"), updateRecommended);
}

void tst_Chip::isMissedTwiceWhenTextWasPending()
{
    openMonitor();
    const MessageBoxDriver boxes;
    send(*monitor, QStringLiteral("lost"));
    QVERIFY(Chip::unplug());
    QTRY_VERIFY_WITH_TIMEOUT(!monitor->isVisible(), patience);
    QTRY_COMPARE_WITH_TIMEOUT(boxes.texts(),
                              (QStringList {QStringLiteral("Unable to communicate with device"),
                                            QStringLiteral("Unable to write to device")}),
                              patience);
    QVERIFY(Chip::replug());
}

void tst_Chip::isWrittenByAvrdude()
{
    QVERIFY(selectRow(*window, "listWidget_devicelist", 0));
    QVERIFY(Chip::holds(QStringLiteral("Metronome__1")));
    QVERIFY(!Chip::holds(QStringLiteral("Metronome__2")));

    const MessageBoxDriver boxes;
    QVERIFY(click(*window, "pushButton_update"));
    QCOMPARE(boxes.texts(),
             (QStringList {QStringLiteral("DO NOT REMOVE OR TURN OFF THE DEVICE."),
                           QStringLiteral("Upload successfull.")}));
    QVERIFY(Chip::holds(QStringLiteral("Metronome__2")));
    QCOMPARE(labelText(*window, "label_programondevice"), QStringLiteral("Metronome"));
    QCOMPARE(labelText(*window, "label_updaterecommendation"), latestVersion);
}

void tst_Chip::recoversFromAPlugPulledDuringTheUpload()
{
    QVERIFY(selectRow(*window, "listWidget_programlist", 0));
    QVERIFY(selectRow(*window, "listWidget_devicelist", 0));
    QProcess hand;
    hand.start(QStringLiteral("sh"), {QStringLiteral("-c"), Chip::unplugAfter(bytesInto)});
    const MessageBoxDriver boxes;
    QVERIFY(click(*window, "pushButton_update"));
    // avrdude may end, or wait for the lost port until it is killed.
    QVERIFY(boxes.texts().last() == QLatin1String("Unable to upload to device.")
            || boxes.texts().last() == QLatin1String("Upload successfull."));
    QTRY_COMPARE_WITH_TIMEOUT(hand.state(), QProcess::NotRunning, patience);
    QCOMPARE(hand.exitCode(), 0);
    QVERIFY(!Chip::holds(QStringLiteral("Lantern__1")));

    // The bootloader is still there, so the next update repairs the sketch.
    QVERIFY(Chip::replug());
    QVERIFY(click(*window, "pushButton_devicelist_refresh"));
    QVERIFY(selectRow(*window, "listWidget_devicelist", 0));
    QVERIFY(click(*window, "pushButton_update"));
    QCOMPARE(boxes.texts().last(), QStringLiteral("Upload successfull."));
    QVERIFY(Chip::holds(QStringLiteral("Lantern__1")));
}

QTEST_MAIN(tst_Chip)

#include "tst_chip.moc"
