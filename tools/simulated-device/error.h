#ifndef ERROR_H
#define ERROR_H

#include <stdexcept>
#include <string>

// Exit statuses of the tool itself, in the manner of env and timeout.
constexpr int exitToolFailed = 125;
constexpr int exitCommandCannotRun = 126;
constexpr int exitCommandNotFound = 127;

// One line for the user, and the exit status that goes with it.
class Error : public std::runtime_error
{
public:
    explicit Error(const std::string &message, int exitStatus = exitToolFailed)
        : std::runtime_error(message)
        , m_exitStatus(exitStatus)
    {
    }

    int exitStatus() const { return m_exitStatus; }

private:
    int m_exitStatus;
};

#endif
