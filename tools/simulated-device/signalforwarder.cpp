// What ends the simulation goes to the command, whose end then ends the simulation.

#include "signalforwarder.h"

#include <csignal>
#include <glib-unix.h>

SignalForwarder::SignalForwarder()
    : m_sources {g_unix_signal_add(SIGTERM, &SignalForwarder::passOn<SIGTERM>, this),
                 g_unix_signal_add(SIGINT, &SignalForwarder::passOn<SIGINT>, this),
                 g_unix_signal_add(SIGHUP, &SignalForwarder::passOn<SIGHUP>, this)}
{
}

SignalForwarder::~SignalForwarder()
{
    for (const guint source : m_sources)
        g_source_remove(source);
}

template <int signal>
gboolean SignalForwarder::passOn(gpointer self)
{
    kill(static_cast<SignalForwarder *>(self)->m_target, signal);
    return G_SOURCE_CONTINUE;
}
