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

std::string absolutePath(const std::string &path)
{
    char directory[PATH_MAX];
    if (path.empty() || path.front() == '/' || !getcwd(directory, sizeof directory))
        return path;
    return std::string(directory) + '/' + path;
}

std::string commandLine(int count, char **arguments)
{
    if (count == 2)
        return arguments[1];
    // The simulation may run in another folder than this client.
    if (count == 3 && std::string(arguments[1]) == "dump")
        return "dump " + absolutePath(arguments[2]);
    throw Error("usage: simulated-device-control unplug|replug|reset|received|status|dump FILE");
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
