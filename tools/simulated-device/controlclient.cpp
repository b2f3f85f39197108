// Sends one command to the simulated device and shows the answer.

#include "error.h"
#include "filedescriptor.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr char controlVariable[] = "SIMULATED_DEVICE_CONTROL";
constexpr int exitRefused = 1;
constexpr int exitUsage = 2;
constexpr char seeHelp[] = " (see --help)";

constexpr char helpMessage[] =
    R"(Usage: simulated-device-control COMMAND

Sends one command to the simulated device whose control socket the environment
variable SIMULATED_DEVICE_CONTROL names, and shows the answer.

Commands:
  unplug       remove the adapter
  replug       plug it in again
  reset        reset the chip
  dump FILE    write the chip's flash to FILE
  received     show the last bytes that the host was handed
  status       show whether it is plugged in, and what it has counted

"simulated-device --help" tells more of them.

Exit status:
  0            done
  1            the device refused the command; the reason is on standard error
  2            the command line is wrong
  125          the device cannot be reached
)";

std::string absolutePath(const std::string &path)
{
    char directory[PATH_MAX];
    if (path.empty() || path.front() == '/' || !getcwd(directory, sizeof directory))
        return path;
    return std::string(directory) + '/' + path;
}

[[noreturn]] void failUsage(const std::string &message)
{
    throw Error(message + seeHelp, exitUsage);
}

std::string dumpCommand(int count, char **arguments)
{
    if (count == 2)
        failUsage("dump needs a file");
    // The simulation may run in another folder than this client.
    return "dump " + absolutePath(arguments[2]);
}

std::string commandLine(int count, char **arguments)
{
    if (count < 2)
        failUsage("no command given");
    const std::string command = arguments[1];
    const bool dumps = command == "dump";
    if (command[0] == '-')
        failUsage("unknown option " + command);
    if (count > (dumps ? 3 : 2))
        failUsage("too many arguments");
    return dumps ? dumpCommand(count, arguments) : command;
}

FileDescriptor connectToDevice()
{
    const char *path = std::getenv(controlVariable);
    if (!path)
        throw Error(std::string(controlVariable) + " is not set");
    const sockaddr_un address = unixAddress(path);
    FileDescriptor socket = openUnixSocket();
    if (connect(socket.number(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        throw Error("cannot reach " + std::string(path) + ": " + errorText(errno));
    return socket;
}

std::string readAnswer(const FileDescriptor &socket)
{
    std::string answer;
    for (char byte = 0; read(socket.number(), &byte, 1) == 1 && byte != '\n';)
        answer.push_back(byte);
    return answer;
}

int runClient(int count, char **arguments)
{
    if (count == 2 && arguments[1] == std::string("--help")) {
        std::fputs(helpMessage, stdout);
        return EXIT_SUCCESS;
    }
    const std::string line = commandLine(count, arguments);
    const FileDescriptor socket = connectToDevice();
    if (!sendAll(socket, line + '\n'))
        throw Error("cannot send the command: " + errorText(errno));

    const std::string answer = readAnswer(socket);
    const bool done = answer.compare(0, 2, "ok") == 0;
    std::fprintf(done ? stdout : stderr, "%s\n", answer.c_str());
    return done ? EXIT_SUCCESS : exitRefused;
}

} // namespace

int main(int argc, char **argv)
try {
    return runClient(argc, argv);
} catch (const Error &error) {
    std::fprintf(stderr, "simulated-device-control: %s\n", error.what());
    return error.exitStatus();
}
