// The simulated device: its command line, and what a program finds that runs inside it. The tests
// of the second kind run in this same program, started once more as the command.

#include "support/patience.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QSerialPort>
#include <QSerialPortInfo>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr int answerMs = 1000; // as long as the program waits
constexpr int queryAttempts = 10;
constexpr int latencyMs = 16; // of the adapter
constexpr int manyTimes = 5000;
constexpr int longText = 3000; // bytes: a quarter of a second on the wire, and a terminal holds it
constexpr int flashSize = 0x8000;
constexpr int bootSectionStart = 0x7c00;

const QString controlVariable = QStringLiteral("SIMULATED_DEVICE_CONTROL");
const QString portVariable = QStringLiteral("EXPECTED_PORT");
const QString productVariable = QStringLiteral("EXPECTED_PRODUCT");
const QString serialVariable = QStringLiteral("EXPECTED_SERIAL");
const QString versionVariable = QStringLiteral("EXPECTED_VERSION");

QString imagePath(const QString &version)
{
    return QStringLiteral(FIRMWARE_DIR "/%1.ino.with_bootloader.standard.hex").arg(version);
}

// Lays the plain records that srec_cat writes for the 32 KiB of this chip over what it held before.
QByteArray withImage(QByteArray flash, const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    while (!file.atEnd()) {
        const QByteArray record = QByteArray::fromHex(file.readLine().trimmed().mid(1));
        const int address =
            static_cast<unsigned char>(record[1]) * 256 + static_cast<unsigned char>(record[2]);
        if (record[3] == 0)
            flash.replace(address, record[0], record.mid(4, record[0]));
    }
    return flash;
}

struct Outcome
{
    int exitCode = -1;
    QString output;
    QString errors;
};

Outcome finish(QProcess &process)
{
    if (!process.waitForStarted(patience) || !process.waitForFinished(patience)) {
        process.kill();
        process.waitForFinished(patience);
        return {};
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromLocal8Bit(process.readAllStandardOutput()),
            QString::fromLocal8Bit(process.readAllStandardError())};
}

Outcome runProgram(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    return finish(process);
}

// The name before the state may hold anything.
QByteArray stateIn(const QByteArray &stat)
{
    return stat.mid(stat.lastIndexOf(')') + 2, 1);
}

// The letter that the system gives the process; empty when there is none.
QByteArray stateOf(int processId)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(processId));
    return file.open(QIODevice::ReadOnly) ? stateIn(file.readAll()) : QByteArray();
}

// False for one that has ended and waits for its parent, too. Its state is asked for, as its
// command line is empty for a moment while it starts another program.
bool isAlive(const QByteArray &processId)
{
    // An identifier that is empty is 0, which no process has.
    const QByteArray state = stateOf(processId.toInt());
    return !state.isEmpty() && state != "Z" && state != "X";
}

template <typename Condition>
bool waitFor(Condition isMet)
{
    const QDeadlineTimer limit(patience);
    while (!isMet() && !limit.hasExpired())
        QThread::msleep(1);
    return isMet();
}

// Stops the simulation in which this command runs, for as long as it lives.
class StoppedSimulation
{
public:
    StoppedSimulation() { kill(getppid(), SIGSTOP); }
    ~StoppedSimulation() { goOn(); }
    StoppedSimulation(const StoppedSimulation &) = delete;
    StoppedSimulation &operator=(const StoppedSimulation &) = delete;

    static bool isStopped()
    {
        return waitFor([] { return stateOf(getppid()) == "T"; });
    }
    static void goOn() { kill(getppid(), SIGCONT); }
};

// Lets one process go on as soon as another one waits.
const QString goOnWhenAsleep = QStringLiteral(
    "until read -r number name state rest < /proc/$1/stat && [ \"$state\" = S ]; do :; done; "
    "kill -CONT $2");

// What has come by now, without waiting for more.
QByteArray whatCame(QSerialPort &port)
{
    QByteArray bytes = port.readAll();
    while (port.waitForReadyRead(0))
        bytes += port.readAll();
    return bytes;
}

QByteArray readLine(QSerialPort &port)
{
    while (!port.canReadLine() && port.waitForReadyRead(patience)) { }
    return port.readLine();
}

// As the port hands them over, up to the end of the line.
QList<QByteArray> piecesOfLine(QSerialPort &port)
{
    QList<QByteArray> pieces;
    while (!pieces.join().endsWith("\r\n") && port.waitForReadyRead(patience))
        pieces.append(port.readAll());
    return pieces;
}

} // namespace

class tst_InsideTheDevice : public QObject
{
    Q_OBJECT

private slots:
    void portIsListedWithItsIds();
    void openPortReportsNoError();
    void queryIsAnsweredWithinTenAttempts();
    void aCutAnswerCostsAnotherAttempt();
    void textIsHeard();
    void longTextArrivesInPackets();
    void wrongSpeedIsNotUnderstood();
    void risingDtrResetsTheChip();
    void whatWasWrittenBeforeAResetIsGone();
    void aResetHandsOverWhatTheChipSaid();
    void resetsWithoutPauseDoNoHarm();
    void uploadReplacesTheSketchAndNothingElse();
    void portGivenUpWhileUnplugged();
    void replugBringsThePortBack();
    void unplugKeepsTheFlash();
    void controlAnswersEachCommand();
    void statusCountsOpeningsAndBytes();
    void receivedIsWhatTheHostWasHanded();

private:
    static QString expectation(const QString &variable);
    static QString portName() { return expectation(portVariable); }
    static Outcome control(const QStringList &arguments);
    static QByteArray dump();
    static int statusNumber(const QString &field);
    static bool isListed();
    static void open(QSerialPort &port);
    static QByteArray ask(QSerialPort &port);
    static int attemptsUntilAnswer(QSerialPort &port, const QByteArray &answer);
    static bool hasNothingMoreToSay(QSerialPort &port);
    static bool talks(QSerialPort &port);
    static QByteArray expectedAnswer();
};

