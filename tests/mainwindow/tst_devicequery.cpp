// The device's version query: what is asked, which answers count, and what the user then sees.
#include "mainwindow/mainwindow.h"
#include "support/applicationdirectory.h"
#include "support/messageboxdriver.h"
#include "support/patience.h"
#include "support/pluggeddevice.h"
#include "support/windowdriver.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QThread>
#include <QTranslator>

#include <cstring>
#include <fcntl.h>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

const QString unknown = QStringLiteral("Unknown sketch");
const QString latest = QStringLiteral("<font color='green'>Latest version on device.</font>");
const QString outdated = QStringLiteral("<font color='red'>Update recommended.</font>");
const QString missingPort = QStringLiteral("/dev/no-such-port");

constexpr int allAttempts = 10;

// Each attempt waits a second for its request to go out and a second for the reply. The waits may
// end a millisecond early each. On a busy machine they end late: by less than three quarters of a
// second on average, which still tells a second from two.
constexpr int allWrites = allAttempts * 1000; // ms
constexpr int allReplies = allAttempts * 1000; // ms
constexpr int earliness = 2 * allAttempts; // ms
constexpr int lateness = allAttempts * 750; // ms
constexpr int moment = 50; // ms from the opening of the port until the program waits

QString programOnDevice(const MainWindow &window)
{
    return child<QLabel>(window, "label_programondevice")->text();
}

QString recommendation(const MainWindow &window)
{
    return child<QLabel>(window, "label_updaterecommendation")->text();
}

// For another thread than the window's.
template <typename Condition>
void waitFor(Condition isMet)
{
    for (const QDeadlineTimer limit(patience); !isMet() && !limit.hasExpired();)
        QThread::msleep(1);
}

QByteArray bytes(const char *text, int size)
{
    return QByteArray(text, size);
}

// Holds a terminal whose settings differ from a serial port's usual ones as far as a pseudo
// terminal lets them: it keeps eight data bits and no parity by itself.
class UnusualTerminal
{
public:
    explicit UnusualTerminal(const QString &name)
        : descriptor(open(qPrintable(name), O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        termios unusual = settings();
        unusual.c_cflag |= CSTOPB | CRTSCTS;
        unusual.c_iflag |= IXON | IXOFF | IXANY | INPCK;
        cfsetspeed(&unusual, B9600);
        tcsetattr(descriptor, TCSANOW, &unusual);
    }
    ~UnusualTerminal() { close(descriptor); }
    UnusualTerminal(const UnusualTerminal &) = delete;
    UnusualTerminal &operator=(const UnusualTerminal &) = delete;

    termios settings() const
    {
        termios result = {};
        tcgetattr(descriptor, &result);
        return result;
    }

private:
    const int descriptor;
};

// The program in another language.
class Translation : public QTranslator
{
public:
    bool isEmpty() const override { return false; }
    QString translate(const char *context, const char *sourceText, const char *, int) const override
    {
        if (qstrcmp(context, "MainWindow") == 0 && qstrcmp(sourceText, "Unknown sketch") == 0)
            return QStringLiteral("Unbekannter Sketch");
        return QString();
    }
};

} // namespace

