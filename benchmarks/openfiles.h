#ifndef OPENFILES_H
#define OPENFILES_H

#include <sys/resource.h>

// Each download takes descriptors, and there are many at a time: as many as the system allows.
inline void raiseOpenFilesLimit()
{
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

#endif
