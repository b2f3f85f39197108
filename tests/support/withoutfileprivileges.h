#ifndef WITHOUTFILEPRIVILEGES_H
#define WITHOUTFILEPRIVILEGES_H

#include <QtGlobal>

// While it lives, this thread is bound by the permissions of files even when it runs as root.
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
