// A device on a pseudo terminal.
#include "scripteddevice.h"

#include "footprint.h"

#include <QElapsedTimer>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int wakeUpInterval = 5; // ms
constexpr int hangUpTimeout = 5000; // ms

// A USB adapter delivers its bytes when its latency timer expires. Tests may still count requests:
// the program only repeats one if the answer takes longer than a second.
constexpr std::chrono::milliseconds latency(16);

int openMaster()
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0)
        qFatal("no pseudo terminal");
    return master;
}

// Raw from the start, because a terminal that is not open yet would echo what the device sends.
int openRawSlave(const QString &name)
{
    const int slave = open(qPrintable(name), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings = {};
    tcgetattr(slave, &settings);
    cfmakeraw(&settings);
    tcsetattr(slave, TCSANOW, &settings);
    return slave;
}

// The master lives on while another thread waits for its bytes.
void waitForHangUp(int slave)
{
    pollfd descriptor = {slave, 0, 0};
    if (poll(&descriptor, 1, hangUpTimeout) != 1)
        qFatal("the pseudo terminal does not hang up");
}

} // namespace

class ScriptedDevice::Worker
{
public:
    explicit Worker(const QList<QByteArray> &script)
        : answers(script)
        , master(openMaster())
        , name(QString::fromLocal8Bit(ptsname(master)))
        , slave(openRawSlave(name))
        , thread([this] { run(); })
    {
    }

    ~Worker()
    {
        stopping = true;
        thread.join();
        hangUp();
        close(slave);
    }

    void send(const QByteArray &bytes)
    {
        const std::lock_guard<std::recursive_mutex> guard(lock);
        if (master >= 0 && write(master, bytes.constData(), size_t(bytes.size())) != bytes.size())
            qWarning("the scripted device lost bytes");
    }

    // Our end stays open until the device is destroyed, so that no other test's device gets the
    // same terminal, to which this one's name would then lead.
    void hangUp()
    {
        const std::lock_guard<std::recursive_mutex> guard(lock);
        if (master < 0)
            return;
        close(master);
        master = -1;
        waitForHangUp(slave);
    }

    int unread() const
    {
        const std::lock_guard<std::recursive_mutex> guard(lock);
        int count = 0;
        if (master >= 0)
            ioctl(slave, FIONREAD, &count);
        return count;
    }

    bool isOpenElsewhere() const
    {
        const std::lock_guard<std::recursive_mutex> guard(lock);
        return Footprint::descriptorsOf(name) > 1; // one is ours
    }

    void setBusy(bool busy)
    {
        const std::lock_guard<std::recursive_mutex> guard(lock);
        tcflow(slave, busy ? TCOOFF : TCOON);
    }

    mutable std::recursive_mutex lock;
    QList<QByteArray> answers;
    QByteArray received;
    int requests = 0;
    int lastRequest = 0; // hangs up at this request; 0 never
    std::atomic<int> bytePause = {0}; // ms
    QByteArray flood;
    int floodSpeed = 0; // bytes per second
    qint64 floodSent = 0;
    QElapsedTimer floodTime;
    std::atomic<bool> stopping = {false};
    int master;
    const QString name;

private:
    void run()
    {
        while (!stopping) {
            pollfd descriptor = {currentMaster(), POLLIN, 0};
            if (poll(&descriptor, 1, wakeUpInterval) > 0)
                takeBytes();
            sendFlood();
        }
    }

    int currentMaster()
    {
        const std::lock_guard<std::recursive_mutex> guard(lock);
        return master;
    }

    void takeBytes()
    {
        const std::lock_guard<std::recursive_mutex> guard(lock);
        char bytes[256];
        const ssize_t count = master < 0 ? -1 : read(master, bytes, sizeof bytes);
        for (ssize_t i = 0; i < count; ++i)
            take(bytes[i]);
    }

    void take(char byte)
    {
        received.append(byte);
        if (byte != 'v')
            return;

        ++requests;
        if (requests == lastRequest) {
            hangUp();
            return;
        }
        const QByteArray answer = answers.at(qMin(requests, answers.size()) - 1);
        if (answer.isEmpty())
            return;
        std::this_thread::sleep_for(latency);
        sendAnswer(answer);
    }

    // The pause may be set to nothing in between.
    void sendAnswer(const QByteArray &answer)
    {
        int sent = 0;
        for (; bytePause > 0 && sent < answer.size(); ++sent) {
            send(answer.mid(sent, 1));
            std::this_thread::sleep_for(std::chrono::milliseconds(bytePause));
        }
        send(answer.mid(sent));
    }

    // What does not fit is lost, because there may be no reader.
    void sendFlood()
    {
        const std::lock_guard<std::recursive_mutex> guard(lock);
        if (flood.isEmpty() || master < 0)
            return;
        const qint64 due = floodTime.elapsed() * floodSpeed / 1000;
        fcntl(master, F_SETFL, O_NONBLOCK);
        for (; floodSent < due; floodSent += flood.size()) {
            if (write(master, flood.constData(), size_t(flood.size())) < 0)
                floodSent = due;
        }
        fcntl(master, F_SETFL, 0);
    }

    int slave;
    std::thread thread;
};

ScriptedDevice::ScriptedDevice(const QList<QByteArray> &script)
    : worker(std::make_unique<Worker>(script))
{
}

ScriptedDevice::~ScriptedDevice() = default;

QString ScriptedDevice::portName() const
{
    return worker->name;
}

void ScriptedDevice::setAnswers(const QList<QByteArray> &answers)
{
    const std::lock_guard<std::recursive_mutex> guard(worker->lock);
    worker->answers = answers;
    worker->requests = 0;
}

int ScriptedDevice::requests() const
{
    const std::lock_guard<std::recursive_mutex> guard(worker->lock);
    return worker->requests;
}

QByteArray ScriptedDevice::received() const
{
    const std::lock_guard<std::recursive_mutex> guard(worker->lock);
    return worker->received;
}

void ScriptedDevice::send(const QByteArray &bytes)
{
    worker->send(bytes);
}

void ScriptedDevice::unplug()
{
    worker->hangUp();
}

void ScriptedDevice::unplugAtRequest(int number)
{
    const std::lock_guard<std::recursive_mutex> guard(worker->lock);
    worker->lastRequest = number;
}

void ScriptedDevice::setBytePause(int milliseconds)
{
    worker->bytePause = milliseconds;
}

void ScriptedDevice::flood(const QByteArray &text, int bytesPerSecond)
{
    const std::lock_guard<std::recursive_mutex> guard(worker->lock);
    worker->flood = text;
    worker->floodSpeed = bytesPerSecond;
    worker->floodSent = 0;
    worker->floodTime.start();
}

int ScriptedDevice::unread() const
{
    return worker->unread();
}

bool ScriptedDevice::isOpen() const
{
    return worker->isOpenElsewhere();
}

void ScriptedDevice::setBusy(bool busy)
{
    worker->setBusy(busy);
}
