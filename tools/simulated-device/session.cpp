// Runs the command beside the board, and carries out control commands.

#include "session.h"

#include "command.h"
#include "error.h"
#include "filedescriptor.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <sys/resource.h>

namespace {

constexpr char controlVariable[] = "SIMULATED_DEVICE_CONTROL";
constexpr int chipPriority = -10; // of -20 to 19

// A chip that lags behind the clock answers too late for its host. Only root may ask for more than
// an ordinary share; without it the chip does what it can. The command has been started before and
// keeps its own priority.
void keepPaceOnALoadedMachine()
{
    setpriority(PRIO_PROCESS, 0, chipPriority);
}

} // namespace

Session::Session(const Options &options, const FlashImage &image)
    : m_options(options)
    , m_loop(g_main_loop_new(nullptr, FALSE))
    , m_device(image, options.identity)
    , m_controlPath(options.controlPath)
    , m_control(m_controlPath.path(), [this](const std::string &line) { return answer(line); })
{
}

Session::~Session()
{
    g_main_loop_unref(m_loop);
}

int Session::run()
{
    // The command may look for the socket from another folder.
    const auto controlPath = std::filesystem::absolute(m_controlPath.path());
    setenv(controlVariable, controlPath.c_str(), 1);

    const pid_t command = startCommand(m_options.command);
    m_signals.setTarget(command);
    keepPaceOnALoadedMachine();
    g_child_watch_add(command, &Session::onCommandEnded, this);
    g_main_loop_run(m_loop);
    return exitStatusOf(m_waitStatus);
}

void Session::onCommandEnded(GPid, gint waitStatus, gpointer self)
{
    auto *session = static_cast<Session *>(self);
    session->m_waitStatus = waitStatus;
    g_main_loop_quit(session->m_loop);
}

std::string Session::answer(const std::string &line)
{
    const std::string answer = carryOut(line);
    if (m_options.verbose)
        std::fprintf(stderr, "simulated-device: %s: %s\n", line.c_str(), answer.c_str());
    return answer;
}

std::string Session::carryOut(const std::string &line)
try {
    const std::string dumpTo = "dump ";
    if (line == "unplug")
        return unplug();
    if (line == "replug")
        return replug();
    if (line == "reset")
        return reset();
    if (line == "status")
        return "ok " + m_device.status();
    if (line == "received")
        return received();
    if (line.compare(0, dumpTo.size(), dumpTo) == 0)
        return dump(line.substr(dumpTo.size()));
    return "error unknown command: " + line;
} catch (const Error &error) {
    return std::string("error ") + error.what();
}

std::string Session::unplug()
{
    if (!m_device.isPlugged())
        return "error the device is not plugged in";
    m_device.unplug();
    return "ok unplugged";
}

std::string Session::replug()
{
    if (m_device.isPlugged())
        return "error the device is plugged in already";
    m_device.plugIn();
    return "ok plugged";
}

std::string Session::reset()
{
    if (!m_device.isPlugged())
        return "error the device is not plugged in";
    m_device.resetChip();
    return "ok reset";
}

std::string Session::received() const
{
    std::ostringstream digits;
    digits << "ok " << std::hex << std::setfill('0');
    for (const char byte : m_device.handedOver())
        digits << std::setw(2) << unsigned(static_cast<unsigned char>(byte));
    return digits.str();
}

std::string Session::dump(const std::string &path) const
{
    std::ofstream file(path, std::ios::binary);
    file << m_device.flash() << std::flush;
    return file ? "ok " + path : "error cannot write " + path + ": " + errorText(errno);
}
