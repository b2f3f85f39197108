// Runs one command with the simulated device plugged in.

#include "chip.h"
#include "error.h"
#include "flashimage.h"
#include "options.h"
#include "session.h"
#include "wrapper.h"

#include <cstdio>
#include <cstdlib>

namespace {

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
