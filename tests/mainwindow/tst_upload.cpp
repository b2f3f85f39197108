// The firmware upload: the update button, its checks and boxes, and the run of the uploader.
#include "mainwindow/mainwindow.h"
#include "support/applicationdirectory.h"
#include "support/footprint.h"
#include "support/messageboxdriver.h"
#include "support/patience.h"
#include "support/pollwatch.h"
#include "support/scripteddevice.h"
#include "support/usbtestbed.h"
#include "support/windowdriver.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFrame>
#include <QLabel>
#include <QListWidget>
#include <QProgressBar>
#include <QTest>
#include <QTimer>

#include <csignal>
#include <memory>
#include <unistd.h>

namespace {

// QSerialPort locks a port for the whole machine, so test programs may not share a name.
const QString portName = QStringLiteral("ttyUSB%1").arg(getpid());
const QString otherPortName = QStringLiteral("cu.usbserial-A%1").arg(getpid());
const QByteArray oldOnDevice = "Version:Blink__1\r\n";
const QByteArray newOnDevice = "Version:Blink__2\r\n";

constexpr int uploadTimeout = 30000; // ms
// What a busy machine may add to it for the query, the uploader's start and the box, in ms. Some
// 50 are usual; the next limits that one might set, 45 s and a minute, are farther off.
constexpr int lateness = 10000;

const QString untouched = QStringLiteral("Untouched status");

const QString reportText =
    QStringLiteral("Please report this error at the developer's forum: "
                   "http://forum.korvex.example and we'll work on a fix for it.");
const QString configurationError = QStringLiteral("Upload configuration error.");
const QString noProgramFound = QStringLiteral("Couldn't find avrdude. ") + reportText;
const QString noConfigurationFound = QStringLiteral("Couldn't find avrdude.conf. ") + reportText;

enum class Entry { Missing, File, Directory, InOtherCase, DanglingLink };

QByteArray script(const QByteArray &body)
{
    return "#!/bin/sh\nhere=$(dirname \"$0\")\n" + body + "\n";
}

// Creates a file as soon as it runs.
const QByteArray markingScript = script("echo ran > \"$here/ran\"");

QString leftByUploader(const QString &fileName)
{
    return ApplicationDirectory::uploaderPath() + fileName;
}

QByteArray writtenByUploader(const char *fileName)
{
    return ApplicationDirectory::contentOf(leftByUploader(QLatin1String(fileName)));
}

QStringList endedByNul(const QByteArray &bytes)
{
    QStringList texts;
    const QList<QByteArray> pieces = bytes.split('\0');
    for (const QByteArray &piece : pieces)
        texts.append(QString::fromUtf8(piece));
    texts.removeLast(); // what follows the last NUL
    return texts;
}

bool uploaderRan()
{
    return QFileInfo::exists(leftByUploader(QStringLiteral("ran")));
}

// A box in one piece, so that a comparison shows all that the user sees of it.
QString box(QMessageBox::Icon icon, QMessageBox::StandardButtons buttons, const QString &text,
            const QString &informativeText,
            const QString &title = QStringLiteral("Vantrel Updater"),
            QMessageBox::StandardButton defaultButton = QMessageBox::Ok)
{
    return QStringLiteral("[icon %1, buttons %2, default %3] %4 | %5 | %6")
        .arg(int(icon))
        .arg(int(buttons), 0, 16)
        .arg(int(defaultButton), 0, 16)
        .arg(title, text, informativeText);
}

QString warning(const QString &text, const QString &informativeText)
{
    return box(QMessageBox::Warning, QMessageBox::Ok, text, informativeText);
}

QString confirmation()
{
    return box(QMessageBox::Warning, QMessageBox::Ok | QMessageBox::Cancel,
               QStringLiteral("DO NOT REMOVE OR TURN OFF THE DEVICE."),
               QStringLiteral("Updating the device can take several seconds. Clicking cancel will "
                              "cancel the operation."));
}

QString success()
{
    return box(QMessageBox::NoIcon, QMessageBox::Ok, QStringLiteral("Upload successfull."),
               QStringLiteral("Uploaded program ready to be used."));
}

QString noDeviceSelected()
{
    return warning(QStringLiteral("No device selected!"),
                   QStringLiteral("Please select a device before trying to upload a program."));
}

QString noProgramSelected()
{
    return warning(QStringLiteral("No program selected!"),
                   QStringLiteral("Please select a program before trying to upload to device."));
}

QString portNotOpened()
{
    return warning(QStringLiteral("Serial port not opened!"),
                   QStringLiteral("Please choose a device in the device list."));
}

QString unableToUpload()
{
    return warning(QStringLiteral("Unable to upload to device."),
                   QStringLiteral("Error when trying to execute avrdude. ") + reportText);
}

QStringList seen(const MessageBoxDriver &driver)
{
    QStringList result;
    for (const SeenBox &seenBox : driver.boxes()) {
        result.append(box(seenBox.icon, seenBox.buttons, seenBox.text, seenBox.informativeText,
                          seenBox.title, seenBox.defaultButton));
    }
    return result;
}

bool isAlive(pid_t process)
{
    return kill(process, 0) == 0;
}

QStringList disabledWidgets(const MainWindow &window)
{
    QStringList names;
    const QList<QWidget *> widgets = window.findChildren<QWidget *>();
    for (const QWidget *widget : widgets) {
        if (!widget->isEnabledTo(&window))
            names.append(widget->objectName());
    }
    return names;
}

// Stops the window's poll, which shows whether the program starts it again.
class StoppedPoll
{
public:
    StoppedPoll()
    {
        const PollWatch watch;
        if (watch.waitForTicks(1))
            timer = watch.timer();
        if (isFound())
            timer->stop();
    }

