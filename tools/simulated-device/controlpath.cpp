// Where the control socket lies.

#include "controlpath.h"

#include "error.h"
#include "filedescriptor.h"

#include <cerrno>
#include <glib.h>
#include <unistd.h>

namespace {

constexpr char controlName[] = "control";

} // namespace

ControlPath::ControlPath(const std::string &given)
    : m_path(given)
{
    if (!given.empty())
        return;
    gchar *directory = g_dir_make_tmp("simulated-device-XXXXXX", nullptr);
    if (!directory)
        throw Error("cannot create a temporary folder: " + errorText(errno));
    m_directory = directory;
    g_free(directory);
    m_path = m_directory + '/' + controlName;
}

ControlPath::~ControlPath()
{
    if (!m_directory.empty())
        rmdir(m_directory.c_str());
}
