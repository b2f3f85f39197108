#ifndef CONTROLSERVER_H
#define CONTROLSERVER_H

#include "filedescriptor.h"

#include <functional>
#include <gio/gio.h>
#include <list>
#include <string>

// Answers one-line commands on a Unix stream socket.
class ControlServer
{
public:
    using Handler = std::function<std::string(const std::string &line)>;

    ControlServer(const std::string &path, Handler handler);
    ~ControlServer();
    ControlServer(const ControlServer &) = delete;
    ControlServer &operator=(const ControlServer &) = delete;

private:
    struct Connection
    {
        ControlServer *server;
        FileDescriptor socket;
        guint source;
        std::string received;
    };

    static gboolean onIncoming(gint, GIOCondition, gpointer self);
    static gboolean onReadable(gint, GIOCondition, gpointer data);

    void accept();
    bool serve(Connection &connection) const;
    bool answerLines(Connection &connection) const;

    std::string m_path;
    Handler m_handler;
    FileDescriptor m_listener;
    guint m_source = 0;
    std::list<Connection> m_connections;
};

#endif
