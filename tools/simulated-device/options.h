#ifndef OPTIONS_H
#define OPTIONS_H

#include "testbed.h"

#include <string>

struct Options
{
    AdapterIdentity identity;
    std::string imagePath;
    std::string controlPath;
    bool verbose = false;
    bool help = false;
    char *const *command = nullptr;
};

// Throws Error when the command line is not as helpText() tells.
Options parseOptions(int count, char **arguments);

std::string helpText();

#endif