class tst_DeviceQuery : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void cleanupTestCase();

    void answersCountOrNot_data();
    void answersCountOrNot();
    void aNameWithMarkupIsShownAsItIs();
    void theLastLineIsParsedWhenNoneIsWhole();
    void whatCameBeforeTheRequestIsNoAnswer();
    void whatComesBeforeTheRequestGoesOutIsNoAnswer();
    void theRestOfAnAnswerIsNoAnswerToTheNextRequest();
    void aBoardThatStartsUpAnswersTheFourthRequest();
    void theLineIsReturnedWithoutItsEnd();
    void aSilentDeviceIsAskedTenTimes();
    void aDeviceThatTakesNoRequestIsUnknown();
    void aPortThatGoesAwayEndsTheQuery_data();
    void aPortThatGoesAwayEndsTheQuery();

    void recommendationComparesWithTheLocalSketch_data();
    void recommendationComparesWithTheLocalSketch();
    void recommendationOutlivesAnswersThatSayNothing_data();
    void recommendationOutlivesAnswersThatSayNothing();

    void portSettings();
    void theSpeedIsSetBeforeTheFirstRequest();
    void aPortThatDoesNotOpenLeavesTheLabels();
    void aPortThatDoesNotOpenClosesTheOneBefore();

    void refreshAsksTheSelectedDevice();
    void refreshLeavesThePortToThePoll();
    void refreshWarnsOfAnUnknownSketch();
    void refreshWarnsByTheEarlierLabelWhenThePortDoesNotOpen_data();
    void refreshWarnsByTheEarlierLabelWhenThePortDoesNotOpen();
    void refreshDoesNotWarnByATranslatedLabel();
    void refreshDoesNothingWithoutASelectedDevice();
};

void tst_DeviceQuery::init()
{
    ApplicationDirectory::clear();
}

void tst_DeviceQuery::cleanup()
{
    ApplicationDirectory::clear();
}

void tst_DeviceQuery::cleanupTestCase()
{
    letFadesEnd();
}

void tst_DeviceQuery::answersCountOrNot_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<int>("requests");
    QTest::addColumn<QString>("label");

    QTest::newRow("whole line") << QByteArray("Version:Blink__3\r\n") << 1
                                << QStringLiteral("Blink");
    QTest::newRow("whole file name")
        << QByteArray("Version:Blink__3.ino.with_bootloader.standard.hex\r\n") << 1
        << QStringLiteral("Blink");
    QTest::newRow("text before the mark")
        << QByteArray("Sketch Version:Blink__3\r\n") << 1 << QStringLiteral("Blink");
    QTest::newRow("directories before the name")
        << QByteArray("Version:sketches/Blink__3\r\n") << 1 << QStringLiteral("Blink");
    QTest::newRow("second colon ends the name")
        << QByteArray("Version:Blink__3:Fade__4\r\n") << 1 << QStringLiteral("Blink");
    QTest::newRow("colon before the mark takes its place")
        << QByteArray("x:Version:Blink__3\r\n") << 1 << unknown;
    QTest::newRow("only the first line counts")
        << QByteArray("Version:Blink__3\r\nFade__4\r\n") << 1 << QStringLiteral("Blink");
    QTest::newRow("name in UTF-8") << QByteArray("Version:Gr\xc3\xb6\xc3\x9f"
                                                 "e__3\r\n")
                                   << 1 << QStringLiteral("Gr\u00f6\u00dfe");
    QTest::newRow("invalid UTF-8 shows as replacement")
        << QByteArray("Version:Bl\xffink__3\r\n") << 1 << QStringLiteral("Bl\ufffdink");
    QTest::newRow("lone carriage return stays in the name")
        << QByteArray("Version:Bl\rink__3\r\n") << 1 << QStringLiteral("Bl\rink");
    QTest::newRow("empty name") << QByteArray("Version:__7\r\n") << 1 << QString();

    QTest::newRow("no separator") << QByteArray("Version:Blink\r\n") << 1 << unknown;
    QTest::newRow("two separators") << QByteArray("Version:A__B__1\r\n") << 1 << unknown;
    QTest::newRow("nothing after the mark") << QByteArray("Version:\r\n") << 1 << unknown;
    QTest::newRow("negative version") << QByteArray("Version:Blink__-2\r\n") << 1 << unknown;

    QTest::newRow("bare line feed is parsed in the end")
        << QByteArray("Version:Blink__3\n") << allAttempts << QStringLiteral("Blink");
    QTest::newRow("bare carriage return is parsed in the end")
        << QByteArray("Version:Blink__3\r") << allAttempts << QStringLiteral("Blink");
    QTest::newRow("no line end is parsed in the end")
        << QByteArray("Version:Blink__3") << allAttempts << QStringLiteral("Blink");
    QTest::newRow("NUL before the line end cuts the line")
        << bytes("Version:Blink__3\0x\r\n", 20) << allAttempts << QStringLiteral("Blink");
    QTest::newRow("NUL in the name cuts the separator")
        << bytes("Version:Blink\0__3\r\n", 19) << allAttempts << unknown;
    QTest::newRow("NUL at the start leaves nothing")
        << bytes("\0Version:Blink__3\r\n", 19) << allAttempts << unknown;
    QTest::newRow("whole line without the mark")
        << QByteArray("Blink__3\r\n") << allAttempts << unknown;
    QTest::newRow("mark in small letters")
        << QByteArray("version:Blink__3\r\n") << allAttempts << unknown;
    QTest::newRow("mark without its colon")
        << QByteArray("Version Blink__3\r\n") << allAttempts << unknown;
}

