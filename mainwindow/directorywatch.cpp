// What happens in a directory, by inotify.
#include "directorywatch.h"

#ifdef Q_OS_LINUX

#include <QFile>

#include <sys/inotify.h>
#include <unistd.h>

namespace {

// All that could change a listing, of the entries and of the directory itself.
constexpr quint32 changes = IN_CREATE | IN_DELETE | IN_MOVE | IN_ATTRIB | IN_MOVE_SELF;

union Events {
    inotify_event first;
    char bytes[4096]; // more than the longest name takes
};

// How many bytes of events there were; none are left when they fit.
ssize_t take(int descriptor, Events *events)
{
    return read(descriptor, events->bytes, sizeof events->bytes);
}

bool isOneEvent(const Events &events, ssize_t size)
{
    return size > 0 && size_t(size) == sizeof events.first + events.first.len;
}

} // namespace

DirectoryWatch::~DirectoryWatch()
{
    if (descriptor != -1)
        close(descriptor);
}

void DirectoryWatch::start(const QString &path)
{
    if (descriptor == -1)
        return;

    inotify_rm_watch(descriptor, watch);
    watch = inotify_add_watch(descriptor, QFile::encodeName(path).constData(), changes);
    Events earlier;
    while (take(descriptor, &earlier) > 0) { }
}

bool DirectoryWatch::sawOnlyNewFile(const QString &fileName)
{
    if (descriptor == -1) {
        descriptor = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        return false;
    }

    Events events;
    const ssize_t size = take(descriptor, &events);
    return isOneEvent(events, size) && events.first.mask == IN_CREATE
        && QFile::decodeName(events.first.name) == fileName;
}

#else

DirectoryWatch::~DirectoryWatch() = default;

void DirectoryWatch::start(const QString & /*path*/) { }

bool DirectoryWatch::sawOnlyNewFile(const QString & /*fileName*/)
{
    return false;
}

#endif
