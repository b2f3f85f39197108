// Descriptors and Unix sockets, shared by the tool and its control client.

#include "filedescriptor.h"

#include "error.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

FileDescriptor::FileDescriptor(FileDescriptor &&other) noexcept
    : m_number(std::exchange(other.m_number, -1))
{
}

FileDescriptor &FileDescriptor::operator=(FileDescriptor &&other) noexcept
{
    std::swap(m_number, other.m_number);
    return *this;
}

FileDescriptor::~FileDescriptor()
{
    close();
}

void FileDescriptor::close()
{
    if (isOpen())
        ::close(std::exchange(m_number, -1));
}

FileDescriptor openUnixSocket()
{
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket.isOpen())
        throw Error("cannot create a socket: " + errorText(errno));
    return socket;
}

sockaddr_un unixAddress(const std::string &path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        throw Error("control socket path is too long (at most "
                    + std::to_string(sizeof address.sun_path - 1) + " bytes): " + path);
    path.copy(address.sun_path, path.size());
    return address;
}

bool sendAll(const FileDescriptor &socket, const std::string &bytes)
{
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count =
            send(socket.number(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0)
            return false;
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

std::string errorText(int errorNumber)
{
    return std::strerror(errorNumber);
}
