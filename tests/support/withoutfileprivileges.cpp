// Gives up the capabilities with which root bypasses permissions.
#include "withoutfileprivileges.h"

#include <linux/capability.h>
#include <linux/securebits.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr quint32 filePrivileges = (1U << CAP_DAC_OVERRIDE) | (1U << CAP_DAC_READ_SEARCH);

struct Capabilities
{
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3] = {};

    Capabilities()
    {
        if (syscall(SYS_capget, &header, sets) != 0)
            qFatal("cannot read the capabilities");
    }

    void setEffective(quint32 effective)
    {
        sets[0].effective = effective;
        if (syscall(SYS_capset, &header, sets) != 0)
            qFatal("cannot change the capabilities");
    }
};

} // namespace

WithoutFilePrivileges::WithoutFilePrivileges()
{
    Capabilities capabilities;
    before = capabilities.sets[0].effective;
    capabilities.setEffective(before & ~filePrivileges);
    // Without this, access(2) still uses all of root's capabilities.
    bitsBefore = prctl(PR_GET_SECUREBITS);
    prctl(PR_SET_SECUREBITS, bitsBefore | SECBIT_NO_SETUID_FIXUP);
}

WithoutFilePrivileges::~WithoutFilePrivileges()
{
    prctl(PR_SET_SECUREBITS, bitsBefore);
    Capabilities().setEffective(before);
}
