// The least that a synchronisation with one network manager per file needs: downloads COUNT.
// Fetches the index, then all files at once, into the working directory, and shows nothing.
#include "addresses.h"
#include "openfiles.h"

#include <QCoreApplication>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>

#include <unistd.h>

namespace {

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

    _exit(0);
}
