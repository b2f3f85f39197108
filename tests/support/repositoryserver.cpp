// A scripted web server in its own thread.
#include "repositoryserver.h"

#include <QHash>
#include <QMultiHash>
#include <QMutex>
#include <QPointer>
#include <QSemaphore>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <sys/socket.h>
#include <utility>

namespace {

// With Qt's backlog of 50, most of a thousand connections would wait for seconds.
constexpr int backlog = 4096;

constexpr int lookInterval = 5; // ms
constexpr qint64 mostAhead = 4194304; // bytes of a repeated block that wait to be sent

QByteArray head(int status, const QByteArray &fields)
{
    return "HTTP/1.1 " + QByteArray::number(status) + " Scripted\r\n" + fields + "\r\n";
}

QByteArray lengthOf(const QByteArray &body)
{
    return "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
}

QByteArray firstHalf(const QByteArray &body)
{
    return body.left(body.size() / 2);
}

void sendByteByByte(QTcpSocket *socket, const Answer &answer)
{
    auto *timer = new QTimer(socket);
    QObject::connect(timer, &QTimer::timeout, socket,
                     [socket, timer, rest = answer.sentLater]() mutable {
                         socket->write(rest.left(1));
                         rest.remove(0, 1);
                         if (rest.isEmpty())
                             timer->stop();
                     });
    timer->start(answer.bytePause);
}

// Continues whenever the socket has written something, first the head.
void sendRepeated(QTcpSocket *socket, const Answer &answer)
{
    const auto sendMore = [socket, block = answer.block, left = answer.repeatedSize]() mutable {
        while (left > 0 && socket->isOpen() && socket->bytesToWrite() < mostAhead)
            left -= socket->write(block.constData(), qMin<qint64>(left, block.size()));
    };
    QObject::connect(socket, &QTcpSocket::bytesWritten, socket, sendMore);
}

} // namespace

Answer Answer::ok(const QByteArray &body)
{
    Answer answer;
    answer.sentAtOnce = head(200, lengthOf(body)) + body;
    return answer;
}

Answer Answer::with(const QByteArray &fields, const QByteArray &body)
{
    Answer answer;
    answer.sentAtOnce = head(200, fields + lengthOf(body)) + body;
    return answer;
}

Answer Answer::chunked(const QByteArray &chunks)
{
    Answer answer;
    answer.sentAtOnce = head(200, "Transfer-Encoding: chunked\r\n") + chunks;
    answer.closes = true;
    return answer;
}

Answer Answer::repeated(const QByteArray &block, qint64 size)
{
    Answer answer;
    answer.sentAtOnce = head(200, "Content-Length: " + QByteArray::number(size) + "\r\n");
    answer.block = block;
    answer.repeatedSize = size;
    return answer;
}

Answer Answer::failure(int status, const QByteArray &body)
{
    Answer answer;
    answer.sentAtOnce = head(status, lengthOf(body)) + body;
    return answer;
}

Answer Answer::redirect(const QByteArray &address, const QByteArray &page)
{
    Answer answer;
    answer.sentAtOnce = head(302, "Location: " + address + "\r\n" + lengthOf(page)) + page;
    return answer;
}

Answer Answer::cutOff(const QByteArray &body)
{
    Answer answer;
    answer.sentAtOnce = head(200, lengthOf(body)) + firstHalf(body);
    answer.closes = true;
    return answer;
}

Answer Answer::withoutLength(const QByteArray &body)
{
    Answer answer;
    answer.sentAtOnce = head(200, "Connection: close\r\n") + body;
    answer.closes = true;
    return answer;
}

Answer Answer::closedAtOnce()
{
    Answer answer;
    answer.closes = true;
    return answer;
}

Answer Answer::silence()
{
    return Answer();
}

Answer Answer::trickle(const QByteArray &body, int pause)
{
    Answer answer;
    answer.sentAtOnce = head(200, lengthOf(body));
    answer.sentLater = body;
    answer.bytePause = pause;
    return answer;
}

Answer Answer::halfHeld(const QByteArray &body)
{
    Answer answer;
    answer.sentAtOnce = head(200, lengthOf(body)) + firstHalf(body);
    answer.sentLater = body.mid(firstHalf(body).size());
    return answer;
}

Answer Answer::held(const QByteArray &body)
{
    Answer answer;
    answer.sentLater = head(200, lengthOf(body)) + body;
    return answer;
}

class RepositoryServer::Worker
{
public:
    Worker()
    {
        if (!server.listen(QHostAddress::LocalHost))
            qFatal("no loopback port for the server");
        ::listen(static_cast<int>(server.socketDescriptor()), backlog);
        server.setMaxPendingConnections(backlog);
        port = server.serverPort();
        QObject::connect(&server, &QTcpServer::newConnection, &server, [this] { welcome(); });
        auto *look = new QTimer(&server);
        look->setInterval(lookInterval);
        QObject::connect(look, &QTimer::timeout, &server, [this] { sendReleased(); });
        QObject::connect(&thread, &QThread::started, look, QOverload<>::of(&QTimer::start));
        QObject::connect(&thread, &QThread::finished, &server, [this] { close(); });
        server.moveToThread(&thread);
        // A thread reads the environment when it starts, and a test's next step may be to change
        // it, as umockdev does.
        QObject::connect(&thread, &QThread::started, &server, [this] { running.release(); });
        thread.start();
        running.acquire();
    }

