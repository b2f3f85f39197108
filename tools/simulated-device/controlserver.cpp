// The control socket of the simulation, served by the main loop.

#include "controlserver.h"

#include "error.h"

#include <cerrno>
#include <glib-unix.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int backlog = 8;
constexpr std::size_t longestLine = 8192;

FileDescriptor listenAt(const std::string &path)
{
    const sockaddr_un address = unixAddress(path);
    FileDescriptor socket = openUnixSocket();
    if (bind(socket.number(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        throw Error(errno == EADDRINUSE ? "control socket path is in use: " + path
                                        : "control socket " + path + ": " + errorText(errno));
    if (listen(socket.number(), backlog) != 0)
        throw Error("control socket " + path + ": " + errorText(errno));
    return socket;
}

} // namespace

ControlServer::ControlServer(const std::string &path, Handler handler)
    : m_path(path)
    , m_handler(std::move(handler))
    , m_listener(listenAt(path))
{
    m_source = g_unix_fd_add(m_listener.number(), G_IO_IN, &ControlServer::onIncoming, this);
}

ControlServer::~ControlServer()
{
    for (const Connection &connection : m_connections)
        g_source_remove(connection.source);
    g_source_remove(m_source);
    unlink(m_path.c_str());
}

gboolean ControlServer::onIncoming(gint, GIOCondition, gpointer self)
{
    static_cast<ControlServer *>(self)->accept();
    return G_SOURCE_CONTINUE;
}

void ControlServer::accept()
{
    FileDescriptor socket(
        accept4(m_listener.number(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket.isOpen())
        return;
    Connection &connection =
        m_connections.emplace_back(Connection {this, std::move(socket), 0, {}});
    connection.source =
        g_unix_fd_add(connection.socket.number(), G_IO_IN, &ControlServer::onReadable, &connection);
}

gboolean ControlServer::onReadable(gint, GIOCondition, gpointer data)
{
    auto *connection = static_cast<Connection *>(data);
    ControlServer *server = connection->server;
    if (server->serve(*connection))
        return G_SOURCE_CONTINUE;
    server->m_connections.remove_if([&](const Connection &other) { return &other == connection; });
    return G_SOURCE_REMOVE;
}

bool ControlServer::serve(Connection &connection) const
{
    char bytes[1024];
    const ssize_t count = read(connection.socket.number(), bytes, sizeof bytes);
    if (count < 0)
        return errno == EAGAIN || errno == EINTR;
    connection.received.append(bytes, static_cast<std::size_t>(count));
    return answerLines(connection) && count > 0;
}

bool ControlServer::answerLines(Connection &connection) const
{
    std::string &received = connection.received;
    for (auto end = received.find('\n'); end != std::string::npos; end = received.find('\n')) {
        const std::string line = received.substr(0, end);
        received.erase(0, end + 1);
        if (!sendAll(connection.socket, m_handler(line) + '\n'))
            return false;
    }
    if (received.size() <= longestLine)
        return true;
    sendAll(connection.socket, "error line is too long\n");
    return false;
}
