#ifndef OPENFILES_H
#define OPENFILES_H

#include <sys/resource.h>

// Raises the limit of open files as far as the system allows, because each of many downloads at a
// time needs descriptors.
inline void raiseOpenFilesLimit()
{
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

#endif