    ~Worker()
    {
        thread.quit();
        thread.wait();
    }

    mutable QMutex lock; // of the script, the log and the released addresses
    QHash<QString, QList<Answer>> answers;
    Answer otherAnswer = Answer::failure(404);
    QStringList log;
    QHash<QString, QByteArray> fields; // of the last request
    QStringList released;
    quint16 port = 0;
    std::atomic<int> most = {0};
    std::atomic<int> limit = {backlog};

private:
    struct Held
    {
        QPointer<QTcpSocket> socket;
        QByteArray bytes;
    };

    void welcome()
    {
        while (open < limit) {
            QTcpSocket *socket = server.nextPendingConnection();
            if (socket == nullptr)
                return;
            if (socket->state() != QAbstractSocket::ConnectedState) {
                socket->deleteLater(); // gone while it waited
                continue;
            }
            ++open;
            most = qMax(int(most), open);
            QObject::connect(socket, &QTcpSocket::readyRead, socket,
                             [this, socket] { readRequests(socket); });
            QObject::connect(socket, &QTcpSocket::disconnected, socket, [this, socket] {
                socket->deleteLater();
                --open;
                welcome();
            });
            readRequests(socket);
        }
    }

    // A connection may carry several requests, one after the other.
    void readRequests(QTcpSocket *socket)
    {
        const QByteArray end = "\r\n\r\n";
        while (socket->peek(socket->bytesAvailable()).contains(end)) {
            const QByteArray requestLine = socket->readLine();
            const QString address = QString::fromUtf8(requestLine.split(' ').value(1));
            noteFields(address, readFields(socket));
            respond(socket, address);
        }
    }

    static QByteArray readFields(QTcpSocket *socket)
    {
        QByteArray result;
        for (QByteArray line = socket->readLine(); line != "\r\n"; line = socket->readLine())
            result += line;
        return result;
    }

    void noteFields(const QString &address, const QByteArray &requestFields)
    {
        const QMutexLocker guard(&lock);
        fields.insert(address, requestFields);
    }

    void respond(QTcpSocket *socket, const QString &address)
    {
        const Answer answer = noteAndAnswer(address);
        socket->write(answer.sentAtOnce);
        if (answer.closes)
            socket->disconnectFromHost();
        else if (answer.bytePause > 0)
            sendByteByByte(socket, answer);
        else if (answer.repeatedSize > 0)
            sendRepeated(socket, answer);
        else if (!answer.sentLater.isEmpty())
            held.insert(address, {socket, answer.sentLater});
    }

    Answer noteAndAnswer(const QString &address)
    {
        const QMutexLocker guard(&lock);
        const auto earlier = log.count(address);
        log.append(address);
        const QList<Answer> own = answers.value(address);
        return own.isEmpty() ? otherAnswer : own.at(qMin(earlier, own.size() - 1));
    }

    void sendReleased()
    {
        const QMutexLocker guard(&lock);
        for (const QString &address : std::as_const(released)) {
            const QList<Held> replies = held.values(address);
            held.remove(address);
            for (const Held &reply : replies) {
                if (reply.socket)
                    reply.socket->write(reply.bytes);
            }
        }
        released.clear();
    }

    void close()
    {
        server.close();
        qDeleteAll(server.findChildren<QObject *>(QString(), Qt::FindDirectChildrenOnly));
    }

    QSemaphore running; // released once the thread runs
    QThread thread;
    int open = 0; // connections
    QTcpServer server;
    QMultiHash<QString, Held> held;
};

RepositoryServer::RepositoryServer()
    : worker(std::make_unique<Worker>())
    , earlierProxy(qgetenv("http_proxy"))
{
    qputenv("http_proxy", proxyAddress().toLatin1());
    qunsetenv("no_proxy");
    qunsetenv("NO_PROXY");
}

RepositoryServer::~RepositoryServer()
{
    qputenv("http_proxy", earlierProxy);
}

QString RepositoryServer::proxyAddress() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(worker->port);
}

void RepositoryServer::serve(const QString &address, const QList<Answer> &answers)
{
    const QMutexLocker guard(&worker->lock);
    worker->answers.insert(address, answers);
}

void RepositoryServer::serveEverythingElse(const Answer &answer)
{
    const QMutexLocker guard(&worker->lock);
    worker->otherAnswer = answer;
}

void RepositoryServer::acceptAtMost(int connections)
{
    worker->limit = connections;
}

int RepositoryServer::mostConnections() const
{
    return worker->most;
}

void RepositoryServer::release(const QString &address)
{
    const QMutexLocker guard(&worker->lock);
    worker->released.append(address);
}

QStringList RepositoryServer::requests() const
{
    const QMutexLocker guard(&worker->lock);
    return worker->log;
}

int RepositoryServer::requestCount(const QString &address) const
{
    return int(requests().count(address));
}

QByteArray RepositoryServer::requestFields(const QString &address) const
{
    const QMutexLocker guard(&worker->lock);
    return worker->fields.value(address);
}

void RepositoryServer::forgetRequests()
{
    const QMutexLocker guard(&worker->lock);
    worker->log.clear();
}
