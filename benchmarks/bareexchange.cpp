// The version query by system calls alone.
#include "bareexchange.h"

#include <QtGlobal>

#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace {

constexpr int attempts = 10;
constexpr int replyTimeout = 1000; // ms

bool waitForBytes(int port)
{
    pollfd descriptor = {port, POLLIN, 0};
    return poll(&descriptor, 1, replyTimeout) == 1;
}

bool isVersionLine(const char *reply)
{
    return std::strstr(reply, "Version:") != nullptr && std::strstr(reply, "\r\n") != nullptr;
}

} // namespace

int BareExchange::openPort(const char *path)
{
    const int port = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (port < 0)
        qFatal("%s does not open", path);
    termios settings = {};
    tcgetattr(port, &settings);
    cfmakeraw(&settings);
    cfsetspeed(&settings, B115200);
    tcsetattr(port, TCSANOW, &settings);
    return port;
}

bool BareExchange::query(int port)
{
    char reply[4096] = "";
    for (int attempt = 0; attempt < attempts && !isVersionLine(reply); ++attempt) {
        tcflush(port, TCIFLUSH);
        if (write(port, "v", 1) != 1)
            return false;
        ssize_t length = 0;
        if (waitForBytes(port))
            length = qMax<ssize_t>(read(port, reply, sizeof reply - 1), 0);
        reply[length] = '\0';
    }
    return isVersionLine(reply);
}
