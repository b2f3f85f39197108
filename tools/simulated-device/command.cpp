// The command that the adapter is shown to, as a child process.

#include "command.h"

#include "error.h"
#include "filedescriptor.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int signalStatusBase = 128;

struct Pipe
{
    FileDescriptor reader;
    FileDescriptor writer;
};

Pipe openPipe()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw Error("cannot create a pipe: " + errorText(errno));
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

[[noreturn]] void becomeCommand(char *const *arguments, pid_t simulation, int failureWriter)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // The parent may have died before the line above.
    if (getppid() != simulation)
        _exit(exitToolFailed);

    execvp(arguments[0], arguments);
    const int failure = errno;
    const ssize_t written = write(failureWriter, &failure, sizeof failure);
    static_cast<void>(written);
    _exit(exitToolFailed);
}

// The pipe closes without a word when the command has taken the child's place.
int failureOf(const FileDescriptor &reader)
{
    int failure = 0;
    return read(reader.number(), &failure, sizeof failure) == sizeof failure ? failure : 0;
}

} // namespace

pid_t startCommand(char *const *arguments)
{
    Pipe failurePipe = openPipe();
    const pid_t simulation = getpid();
    const pid_t child = fork();
    if (child < 0)
        throw Error("cannot start a process: " + errorText(errno));
    if (child == 0)
        becomeCommand(arguments, simulation, failurePipe.writer.number());

    failurePipe.writer.close();
    const int failure = failureOf(failurePipe.reader);
    if (failure == 0)
        return child;
    waitpid(child, nullptr, 0);
    throw Error("cannot run " + std::string(arguments[0]) + ": " + errorText(failure),
                failure == ENOENT ? exitCommandNotFound : exitCommandCannotRun);
}

int exitStatusOf(int waitStatus)
{
    return WIFSIGNALED(waitStatus) ? signalStatusBase + WTERMSIG(waitStatus)
                                   : WEXITSTATUS(waitStatus);
}
