#ifndef REPOSITORYSERVER_H
#define REPOSITORYSERVER_H

#include <QByteArray>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QStringList>

#include <memory>

// What the server does with one request.
struct Answer
{
    // Whole, with its length.
    static Answer ok(const QByteArray &body);
    // With further header fields, each with its line end.
    static Answer with(const QByteArray &fields, const QByteArray &body);
    // The body as it goes over the wire, sizes and all; then closes the connection.
    static Answer chunked(const QByteArray &chunks);
    // The block, repeated up to the size without ever being in memory as a whole.
    static Answer repeated(const QByteArray &block, qint64 size);
    static Answer failure(int status, const QByteArray &body = "<html>error</html>");
    // With a page that must not be mistaken for the requested file.
    static Answer redirect(const QByteArray &address,
                           const QByteArray &page = "<html>login</html>");
    // Announces the whole body, sends half of it and closes the connection.
    static Answer cutOff(const QByteArray &body);
    // Announces no length; the end of the connection ends the body.
    static Answer withoutLength(const QByteArray &body);
    static Answer closedAtOnce();
    static Answer silence();
    // Sends the body byte by byte, with a pause of this many ms.
    static Answer trickle(const QByteArray &body, int pause);
    // Sends half of the body and keeps the rest, or all, until the address is released.
    static Answer halfHeld(const QByteArray &body);
    static Answer held(const QByteArray &body);

    QByteArray sentAtOnce;
    QByteArray sentLater; // when released, or byte by byte
    int bytePause = 0; // ms
    QByteArray block; // repeated after what is sent at once
    qint64 repeatedSize = 0; // bytes
    bool closes = false; // after what is sent at once
};

// A web server on a loopback port. It serves every host: while it lives the environment names it
// as proxy, so that the program's requests arrive with their absolute addresses. It has its own
// thread, because the program's operations may block theirs.
class RepositoryServer
{
public:
    RepositoryServer();
    ~RepositoryServer();

    RepositoryServer(const RepositoryServer &) = delete;
    RepositoryServer &operator=(const RepositoryServer &) = delete;

    // For the environment of a child process.
    QString proxyAddress() const;

    // The n-th request of the address gets the n-th answer, later ones the last.
    void serve(const QString &address, const QList<Answer> &answers);
    // For all other addresses; without it they are answered with 404.
    void serveEverythingElse(const Answer &answer);

    // From now on; further connections wait until one of them is closed.
    void acceptAtMost(int connections);
    int mostConnections() const;

    // Sends what was held back for the address, once per request that came.
    void release(const QString &address);

    // The absolute addresses, as they stood in the requests, in order of arrival.
    QStringList requests() const;
    int requestCount(const QString &address) const;
    // The header fields of the last request of the address, each with its line end.
    QByteArray requestFields(const QString &address) const;
    // Clears the list and resets all counts.
    void forgetRequests();

private:
    class Worker;
    std::unique_ptr<Worker> worker;
    QByteArray earlierProxy;
};

Q_DECLARE_METATYPE(Answer)

#endif
