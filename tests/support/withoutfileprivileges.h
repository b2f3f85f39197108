#ifndef WITHOUTFILEPRIVILEGES_H
#define WITHOUTFILEPRIVILEGES_H

#include <QtGlobal>

// During its lifetime, file permissions apply to this thread even if it runs as root.
class WithoutFilePrivileges
{
public:
    WithoutFilePrivileges();
    ~WithoutFilePrivileges();

    WithoutFilePrivileges(const WithoutFilePrivileges &) = delete;
    WithoutFilePrivileges &operator=(const WithoutFilePrivileges &) = delete;

private:
    quint32 before = 0; // the first 32 effective capabilities
    int bitsBefore = 0; // securebits
};

#endif
