// A network namespace without interfaces.
#include "isolation.h"

#include <QtGlobal>

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

Isolation::Isolation()
    : formerNetwork(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC))
    , isolated(unshare(CLONE_NEWNET) == 0)
{
}

Isolation::~Isolation()
{
    if (isolated && setns(formerNetwork, CLONE_NEWNET) != 0)
        qFatal("no way back to the network");
    close(formerNetwork);
}

bool Isolation::isIsolated() const
{
    return isolated;
}
