#ifndef COMMAND_H
#define COMMAND_H

#include <sys/types.h>

// Starts the command of the command line; it is killed with the simulation.
pid_t startCommand(char *const *arguments);

// The exit status of a shell for a child's wait status.
int exitStatusOf(int waitStatus);

#endif