void tst_DeviceQuery::answersCountOrNot()
{
    QFETCH(QByteArray, answer);
    QFETCH(int, requests);
    QFETCH(QString, label);
    ScriptedDevice device({answer});
    MainWindow window;

    QVERIFY(window.OpenSerialPort(device.portName()));

    QCOMPARE(programOnDevice(window), label);
    QCOMPARE(device.received(), QByteArray(requests, 'v'));
}

// An image of endless size in a label would hang the window.
void tst_DeviceQuery::aNameWithMarkupIsShownAsItIs()
{
    ScriptedDevice device({"Version:<b>Blink__3\r\n"});
    MainWindow window;
    QVERIFY(window.OpenSerialPort(device.portName()));
    auto *label = child<QLabel>(window, "label_programondevice");
    QCOMPARE(label->text(), QStringLiteral("<b>Blink"));
    const QImage shown = label->grab().toImage();
    label->setTextFormat(Qt::PlainText);
    QCOMPARE(shown, label->grab().toImage());
}

void tst_DeviceQuery::theLastLineIsParsedWhenNoneIsWhole()
{
    QList<QByteArray> answers;
    for (int number = 1; number <= allAttempts; ++number)
        answers.append("Version:Number" + QByteArray::number(number) + "__1\n");
    ScriptedDevice device(answers);
    MainWindow window;

    QVERIFY(window.OpenSerialPort(device.portName()));

    QCOMPARE(device.requests(), allAttempts);
    QCOMPARE(programOnDevice(window), QStringLiteral("Number10"));
}

void tst_DeviceQuery::whatCameBeforeTheRequestIsNoAnswer()
{
    const QByteArray stale("Version:Fade__9\r\n");
    ScriptedDevice device({"Version:Blink__3\r\n"});
    device.send(stale);
    QTRY_COMPARE_WITH_TIMEOUT(device.unread(), stale.size(), patience);
    MainWindow window;

    QVERIFY(window.OpenSerialPort(device.portName()));

    QCOMPARE(programOnDevice(window), QStringLiteral("Blink"));
    QCOMPARE(device.requests(), 1);
}

// A busy device sends while the request to it is still waiting. On a busy machine the device may
// read the request only after the program has stopped waiting, so there are several tries.
void tst_DeviceQuery::whatComesBeforeTheRequestGoesOutIsNoAnswer()
{
    ScriptedDevice device({"Version:Blink__3\r\n"});
    MainWindow window;
    for (int left = 5; left > 0 && programOnDevice(window) != QLatin1String("Blink"); --left) {
        device.setBusy(true);
        std::thread board([&device] {
            waitFor([&device] { return device.isOpen(); });
            QThread::msleep(moment);
            device.send("Version:Fade__9\r\n");
            waitFor([&device] { return device.unread() == 0; });
            device.setBusy(false);
        });
        const bool opened = window.OpenSerialPort(device.portName());
        board.join();
        QVERIFY(opened);
        window.CloseSerialPort();
    }

    QCOMPARE(programOnDevice(window), QStringLiteral("Blink"));
}

