#ifndef SESSION_H
#define SESSION_H

#include "controlpath.h"
#include "controlserver.h"
#include "device.h"
#include "options.h"
#include "signalforwarder.h"

#include <glib.h>
#include <string>

// The board, its control socket and the command, for as long as the command runs.
class Session
{
public:
    Session(const Options &options, const FlashImage &image);
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    int run();

private:
    static void onCommandEnded(GPid, gint waitStatus, gpointer self);

    std::string answer(const std::string &line);
    std::string carryOut(const std::string &line);
    std::string unplug();
    std::string replug();
    std::string reset();
    std::string received() const;
    std::string dump(const std::string &path) const;

    const Options &m_options;
    SignalForwarder m_signals;
    GMainLoop *m_loop;
    int m_waitStatus = 0;
    Device m_device;
    ControlPath m_controlPath;
    ControlServer m_control;
};

#endif
