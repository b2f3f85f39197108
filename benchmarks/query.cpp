// The version query: query ROUNDS. A device on a pseudo terminal answers each request after an
// adapter's latency. The program, a bare QSerialPort and bare system calls ask it in turns, each
// first in every third round. Prints the ms of each, for the exchange alone and with opening the
// port.
#include "bareexchange.h"
#include "clocks.h"
#include "mainwindow/mainwindow.h"

#include <QApplication>
#include <QSerialPort>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <thread>
#include <unistd.h>

namespace {

// The program discards bytes that arrive before the request is written, so an answer needs a delay:
// that of the adapter's latency timer.
constexpr std::chrono::milliseconds latency(16);
constexpr int waitTime = 1000; // ms

void answerRequests(int master)
{
    const char answer[] = "Version:Blink__3\r\n";
    char byte = 0;
    while (read(master, &byte, 1) == 1) {
        if (byte != 'v')
            continue;
        std::this_thread::sleep_for(latency);
        if (write(master, answer, sizeof answer - 1) < 0)
            return;
    }
}

// The steps of the program's query, without the program.
bool exchange(QSerialPort *port)
{
    port->write("v");
    port->waitForBytesWritten(waitTime);
    port->readAll();
    port->waitForReadyRead(waitTime);
    return port->readLine().contains("Version:");
}

bool openAndExchange(QSerialPort *port)
{
    return port->open(QIODevice::ReadWrite) && port->setBaudRate(QSerialPort::Baud115200)
        && exchange(port);
}

template <typename Operation>
void measure(const char *what, const Operation &operation)
{
    const double start = monotonicTime();
    const bool answered = operation();
    const double end = monotonicTime();
    if (!answered)
        qFatal("the device was not understood");
    std::printf("%s %f\n", what, end - start);
}

void askByProgram(MainWindow *window, const QString &name)
{
    measure("ours-opening", [&] { return window->OpenSerialPort(name); });
    measure("ours-exchange",
            [&] { return window->getDeviceSketchVersion() == QLatin1String("Version:Blink__3"); });
    window->CloseSerialPort();
}

void askByQt(QSerialPort *port)
{
    measure("qt-opening", [&] { return openAndExchange(port); });
    measure("qt-exchange", [&] { return exchange(port); });
    port->close();
}

void askBySystemCalls(const QByteArray &path)
{
    int port = -1;
    measure("bare-opening", [&] {
        port = BareExchange::openPort(path.constData());
        return BareExchange::query(port);
    });
    measure("bare-exchange", [&] { return BareExchange::query(port); });
    close(port);
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    const int rounds = QCoreApplication::arguments().at(1).toInt();

    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    grantpt(master);
    unlockpt(master);
    const QString name = QString::fromLocal8Bit(ptsname(master));
    const QByteArray path = name.toLocal8Bit();
    // Kept open, so that the device sees no hang-up between two openings.
    BareExchange::openPort(path.constData());
    std::thread(answerRequests, master).detach();

    MainWindow window;
    QSerialPort port(name);
    const std::array<std::function<void()>, 3> sides = {[&] { askByProgram(&window, name); },
                                                        [&] { askByQt(&port); },
                                                        [&] {
                                                            askBySystemCalls(path);
                                                        }};
    for (int round = 0; round < rounds; ++round) {
        for (size_t turn = 0; turn < sides.size(); ++turn)
            sides.at((size_t(round) + turn) % sides.size())();
    }
    std::fflush(stdout);
    _exit(0); // the device waits for the next request
}