void tst_DeviceQuery::theRestOfAnAnswerIsNoAnswerToTheNextRequest()
{
    ScriptedDevice device({"ready\r\nVersion:Fade__9\r\n", "Version:Blink__3\r\n"});
    MainWindow window;

    QVERIFY(window.OpenSerialPort(device.portName()));

    QCOMPARE(programOnDevice(window), QStringLiteral("Blink"));
    QCOMPARE(device.requests(), 2);
}

void tst_DeviceQuery::aBoardThatStartsUpAnswersTheFourthRequest()
{
    ScriptedDevice device({"boot\r\n", "\x14\x10", "ready\r\n", "Version:Blink__3\r\n"});
    MainWindow window;

    QVERIFY(window.OpenSerialPort(device.portName()));

    QCOMPARE(programOnDevice(window), QStringLiteral("Blink"));
    QCOMPARE(device.received(), QByteArray("vvvv"));
}

void tst_DeviceQuery::theLineIsReturnedWithoutItsEnd()
{
    ScriptedDevice device({"Version:Blink__3\r\n"});
    MainWindow window;
    QVERIFY(window.OpenSerialPort(device.portName()));

    QCOMPARE(window.getDeviceSketchVersion(), QStringLiteral("Version:Blink__3"));
    device.setAnswers({"\rVersion:Blink\r__3\n"});
    QCOMPARE(window.getDeviceSketchVersion(), QStringLiteral("\rVersion:Blink\r__3\n"));
}

void tst_DeviceQuery::aSilentDeviceIsAskedTenTimes()
{
    ScriptedDevice device({"Version:Blink__3\r\n"});
    ApplicationDirectory::addSketch(QStringLiteral("Blink__3"));
    MainWindow window;
    QVERIFY(window.OpenSerialPort(device.portName()));
    QCOMPARE(recommendation(window), latest);
    device.setAnswers({QByteArray()});
    QElapsedTimer time;
    time.start();

    QVERIFY(window.OpenSerialPort(device.portName()));

    const qint64 elapsed = time.elapsed();
    QVERIFY2(elapsed >= allReplies - earliness, qPrintable(QString::number(elapsed)));
    QVERIFY2(elapsed < allReplies + lateness, qPrintable(QString::number(elapsed)));
    QCOMPARE(device.requests(), allAttempts);
    QCOMPARE(programOnDevice(window), unknown);
    QCOMPARE(recommendation(window), QString());
}

// Each attempt waits a second for the request to be written, and then still a second for the reply.
void tst_DeviceQuery::aDeviceThatTakesNoRequestIsUnknown()
{
    ScriptedDevice device({"Version:Blink__3\r\n"});
    ApplicationDirectory::addSketch(QStringLiteral("Blink__3"));
    MainWindow window;
    QVERIFY(window.OpenSerialPort(device.portName()));
    QCOMPARE(recommendation(window), latest);
    device.setBusy(true);
    QElapsedTimer time;
    time.start();

    QVERIFY(window.OpenSerialPort(device.portName()));

    const qint64 elapsed = time.elapsed();
    QVERIFY2(elapsed >= allWrites + allReplies - earliness, qPrintable(QString::number(elapsed)));
    QVERIFY2(elapsed < allWrites + allReplies + lateness, qPrintable(QString::number(elapsed)));
    QCOMPARE(device.requests(), 1);
    QCOMPARE(programOnDevice(window), unknown);
    QCOMPARE(recommendation(window), QString());

    device.setBusy(false);
    QVERIFY(window.OpenSerialPort(device.portName()));
    QCOMPARE(programOnDevice(window), QStringLiteral("Blink"));
    QCOMPARE(recommendation(window), latest);
}

void tst_DeviceQuery::aPortThatGoesAwayEndsTheQuery_data()
{
    QTest::addColumn<int>("request");

    QTest::newRow("at the first request") << 1;
    QTest::newRow("at the fourth request") << 4;
    QTest::newRow("at the last request") << allAttempts;
}

