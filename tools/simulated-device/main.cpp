// Runs one command with the simulated device plugged in.

#include "command.h"
#include "controlserver.h"
#include "device.h"
#include "error.h"
#include "options.h"
#include "wrapper.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <glib-unix.h>
#include <iomanip>
#include <sstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr char controlVariable[] = "SIMULATED_DEVICE_CONTROL";
constexpr char controlName[] = "control";
constexpr int chipPriority = -10; // of -20 to 19

// A chip that lags behind the clock answers too late for its host. Only root may ask for more than
// an ordinary share; without it the chip does what it can. The command has been started before and
// keeps its own priority.
void keepPaceOnALoadedMachine()
{
    setpriority(PRIO_PROCESS, 0, chipPriority);
}

// A folder of our own for the control socket, unless the user names a path.
class ControlPath
{
public:
    explicit ControlPath(const std::string &given);
    ~ControlPath();
    ControlPath(const ControlPath &) = delete;
    ControlPath &operator=(const ControlPath &) = delete;

    const std::string &path() const { return m_path; }

private:
    std::string m_directory;
    std::string m_path;
};

ControlPath::ControlPath(const std::string &given)
    : m_path(given)
{
    if (!given.empty())
        return;
    gchar *directory = g_dir_make_tmp("simulated-device-XXXXXX", nullptr);
    if (!directory)
        throw Error("cannot create a temporary folder: " + errorText(errno));
    m_directory = directory;
    g_free(directory);
    m_path = m_directory + '/' + controlName;
}

ControlPath::~ControlPath()
{
    if (!m_directory.empty())
        rmdir(m_directory.c_str());
}

// Passes signals on to the command. Made before anything that has to be cleaned up, and run by the
// main loop, which starts after the command.
class SignalForwarder
{
public:
    SignalForwarder();
    ~SignalForwarder();
    SignalForwarder(const SignalForwarder &) = delete;
    SignalForwarder &operator=(const SignalForwarder &) = delete;

    void setTarget(pid_t target) { m_target = target; }

private:
    template <int signal>
    static gboolean passOn(gpointer self);

    pid_t m_target = 0;
    std::array<guint, 3> m_sources;
};

SignalForwarder::SignalForwarder()
    : m_sources {g_unix_signal_add(SIGTERM, &SignalForwarder::passOn<SIGTERM>, this),
                 g_unix_signal_add(SIGINT, &SignalForwarder::passOn<SIGINT>, this),
                 g_unix_signal_add(SIGHUP, &SignalForwarder::passOn<SIGHUP>, this)}
{
}

SignalForwarder::~SignalForwarder()
{
    for (const guint source : m_sources)
        g_source_remove(source);
}

template <int signal>
gboolean SignalForwarder::passOn(gpointer self)
{
    kill(static_cast<SignalForwarder *>(self)->m_target, signal);
    return G_SOURCE_CONTINUE;
}

// The board, its control socket and the command, for as long as the command runs.
class Session
{
public:
    Session(const Options &options, const FlashImage &image);
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    int run();

private:
    static void onCommandEnded(GPid, gint waitStatus, gpointer self);

    std::string answer(const std::string &line);
    std::string carryOut(const std::string &line);
    std::string unplug();
    std::string replug();
    std::string reset();
    std::string received() const;
    std::string dump(const std::string &path) const;

    const Options &m_options;
    SignalForwarder m_signals;
    GMainLoop *m_loop;
    int m_waitStatus = 0;
    Device m_device;
    ControlPath m_controlPath;
    ControlServer m_control;
};

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

int runTool(int count, char **arguments)
{
    const Options options = parseOptions(count, arguments);
    if (options.help) {
        std::fputs(helpText().c_str(), stdout);
        return EXIT_SUCCESS;
    }
    const FlashImage image = readFlashImage(options.imagePath);
    requirePreload(arguments);
    setChipVerbose(options.verbose);
    return Session(options, image).run();
}

} // namespace

int main(int argc, char **argv)
try {
    return runTool(argc, argv);
} catch (const Error &error) {
    std::fprintf(stderr, "simulated-device: %s\n", error.what());
    return error.exitStatus();
}
