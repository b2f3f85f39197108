#ifndef BAREEXCHANGE_H
#define BAREEXCHANGE_H

// The version query by system calls alone.
namespace BareExchange {

// Opens the port, raw at 115200 baud. Returns its descriptor, which the caller closes.
int openPort(const char *path);
// Asks up to ten times, as the program does, and waits a second for each answer. False if no
// version line came.
bool query(int port);

} // namespace BareExchange

#endif
