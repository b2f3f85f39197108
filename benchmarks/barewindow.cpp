// The smallest program with a Qt window. With --timer it also runs an empty 100 ms timer.
#include <QApplication>
#include <QMainWindow>
#include <QTimer>

namespace {

constexpr int interval = 100; // ms

void nothing() { }

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QMainWindow window;
    window.setFixedSize(430, 332);

    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, nothing);
    if (QCoreApplication::arguments().contains(QStringLiteral("--timer")))
        timer.start(interval);

    window.show();
    return QApplication::exec();
}