QString tst_InsideTheDevice::expectation(const QString &variable)
{
    return QProcessEnvironment::systemEnvironment().value(variable);
}

Outcome tst_InsideTheDevice::control(const QStringList &arguments)
{
    return runProgram(QStringLiteral(SIMULATED_DEVICE_CLIENT), arguments);
}

QByteArray tst_InsideTheDevice::dump()
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("flash.bin"));
    control({QStringLiteral("dump"), path});
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

int tst_InsideTheDevice::statusNumber(const QString &field)
{
    const QRegularExpression number(QStringLiteral("\\b%1=(\\d+)").arg(field));
    return number.match(control({QStringLiteral("status")}).output).captured(1).toInt();
}

bool tst_InsideTheDevice::isListed()
{
    const QList<QSerialPortInfo> ports = QSerialPortInfo::availablePorts();
    return std::any_of(ports.begin(), ports.end(),
                       [](const QSerialPortInfo &port) { return port.portName() == portName(); });
}

void tst_InsideTheDevice::open(QSerialPort &port)
{
    port.setPortName(portName());
    port.setBaudRate(QSerialPort::Baud115200);
    QVERIFY2(port.open(QIODevice::ReadWrite), qPrintable(port.errorString()));
}

QByteArray tst_InsideTheDevice::ask(QSerialPort &port)
{
    port.write("v");
    port.waitForBytesWritten(answerMs);
    port.readAll();
    port.waitForReadyRead(answerMs);
    return port.readLine();
}

// On a loaded machine the chip may lag just so far that the adapter's timer cuts each answer, if
// each request comes as soon as the answer before it. So each comes a little later than the last.
int tst_InsideTheDevice::attemptsUntilAnswer(QSerialPort &port, const QByteArray &answer)
{
    for (int attempt = 1; attempt <= queryAttempts; ++attempt) {
        if (ask(port) == answer)
            return attempt;
        QThread::msleep(unsigned(attempt));
    }
    return queryAttempts + 1;
}

// Requests whose answers nobody waited for are answered before the text, or heard with it.
bool tst_InsideTheDevice::hasNothingMoreToSay(QSerialPort &port)
{
    for (int attempt = 0; attempt < queryAttempts; ++attempt) {
        const QByteArray text = "ready" + QByteArray::number(attempt);
        port.write(text);
        QByteArray line = readLine(port);
        while (!line.isEmpty() && !line.endsWith(text + "\r\n"))
            line = readLine(port);
        if (line == "Heard: " + text + "\r\n")
            return true;
    }
    return false;
}

// Opens the port; true when the sketch runs and waits for what it is told.
bool tst_InsideTheDevice::talks(QSerialPort &port)
{
    open(port);
    return attemptsUntilAnswer(port, expectedAnswer()) <= queryAttempts
        && hasNothingMoreToSay(port);
}

QByteArray tst_InsideTheDevice::expectedAnswer()
{
    return "Version:" + expectation(versionVariable).toLatin1() + "\r\n";
}

void tst_InsideTheDevice::portIsListedWithItsIds()
{
    QVERIFY(isListed());
    const QSerialPortInfo port(portName());
    QCOMPARE(port.systemLocation(), QString(QLatin1String("/dev/") + portName()));
    QVERIFY(port.hasVendorIdentifier());
    QCOMPARE(port.vendorIdentifier(), quint16(0x0403));
    QVERIFY(port.hasProductIdentifier());
    QCOMPARE(port.productIdentifier(), expectation(productVariable).toUShort(nullptr, 16));
    QCOMPARE(port.serialNumber(), expectation(serialVariable));
}

void tst_InsideTheDevice::openPortReportsNoError()
{
    QSerialPort port;
    open(port);
    QCOMPARE(port.error(), QSerialPort::NoError);
    port.close();
    QCOMPARE(port.error(), QSerialPort::NoError);
}

void tst_InsideTheDevice::queryIsAnsweredWithinTenAttempts()
{
    QElapsedTimer clock;
    clock.start();
    QSerialPort port;
    open(port);
    const int attempts = attemptsUntilAnswer(port, expectedAnswer());
    qInfo("%d attempts in %lld ms", attempts, clock.elapsed());

    // The bootloader listens first: an answer at once would mean that opening resets nothing.
    QVERIFY(attempts > 1);
    QVERIFY(attempts <= queryAttempts);
}

