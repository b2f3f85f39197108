#ifndef PSEUDOTERMINAL_H
#define PSEUDOTERMINAL_H

#include "filedescriptor.h"

#include <cstddef>
#include <string>
#include <termios.h>

// The wire to the host: the adapter holds the master, programs open the slave by its path.
class PseudoTerminal
{
public:
    PseudoTerminal();

    const std::string &path() const { return m_path; }
    speed_t speed() const;
    std::string read(std::size_t limit) const;
    void write(const std::string &bytes) const;
    void discardUnread() const;

private:
    FileDescriptor m_master;
    FileDescriptor m_slave;
    std::string m_path;
};

#endif