    bool isFound() const { return timer != nullptr; }
    bool isStartedAgain() const { return timer->isActive(); }

private:
    QTimer *timer = nullptr;
};

// The window with a device and, unless a test adds others, the sketch Blink in version 2.
class Setting
{
public:
    explicit Setting(const QList<QByteArray> &answers = {oldOnDevice},
                     const QString &name = portName)
        : device(answers)
        , port(name)
    {
        usb.plug(port, device.portName());
        if (ApplicationDirectory::repositoryFiles().isEmpty())
            ApplicationDirectory::addSketch(QStringLiteral("Blink__2"));
        window = std::make_unique<MainWindow>();
        window->show();
    }

    // The index's reply also hides the progress bar, so it must have been handled.
    bool isSettled() const
    {
        auto *status = child<QLabel>(*window, "label_status");
        const bool settled = QTest::qWaitFor(
            [status] {
                return status->text()
                    == QLatin1String("Error contacting online repository. Are you online?");
            },
            patience);
        status->setText(untouched);
        progressBar()->setVisible(true);
        return settled;
    }

    bool isReady() const
    {
        return isSettled() && selectProgram() && selectDevice() && device.requests() == 1;
    }

    // The user pulls the plug: the port is gone and the terminal hangs up.
    void pull()
    {
        usb.unplug(port);
        device.unplug();
    }

    bool selectProgram() const { return selectRow(*window, "listWidget_programlist", 0); }
    bool selectDevice() const { return selectRow(*window, "listWidget_devicelist", 0); }
    bool pressUpdate() const { return click(*window, "pushButton_update"); }

    QProgressBar *progressBar() const { return child<QProgressBar>(*window, "progressBar"); }
    QListWidget *devices() const { return child<QListWidget>(*window, "listWidget_devicelist"); }
    QListWidget *programs() const { return child<QListWidget>(*window, "listWidget_programlist"); }
    QString label(const char *name) const { return child<QLabel>(*window, name)->text(); }

    // The device itself holds its terminal open once.
    bool portIsOpen() const { return Footprint::descriptorsOf(device.portName()) > 1; }

    ScriptedDevice device; // destroyed after all that leads to it
    UsbTestbed usb;
    QString port;
    std::unique_ptr<MainWindow> window;
};

void makeEntry(const QString &fileName, Entry kind, const QByteArray &content)
{
    const QString path = ApplicationDirectory::uploaderPath() + fileName;
    switch (kind) {
    case Entry::Missing:
        QFile::remove(path);
        return;
    case Entry::File:
        return;
    case Entry::Directory:
        QFile::remove(path);
        QDir().mkdir(path);
        return;
    case Entry::InOtherCase:
        QFile::remove(path);
        ApplicationDirectory::addFile(QStringLiteral("../avrdude/") + fileName.toUpper(), content);
        return;
    case Entry::DanglingLink:
        QFile::remove(path);
        QFile::link(QStringLiteral("nowhere"), path);
        return;
    }
}

} // namespace

Q_DECLARE_METATYPE(Entry)

class tst_Upload : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void missingSelections_data();
    void missingSelections();
    void refusedConfirmation_data();
    void refusedConfirmation();
    void selectionLostDuringConfirmation_data();
    void selectionLostDuringConfirmation();

    void missingUploaderDirectory_data();
    void missingUploaderDirectory();
    void incompleteUploader_data();
    void incompleteUploader();
    void missingSketch_data();
    void missingSketch();
    void theFirstMissingIsReported_data();
    void theFirstMissingIsReported();
    void missingPort_data();
    void missingPort();
    void missingPortListsOtherDevices();
    void portIsLookedUpInTheList();
    void uploaderThatDoesNotStart_data();
    void uploaderThatDoesNotStart();

    void arguments_data();
    void arguments();
    void firstVersionIsUploaded();
    void surroundingsAreInherited();
    void otherFilesBesideUploaderDoNotMatter();
    void linkedUploaderRuns();
    void howUploaderEndsDoesNotMatter_data();
    void howUploaderEndsDoesNotMatter();
    void outputDoesNotBlockUploader();
    void uploaderMayCloseItsOutputs();
    void portIsClosedWhileUploaderRuns();
    void uploadRestartsPoll();
    void onlyAnUploadRestartsPoll_data();
    void onlyAnUploadRestartsPoll();
    void uploaderThatNeverEnds();

    void updateFromOldToNew();
    void successIsReportedAfterTheLastQuery();
    void updateShowsUnknownSketch();
    void failedUploadReopensNothing();
    void deviceRemovedDuringUpload();
    void deviceLostAtLastQuery();
    void monitorGoesOnAfterUpdate();
    void updateAgain();
};

void tst_Upload::initTestCase()
{
    // Users install programs in such places.
    QVERIFY(ApplicationDirectory::path().contains(QLatin1Char(' ')));
}

void tst_Upload::init()
{
    ApplicationDirectory::clear();
    ApplicationDirectory::installUploader(markingScript);
}

void tst_Upload::cleanup()
{
    ApplicationDirectory::clear();
}

void tst_Upload::cleanupTestCase()
{
    letFadesEnd();
}