void tst_DeviceQuery::aPortThatGoesAwayEndsTheQuery()
{
    QFETCH(int, request);
    ApplicationDirectory::addSketch(QStringLiteral("Blink__3"));
    ScriptedDevice device({"Version:Blink__3\r\n"});
    MainWindow window;
    QVERIFY(window.OpenSerialPort(device.portName()));
    QCOMPARE(recommendation(window), latest);
    device.setAnswers({"garbage\r\n"});
    device.unplugAtRequest(request);

    QVERIFY(window.OpenSerialPort(device.portName()));

    QCOMPARE(device.requests(), request);
    QCOMPARE(programOnDevice(window), unknown);
    QCOMPARE(recommendation(window), QString());
}

void tst_DeviceQuery::recommendationComparesWithTheLocalSketch_data()
{
    QTest::addColumn<QStringList>("sketches");
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QString>("expected");

    const QStringList three = {QStringLiteral("Blink__3")};
    QTest::newRow("equal version") << three << QByteArray("Version:Blink__3\r\n") << latest;
    QTest::newRow("equal version with leading zeros")
        << three << QByteArray("Version:Blink__003\r\n") << latest;
    QTest::newRow("older version") << three << QByteArray("Version:Blink__2\r\n") << outdated;
    QTest::newRow("version that is no number is older")
        << three << QByteArray("Version:Blink__beta\r\n") << outdated;
    QTest::newRow("two versions that are no numbers are equal")
        << QStringList {QStringLiteral("Blink__final")} << QByteArray("Version:Blink__\r\n")
        << latest;
    QTest::newRow("version zero is equal to a version that is no number")
        << QStringList {QStringLiteral("Blink__0")} << QByteArray("Version:Blink__beta\r\n")
        << latest;
    QTest::newRow("newer version") << three << QByteArray("Version:Blink__4\r\n") << QString();
    QTest::newRow("unknown sketch") << three << QByteArray("Version:Fade__1\r\n") << QString();
    QTest::newRow("name in other letters is unknown")
        << three << QByteArray("Version:blink__3\r\n") << QString();
    QTest::newRow("no sketch here at all")
        << QStringList() << QByteArray("Version:Blink__3\r\n") << QString();
    QTest::newRow("version 10 stands before version 2 and decides: equal")
        << QStringList {QStringLiteral("Blink__2"), QStringLiteral("Blink__10")}
        << QByteArray("Version:Blink__10\r\n") << latest;
    QTest::newRow("version 10 stands before version 2 and decides: older")
        << QStringList {QStringLiteral("Blink__2"), QStringLiteral("Blink__10")}
        << QByteArray("Version:Blink__2\r\n") << outdated;
    QTest::newRow("version 2 stands before version 3 and hides it")
        << QStringList {QStringLiteral("Blink__3"), QStringLiteral("Blink__2")}
        << QByteArray("Version:Blink__2\r\n") << latest;
    QTest::newRow("answer that does not parse")
        << three << QByteArray("Version:Blink\r\n") << QString();
}

void tst_DeviceQuery::recommendationComparesWithTheLocalSketch()
{
    QFETCH(QStringList, sketches);
    QFETCH(QByteArray, answer);
    QFETCH(QString, expected);
    for (const QString &sketch : std::as_const(sketches))
        ApplicationDirectory::addSketch(sketch);
    ScriptedDevice device({answer});
    MainWindow window;

    QVERIFY(window.OpenSerialPort(device.portName()));

    QCOMPARE(recommendation(window), expected);
}

void tst_DeviceQuery::recommendationOutlivesAnswersThatSayNothing_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("expected");

    const QByteArray green("Version:Blink__3\r\n");
    const QByteArray red("Version:Blink__2\r\n");
    QTest::newRow("newer after green")
        << green << QByteArray("Version:Blink__4\r\n") << QStringLiteral("Blink") << latest;
    QTest::newRow("newer after red")
        << red << QByteArray("Version:Blink__4\r\n") << QStringLiteral("Blink") << outdated;
    QTest::newRow("unknown after green")
        << green << QByteArray("Version:Fade__1\r\n") << QStringLiteral("Fade") << latest;
    QTest::newRow("unknown after red")
        << red << QByteArray("Version:Fade__1\r\n") << QStringLiteral("Fade") << outdated;
    QTest::newRow("empty name after red")
        << red << QByteArray("Version:__7\r\n") << QString() << outdated;
    QTest::newRow("red after green") << green << red << QStringLiteral("Blink") << outdated;
    QTest::newRow("green after red") << red << green << QStringLiteral("Blink") << latest;
    QTest::newRow("not parsed after green")
        << green << QByteArray("Version:Blink\r\n") << unknown << QString();
    QTest::newRow("no version after red") << red << QByteArray("ready\r\n") << unknown << QString();
}

