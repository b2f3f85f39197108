// The serial monitor: monitor shown|read|full SECONDS lines|linefeeds|stream. A device on a pseudo
// terminal sends 11520 bytes a second. With "shown" the program shows them; "read" only reads them,
// ten times a second like the program. Both print the processor time (ms) and the size of the text
// in bytes. "full" fills the view as fast as possible until it drops its oldest text, fills it
// again almost up to that point, and goes on at the device's own speed until the next drop. It
// prints how long the event loop was held up (ms), how many characters the view holds and how many
// it dropped.
#include "clocks.h"
#include "mainwindow/mainwindow.h"
#include "serialmonitor/serialmonitor.h"
#include "support/responsiveness.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTextBrowser>
#include <QTextDocument>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int bytesPerSecond = 11520;
constexpr int interval = 100; // ms
constexpr int haste = 25; // times the device's own speed
constexpr double nearlyFull = 0.95;
constexpr std::chrono::seconds forgotten(1);

// The text of one tick: 12 lines of 96 bytes, or as many bytes without a line end.
QByteArray tickOfText(const QString &kind)
{
    constexpr int length = 96;
    const QByteArray words = QByteArray("temperature 21.5 ").repeated(6);
    QByteArray line = QByteArray("0123456789abcdef").repeated(length / 16);
    if (kind == QLatin1String("lines"))
        line = words.left(length - 2) + "\r\n";
    else if (kind == QLatin1String("linefeeds"))
        line = words.left(length - 1) + '\n';
    return line.repeated(bytesPerSecond / 10 / length);
}

// Sends packets of 62 bytes, as an adapter does. It catches up after a delay, unless the reader has
// fallen far behind.
class Device
{
public:
    Device()
        : master(posix_openpt(O_RDWR | O_NOCTTY))
    {
        grantpt(master);
        unlockpt(master);
    }

    QString name() const { return QString::fromLocal8Bit(ptsname(master)); }

    void answerOnce()
    {
        std::thread([this] {
            char byte = 0;
            while (read(master, &byte, 1) == 1 && byte != 'v') { }
            std::this_thread::sleep_for(std::chrono::milliseconds(16));
            send("Version:Blink__3\r\n");
        }).detach();
    }

    void talk(const QByteArray &text)
    {
        std::thread([this, text] {
            auto due = std::chrono::steady_clock::now();
            for (qint64 sent = 0;; sent += packet) {
                due = std::max(due, std::chrono::steady_clock::now() - forgotten);
                due += std::chrono::nanoseconds(packet * 1000000000LL
                                                / (bytesPerSecond * qint64(speed)));
                std::this_thread::sleep_until(due);
                QByteArray bytes = text.mid(int(sent % text.size()), packet);
                bytes += text.left(packet - bytes.size());
                send(bytes);
            }
        }).detach();
    }

    // Speed relative to a serial line.
    void setSpeed(int times) { speed = times; }

private:
    static constexpr int packet = 62;

    void send(const QByteArray &bytes) const
    {
        if (write(master, bytes.constData(), size_t(bytes.size())) != bytes.size())
            qFatal("the terminal is gone");
    }

    int master;
    std::atomic<int> speed = {1};
};

// Handles the bytes as the program does, but does not show them.
class Reader
{
public:
    explicit Reader(const QString &portName)
    {
        port.setPortName(portName);
        if (!port.open(QIODevice::ReadWrite))
            qFatal("the port does not open");
        port.setBaudRate(QSerialPort::Baud115200);
        QObject::connect(&timer, &QTimer::timeout, [this] { count += port.readAll().size(); });
        timer.start(interval);
    }

    qint64 received() const { return count; }

private:
    QSerialPort port;
    QTimer timer;
    qint64 count = 0;
};

template <typename Condition>
void runUntil(const Condition &condition)
{
    while (!condition())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

// The processor time used during these seconds, in ms.
double load(int seconds)
{
    QElapsedTimer time;
    time.start();
    const double start = threadTime();
    runUntil([&] { return time.elapsed() >= seconds * 1000LL; });
    return threadTime() - start;
}

// The program's monitor, open on a device.
class OpenMonitor
{
public:
    explicit OpenMonitor(Device *device)
    {
        window.show();
        device->answerOnce();
        if (!window.OpenSerialPort(device->name()))
            qFatal("the port does not open");
        auto *monitor = window.findChild<SerialMonitor *>();
        monitor->show();
        document = monitor->findChild<QTextBrowser *>()->document();
    }

    int characters() const { return document->characterCount(); }

    // Runs until the view has dropped text. Returns how many characters.
    int runUntilCut() const
    {
        int before = 0;
        int now = 0;
        runUntil([&] {
            before = now;
            now = characters();
            return now < before;
        });
        return before - now;
    }

private:
    MainWindow window;
    QTextDocument *document = nullptr;
};

void showText(Device *device, const QByteArray &text, int seconds)
{
    const OpenMonitor monitor(device);
    device->talk(text);
    const double spent = load(seconds);
    std::printf("processor %f\nbytes %d\n", spent, monitor.characters());
}

void readText(Device *device, const QByteArray &text, int seconds)
{
    MainWindow window;
    window.show();
    const Reader reader(device->name());
    device->talk(text);
    const double spent = load(seconds);
    std::printf("processor %f\nbytes %lld\n", spent, static_cast<long long>(reader.received()));
}

void fillView(Device *device, const QByteArray &text)
{
    const OpenMonitor monitor(device);
    device->setSpeed(haste);
    device->talk(text);
    const int part = monitor.runUntilCut();
    const int left = monitor.characters();
    runUntil([&] { return monitor.characters() > left + nearlyFull * part; });
    device->setSpeed(1);

    Responsiveness responsiveness;
    load(1); // until what came fast has been shown
    responsiveness.start();
    const int dropped = monitor.runUntilCut();
    load(1);
    responsiveness.stop();
    std::printf("gap %f\nwork %f\nholds %d\ndrops %d\n", responsiveness.longestGap(),
                responsiveness.longestWork(), left + part, dropped);
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    const QString &mode = arguments.at(1);
    const int seconds = arguments.at(2).toInt();
    const QByteArray text = tickOfText(arguments.at(3));

    Device device;
    if (mode == QLatin1String("full"))
        fillView(&device, text);
    else if (mode == QLatin1String("shown"))
        showText(&device, text, seconds);
    else
        readText(&device, text, seconds);
    std::fflush(stdout);
    _exit(0); // the device talks on
}
