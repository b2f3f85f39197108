// Drives the program's own window on the simulated device: rehearse-update PORT [SKETCH]. Asks the
// device at PORT which sketch it runs, and with SKETCH, the name of one beside the executable,
// updates it. Each line of the output is a JSON object: what the window showed, and what was
// received.
#include "mainwindow/mainwindow.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QListWidget>
#include <QLocalSocket>
#include <QPushButton>
#include <QTimer>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr int lookInterval = 10; // ms
constexpr int controlTimeout = 10000; // ms

template <typename Object>
Object &child(const MainWindow &window, const char *name)
{
    auto *object = window.findChild<Object *>(QLatin1String(name));
    if (object == nullptr)
        qFatal("the window has no %s", name);
    return *object;
}

void tell(const QJsonObject &line)
{
    std::puts(QJsonDocument(line).toJson(QJsonDocument::Compact).constData());
    std::fflush(stdout);
}

// The simulated device's answer without its "ok ".
QByteArray control(const QByteArray &command)
{
    QLocalSocket socket;
    socket.connectToServer(qEnvironmentVariable("SIMULATED_DEVICE_CONTROL"));
    socket.write(command + '\n');
    while (!socket.canReadLine() && socket.waitForReadyRead(controlTimeout)) { }
    const QByteArray answer = socket.readLine().trimmed();
    if (!answer.startsWith("ok"))
        qFatal("%s: %s", command.constData(), answer.constData());
    return answer.mid(3);
}

void select(const MainWindow &window, const char *listName, const QString &text)
{
    auto &list = child<QListWidget>(window, listName);
    const QList<QListWidgetItem *> items = list.findItems(text, Qt::MatchExactly);
    if (items.isEmpty())
        qFatal("%s has no %s", listName, qPrintable(text));
    list.setCurrentItem(items.first());
}

QJsonObject whatIsShown(const MainWindow &window)
{
    return {
        {QStringLiteral("program"), child<QLabel>(window, "label_programondevice").text()},
        {QStringLiteral("recommendation"),
         child<QLabel>(window, "label_updaterecommendation").text()},
        {QStringLiteral("received"), QString::fromLatin1(control("received"))},
    };
}

// Presses the default button of every message box and keeps their texts.
class BoxReader
{
public:
    BoxReader()
    {
        QObject::connect(&timer, &QTimer::timeout, &timer, [this] { look(); });
        timer.start(lookInterval);
    }

    QJsonArray texts() const { return seen; }

private:
    void look()
    {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (box == nullptr || !box->isVisible())
            return;
        seen.append(box->text());
        box->defaultButton()->click();
    }

    QTimer timer;
    QJsonArray seen;
};

void askDevice(const MainWindow &window, const QString &portName)
{
    QElapsedTimer time;
    time.start();
    select(window, "listWidget_devicelist", portName);
    QJsonObject line = whatIsShown(window);
    line.insert(QStringLiteral("step"), QStringLiteral("before"));
    line.insert(QStringLiteral("seconds"), double(time.elapsed()) / 1000);
    tell(line);
}

void updateDevice(const MainWindow &window)
{
    const BoxReader boxes;
    child<QPushButton>(window, "pushButton_update").click();
    QJsonObject line = whatIsShown(window);
    line.insert(QStringLiteral("step"), QStringLiteral("after"));
    line.insert(QStringLiteral("boxes"), boxes.texts());
    tell(line);
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    MainWindow window;
    window.show();
    if (arguments.size() > 2)
        select(window, "listWidget_programlist", arguments.at(2));
    askDevice(window, arguments.at(1));
    if (arguments.size() > 2) {
        updateDevice(window);
        control("dump " + QCoreApplication::applicationDirPath().toLocal8Bit() + "/flash.bin");
    }
    return EXIT_SUCCESS;
}
