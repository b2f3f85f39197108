#ifndef SIGNALFORWARDER_H
#define SIGNALFORWARDER_H

#include <array>
#include <glib.h>
#include <sys/types.h>

// Passes signals on to the command. Made before anything that has to be cleaned up, and run by the
// main loop, which starts after the command.
class SignalForwarder
{
public:
    SignalForwarder();
    ~SignalForwarder();
    SignalForwarder(const SignalForwarder &) = delete;
    SignalForwarder &operator=(const SignalForwarder &) = delete;

    void setTarget(pid_t target) { m_target = target; }

private:
    template <int signal>
    static gboolean passOn(gpointer self);

    pid_t m_target = 0;
    std::array<guint, 3> m_sources;
};

#endif
