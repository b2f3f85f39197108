// A network link between a web server on the loopback and its clients: link PORT RATE ROUNDTRIP.
// Prints its own port and forwards connections from there to PORT. All connections share RATE
// megabits a second in each direction; a round trip takes ROUNDTRIP milliseconds. As with TCP, a
// connection starts with a handshake and ten packets in flight, twice as many after each round
// trip. The link's queue is unlimited, and nothing is lost.
#include "clocks.h"
#include "openfiles.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <netinet/tcp.h>
#include <queue>
#include <string>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr long packet = 1460; // bytes
constexpr long headers = 78; // bytes of Ethernet, IP and TCP around each packet
constexpr long firstWindow = 10 * packet;
constexpr long largestWindow = 4'000'000; // bytes, that of Linux
constexpr long largestRead = 4 * packet;
constexpr int backlog = 4096; // connections
constexpr int eventsAtATime = 256;

[[noreturn]] void fail(const char *what)
{
    std::perror(what);
    std::exit(1);
}

// Actions to be run later, in order of time.
class Schedule
{
public:
    void at(double time, std::function<void()> action)
    {
        events.push({time, ++count, std::move(action)});
    }

    void runDue()
    {
        while (!events.empty() && events.top().time <= monotonicTime()) {
            const std::function<void()> action = events.top().action;
            events.pop();
            action();
        }
    }

    timespec untilNext() const
    {
        const double wait =
            events.empty() ? 1e3 : std::max(0.0, events.top().time - monotonicTime());
        return {time_t(wait / 1e3), long(wait * 1e6) % 1'000'000'000};
    }

private:
    struct Event
    {
        double time;
        long number; // keeps the order of events of the same time
        std::function<void()> action;

        bool operator<(const Event &other) const
        {
            return time != other.time ? time > other.time : number > other.number;
        }
    };

    std::priority_queue<Event> events;
    long count = 0;
};

// One direction of the link, which all connections share.
class Wire
{
public:
    explicit Wire(double megabits)
        : bytesPerMillisecond(megabits * 1e6 / 8 / 1e3)
    {
    }

    // The time when the last of these bytes has left.
    double departure(long bytes, double earliest)
    {
        const long packets = (bytes + packet - 1) / packet;
        free = std::max(free, earliest) + double(bytes + packets * headers) / bytesPerMillisecond;
        return free;
    }

private:
    double bytesPerMillisecond;
    double free = 0; // when what was sent before has left
};

// The state that a link and its connections share.
struct Shared
{
    Wire up;
    Wire down;
    double roundTrip;
    Schedule schedule;
};

// One direction of a connection. Calls "again" when it can take more.
class Stream
{
public:
    Stream(int source, int target, Wire *direction, Shared *link, double opening)
        : from(source)
        , to(target)
        , wire(direction)
        , shared(link)
        , opened(opening)
    {
    }

    bool hasEnded() const { return ended; }

    // Takes the bytes that have come, up to the window.
    void pump(const std::function<void()> &again)
    {
        write();
        while (!ended && underway < window) {
            std::string bytes(size_t(std::min(largestRead, window - underway)), '\0');
            const ssize_t length = read(from, bytes.data(), bytes.size());
            if (length < 0 && errno == EAGAIN)
                return;
            ended = length <= 0;
            bytes.resize(size_t(std::max<ssize_t>(length, 0)));
            send(bytes, again);
        }
    }

private:
    void send(const std::string &bytes, const std::function<void()> &again)
    {
        const long length = long(bytes.size());
        underway += length;
        const double delay = shared->roundTrip / 2;
        const double now = std::max(monotonicTime(), opened);
        const double arrival = wire->departure(length, now) + delay;
        // "again" keeps the connection alive as well.
        shared->schedule.at(arrival, [this, bytes, again] { deliver(bytes); });
        shared->schedule.at(arrival + delay, [this, length, again] {
            underway -= length;
            window = std::min(window + length, largestWindow);
            again();
        });
    }

    // No bytes mean the end of the stream.
    void deliver(const std::string &bytes)
    {
        arrived += bytes;
        isLast = bytes.empty();
        write();
    }

    void write()
    {
        if (!arrived.empty()) {
            const ssize_t length = ::send(to, arrived.data(), arrived.size(), MSG_NOSIGNAL);
            const bool isGone = length < 0 && errno != EAGAIN;
            arrived.erase(0, isGone ? arrived.size() : size_t(std::max<ssize_t>(length, 0)));
        }
        if (isLast && arrived.empty())
            shutdown(to, SHUT_WR);
    }

