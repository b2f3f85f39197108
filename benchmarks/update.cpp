// One update: update PORT SKETCH AVRDUDE AVRDUDE.CONF ROUNDS, on a device that is plugged in, with
// SKETCH's copy beside the executable. The user's click up to "Upload successfull.", and the two
// queries and avrdude alone, in turns; prints the ms of each.
#include "bareexchange.h"
#include "mainwindow/mainwindow.h"
#include "support/messageboxdriver.h"
#include "support/windowdriver.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QTest>

#include <cstdio>
#include <unistd.h>

namespace {

constexpr int uploadTimeout = 30000; // ms

bool askDevice(const QByteArray &path)
{
    const int port = BareExchange::openPort(path.constData());
    const bool answered = BareExchange::query(port);
    close(port);
    return answered;
}

bool bareUpdate(const QStringList &arguments)
{
    const QByteArray path = "/dev/" + arguments.at(1).toLocal8Bit();
    if (!askDevice(path))
        return false;
    QProcess avrdude;
    avrdude.start(arguments.at(3),
                  {QStringLiteral("-C") + arguments.at(4), QStringLiteral("-v"),
                   QStringLiteral("-patmega328p"), QStringLiteral("-carduino"),
                   QStringLiteral("-P/dev/") + arguments.at(1), QStringLiteral("-b115200"),
                   QStringLiteral("-D"),
                   QStringLiteral("-Uflash:w:") + arguments.at(2) + QStringLiteral(":i")});
    return avrdude.waitForFinished(uploadTimeout) && avrdude.exitCode() == 0 && askDevice(path);
}

bool clickUpdate(MainWindow &window)
{
    const MessageBoxDriver boxes;
    return click(window, "pushButton_update")
        && boxes.texts()
        == QStringList {QStringLiteral("DO NOT REMOVE OR TURN OFF THE DEVICE."),
                        QStringLiteral("Upload successfull.")};
}

template <typename Operation>
double milliseconds(const Operation &operation)
{
    QElapsedTimer time;
    time.start();
    const bool updated = operation();
    const qint64 elapsed = time.nsecsElapsed();
    if (!updated)
        qFatal("no update");
    return double(elapsed) / 1e6;
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    MainWindow window;
    window.show();
    if (!selectRow(window, "listWidget_programlist", 0)
        || !selectRow(window, "listWidget_devicelist", 0))
        qFatal("no sketch or no device");

    for (int round = 0; round < arguments.at(5).toInt(); ++round) {
        const double bare = milliseconds([&] { return bareUpdate(arguments); });
        const double ours = milliseconds([&] { return clickUpdate(window); });
        // The port is closed by the poll, and opening it beside another opening resets the chip.
        QTest::qWait(300);
        std::printf("bare %f\nours %f\n", bare, ours);
        std::fflush(stdout);
    }
}