void tst_Upload::missingSelections_data()
{
    QTest::addColumn<bool>("device");
    QTest::addColumn<bool>("program");
    QTest::addColumn<QString>("box");

    QTest::newRow("neither device nor program") << false << false << noDeviceSelected();
    QTest::newRow("program without a device") << false << true << noDeviceSelected();
    QTest::newRow("device without a program") << true << false << noProgramSelected();
}

void tst_Upload::missingSelections()
{
    QFETCH(const bool, device);
    QFETCH(const bool, program);
    QFETCH(const QString, box);

    Setting setting;
    QVERIFY(setting.isSettled());
    QVERIFY(!program || setting.selectProgram());
    QVERIFY(!device || setting.selectDevice());
    const int requestsBefore = setting.device.requests();

    MessageBoxDriver boxes;
    QVERIFY(setting.pressUpdate());
    QCOMPARE(seen(boxes), QStringList(box));
    QVERIFY(!uploaderRan());
    QCOMPARE(setting.device.requests(), requestsBefore);
    QVERIFY(!setting.progressBar()->isHidden());
    QCOMPARE(setting.label("label_status"), untouched);
}

void tst_Upload::refusedConfirmation_data()
{
    QTest::addColumn<int>("answer");

    QTest::newRow("cancel button") << int(MessageBoxDriver::PressCancel);
    QTest::newRow("escape key") << int(MessageBoxDriver::PressEscape);
    QTest::newRow("closed box") << int(MessageBoxDriver::CloseBox);
}

void tst_Upload::refusedConfirmation()
{
    QFETCH(const int, answer);

    Setting setting;
    QVERIFY(setting.isReady());
    MessageBoxDriver boxes({MessageBoxDriver::Answer(answer)});
    QVERIFY(setting.pressUpdate());
    QCOMPARE(seen(boxes), QStringList(confirmation()));
    QVERIFY(!uploaderRan());
    QCOMPARE(setting.device.requests(), 1);
    QVERIFY(!setting.progressBar()->isHidden());
    QCOMPARE(setting.devices()->currentRow(), 0);
    QCOMPARE(setting.programs()->currentRow(), 0);
}

void tst_Upload::selectionLostDuringConfirmation_data()
{
    QTest::addColumn<bool>("deviceLost");
    QTest::addColumn<QString>("box");

    // A lost device clears the one list, a finished download the other.
    QTest::newRow("device") << true << noDeviceSelected();
    QTest::newRow("program") << false << noProgramSelected();
}

void tst_Upload::selectionLostDuringConfirmation()
{
    QFETCH(const bool, deviceLost);
    QFETCH(const QString, box);

    Setting setting;
    QVERIFY(setting.isReady());
    MessageBoxDriver boxes;
    boxes.whileOpen([&setting, deviceLost] {
        deviceLost ? setting.window->updateDeviceList() : setting.window->updateProgramlist();
    });
    QVERIFY(setting.pressUpdate());
    QCOMPARE(seen(boxes), QStringList({confirmation(), box}));
    QVERIFY(!uploaderRan());
}

void tst_Upload::missingUploaderDirectory_data()
{
    QTest::addColumn<bool>("fileInItsPlace");

    QTest::newRow("nothing there") << false;
    QTest::newRow("a file in its place") << true;
}

void tst_Upload::missingUploaderDirectory()
{
    QFETCH(const bool, fileInItsPlace);

    Setting setting;
    QVERIFY(setting.isReady());
    ApplicationDirectory::clear();
    if (fileInItsPlace)
        ApplicationDirectory::addFile(QStringLiteral("../avrdude"));

    MessageBoxDriver boxes;
    QVERIFY(!setting.window->CallAvrDude());
    const QString directory = ApplicationDirectory::path() + QStringLiteral("avrdude");
    QCOMPARE(seen(boxes),
             QStringList(warning(configurationError,
                                 QStringLiteral("Couldn't find avrdude directory. ") + directory
                                     + QLatin1Char(' ') + reportText)));
    QCOMPARE(setting.device.requests(), 1);
    QVERIFY(setting.progressBar()->isHidden());
    QCOMPARE(setting.label("label_status"), untouched);
}

void tst_Upload::incompleteUploader_data()
{
    QTest::addColumn<Entry>("program");
    QTest::addColumn<Entry>("configuration");
    QTest::addColumn<QStringList>("problems");

    const QStringList both {noProgramFound, noConfigurationFound};
    const QStringList one {noProgramFound};
    const QStringList none;

    QTest::newRow("no program") << Entry::Missing << Entry::File << both;
    QTest::newRow("neither") << Entry::Missing << Entry::Missing << one;
    QTest::newRow("no configuration") << Entry::File << Entry::Missing << none;

    QTest::newRow("directory in the program's place") << Entry::Directory << Entry::File << both;
    QTest::newRow("directory in the program's place, no configuration")
        << Entry::Directory << Entry::Missing << one;
    QTest::newRow("directory in the configuration's place")
        << Entry::File << Entry::Directory << none;
    QTest::newRow("no program, directory in the configuration's place")
        << Entry::Missing << Entry::Directory << one;
    QTest::newRow("directories in both places") << Entry::Directory << Entry::Directory << one;

    QTest::newRow("program's name in capitals") << Entry::InOtherCase << Entry::File << both;
    QTest::newRow("configuration's name in capitals") << Entry::File << Entry::InOtherCase << none;
    QTest::newRow("both names in capitals") << Entry::InOtherCase << Entry::InOtherCase << one;

    QTest::newRow("program is a link to nothing") << Entry::DanglingLink << Entry::File << both;
    QTest::newRow("configuration is a link to nothing")
        << Entry::File << Entry::DanglingLink << none;
}