// The requests wander through the period of the adapter's timer until it expires in an answer.
void tst_InsideTheDevice::aCutAnswerCostsAnotherAttempt()
{
    QSerialPort port;
    QVERIFY(talks(port));
    const auto isCut = [](const QByteArray &piece) {
        return !piece.isEmpty() && piece != expectedAnswer() && expectedAnswer().startsWith(piece);
    };
    QByteArray piece;
    const QDeadlineTimer limit(patience);
    for (unsigned pause = 0; !isCut(piece) && !limit.hasExpired(); ++pause) {
        QVERIFY(hasNothingMoreToSay(port));
        QThread::msleep(pause % latencyMs);
        piece = ask(port);
    }
    QVERIFY2(isCut(piece), piece.constData());

    const int attempts = 1 + attemptsUntilAnswer(port, expectedAnswer());
    qInfo("\"%s\" first, %d attempts", piece.constData(), attempts);
    QVERIFY(attempts <= queryAttempts);
}

void tst_InsideTheDevice::textIsHeard()
{
    QSerialPort port;
    QVERIFY(talks(port));
    port.write("volume 7");
    QCOMPARE(piecesOfLine(port).join(), QByteArray("Heard: volume 7\r\n"));
}

void tst_InsideTheDevice::longTextArrivesInPackets()
{
    QSerialPort port;
    QVERIFY(talks(port));
    const QList<QByteArray> packets = {"Heard: " + QByteArray(55, 'a'),
                                       QByteArray(15, 'a') + "\r\n"};
    // The timer may cut the first packet, and on a loaded machine both have come before the first
    // is read, but not every time.
    QList<QByteArray> pieces;
    const QDeadlineTimer limit(patience);
    for (unsigned pause = 0; pieces != packets && !limit.hasExpired(); ++pause) {
        QThread::msleep(pause % latencyMs);
        port.write(QByteArray(70, 'a'));
        pieces = piecesOfLine(port);
        QCOMPARE(pieces.join(), packets.join());
    }
    QCOMPARE(pieces, packets);
}

void tst_InsideTheDevice::wrongSpeedIsNotUnderstood()
{
    QSerialPort port;
    QVERIFY(talks(port));
    QVERIFY(port.setBaudRate(QSerialPort::Baud9600));
    const QByteArray answer = ask(port);
    QVERIFY(!answer.isEmpty());
    QVERIFY(answer != expectedAnswer());
}

void tst_InsideTheDevice::risingDtrResetsTheChip()
{
    QSerialPort port;
    open(port);
    QVERIFY(port.isDataTerminalReady());
    const int resets = statusNumber(QStringLiteral("resets"));
    QCOMPARE(resets, 1);

    QVERIFY(port.setDataTerminalReady(false));
    QVERIFY(!port.isDataTerminalReady());
    QCOMPARE(statusNumber(QStringLiteral("resets")), resets);
    QVERIFY(port.setDataTerminalReady(true));
    QCOMPARE(statusNumber(QStringLiteral("resets")), resets + 1);
    QVERIFY(port.setRequestToSend(false));
    QVERIFY(port.isDataTerminalReady());
    QCOMPARE(statusNumber(QStringLiteral("resets")), resets + 1);
}

