// A virtual display and xdotool.
#include "desktop.h"

#include "patience.h"

#include <QRegularExpression>
#include <QStandardPaths>

namespace {

const QString displayProgram = QStringLiteral(VIRTUAL_DISPLAY);
const QString handsProgram = QStringLiteral("xdotool");
const QString propertiesProgram = QStringLiteral("xprop");
const QString settingsProgram = QStringLiteral("xrdb");

} // namespace

Desktop::~Desktop()
{
    server.terminate();
    if (!server.waitForFinished(patience))
        server.kill();
}

QString Desktop::missingProgram()
{
    for (const QString &program : {QStringLiteral("Xvfb"), QStringLiteral("openbox"), handsProgram,
                                   propertiesProgram, settingsProgram}) {
        if (QStandardPaths::findExecutable(program).isEmpty())
            return program;
    }
    return QString();
}

bool Desktop::start(int dotsPerInch)
{
    server.setProcessEnvironment(ownEnvironment());
    // It does not outlive a test that is killed.
    server.start(QStringLiteral("setpriv"),
                 {QStringLiteral("--pdeathsig"), QStringLiteral("TERM"), displayProgram,
                  QStringLiteral("--dpi"), QString::number(dotsPerInch)});
    if (!server.waitForReadyRead(patience))
        return false;
    display = QString::fromLatin1(server.readAllStandardOutput().trimmed());
    return true;
}

// The server computes its own figure from whole millimetres; the setting is exact.
bool Desktop::setDotsPerInch(int dotsPerInch) const
{
    QProcess process;
    process.setProcessEnvironment(ownEnvironment());
    process.start(settingsProgram, {QStringLiteral("-nocpp"), QStringLiteral("-merge")});
    process.write(QByteArrayLiteral("Xft.dpi: ") + QByteArray::number(dotsPerInch)
                  + QByteArrayLiteral("\n"));
    process.closeWriteChannel();
    return process.waitForFinished(patience) && process.exitCode() == 0;
}

QProcessEnvironment Desktop::environment(QProcessEnvironment environment) const
{
    environment.insert(QStringLiteral("DISPLAY"), display);
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    // Neither exists here, and their libraries leak when they look for them.
    environment.insert(QStringLiteral("QT_XCB_GL_INTEGRATION"), QStringLiteral("none"));
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QStringLiteral("disabled:"));
    return environment;
}

// The desktop needs no adapters, and a program with several threads that starts another under
// umockdev can hang: one of the threads may hold umockdev's lock at the fork.
QProcessEnvironment Desktop::ownEnvironment() const
{
    QProcessEnvironment own = environment(QProcessEnvironment::systemEnvironment());
    own.remove(QStringLiteral("LD_PRELOAD"));
    return own;
}

int Desktop::count(const QString &title) const
{
    return windowNumber(title).isEmpty() ? 0
                                         : int(windowNumber(title).split(QLatin1Char('\n')).size());
}

QSize Desktop::sizeOf(const QString &title) const
{
    const QString geometry = hands(
        {QStringLiteral("getwindowgeometry"), QStringLiteral("--shell"), windowNumber(title)});
    static const QRegularExpression pattern(QStringLiteral("WIDTH=(\\d+)\nHEIGHT=(\\d+)"));
    const QRegularExpressionMatch match = pattern.match(geometry);
    return QSize(match.captured(1).toInt(), match.captured(2).toInt());
}

bool Desktop::isActive(const QString &title) const
{
    const QString number = windowNumber(title);
    return !number.isEmpty() && hands({QStringLiteral("getactivewindow")}) == number;
}

bool Desktop::isInFront(const QString &title) const
{
    // From the lowest to the uppermost.
    const QString windows = run(
        propertiesProgram, {QStringLiteral("-root"), QStringLiteral("_NET_CLIENT_LIST_STACKING")});
    const QString uppermost = windows.section(QLatin1Char(' '), -1);
    return windowNumber(title) == QString::number(uppermost.toULongLong(nullptr, 16));
}

void Desktop::resize(const QString &title, const QSize &size) const
{
    hands({QStringLiteral("windowsize"), windowNumber(title), QString::number(size.width()),
           QString::number(size.height())});
}

void Desktop::minimize(const QString &title) const
{
    hands({QStringLiteral("windowminimize"), windowNumber(title)});
}

void Desktop::activate(const QString &title) const
{
    hands({QStringLiteral("windowactivate"), windowNumber(title)});
}

void Desktop::click(const QString &title, const QPoint &place) const
{
    hands({QStringLiteral("mousemove"), QStringLiteral("--window"), windowNumber(title),
           QString::number(place.x()), QString::number(place.y()), QStringLiteral("click"),
           QStringLiteral("1")});
}

void Desktop::doubleClick(const QString &title, const QPoint &place) const
{
    hands({QStringLiteral("mousemove"), QStringLiteral("--window"), windowNumber(title),
           QString::number(place.x()), QString::number(place.y()), QStringLiteral("click"),
           QStringLiteral("--repeat"), QStringLiteral("2"), QStringLiteral("--delay"),
           QStringLiteral("20"), QStringLiteral("1")});
}

void Desktop::press(const QStringList &keys) const
{
    hands(QStringList {QStringLiteral("key")} + keys);
}

void Desktop::closeActiveWindow() const
{
    press({QStringLiteral("alt+F4")});
}

// One line for each window of this title.
QString Desktop::windowNumber(const QString &title) const
{
    return hands({QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                  QStringLiteral("--name"),
                  QLatin1Char('^') + QRegularExpression::escape(title) + QLatin1Char('$')});
}

QString Desktop::hands(const QStringList &arguments) const
{
    return run(handsProgram, arguments);
}

QString Desktop::run(const QString &program, const QStringList &arguments) const
{
    QProcess process;
    process.setProcessEnvironment(ownEnvironment());
    process.start(program, arguments);
    process.waitForFinished(patience);
    return QString::fromLocal8Bit(process.readAllStandardOutput()).trimmed();
}