void tst_Upload::incompleteUploader()
{
    QFETCH(const Entry, program);
    QFETCH(const Entry, configuration);
    QFETCH(const QStringList, problems);

    makeEntry(QStringLiteral("avrdude"), program, markingScript);
    makeEntry(QStringLiteral("avrdude.conf"), configuration, "# configuration\n");
    QStringList expected;
    for (const QString &problem : problems)
        expected.append(warning(configurationError, problem));

    Setting setting;
    QVERIFY(setting.isReady());
    MessageBoxDriver boxes;
    QVERIFY(!setting.window->CallAvrDude());
    QCOMPARE(seen(boxes), expected);
    QVERIFY(!uploaderRan());
    QCOMPARE(setting.device.requests(), 1);
    QVERIFY(setting.progressBar()->isHidden());
    QCOMPARE(setting.label("label_status"), untouched);
    QCOMPARE(setting.devices()->currentRow(), 0);
}

void tst_Upload::missingSketch_data()
{
    QTest::addColumn<QString>("row");
    QTest::addColumn<bool>("directoryInItsPlace");
    QTest::addColumn<QString>("fileName");

    const QString blink = QStringLiteral("Blink");
    const QString fileName = ApplicationDirectory::sketchFileName(QStringLiteral("Blink__2"));
    QTest::newRow("no sketch of that name") << QStringLiteral("Ghost") << false << QString();
    QTest::newRow("name in other case") << QStringLiteral("blink") << false << QString();
    QTest::newRow("file removed since it was listed") << blink << false << fileName;
    QTest::newRow("directory named like a sketch") << blink << true << fileName;
}

void tst_Upload::missingSketch()
{
    QFETCH(const QString, row);
    QFETCH(const bool, directoryInItsPlace);
    QFETCH(const QString, fileName);

    Setting setting;
    QVERIFY(setting.isReady());
    setting.programs()->item(0)->setText(row);
    const QString file = ApplicationDirectory::addSketch(QStringLiteral("Blink__2"));
    QVERIFY(QFile::remove(file));
    QVERIFY(!directoryInItsPlace || QDir().mkdir(file));

    MessageBoxDriver boxes;
    QVERIFY(!setting.window->CallAvrDude());
    QCOMPARE(seen(boxes),
             QStringList(warning(configurationError,
                                 QStringLiteral("Couldn't find sketch file. ") + fileName
                                     + QLatin1Char(' ') + reportText)));
    QVERIFY(!uploaderRan());
    QCOMPARE(setting.device.requests(), 1);
    QVERIFY(setting.progressBar()->isHidden());
    QCOMPARE(setting.label("label_status"), untouched);
}

void tst_Upload::theFirstMissingIsReported_data()
{
    QTest::addColumn<QStringList>("missing"); // besides the port
    QTest::addColumn<QStringList>("problems");

    const QString directory = QStringLiteral("avrdude/");
    const QString program = QStringLiteral("avrdude/avrdude");
    const QString configuration = QStringLiteral("avrdude/avrdude.conf");
    const QString sketch = QStringLiteral("compiled_sketches/")
        + ApplicationDirectory::sketchFileName(QStringLiteral("Blink__2"));
    const QString noDirectory = QStringLiteral("Couldn't find avrdude directory. ")
        + ApplicationDirectory::path() + QStringLiteral("avrdude ") + reportText;
    const QString noSketch = QStringLiteral("Couldn't find sketch file. ")
        + ApplicationDirectory::sketchFileName(QStringLiteral("Blink__2")) + QLatin1Char(' ')
        + reportText;

    QTest::newRow("neither directory nor sketch")
        << QStringList {directory, sketch} << QStringList {noDirectory};
    QTest::newRow("neither program nor sketch")
        << QStringList {program, sketch} << QStringList {noProgramFound, noConfigurationFound};
    QTest::newRow("neither configuration nor sketch")
        << QStringList {configuration, sketch} << QStringList();
    QTest::newRow("neither program, configuration nor sketch")
        << QStringList {program, configuration, sketch} << QStringList {noProgramFound};
    QTest::newRow("sketch alone") << QStringList {sketch} << QStringList {noSketch};
}

// The port is also missing, which is checked last.
void tst_Upload::theFirstMissingIsReported()
{
    QFETCH(const QStringList, missing);
    QFETCH(const QStringList, problems);

    Setting setting;
    QVERIFY(setting.isReady());
    setting.usb.unplug(setting.port);
    for (const QString &name : missing) {
        const QString path = ApplicationDirectory::path() + name;
        QVERIFY(name.endsWith(QLatin1Char('/')) ? QDir(path).removeRecursively()
                                                : QFile::remove(path));
    }
    QStringList expected;
    for (const QString &problem : problems)
        expected.append(warning(configurationError, problem));

    MessageBoxDriver boxes;
    QVERIFY(!setting.window->CallAvrDude());
    QCOMPARE(seen(boxes), expected);
    QVERIFY(!uploaderRan());
    QCOMPARE(setting.devices()->count(), 1);
    QVERIFY(setting.progressBar()->isHidden());
}