// A simulation that is late finds text and edge at once. The edge waits for its answer, so another
// process lets the simulation go on. What is written to the port would wait as well, so it goes to
// the terminal behind it.
void tst_InsideTheDevice::whatWasWrittenBeforeAResetIsGone()
{
    QSerialPort port;
    QVERIFY(talks(port));
    QVERIFY(port.setDataTerminalReady(false));
    const int before = statusNumber(QStringLiteral("in"));
    QFile terminal(QFile::symLinkTarget(QLatin1String("/dev/") + portName()));
    QVERIFY(terminal.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    {
        const StoppedSimulation simulation;
        QVERIFY(StoppedSimulation::isStopped());
        QCOMPARE(terminal.write(QByteArray(longText, 'a')), qint64(longText));
        QProcess hand;
        hand.start(QStringLiteral("sh"),
                   {QStringLiteral("-c"), goOnWhenAsleep, QStringLiteral("sh"),
                    QString::number(getpid()), QString::number(getppid())});
        QVERIFY(hand.waitForStarted(patience));
        const bool raised = port.setDataTerminalReady(true);
        QCOMPARE(finish(hand).exitCode, 0);
        QVERIFY(raised);
    }
    // Its requests come behind the text, so the answer says that the text is through.
    QVERIFY(attemptsUntilAnswer(port, expectedAnswer()) <= queryAttempts);
    const int more = statusNumber(QStringLiteral("in")) - before;
    // It takes a first bufferful or two before it learns of the edge, from a thread of umockdev's.
    QVERIFY2(more < longText / 4, qPrintable(QString::number(more)));
}

// The chip speaks for as long as it is spoken to, so the edge falls into a packet.
void tst_InsideTheDevice::aResetHandsOverWhatTheChipSaid()
{
    QSerialPort port;
    QVERIFY(talks(port));
    QVERIFY(port.setDataTerminalReady(false));
    whatCame(port);
    const int before = statusNumber(QStringLiteral("out"));
    port.write(QByteArray(longText, 'a'));
    QVERIFY(port.waitForReadyRead(patience));

    QVERIFY(port.setDataTerminalReady(true));

    const QByteArray came = whatCame(port);
    QVERIFY(came.startsWith("Heard: a"));
    QCOMPARE(came.size(), statusNumber(QStringLiteral("out")) - before);
}

void tst_InsideTheDevice::resetsWithoutPauseDoNoHarm()
{
    QSerialPort port;
    open(port);
    const int resets = statusNumber(QStringLiteral("resets"));
    for (int time = 0; time < manyTimes; ++time) {
        QVERIFY(port.setDataTerminalReady(false));
        QVERIFY(port.setDataTerminalReady(true));
    }
    QCOMPARE(statusNumber(QStringLiteral("resets")), resets + manyTimes);
    QVERIFY(attemptsUntilAnswer(port, expectedAnswer()) <= queryAttempts);
}

void tst_InsideTheDevice::uploadReplacesTheSketchAndNothingElse()
{
    const QByteArray before = dump();
    const QString image = imagePath(expectation(versionVariable));
    const QByteArray expected = withImage(before, image);
    QVERIFY(before != expected);

    const Outcome upload =
        runProgram(QStandardPaths::findExecutable(QStringLiteral("avrdude")),
                   {QStringLiteral("-C/etc/avrdude.conf"), QStringLiteral("-v"),
                    QStringLiteral("-patmega328p"), QStringLiteral("-carduino"),
                    QLatin1String("-P/dev/") + portName(), QStringLiteral("-b115200"),
                    QStringLiteral("-D"), QStringLiteral("-Uflash:w:%1:i").arg(image)});
    QVERIFY2(upload.exitCode == 0, qPrintable(upload.errors));

    const QByteArray after = dump();
    QCOMPARE(after.size(), flashSize);
    QVERIFY(after == expected);
    QVERIFY(after.mid(bootSectionStart) == before.mid(bootSectionStart));

    QSerialPort port;
    open(port);
    QVERIFY(attemptsUntilAnswer(port, expectedAnswer()) <= queryAttempts);
}

void tst_InsideTheDevice::portGivenUpWhileUnplugged()
{
    QSerialPort port;
    open(port);
    QCOMPARE(control({QStringLiteral("unplug")}).exitCode, 0);
    QVERIFY(!isListed());
    QVERIFY(!QFile::exists(QLatin1String("/dev/") + portName()));
    QTRY_VERIFY_WITH_TIMEOUT(port.error() == QSerialPort::ReadError
                                 || port.error() == QSerialPort::ResourceError,
                             patience);

    port.close();
    QVERIFY(!port.open(QIODevice::ReadWrite));
    QCOMPARE(port.error(), QSerialPort::DeviceNotFoundError);
}

void tst_InsideTheDevice::replugBringsThePortBack()
{
    // A second QSerialPort would stumble over the lock file of the first.
    QFile left(QLatin1String("/dev/") + portName());
    QVERIFY(left.open(QIODevice::ReadWrite));
    QCOMPARE(control({QStringLiteral("unplug")}).exitCode, 0);
    QCOMPARE(control({QStringLiteral("replug")}).exitCode, 0);
    portIsListedWithItsIds();

    QSerialPort port;
    open(port);
    QCOMPARE(port.error(), QSerialPort::NoError);
    QVERIFY(attemptsUntilAnswer(port, expectedAnswer()) <= queryAttempts);
    // The port that was open when the device went belongs to the past.
    int lines = 0;
    QCOMPARE(ioctl(left.handle(), TIOCMGET, &lines), -1);
    QCOMPARE(errno, EIO);
    left.close();
    QVERIFY(port.isDataTerminalReady());
    QVERIFY(attemptsUntilAnswer(port, expectedAnswer()) <= queryAttempts);
}

void tst_InsideTheDevice::unplugKeepsTheFlash()
{
    const QByteArray before = dump();
    const QByteArray erased(flashSize, '\xff');
    QVERIFY(before == withImage(erased, imagePath(expectation(versionVariable))));
    QCOMPARE(control({QStringLiteral("unplug")}).exitCode, 0);
    QCOMPARE(dump(), before);
    QCOMPARE(control({QStringLiteral("replug")}).exitCode, 0);
    QCOMPARE(dump(), before);
}

void tst_InsideTheDevice::controlAnswersEachCommand()
{
    const QString unplug = QStringLiteral("unplug");
    const QString replug = QStringLiteral("replug");
    const QString reset = QStringLiteral("reset");
    QCOMPARE(control({reset}).output, QStringLiteral("ok reset\n"));
    QCOMPARE(control({replug}).exitCode, 1);
    QCOMPARE(control({replug}).errors, QStringLiteral("error the device is plugged in already\n"));
    QCOMPARE(control({unplug}).output, QStringLiteral("ok unplugged\n"));
    QCOMPARE(control({unplug}).errors, QStringLiteral("error the device is not plugged in\n"));
    QCOMPARE(control({reset}).exitCode, 1);
    QVERIFY(control({QStringLiteral("status")}).output.startsWith(QLatin1String("ok unplugged ")));
    QCOMPARE(control({replug}).output, QStringLiteral("ok plugged\n"));
    QVERIFY(control({QStringLiteral("status")}).output.startsWith(QLatin1String("ok plugged ")));
    QCOMPARE(control({QStringLiteral("dump"), QStringLiteral("/no/such/folder/f")}).exitCode, 1);
    QCOMPARE(control({QStringLiteral("jump")}).errors,
             QStringLiteral("error unknown command: jump\n"));
}

void tst_InsideTheDevice::statusCountsOpeningsAndBytes()
{
    QSerialPort port;
    QVERIFY(talks(port));
    const int in = statusNumber(QStringLiteral("in"));
    const int out = statusNumber(QStringLiteral("out"));
    port.write("volume 7");
    const QByteArray line = piecesOfLine(port).join();
    QCOMPARE(statusNumber(QStringLiteral("in")), in + 8);
    QCOMPARE(statusNumber(QStringLiteral("out")), out + int(line.size()));
    port.close();
    open(port);
    QTRY_COMPARE_WITH_TIMEOUT(statusNumber(QStringLiteral("opens")), 2, patience);
    QCOMPARE(statusNumber(QStringLiteral("resets")), 2);
}

void tst_InsideTheDevice::receivedIsWhatTheHostWasHanded()
{
    QSerialPort port;
    QVERIFY(talks(port));
    const QByteArray answer =
        QByteArray::fromHex(control({QStringLiteral("received")}).output.mid(3).toLatin1());
    QVERIFY2(answer.startsWith(expectedAnswer()), answer.constData());

    QByteArray text;
    for (int count = 0; count < 5; ++count) {
        const QByteArray line = "Heard: " + QByteArray(70, char('a' + count)) + "\r\n";
        port.write(line.mid(7, 70));
        QCOMPARE(piecesOfLine(port).join(), line);
        text += line;
    }
    QCOMPARE(control({QStringLiteral("received")}).output,
             QStringLiteral("ok %1\n").arg(QString::fromLatin1(text.right(256).toHex())));

    port.close();
    open(port);
    QCOMPARE(control({QStringLiteral("received")}).output, QStringLiteral("ok \n"));
}

class tst_SimulatedDevice : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void helpTellsOptionsControlAndStatuses();
    void mistakeGivesOneClearLine_data();
    void mistakeGivesOneClearLine();
    void controlHelpTellsEachCommand();
    void controlMistakeIsAUsageError_data();
    void controlMistakeIsAUsageError();
    void missingWrapperIsNamed();
    void usedControlPathIsLeftAlone();
    void exitStatusIsThatOfTheCommand_data();
    void exitStatusIsThatOfTheCommand();
    void insideTheDevice_data();
    void insideTheDevice();
    void controlSocketIsWhereItWasAskedFor();
    void nothingIsLeftAfterTheCommandEnds();
    void signalEndsCommandAndLeavesNothing_data();
    void signalEndsCommandAndLeavesNothing();
    void commandDiesWithTheSimulation();

private:
    QString filePath(const QString &name) const { return folder->filePath(name); }
    QString write(const QString &name, const QByteArray &content) const;
    QByteArray read(const QString &name) const;
    QStringList leftovers() const;
    void prepare(QProcess &process) const;
    Outcome simulate(const QStringList &arguments) const;
    Outcome simulateCommand(const QStringList &command) const;
    QByteArray startSleeper(QProcess &simulation) const;

    QScopedPointer<QTemporaryDir> folder;
};

