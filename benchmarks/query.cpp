// The version query: query ROUNDS. A device on a pseudo terminal answers each request as soon as
// an adapter would hand its answer over. The program asks, and bare system calls do, in turns;
// prints the microseconds of each, for the exchange alone and with opening the port.
#include "bareexchange.h"
#include "mainwindow/mainwindow.h"

#include <QApplication>
#include <QElapsedTimer>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

namespace {

// What arrives before the request has been written is thrown away, so an answer needs a delay. The
// adapter's latency timer gives it.
constexpr std::chrono::milliseconds latency(16);

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

template <typename Operation>
double microseconds(const Operation &operation)
{
    QElapsedTimer time;
    time.start();
    const bool answered = operation();
    const qint64 elapsed = time.nsecsElapsed();
    if (!answered)
        qFatal("the device was not understood");
    return double(elapsed) / 1000;
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
    // Held open, so that the device does not see a hang-up between two openings.
    const int keeper = BareExchange::openPort(path.constData());
    std::thread(answerRequests, master).detach();

    MainWindow window;
    for (int round = 0; round < rounds; ++round) {
        const double bareOpening = microseconds([&] {
            const int port = BareExchange::openPort(path.constData());
            const bool answered = BareExchange::query(port);
            close(port);
            return answered;
        });
        const double opening = microseconds([&] { return window.OpenSerialPort(name); });
        const double exchange = microseconds(
            [&] { return window.getDeviceSketchVersion() == QLatin1String("Version:Blink__3"); });
        window.CloseSerialPort();
        const double bareExchange = microseconds([&] { return BareExchange::query(keeper); });
        std::printf("bare-opening %f\nopening %f\nbare-exchange %f\nexchange %f\n", bareOpening,
                    opening, bareExchange, exchange);
    }
    std::fflush(stdout);
    _exit(0); // the device waits for the next request
}