void tst_Upload::missingPort_data()
{
    QTest::addColumn<bool>("scannedSince");

    QTest::newRow("unplugged since the last scan") << false;
    QTest::newRow("gone from the last scan") << true;
}

void tst_Upload::missingPort()
{
    QFETCH(const bool, scannedSince);

    Setting setting;
    QVERIFY(setting.isReady());
    setting.usb.unplug(setting.port);
    if (scannedSince)
        setting.window->updateSerialPortList();

    MessageBoxDriver boxes;
    QVERIFY(!setting.window->CallAvrDude());
    QCOMPARE(seen(boxes), QStringList(portNotOpened()));
    QVERIFY(!uploaderRan());
    QCOMPARE(setting.device.requests(), 1);
    QVERIFY(!setting.portIsOpen());
    QCOMPARE(setting.devices()->count(), 0);
    QVERIFY(child<QFrame>(*setting.window, "frame_deviceinfo")->isHidden());
    QVERIFY(setting.progressBar()->isHidden());
    QCOMPARE(setting.label("label_status"), untouched);
}

void tst_Upload::missingPortListsOtherDevices()
{
    Setting setting;
    QVERIFY(setting.isReady());
    const ScriptedDevice other({oldOnDevice});
    setting.usb.unplug(setting.port);
    setting.usb.plug(otherPortName, other.portName());

    MessageBoxDriver boxes;
    boxes.whileOpen([&setting] { QCOMPARE(setting.devices()->item(0)->text(), portName); });
    QVERIFY(!setting.window->CallAvrDude());
    QCOMPARE(seen(boxes), QStringList(portNotOpened()));
    QCOMPARE(setting.devices()->count(), 1);
    QCOMPARE(setting.devices()->item(0)->text(), otherPortName);
}

// The port in the row exists and opens, but the last scan did not find it.
void tst_Upload::portIsLookedUpInTheList()
{
    Setting setting;
    QVERIFY(setting.isReady());
    const ScriptedDevice other({oldOnDevice});
    setting.devices()->item(0)->setText(other.portName());
    setting.usb.unplug(setting.port); // the system of the testbed opens no port without a name else

    MessageBoxDriver boxes;
    QVERIFY(!setting.window->CallAvrDude());
    QCOMPARE(seen(boxes), QStringList(portNotOpened()));
    QVERIFY(!uploaderRan());
    QCOMPARE(other.requests(), 0);
    QCOMPARE(setting.device.requests(), 1);
    QCOMPARE(setting.devices()->count(), 0);
}

void tst_Upload::uploaderThatDoesNotStart_data()
{
    QTest::addColumn<QByteArray>("program");
    QTest::addColumn<bool>("executable");

    QTest::newRow("not executable") << markingScript << false;
    QTest::newRow("its interpreter is missing") << QByteArray("#!/no/such/interpreter\n") << true;
    QTest::newRow("made for another machine") << QByteArray("\177ELF\002\001\001") << true;
}

void tst_Upload::uploaderThatDoesNotStart()
{
    QFETCH(const QByteArray, program);
    QFETCH(const bool, executable);

    ApplicationDirectory::installUploader(program);
    if (!executable) {
        QVERIFY(QFile::setPermissions(leftByUploader(QStringLiteral("avrdude")),
                                      QFileDevice::ReadOwner | QFileDevice::WriteOwner));
    }
    Setting setting;
    QVERIFY(setting.isReady());
    MessageBoxDriver boxes;
    QVERIFY(!setting.window->CallAvrDude());
    QCOMPARE(seen(boxes), QStringList(unableToUpload()));
    QVERIFY(!uploaderRan());
    QCOMPARE(setting.device.requests(), 2);
    QVERIFY(!setting.portIsOpen());
    QVERIFY(setting.progressBar()->isHidden());
    QCOMPARE(setting.label("label_status"), untouched);
}

void tst_Upload::arguments_data()
{
    QTest::addColumn<QString>("port");
    QTest::addColumn<QString>("sketch");

    QTest::newRow("plain names") << portName << QStringLiteral("Blink__2");
    QTest::newRow("device of another system") << otherPortName << QStringLiteral("Blink__2");
    QTest::newRow("blanks in the sketch's name")
        << portName << QStringLiteral(" My  own sketch __2");
    QTest::newRow("what a shell would take for its own")
        << portName << QStringLiteral("\"a\" 'b' $HOME `c` \\ * ;&|<>#!__2");
    QTest::newRow("colons") << portName << QStringLiteral("a:b:i__2");
    QTest::newRow("other scripts") << portName << QStringLiteral("灯é__2");
}

void tst_Upload::arguments()
{
    QFETCH(const QString, port);
    QFETCH(const QString, sketch);

    const QString sketchFile = ApplicationDirectory::addSketch(sketch);
    ApplicationDirectory::installUploader(script("printf '%s\\0' \"$0\" \"$@\" > \"$here/line\""));
    Setting setting({oldOnDevice}, port);
    QVERIFY(setting.isReady());

    MessageBoxDriver boxes;
    QVERIFY(setting.window->CallAvrDude());
    QCOMPARE(seen(boxes), QStringList());
    const QStringList expected {
        ApplicationDirectory::uploaderPath() + QStringLiteral("avrdude"),
        QStringLiteral("-C") + ApplicationDirectory::uploaderPath()
            + QStringLiteral("avrdude.conf"),
        QStringLiteral("-v"),
        QStringLiteral("-patmega328p"),
        QStringLiteral("-carduino"),
        QStringLiteral("-P/dev/") + port,
        QStringLiteral("-b115200"),
        QStringLiteral("-D"),
        QStringLiteral("-Uflash:w:") + sketchFile + QStringLiteral(":i"),
    };
    QCOMPARE(endedByNul(writtenByUploader("line")), expected);
}

