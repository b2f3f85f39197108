// The pseudo terminal that takes the place of the serial port's driver.

#include "pseudoterminal.h"

#include "error.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr std::size_t pathSize = 128;

FileDescriptor openMaster()
{
    FileDescriptor master(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!master.isOpen() || grantpt(master.number()) != 0 || unlockpt(master.number()) != 0)
        throw Error("cannot open a pseudo terminal: " + errorText(errno));
    return master;
}

std::string slavePath(const FileDescriptor &master)
{
    char path[pathSize];
    if (ptsname_r(master.number(), path, sizeof path) != 0)
        throw Error("cannot name the pseudo terminal: " + errorText(errno));
    return path;
}

} // namespace

// The slave is held open here as well: without any opener the master reports an error.
PseudoTerminal::PseudoTerminal()
    : m_master(openMaster())
    , m_path(slavePath(m_master))
{
    m_slave = FileDescriptor(open(m_path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!m_slave.isOpen())
        throw Error("cannot open " + m_path + ": " + errorText(errno));

    termios settings = {};
    tcgetattr(m_slave.number(), &settings);
    cfmakeraw(&settings);
    tcsetattr(m_slave.number(), TCSANOW, &settings);
}

speed_t PseudoTerminal::speed() const
{
    termios settings = {};
    tcgetattr(m_slave.number(), &settings);
    return cfgetospeed(&settings);
}

std::string PseudoTerminal::read(std::size_t limit) const
{
    std::string bytes(limit, '\0');
    const ssize_t count = ::read(m_master.number(), bytes.data(), bytes.size());
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return bytes;
}

void PseudoTerminal::write(const std::string &bytes) const
{
    // What does not fit is lost, as in the driver of a port that nobody reads.
    const ssize_t written = ::write(m_master.number(), bytes.data(), bytes.size());
    static_cast<void>(written);
}

void PseudoTerminal::discardUnread() const
{
    tcflush(m_slave.number(), TCIFLUSH);
}