    int from;
    int to;
    Wire *wire;
    Shared *shared;
    double opened;
    long window = firstWindow;
    long underway = 0;
    bool ended = false; // nothing more is to be read
    bool isLast = false; // nor to arrive
    std::string arrived; // not taken by the receiver yet
};

// A client's connection and the matching one to the server. They end together.
class Connection : public std::enable_shared_from_this<Connection>
{
public:
    Connection(int clientSocket, int serverSocket, Shared *link)
        : client(clientSocket)
        , server(serverSocket)
        , upwards(client, server, &link->up, link, monotonicTime() + link->roundTrip)
        , downwards(server, client, &link->down, link, 0)
    {
    }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;
    ~Connection()
    {
        close(client);
        close(server);
    }

    void pump()
    {
        const auto again = [self = shared_from_this()] {
            self->pump();
        };
        upwards.pump(again);
        downwards.pump(again);
        if (upwards.hasEnded() && downwards.hasEnded())
            itself.reset();
    }

    // It lives until both directions have ended and everything has arrived.
    void live() { itself = shared_from_this(); }

private:
    int client;
    int server;
    Stream upwards;
    Stream downwards;
    std::shared_ptr<Connection> itself;
};

sockaddr_in loopback(int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int newSocket()
{
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
        fail("link: socket");
    return descriptor;
}

// The kernel must not merge small packets again.
void sendAtOnce(int descriptor)
{
    const int yes = 1;
    setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
}

int connectTo(int port)
{
    const int descriptor = newSocket();
    const sockaddr_in address = loopback(port);
    if (connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0
        && errno != EINPROGRESS)
        fail("link: connect");
    sendAtOnce(descriptor);
    return descriptor;
}

// Prints the port that the system chose.
int listenOnLoopback()
{
    const int descriptor = newSocket();
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto *generic = reinterpret_cast<sockaddr *>(&address);
    if (bind(descriptor, generic, size) != 0 || listen(descriptor, backlog) != 0
        || getsockname(descriptor, generic, &size) != 0)
        fail("link: listen");
    std::printf("%d\n", ntohs(address.sin_port));
    std::fflush(stdout);
    return descriptor;
}

class Link
{
public:
    Link(int port, double megabits, double roundTrip)
        : serverPort(port)
        , shared {Wire(megabits), Wire(megabits), roundTrip, Schedule()}
    {
        watch(listener, EPOLLIN, nullptr);
    }

    [[noreturn]] void run()
    {
        std::vector<epoll_event> events(eventsAtATime);
        for (;;) {
            const timespec wait = shared.schedule.untilNext();
            const int count = epoll_pwait2(poller, events.data(), eventsAtATime, &wait, nullptr);
            for (int index = 0; index < count; ++index)
                take(static_cast<std::weak_ptr<Connection> *>(events[size_t(index)].data.ptr));
            shared.schedule.runDue();
        }
    }

private:
    void watch(int descriptor, uint32_t what, std::weak_ptr<Connection> *whose) const
    {
        epoll_event event = {};
        event.events = what;
        event.data.ptr = whose;
        if (epoll_ctl(poller, EPOLL_CTL_ADD, descriptor, &event) != 0)
            fail("link: epoll_ctl");
    }

    void take(const std::weak_ptr<Connection> *whose)
    {
        if (whose == nullptr)
            takeClient();
        else if (const std::shared_ptr<Connection> connection = whose->lock())
            connection->pump();
    }

    void takeClient()
    {
        const int client = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (client < 0)
            return;
        sendAtOnce(client);
        const int server = connectTo(serverPort);
        const auto connection = std::make_shared<Connection>(client, server, &shared);
        connection->live();
        connections.push_back(connection);
        for (const int descriptor : {client, server})
            watch(descriptor, EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET, &connections.back());
    }

    int serverPort;
    Shared shared;
    int poller = epoll_create1(EPOLL_CLOEXEC);
    int listener = listenOnLoopback();
    std::deque<std::weak_ptr<Connection>> connections; // which stay where they are
};

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: link PORT RATE ROUNDTRIP\n");
        return 2;
    }
    raiseOpenFilesLimit();
    try {
        Link(std::atoi(argv[1]), std::atof(argv[2]), std::atof(argv[3])).run();
    } catch (const std::exception &error) {
        std::fprintf(stderr, "link: %s\n", error.what());
        return 1;
    }
}