void tst_Upload::firstVersionIsUploaded()
{
    ApplicationDirectory::addSketch(QStringLiteral("Blink__2"));
    const QString first = ApplicationDirectory::addSketch(QStringLiteral("Blink__10"));
    ApplicationDirectory::installUploader(script("printf %s \"$8\" > \"$here/line\""));
    Setting setting;
    QVERIFY(setting.isReady());
    QVERIFY(selectRow(*setting.window, "listWidget_programlist", 1));

    MessageBoxDriver boxes;
    QVERIFY(setting.window->CallAvrDude());
    QCOMPARE(seen(boxes), QStringList());
    QCOMPARE(QString::fromUtf8(writtenByUploader("line")),
             QString(QStringLiteral("-Uflash:w:") + first + QStringLiteral(":i")));
}

void tst_Upload::surroundingsAreInherited()
{
    ApplicationDirectory::installUploader(
        script("pwd -P > \"$here/directory\"\nprintf %s \"$VANTREL_MARK\" > \"$here/mark\""));
    qputenv("VANTREL_MARK", "a mark");
    Setting setting;
    QVERIFY(setting.isReady());
    MessageBoxDriver boxes;
    QVERIFY(setting.window->CallAvrDude());
    QCOMPARE(seen(boxes), QStringList());
    qunsetenv("VANTREL_MARK");

    QCOMPARE(QString::fromUtf8(writtenByUploader("directory")).trimmed(),
             QDir::current().canonicalPath());
    QCOMPARE(writtenByUploader("mark"), QByteArray("a mark"));
}

void tst_Upload::otherFilesBesideUploaderDoNotMatter()
{
    ApplicationDirectory::installUploader(script("printf '%s\\0' \"$0\" \"$1\" > \"$here/line\""));
    for (const char *name : {"avrdude.old", "avrdude.conf.bak", "Avrdude", "AVRDUDE.CONF", "zz"})
        ApplicationDirectory::addFile(QStringLiteral("../avrdude/") + QLatin1String(name));
    Setting setting;
    QVERIFY(setting.isReady());
    MessageBoxDriver boxes;
    QVERIFY(setting.window->CallAvrDude());
    QCOMPARE(seen(boxes), QStringList());
    QCOMPARE(endedByNul(writtenByUploader("line")),
             QStringList({leftByUploader(QStringLiteral("avrdude")),
                          QStringLiteral("-C") + leftByUploader(QStringLiteral("avrdude.conf"))}));
}

void tst_Upload::linkedUploaderRuns()
{
    const QString program = leftByUploader(QStringLiteral("avrdude"));
    QVERIFY(QFile::rename(program, leftByUploader(QStringLiteral("avrdude-7.1"))));
    QVERIFY(QFile::link(QStringLiteral("avrdude-7.1"), program));
    Setting setting;
    QVERIFY(setting.isReady());
    MessageBoxDriver boxes;
    QVERIFY(setting.window->CallAvrDude());
    QCOMPARE(seen(boxes), QStringList());
    QVERIFY(uploaderRan());
}

void tst_Upload::howUploaderEndsDoesNotMatter_data()
{
    QTest::addColumn<QByteArray>("ending");

    QTest::newRow("well") << QByteArray("exit 0");
    QTest::newRow("with an error code") << QByteArray("exit 1");
    QTest::newRow("with the highest error code") << QByteArray("exit 255");
    QTest::newRow("with an error code and a complaint")
        << QByteArray("echo 'stk500_getsync(): not in sync' >&2; exit 1");
    QTest::newRow("crashing") << QByteArray("kill -SEGV $$");
    QTest::newRow("killed") << QByteArray("kill -KILL $$");
}

void tst_Upload::howUploaderEndsDoesNotMatter()
{
    QFETCH(const QByteArray, ending);

    ApplicationDirectory::installUploader(script("ulimit -c 0\n" + ending));
    Setting setting;
    QVERIFY(setting.isReady());
    MessageBoxDriver boxes;
    QVERIFY(setting.pressUpdate());
    QCOMPARE(seen(boxes), QStringList({confirmation(), success()}));
    QCOMPARE(setting.device.requests(), 3);
    QVERIFY(!setting.progressBar()->isHidden());
    QCOMPARE(setting.label("label_status"), untouched);
}

void tst_Upload::outputDoesNotBlockUploader()
{
    // Far more than a pipe holds.
    ApplicationDirectory::installUploader(
        script("head -c 10485760 /dev/zero && head -c 10485760 /dev/zero >&2"
               " && echo ran > \"$here/ran\""));
    Setting setting;
    QVERIFY(setting.isReady());
    MessageBoxDriver boxes;
    QVERIFY(setting.window->CallAvrDude());
    QVERIFY(uploaderRan());
    QCOMPARE(seen(boxes), QStringList());
}

void tst_Upload::uploaderMayCloseItsOutputs()
{
    // It keeps running, which exposes a program that mistakes the closed outputs for its end.
    ApplicationDirectory::installUploader(
        script("exec <&- >&- 2>&-\nsleep 0.3\necho ran > \"$here/ran\""));
    Setting setting;
    QVERIFY(setting.isReady());
    MessageBoxDriver boxes;
    QVERIFY(setting.window->CallAvrDude());
    QVERIFY(uploaderRan());
    QCOMPARE(seen(boxes), QStringList());
}