void tst_DeviceQuery::recommendationOutlivesAnswersThatSayNothing()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, answer);
    QFETCH(QString, label);
    QFETCH(QString, expected);
    ApplicationDirectory::addSketch(QStringLiteral("Blink__3"));
    ScriptedDevice device({before});
    MainWindow window;
    QVERIFY(window.OpenSerialPort(device.portName()));
    QVERIFY(!recommendation(window).isEmpty());
    device.setAnswers({answer});

    QVERIFY(window.OpenSerialPort(device.portName()));

    QCOMPARE(programOnDevice(window), label);
    QCOMPARE(recommendation(window), expected);
}

void tst_DeviceQuery::portSettings()
{
    ScriptedDevice device({"Version:Blink__3\r\n"});
    const UnusualTerminal terminal(device.portName());
    MainWindow window;

    QVERIFY(window.OpenSerialPort(device.portName()));

    const termios settings = terminal.settings();
    QCOMPARE(cfgetispeed(&settings), speed_t(B115200));
    QCOMPARE(cfgetospeed(&settings), speed_t(B115200));
    QCOMPARE(settings.c_cflag & CSIZE, tcflag_t(CS8));
    QCOMPARE(settings.c_cflag & (PARENB | CSTOPB | CRTSCTS), tcflag_t(0));
    QCOMPARE(settings.c_iflag & (INPCK | IXON | IXOFF | IXANY), tcflag_t(0));
}

// The program waits a second for the device, which is the time to look.
void tst_DeviceQuery::theSpeedIsSetBeforeTheFirstRequest()
{
    ScriptedDevice device({QByteArray(), "Version:Blink__3\r\n"});
    const UnusualTerminal terminal(device.portName());
    MainWindow window;
    termios settings = {};
    std::thread board([&] {
        waitFor([&device] { return device.requests() > 0; });
        settings = terminal.settings();
    });

    const bool opened = window.OpenSerialPort(device.portName());
    board.join();

    QVERIFY(opened);
    QCOMPARE(cfgetispeed(&settings), speed_t(B115200));
    QCOMPARE(cfgetospeed(&settings), speed_t(B115200));
}

void tst_DeviceQuery::aPortThatDoesNotOpenLeavesTheLabels()
{
    ApplicationDirectory::addSketch(QStringLiteral("Blink__3"));
    ScriptedDevice device({"Version:Blink__3\r\n"});
    MainWindow window;
    MessageBoxDriver boxes;
    QVERIFY(window.OpenSerialPort(device.portName()));

    QVERIFY(!window.OpenSerialPort(missingPort));

    QCOMPARE(programOnDevice(window), QStringLiteral("Blink"));
    QCOMPARE(recommendation(window), latest);
    QCOMPARE(boxes.texts(), QStringList());
}

void tst_DeviceQuery::aPortThatDoesNotOpenClosesTheOneBefore()
{
    ScriptedDevice device({"Version:Blink__3\r\n"});
    MainWindow window;
    QVERIFY(window.OpenSerialPort(device.portName()));
    QVERIFY(device.isOpen());

    QVERIFY(!window.OpenSerialPort(missingPort));

    QVERIFY(!device.isOpen());
}