void tst_SimulatedDevice::init()
{
    folder.reset(new QTemporaryDir);
    QVERIFY(folder->isValid());
    QVERIFY(QDir(folder->path()).mkdir(QStringLiteral("tmp")));
}

QString tst_SimulatedDevice::write(const QString &name, const QByteArray &content) const
{
    QFile file(filePath(name));
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write a file of the test");
    return file.fileName();
}

QByteArray tst_SimulatedDevice::read(const QString &name) const
{
    QFile file(filePath(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList tst_SimulatedDevice::leftovers() const
{
    return QDir(filePath(QStringLiteral("tmp")))
        .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

void tst_SimulatedDevice::prepare(QProcess &process) const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TMPDIR"), filePath(QStringLiteral("tmp")));
    // With umockdev in front, a sanitized command's run-time library is not the first one.
    environment.insert(QStringLiteral("ASAN_OPTIONS"),
                       environment.value(QStringLiteral("ASAN_OPTIONS"))
                           + QLatin1String(":verify_asan_link_order=0"));
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(folder->path());
}

Outcome tst_SimulatedDevice::simulate(const QStringList &arguments) const
{
    QProcess process;
    prepare(process);
    process.start(QStringLiteral(SIMULATED_DEVICE), arguments);
    return finish(process);
}

Outcome tst_SimulatedDevice::simulateCommand(const QStringList &command) const
{
    return simulate(QStringList {QStringLiteral("--image"),
                                 imagePath(QStringLiteral("Metronome__1")), QStringLiteral("--")}
                    + command);
}

// Starts a simulation whose command waits for a signal, and returns the command's process id.
QByteArray tst_SimulatedDevice::startSleeper(QProcess &simulation) const
{
    const QString script = QStringLiteral("echo $$ >new && mv new id && exec sleep 60");
    prepare(simulation);
    simulation.start(QStringLiteral(SIMULATED_DEVICE),
                     {QStringLiteral("--image"), imagePath(QStringLiteral("Metronome__1")),
                      QStringLiteral("--"), QStringLiteral("sh"), QStringLiteral("-c"), script});
    const auto started = [this] {
        return QFile::exists(filePath(QStringLiteral("id")));
    };
    return QTest::qWaitFor(started, patience) ? read(QStringLiteral("id")).trimmed() : QByteArray();
}

void tst_SimulatedDevice::helpTellsOptionsControlAndStatuses()
{
    const Outcome help = simulate({QStringLiteral("--help")});
    QCOMPARE(help.exitCode, 0);
    QVERIFY(help.errors.isEmpty());
    for (const char *word :
         {"--port NAME", "--product HEX", "--vendor HEX", "--serial TEXT", "--image FILE.hex",
          "--control SOCKET", "--verbose", "COMMAND [ARG...]", "SIMULATED_DEVICE_CONTROL", "unplug",
          "replug", "reset", "dump FILE", "received", "status", "125", "126", "127"})
        QVERIFY2(help.output.contains(QLatin1String(word)), word);
}

void tst_SimulatedDevice::mistakeGivesOneClearLine_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QByteArray>("image");
    QTest::addColumn<QString>("command");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("message");

    const QStringList none;
    const QByteArray good = ":020000040000FA\n:017C0000AAD9\n:00000001FF\n";
    const QString run = QStringLiteral("true");
    const auto option = [](const char *name, const QString &value) {
        return QStringList {QLatin1String(name), value};
    };

    QTest::newRow("no image is named")
        << none << QByteArray() << run << 125 << QStringLiteral("no --image given");
    QTest::newRow("the image is missing")
        << option("--image", QStringLiteral("none.hex")) << QByteArray() << run << 125
        << QStringLiteral("image none.hex: No such file or directory");
    QTest::newRow("the image is a folder")
        << option("--image", QStringLiteral("tmp")) << QByteArray() << run << 125
        << QStringLiteral("image tmp: cannot be read");
    QTest::newRow("the image has another format")
        << none << QByteArray("S00000001FF\n") << run << 125
        << QStringLiteral("is not an Intel HEX file (line 1)");
    QTest::newRow("a digit of the image is none")
        << none << QByteArray(":0000000XFF\n") << run << 125
        << QStringLiteral("is not an Intel HEX file (line 1)");
    QTest::newRow("the image is empty")
        << none << QByteArray() << run << 125
        << QStringLiteral("is not an Intel HEX file (no end record)");
    QTest::newRow("the image is cut off")
        << none << good.left(15) << run << 125
        << QStringLiteral("is not an Intel HEX file (no end record)");
    QTest::newRow("a byte of the image is damaged")
        << none << QByteArray(":017C0000ABD9\n") << run << 125
        << QStringLiteral("has a wrong checksum (line 1)");
    QTest::newRow("the image runs past the flash")
        << none << QByteArray(":018000000B74\n") << run << 125
        << QStringLiteral("is too large for the flash of 32 KiB (line 1)");
    QTest::newRow("the image's upper addresses run past the flash")
        << none << QByteArray(":020000040001F9\n:0100000001FE\n:00000001FF\n") << run << 125
        << QStringLiteral("is too large for the flash of 32 KiB (line 2)");
    QTest::newRow("the image holds no bootloader")
        << none << QByteArray(":0100000001FE\n:00000001FF\n") << run << 125
        << QStringLiteral("holds no bootloader");
    QTest::newRow("no command is given")
        << none << good << QString() << 125 << QStringLiteral("no command given");
    QTest::newRow("the command does not exist")
        << none << good << QStringLiteral("./none") << 127
        << QStringLiteral("cannot run ./none: No such file or directory");
    QTest::newRow("the command is not a program")
        << none << good << QStringLiteral("./image.hex") << 126
        << QStringLiteral("cannot run ./image.hex: Permission denied");
    QTest::newRow("the option is unknown") << QStringList {QStringLiteral("--speed")} << good << run
                                           << 125 << QStringLiteral("unknown option --speed");
    QTest::newRow("the port name is a path")
        << option("--port", QStringLiteral("a/b")) << good << run << 125
        << QStringLiteral("not a port name: 'a/b'");
    QTest::newRow("the product identifier is no number")
        << option("--product", QStringLiteral("60g1")) << good << run << 125
        << QStringLiteral("not a USB identifier");
    QTest::newRow("the vendor identifier is too long")
        << option("--vendor", QStringLiteral("00403")) << good << run << 125
        << QStringLiteral("not a USB identifier");
    QTest::newRow("the control path is too long")
        << option("--control", QString(200, QLatin1Char('a'))) << good << run << 125
        << QStringLiteral("control socket path is too long");
    QTest::newRow("the control path's folder is missing")
        << option("--control", QStringLiteral("none/socket")) << good << run << 125
        << QStringLiteral("control socket none/socket: No such file or directory");
}

void tst_SimulatedDevice::mistakeGivesOneClearLine()
{
    QFETCH(QStringList, options);
    QFETCH(QByteArray, image);
    QFETCH(QString, command);
    QFETCH(int, exitCode);
    QFETCH(QString, message);

    write(QStringLiteral("image.hex"), image);
    const bool namesImage = message.startsWith(QLatin1String("no --image"))
        || options.contains(QStringLiteral("--image"));
    if (!namesImage)
        options += {QStringLiteral("--image"), QStringLiteral("image.hex")};
    options += QStringLiteral("--");
    if (!command.isEmpty())
        options += command;

    const Outcome outcome = simulate(options);
    QCOMPARE(outcome.exitCode, exitCode);
    QVERIFY2(outcome.errors.contains(message), qPrintable(outcome.errors));
    QVERIFY(outcome.errors.startsWith(QLatin1String("simulated-device: ")));
    QCOMPARE(outcome.errors.count(QLatin1Char('\n')), 1);
    QVERIFY(outcome.output.isEmpty());
    QCOMPARE(leftovers(), QStringList());
}

void tst_SimulatedDevice::controlHelpTellsEachCommand()
{
    const Outcome help =
        runProgram(QStringLiteral(SIMULATED_DEVICE_CLIENT), {QStringLiteral("--help")});
    QCOMPARE(help.exitCode, 0);
    QCOMPARE(help.errors, QString());
    for (const char *word : {"unplug", "replug", "reset", "dump FILE", "received", "status",
                             "SIMULATED_DEVICE_CONTROL", "125"})
        QVERIFY2(help.output.contains(QLatin1String(word)), word);
}

void tst_SimulatedDevice::controlMistakeIsAUsageError_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("message");

    const QString dump = QStringLiteral("dump");
    const QString reset = QStringLiteral("reset");
    QTest::newRow("no command is given") << QStringList() << QStringLiteral("no command given");
    QTest::newRow("a dump names no file")
        << QStringList {dump} << QStringLiteral("dump needs a file");
    QTest::newRow("a dump names two files")
        << QStringList {dump, dump, dump} << QStringLiteral("too many arguments");
    QTest::newRow("two commands are given")
        << QStringList {reset, reset} << QStringLiteral("too many arguments");
    QTest::newRow("the option is unknown")
        << QStringList {QStringLiteral("--halp")} << QStringLiteral("unknown option --halp");
}

// No device is needed to see it.
void tst_SimulatedDevice::controlMistakeIsAUsageError()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, message);

    const Outcome outcome = runProgram(QStringLiteral(SIMULATED_DEVICE_CLIENT), arguments);
    QCOMPARE(outcome.exitCode, 2);
    QCOMPARE(outcome.errors,
             QLatin1String("simulated-device-control: ") + message
                 + QLatin1String(" (see --help)\n"));
    QCOMPARE(outcome.output, QString());
}