void tst_Upload::portIsClosedWhileUploaderRuns()
{
    ApplicationDirectory::installUploader(
        script("for file in /proc/$PPID/fd/*; do readlink \"$file\"; done > \"$here/files\""));
    Setting setting;
    QVERIFY(setting.isReady());
    QVERIFY(setting.window->OpenSerialPort(setting.port));
    QVERIFY(setting.portIsOpen());

    MessageBoxDriver boxes;
    QVERIFY(setting.window->CallAvrDude());
    QCOMPARE(seen(boxes), QStringList());
    const QStringList files =
        QString::fromUtf8(writtenByUploader("files")).split(QLatin1Char('\n'));
    QCOMPARE(files.count(setting.device.portName()), 1); // the device's own
    QVERIFY(!setting.portIsOpen());
    QCOMPARE(setting.device.requests(), 3);
}

void tst_Upload::uploadRestartsPoll()
{
    // Two intervals of the poll: a tick is due by then, and comes at once unless it is put off.
    ApplicationDirectory::installUploader(script("sleep 0.2\ndate +%s%3N > \"$here/end\""));
    Setting setting;
    QVERIFY(setting.isReady());
    MessageBoxDriver boxes;
    QVERIFY(setting.window->CallAvrDude());
    QCOMPARE(seen(boxes), QStringList());
    QVERIFY(setting.window->OpenSerialPort(setting.port));
    QVERIFY(setting.portIsOpen());

    QTRY_VERIFY_WITH_TIMEOUT(!setting.portIsOpen(), patience);
    const qint64 closed = QDateTime::currentMSecsSinceEpoch();
    // A whole interval of 100 ms, which the timer may shorten by 5.
    QVERIFY(closed - writtenByUploader("end").trimmed().toLongLong() >= 90);
}

void tst_Upload::onlyAnUploadRestartsPoll_data()
{
    QTest::addColumn<QByteArray>("uploader");
    QTest::addColumn<bool>("plugged");
    QTest::addColumn<bool>("restarted");

    QTest::newRow("upload") << markingScript << true << true;
    QTest::newRow("uploader that fails") << script("exit 1") << true << true;
    QTest::newRow("uploader that does not start")
        << QByteArray("#!/no/such/interpreter\n") << true << false;
    QTest::newRow("no uploader") << QByteArray() << true << false;
    QTest::newRow("no device") << markingScript << false << false;
}

void tst_Upload::onlyAnUploadRestartsPoll()
{
    QFETCH(const QByteArray, uploader);
    QFETCH(const bool, plugged);
    QFETCH(const bool, restarted);

    ApplicationDirectory::installUploader(uploader);
    if (uploader.isEmpty())
        makeEntry(QStringLiteral("avrdude"), Entry::Missing, QByteArray());
    Setting setting;
    QVERIFY(setting.isReady());
    if (!plugged)
        setting.pull();
    MessageBoxDriver boxes;
    const StoppedPoll poll;
    QVERIFY(poll.isFound());

    QCOMPARE(setting.window->CallAvrDude(), restarted);

    QCOMPARE(poll.isStartedAgain(), restarted);
}

void tst_Upload::uploaderThatNeverEnds()
{
    ApplicationDirectory::installUploader(script("echo $$ > \"$here/process\"\nexec sleep 300"));
    Setting setting;
    QVERIFY(setting.isReady());
    MessageBoxDriver boxes;
    QList<bool> aliveWhileOpen;
    QElapsedTimer timer;
    qint64 untilBox = 0;
    boxes.whileOpen([&boxes, &aliveWhileOpen, &timer, &untilBox] {
        if (boxes.boxes().size() == 1) { // the answer starts it
            timer.start();
            return;
        }
        untilBox = timer.elapsed();
        aliveWhileOpen.append(isAlive(writtenByUploader("process").trimmed().toInt()));
    });
    const StoppedPoll poll;
    QVERIFY(poll.isFound());
    QVERIFY(setting.pressUpdate());

    QVERIFY(timer.elapsed() >= uploadTimeout);
    QVERIFY2(untilBox < uploadTimeout + lateness, qPrintable(QString::number(untilBox)));
    QVERIFY(!poll.isStartedAgain());
    QCOMPARE(seen(boxes), QStringList({confirmation(), unableToUpload()}));
    QCOMPARE(aliveWhileOpen, QList<bool>({true}));
    const pid_t process = writtenByUploader("process").trimmed().toInt();
    QVERIFY(process > 0);
    QVERIFY(!isAlive(process));
    QCOMPARE(setting.device.requests(), 2);
    QVERIFY(!setting.portIsOpen());
    QVERIFY(setting.progressBar()->isHidden());
    QCOMPARE(setting.label("label_status"), untouched);
}