void tst_DeviceQuery::refreshAsksTheSelectedDevice()
{
    ApplicationDirectory::addSketch(QStringLiteral("Blink__3"));
    PluggedDevice device({"Version:Blink__2\r\n", "Version:Blink__3\r\n"});
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(selectRow(window, "listWidget_devicelist", 0));
    QCOMPARE(recommendation(window), outdated);

    QVERIFY(click(window, "pushButton_programondevice_refresh"));

    QCOMPARE(device.requests(), 2);
    QCOMPARE(recommendation(window), latest);
    QCOMPARE(boxes.texts(), QStringList());
}

void tst_DeviceQuery::refreshLeavesThePortToThePoll()
{
    PluggedDevice device;
    MainWindow window;
    window.show();
    QVERIFY(selectRow(window, "listWidget_devicelist", 0));
    QVERIFY(!device.isOpen());

    QVERIFY(click(window, "pushButton_programondevice_refresh"));

    QVERIFY(device.isOpen());
    QTRY_VERIFY_WITH_TIMEOUT(!device.isOpen(), patience);
}

void tst_DeviceQuery::refreshWarnsOfAnUnknownSketch()
{
    PluggedDevice device({"ready\r\n"});
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(selectRow(window, "listWidget_devicelist", 0));
    QCOMPARE(boxes.texts(), QStringList());

    QVERIFY(click(window, "pushButton_programondevice_refresh"));

    QCOMPARE(boxes.texts(), QStringList {QStringLiteral("Unknown program in device.")});
    const SeenBox box = boxes.boxes().constFirst();
    QCOMPARE(box.informativeText,
             QStringLiteral("Connection was successfull but could not get the device's version "
                            "information. Updating the device can fix this issue."));
    QCOMPARE(box.icon, QMessageBox::Warning);
    QCOMPARE(box.buttons, QMessageBox::StandardButtons(QMessageBox::Ok));
    QCOMPARE(device.requests(), 2 * allAttempts);
}

void tst_DeviceQuery::refreshWarnsByTheEarlierLabelWhenThePortDoesNotOpen_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("known sketch before")
        << QByteArray("Version:Blink__3\r\n") << QStringLiteral("Blink") << QStringList();
    QTest::newRow("unknown sketch before")
        << QByteArray("ready\r\n") << unknown
        << QStringList {QStringLiteral("Unknown program in device.")};
}

void tst_DeviceQuery::refreshWarnsByTheEarlierLabelWhenThePortDoesNotOpen()
{
    QFETCH(QByteArray, answer);
    QFETCH(QString, label);
    QFETCH(QStringList, expected);
    PluggedDevice device({answer});
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(selectRow(window, "listWidget_devicelist", 0));
    const int requests = device.requests();
    device.removeNode();

    QVERIFY(click(window, "pushButton_programondevice_refresh"));

    QCOMPARE(boxes.texts(), expected);
    QCOMPARE(programOnDevice(window), label);
    QCOMPARE(device.requests(), requests);
}

void tst_DeviceQuery::refreshDoesNotWarnByATranslatedLabel()
{
    Translation translation;
    QVERIFY(QCoreApplication::installTranslator(&translation));
    PluggedDevice device({"ready\r\n"});
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    QVERIFY(selectRow(window, "listWidget_devicelist", 0));

    QVERIFY(click(window, "pushButton_programondevice_refresh"));

    QCOMPARE(programOnDevice(window), QStringLiteral("Unbekannter Sketch"));
    QCOMPARE(boxes.texts(), QStringList());
}

// An assistive tool can also press a hidden button.
void tst_DeviceQuery::refreshDoesNothingWithoutASelectedDevice()
{
    const PluggedDevice device;
    MainWindow window;
    MessageBoxDriver boxes;
    window.show();
    auto *button = child<QPushButton>(window, "pushButton_programondevice_refresh");
    QVERIFY(!button->isVisible());
    const QString label = programOnDevice(window);

    button->click();

    QCOMPARE(boxes.texts(), QStringList());
    QCOMPARE(device.requests(), 0);
    QVERIFY(!device.isOpen());
    QCOMPARE(programOnDevice(window), label);
}

QTEST_MAIN(tst_DeviceQuery)

#include "tst_devicequery.moc"