void tst_SimulatedDevice::missingWrapperIsNamed()
{
    QProcess process;
    prepare(process);
    QProcessEnvironment environment = process.processEnvironment();
    environment.insert(QStringLiteral("PATH"), folder->path());
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(SIMULATED_DEVICE),
                  {QStringLiteral("--image"), imagePath(QStringLiteral("Metronome__1")),
                   QStringLiteral("--"), QStringLiteral("true")});
    const Outcome outcome = finish(process);
    QCOMPARE(outcome.exitCode, 125);
    QCOMPARE(outcome.errors,
             QStringLiteral("simulated-device: cannot run umockdev-wrapper (package umockdev): "
                            "No such file or directory\n"));
}

void tst_SimulatedDevice::usedControlPathIsLeftAlone()
{
    write(QStringLiteral("socket"), "mine");
    const Outcome outcome = simulate(
        {QStringLiteral("--control"), QStringLiteral("socket"), QStringLiteral("--image"),
         imagePath(QStringLiteral("Metronome__1")), QStringLiteral("--"), QStringLiteral("true")});
    QCOMPARE(outcome.exitCode, 125);
    QCOMPARE(outcome.errors,
             QStringLiteral("simulated-device: control socket path is in use: socket\n"));
    QCOMPARE(read(QStringLiteral("socket")), QByteArray("mine"));
    QCOMPARE(leftovers(), QStringList());
}

