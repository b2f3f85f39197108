#ifndef CONTROLPATH_H
#define CONTROLPATH_H

#include <string>

// A folder of our own for the control socket, unless the user names a path.
class ControlPath
{
public:
    explicit ControlPath(const std::string &given);
    ~ControlPath();
    ControlPath(const ControlPath &) = delete;
    ControlPath &operator=(const ControlPath &) = delete;

    const std::string &path() const { return m_path; }

private:
    std::string m_directory;
    std::string m_path;
};

#endif
