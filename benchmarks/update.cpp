// One update: update PORT SKETCH AVRDUDE ROUNDS, on a device that is plugged in, with a copy of
// SKETCH beside the executable. Measures the program, from the user's click to "Upload
// successfull.", and the same two queries and avrdude without it; each is first in every other
// round. AVRDUDE is the file beside avrdude.conf; it writes its start and end to AVRDUDE.run.
// Prints the start and end of each side, in seconds since 1970 like that file, and the file's
// contents.
#include "bareexchange.h"
#include "clocks.h"
#include "mainwindow/mainwindow.h"
#include "support/messageboxdriver.h"
#include "support/windowdriver.h"

#include <QApplication>
#include <QFile>
#include <QProcess>
#include <QTest>

#include <cstdio>
#include <unistd.h>

namespace {

constexpr int uploadTimeout = 30000; // ms
constexpr int portsRest = 300; // ms, three ticks of the poll

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
                  {QStringLiteral("-C") + arguments.at(3) + QStringLiteral(".conf"),
                   QStringLiteral("-v"), QStringLiteral("-patmega328p"),
                   QStringLiteral("-carduino"), QStringLiteral("-P/dev/") + arguments.at(1),
                   QStringLiteral("-b115200"), QStringLiteral("-D"),
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

QByteArray runOf(const QString &avrdude)
{
    QFile run(avrdude + QStringLiteral(".run"));
    return run.open(QIODevice::ReadOnly) ? run.readAll().trimmed() : QByteArray();
}

template <typename Operation>
void measure(const char *side, const QString &avrdude, const Operation &operation)
{
    const double start = millisecondsOf(CLOCK_REALTIME);
    const bool updated = operation();
    const double end = millisecondsOf(CLOCK_REALTIME);
    const QList<QByteArray> run = runOf(avrdude).split(' ');
    if (!updated || run.size() != 2)
        qFatal("no update");
    std::printf("%s-begun %f\n%s-avrdude-begun %s\n%s-avrdude-ended %s\n%s-done %f\n", side,
                start / 1e3, side, run.first().constData(), side, run.last().constData(), side,
                end / 1e3);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    const QString &avrdude = arguments.at(3);
    MainWindow window;
    window.show();
    if (!selectRow(window, "listWidget_programlist", 0)
        || !selectRow(window, "listWidget_devicelist", 0))
        qFatal("no sketch or no device");

    for (int round = 0; round < arguments.at(4).toInt(); ++round) {
        for (const bool ours : {round % 2 == 0, round % 2 != 0}) {
            if (ours)
                measure("ours", avrdude, [&] { return clickUpdate(window); });
            else
                measure("bare", avrdude, [&] { return bareUpdate(arguments); });
            // The poll closes the port, and opening it beside another opening resets the chip.
            QTest::qWait(portsRest);
        }
    }
}