void tst_SimulatedDevice::exitStatusIsThatOfTheCommand_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<int>("exitCode");

    QTest::newRow("a command that succeeds") << QStringLiteral("exit 0") << 0;
    QTest::newRow("a command that fails") << QStringLiteral("exit 7") << 7;
    QTest::newRow("a command that is killed") << QStringLiteral("kill -KILL $$") << 137;
    QTest::newRow("a command that is terminated") << QStringLiteral("kill -TERM $$") << 143;
}

void tst_SimulatedDevice::exitStatusIsThatOfTheCommand()
{
    QFETCH(QString, script);
    QFETCH(int, exitCode);

    const Outcome outcome = simulateCommand({QStringLiteral("sh"), QStringLiteral("-c"), script});
    QCOMPARE(outcome.exitCode, exitCode);
    QCOMPARE(outcome.errors, QString());
}

void tst_SimulatedDevice::insideTheDevice_data()
{
    QTest::addColumn<QString>("function");
    QTest::addColumn<QString>("port");
    QTest::addColumn<QString>("product");
    QTest::addColumn<QString>("serial");
    QTest::addColumn<QString>("version");

    const auto row = [](const char *name, const char *function, const char *port = "ttyUSB0",
                        const char *product = "6001", const char *serial = "",
                        const char *version = "Metronome__1") {
        QTest::newRow(name) << QString::fromLatin1(function) << QString::fromLatin1(port)
                            << QString::fromLatin1(product) << QString::fromLatin1(serial)
                            << QString::fromLatin1(version);
    };
    const char *listed = "portIsListedWithItsIds";
    const char *query = "queryIsAnsweredWithinTenAttempts";
    row("the port is listed with its identifiers", listed);
    row("the port is listed under another name", listed, "cu.usbserial-A1");
    row("the port is listed with another product", listed, "ttyUSB0", "6015");
    row("the port is listed with its serial number", listed, "ttyUSB0", "6001", "A10K");
    row("opening and closing the port reports no error", "openPortReportsNoError");
    row("the query is answered within ten attempts", query);
    row("the query is answered under another port name", query, "cu.usbserial-A1");
    row("the query tells another sketch", query, "ttyUSB0", "6001", "", "Lantern__1");
    row("an answer that the adapter cuts costs another attempt", "aCutAnswerCostsAnotherAttempt");
    row("any other text is repeated", "textIsHeard");
    row("a long text arrives in packets of 62 bytes", "longTextArrivesInPackets");
    row("a wrong speed is not understood", "wrongSpeedIsNotUnderstood");
    row("a rising DTR resets the chip", "risingDtrResetsTheChip");
    row("what was written before a reset does not reach the chip",
        "whatWasWrittenBeforeAResetIsGone");
    row("what the chip said before a reset arrives at once", "aResetHandsOverWhatTheChipSaid");
    row("resets without a pause do no harm", "resetsWithoutPauseDoNoHarm");
    row("an upload replaces the sketch and nothing else", "uploadReplacesTheSketchAndNothingElse",
        "ttyUSB0", "6001", "", "Metronome__2");
    row("an upload works under another port name", "uploadReplacesTheSketchAndNothingElse",
        "cu.usbserial-A1", "6001", "", "Lantern__1");
    row("an unplugged device fails the open port and is not listed", "portGivenUpWhileUnplugged");
    row("a device plugged in again answers the query", "replugBringsThePortBack");
    row("an unplugged device keeps its flash", "unplugKeepsTheFlash");
    row("the control answers each command at any time", "controlAnswersEachCommand");
    row("the status counts openings, resets and bytes", "statusCountsOpeningsAndBytes");
    row("received is what the host was handed", "receivedIsWhatTheHostWasHanded");
}

