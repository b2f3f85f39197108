// What a synchronisation that gives each file a network manager of its own cannot do without:
// downloads COUNT. Fetches the index and all files at once into the working directory, shows
// nothing, and prints how long that took (ms).
#include "addresses.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>

#include <cstdio>
#include <sys/resource.h>
#include <unistd.h>

namespace {

void raiseOpenFilesLimit()
{
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

template <typename Use>
void fetch(const QString &fileName, const Use &use)
{
    auto *manager = new QNetworkAccessManager(QCoreApplication::instance());
    QObject::connect(manager, &QNetworkAccessManager::finished, [manager, use](QNetworkReply *r) {
        use(r->readAll());
        manager->clearConnectionCache();
        r->deleteLater();
    });
    manager->get(QNetworkRequest(QUrl(QLatin1String(Addresses::onlineRepository) + fileName)));
}

void store(const QString &fileName, const QByteArray &content)
{
    QFile file(fileName);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(fileName));
}

} // namespace

int main(int argc, char *argv[])
{
    raiseOpenFilesLimit();
    const QCoreApplication application(argc, argv);
    int missing = QCoreApplication::arguments().at(1).toInt();

    QElapsedTimer time;
    time.start();
    fetch(QStringLiteral("file_list.txt"), [&missing](const QByteArray &index) {
        const QStringList names = QString::fromUtf8(index).split(QLatin1Char('\n'));
        for (const QString &name : names) {
            fetch(name, [name, &missing](const QByteArray &content) {
                store(name, content);
                --missing;
            });
        }
    });
    while (missing > 0)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);

    std::printf("synchronised %f\n", double(time.nsecsElapsed()) / 1e6);
    std::fflush(stdout);
    _exit(0);
}
