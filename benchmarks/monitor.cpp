// The serial monitor under full load: monitor shown|read SECONDS lines|linefeeds|stream. A device
// on a pseudo terminal sends 11520 bytes a second. "shown" has the program show them, "read" only
// reads them, ten times a second like the program. Prints the processor time (ms), the bytes, and
// how long the event loop was held up (ms).
#include "mainwindow/mainwindow.h"
#include "serialmonitor/serialmonitor.h"
#include "support/responsiveness.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTextBrowser>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int bytesPerSecond = 11520;
constexpr int interval = 100; // ms

double processorTime()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return double(time.tv_sec) * 1e3 + double(time.tv_nsec) / 1e6;
}

// A text of the length of a tick: 12 lines of 96 bytes, or as many bytes without an end.
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

// In packets of 62 bytes, as an adapter hands them over; late packets are made up for.
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
            const auto start = std::chrono::steady_clock::now();
            for (qint64 sent = 0;; sent += packet) {
                std::this_thread::sleep_until(
                    start + std::chrono::microseconds(sent * 1000000 / bytesPerSecond));
                QByteArray bytes = text.mid(int(sent % text.size()), packet);
                bytes += text.left(packet - bytes.size());
                send(bytes);
            }
        }).detach();
    }

    qint64 sent() const { return count; }

private:
    static constexpr int packet = 62;

    void send(const QByteArray &bytes)
    {
        if (write(master, bytes.constData(), size_t(bytes.size())) == bytes.size())
            count += bytes.size();
    }

    int master;
    std::atomic<qint64> count = {0};
};

// What the program does with the bytes, but for showing them.
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

struct Load
{
    double processorTime = 0;
    Responsiveness responsiveness;
};

void run(Load *load, int seconds)
{
    const double start = processorTime();
    load->responsiveness.start();
    QElapsedTimer time;
    time.start();
    while (time.elapsed() < seconds * 1000LL)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    load->processorTime = processorTime() - start;
}

void report(const Load &load, qint64 bytes)
{
    std::printf("processor %f\nbytes %lld\ngap %f\nwork %f\n", load.processorTime,
                static_cast<long long>(bytes), load.responsiveness.longestGap(),
                load.responsiveness.longestWork());
}

void showText(Device *device, const QByteArray &text, int seconds)
{
    MainWindow window;
    window.show();
    auto *monitor = window.findChild<SerialMonitor *>();
    device->answerOnce();
    if (!window.OpenSerialPort(device->name()))
        qFatal("the port does not open");
    monitor->show();

    device->talk(text);
    Load load;
    run(&load, seconds);
    report(load, monitor->findChild<QTextBrowser *>()->document()->characterCount());
}

void readText(Device *device, const QByteArray &text, int seconds)
{
    MainWindow window;
    window.show();
    const Reader reader(device->name());
    device->talk(text);
    Load load;
    run(&load, seconds);
    report(load, reader.received());
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    const bool shown = arguments.at(1) == QLatin1String("shown");
    const int seconds = arguments.at(2).toInt();
    const QByteArray text = tickOfText(arguments.at(3));

    Device device;
    (shown ? showText : readText)(&device, text, seconds);
    std::fflush(stdout);
    _exit(0); // the device talks on
}