void tst_SimulatedDevice::insideTheDevice()
{
    QFETCH(QString, function);
    QFETCH(QString, port);
    QFETCH(QString, product);
    QFETCH(QString, serial);
    QFETCH(QString, version);

    // An upload starts from a chip that holds something else.
    const bool uploads = function.startsWith(QLatin1String("upload"));
    const QString image = imagePath(uploads ? QStringLiteral("Metronome__1") : version);
    QProcess process;
    prepare(process);
    QProcessEnvironment environment = process.processEnvironment();
    environment.insert(portVariable, port);
    environment.insert(productVariable, product);
    environment.insert(serialVariable, serial);
    environment.insert(versionVariable, version);
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(SIMULATED_DEVICE),
                  {QStringLiteral("--port"), port, QStringLiteral("--product"), product,
                   QStringLiteral("--serial"), serial, QStringLiteral("--image"), image,
                   QStringLiteral("--"), QCoreApplication::applicationFilePath(), function});

    const Outcome outcome = finish(process);
    QVERIFY2(outcome.exitCode == 0, qPrintable(outcome.output + outcome.errors));
    QVERIFY2(outcome.output.contains(QLatin1String("PASS   : tst_InsideTheDevice::") + function),
             qPrintable(outcome.output));
}

void tst_SimulatedDevice::controlSocketIsWhereItWasAskedFor()
{
    const QString script =
        QStringLiteral("test \"$SIMULATED_DEVICE_CONTROL\" = \"$(pwd -P)/socket\""
                       " && test -S socket && exec \"$0\" status");
    const Outcome outcome = simulate(
        {QStringLiteral("--control"), QStringLiteral("socket"), QStringLiteral("--image"),
         imagePath(QStringLiteral("Metronome__1")), QStringLiteral("--"), QStringLiteral("sh"),
         QStringLiteral("-c"), script, QStringLiteral(SIMULATED_DEVICE_CLIENT)});
    QCOMPARE(outcome.exitCode, 0);
    QVERIFY(
        outcome.output.startsWith(QLatin1String("ok plugged opens=0 resets=0 in=0 out=0 pc=0x")));
    QVERIFY(!QFile::exists(filePath(QStringLiteral("socket"))));
}

void tst_SimulatedDevice::nothingIsLeftAfterTheCommandEnds()
{
    const Outcome outcome = simulateCommand(
        {QStringLiteral("sh"), QStringLiteral("-c"), QStringLiteral("ls \"$TMPDIR\"")});
    QCOMPARE(outcome.exitCode, 0);
    QVERIFY2(!outcome.output.isEmpty(), "the simulation keeps its files somewhere else");
    QCOMPARE(leftovers(), QStringList());
}

void tst_SimulatedDevice::signalEndsCommandAndLeavesNothing_data()
{
    QTest::addColumn<int>("signal");

    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGHUP") << SIGHUP;
}

void tst_SimulatedDevice::signalEndsCommandAndLeavesNothing()
{
    QFETCH(int, signal);

    QProcess simulation;
    const QByteArray command = startSleeper(simulation);
    QVERIFY(isAlive(command));
    QVERIFY(!leftovers().isEmpty());

    kill(static_cast<pid_t>(simulation.processId()), signal);
    QCOMPARE(finish(simulation).exitCode, 128 + signal);
    QVERIFY(!isAlive(command));
    QCOMPARE(leftovers(), QStringList());
}

void tst_SimulatedDevice::commandDiesWithTheSimulation()
{
    QProcess simulation;
    const QByteArray command = startSleeper(simulation);
    QVERIFY(isAlive(command));
    simulation.kill();
    QVERIFY(simulation.waitForFinished(patience));
    QTRY_VERIFY_WITH_TIMEOUT(!isAlive(command), patience);
}

template <typename Test>
int runTests(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    Test test;
    return QTest::qExec(&test, argc, argv);
}

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsSet(controlVariable.toLatin1().constData()))
        return runTests<tst_InsideTheDevice>(argc, argv);
    return runTests<tst_SimulatedDevice>(argc, argv);
}

#include "tst_simulateddevice.moc"
