#ifndef BAREEXCHANGE_H
#define BAREEXCHANGE_H

// The version query by system calls alone.
namespace BareExchange {

// A descriptor of the port, raw at 115200 baud.
int openPort(const char *path);
// Asks up to ten times, as the program does, and waits a second for each answer. False when no
// version line came.
bool query(int port);

} // namespace BareExchange

#endif