void tst_Upload::updateFromOldToNew()
{
    Setting setting({oldOnDevice, oldOnDevice, newOnDevice});
    QVERIFY(setting.isReady());
    QCOMPARE(setting.label("label_programondevice"), QStringLiteral("Blink"));
    QCOMPARE(setting.label("label_updaterecommendation"),
             QStringLiteral("<font color='red'>Update recommended.</font>"));
    const QStringList disabledBefore = disabledWidgets(*setting.window);

    MessageBoxDriver boxes;
    boxes.whileOpen([&setting, &disabledBefore] {
        QCOMPARE(disabledWidgets(*setting.window), disabledBefore);
        QVERIFY(!setting.progressBar()->isHidden());
        QCOMPARE(setting.label("label_status"), untouched);
    });
    QVERIFY(setting.pressUpdate());
    QCOMPARE(seen(boxes), QStringList({confirmation(), success()}));
    QVERIFY(uploaderRan());
    QCOMPARE(setting.device.requests(), 3);
    QCOMPARE(setting.label("label_programondevice"), QStringLiteral("Blink"));
    QCOMPARE(setting.label("label_updaterecommendation"),
             QStringLiteral("<font color='green'>Latest version on device.</font>"));
    QCOMPARE(disabledWidgets(*setting.window), disabledBefore);
    QVERIFY(!setting.progressBar()->isHidden());
    QCOMPARE(setting.label("label_status"), untouched);
    // The port is not needed while the monitor is hidden.
    QTRY_VERIFY_WITH_TIMEOUT(!setting.portIsOpen(), patience);
    QCOMPARE(setting.device.requests(), 3);
}

void tst_Upload::successIsReportedAfterTheLastQuery()
{
    Setting setting({oldOnDevice, oldOnDevice, newOnDevice});
    QVERIFY(setting.isReady());
    MessageBoxDriver boxes;
    QList<int> requests;
    QStringList recommendations;
    boxes.whileOpen([&setting, &requests, &recommendations] {
        requests.append(setting.device.requests());
        recommendations.append(setting.label("label_updaterecommendation"));
    });
    QVERIFY(setting.pressUpdate());
    QCOMPARE(seen(boxes), QStringList({confirmation(), success()}));
    QCOMPARE(requests, QList<int>({1, 3}));
    QCOMPARE(recommendations,
             QStringList({QStringLiteral("<font color='red'>Update recommended.</font>"),
                          QStringLiteral("<font color='green'>Latest version on device.</font>")}));
}

void tst_Upload::updateShowsUnknownSketch()
{
    Setting setting({oldOnDevice, oldOnDevice, "Version:gibberish\r\n"});
    QVERIFY(setting.isReady());
    MessageBoxDriver boxes;
    QVERIFY(setting.pressUpdate());
    QCOMPARE(seen(boxes), QStringList({confirmation(), success()}));
    QCOMPARE(setting.label("label_programondevice"), QStringLiteral("Unknown sketch"));
    QCOMPARE(setting.label("label_updaterecommendation"), QString());
}

void tst_Upload::failedUploadReopensNothing()
{
    makeEntry(QStringLiteral("avrdude"), Entry::Missing, QByteArray());
    Setting setting;
    QVERIFY(setting.isReady());
    MessageBoxDriver boxes;
    QVERIFY(setting.pressUpdate());
    QCOMPARE(seen(boxes),
             QStringList({confirmation(), warning(configurationError, noProgramFound),
                          warning(configurationError, noConfigurationFound)}));
    QCOMPARE(setting.device.requests(), 1);
    QVERIFY(!setting.portIsOpen());
}

void tst_Upload::deviceRemovedDuringUpload()
{
    ApplicationDirectory::addFile(QStringLiteral("../avrdude/port"), portName.toUtf8());
    ApplicationDirectory::installUploader(script("rm \"$UMOCKDEV_DIR/dev/$(cat \"$here/port\")\""));
    Setting setting;
    QVERIFY(setting.isReady());
    MessageBoxDriver boxes;
    QVERIFY(setting.pressUpdate());
    QCOMPARE(seen(boxes), QStringList({confirmation(), success()}));
    QCOMPARE(setting.device.requests(), 2);
    QVERIFY(!setting.portIsOpen());
    QCOMPARE(setting.label("label_programondevice"), QStringLiteral("Blink"));
    QCOMPARE(setting.devices()->count(), 1);
}

void tst_Upload::deviceLostAtLastQuery()
{
    Setting setting;
    QVERIFY(setting.isReady());
    setting.device.unplugAtRequest(3);
    MessageBoxDriver boxes;
    QVERIFY(setting.pressUpdate());
    QCOMPARE(seen(boxes), QStringList({confirmation(), success()}));
    QCOMPARE(setting.label("label_programondevice"), QStringLiteral("Unknown sketch"));
}

void tst_Upload::monitorGoesOnAfterUpdate()
{
    Setting setting;
    QVERIFY(setting.isReady());
    QVERIFY(chooseMenuEntry(*setting.window, "actionSerial_Monitor"));
    MessageBoxDriver boxes;
    QVERIFY(setting.pressUpdate());
    QCOMPARE(seen(boxes), QStringList({confirmation(), success()}));
    QVERIFY(uploaderRan());
    QVERIFY(waitForTicks());
    QVERIFY(setting.portIsOpen());
}

void tst_Upload::updateAgain()
{
    Setting setting;
    QVERIFY(setting.isReady());
    MessageBoxDriver boxes;
    QVERIFY(setting.pressUpdate());
    QVERIFY(QFile::remove(leftByUploader(QStringLiteral("ran"))));
    QVERIFY(setting.pressUpdate());
    QCOMPARE(seen(boxes), QStringList({confirmation(), success(), confirmation(), success()}));
    QVERIFY(uploaderRan());
    QCOMPARE(setting.device.requests(), 5);
}

QTEST_MAIN(tst_Upload)

#include "tst_upload.moc"
