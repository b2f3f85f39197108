// Gets umockdev in front of the C library, which has to happen before the process starts.

#include "wrapper.h"

#include "error.h"
#include "filedescriptor.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <dlfcn.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr char wrapperName[] = "umockdev-wrapper";
constexpr char preloadedLibrary[] = "libumockdev-preload.so.0";
constexpr char wrappedMark[] = "SIMULATED_DEVICE_WRAPPED";

std::string ownPath()
{
    std::string path(PATH_MAX, '\0');
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
    if (length < 0)
        throw Error("cannot find this program: " + errorText(errno));
    path.resize(static_cast<std::size_t>(length));
    return path;
}

bool isPreloaded()
{
    void *library = dlopen(preloadedLibrary, RTLD_LAZY | RTLD_NOLOAD);
    if (library)
        dlclose(library);
    return library;
}

} // namespace

void requirePreload(char **arguments)
{
    const bool wrapped = std::getenv(wrappedMark);
    unsetenv(wrappedMark);
    if (isPreloaded())
        return;
    if (wrapped)
        throw Error(std::string(wrapperName) + " does not preload its library");

    std::string wrapper = wrapperName;
    std::string self = ownPath();
    std::vector<char *> wrappedArguments = {wrapper.data(), self.data()};
    for (char **argument = arguments + 1; *argument; ++argument)
        wrappedArguments.push_back(*argument);
    wrappedArguments.push_back(nullptr);

    setenv(wrappedMark, "1", 1);
    execvp(wrapperName, wrappedArguments.data());
    throw Error(std::string("cannot run ") + wrapperName
                + " (package umockdev): " + errorText(errno));
}
