// Bodies larger than a byte array: a sketch is stored completely, an index is refused.
#include "mainwindow/mainwindow.h"
#include "support/applicationdirectory.h"
#include "support/numberedsketches.h"
#include "support/patience.h"
#include "support/repositoryserver.h"
#include "support/windowdriver.h"

#include <QDir>
#include <QFile>
#include <QLabel>
#include <QNetworkReply>
#include <QStorageInfo>
#include <QTest>

#include <unistd.h>

#include <memory>

namespace {

// On a loaded machine with a slow disk.
constexpr int longPatience = 2 * patience;
constexpr qint64 mebibyte = 1048576;
constexpr qint64 gibibyte = 1024 * mebibyte;

// More than 31 bits can count, and not a multiple of the block.
constexpr qint64 largeSize = 3 * gibibyte + 1;
// The reply holds the body until it is stored, and a sanitizer some of what has been freed.
constexpr qint64 neededMemory = largeSize + 2 * gibibyte;

qint64 freeMemory()
{
    return sysconf(_SC_AVPHYS_PAGES) * sysconf(_SC_PAGESIZE);
}

// Not the size of any buffer, so that a missing or repeated part shifts everything after it.
QByteArray unevenBlock()
{
    QByteArray block;
    for (quint32 number = 0; block.size() < mebibyte; ++number)
        block += QByteArray::number(number * 2654435761U, 16) + '\n';
    return block;
}

// The bytes up to where the file differs from the block over and over.
qint64 matchingSize(const QString &path, const QByteArray &block)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    qint64 matching = 0;
    QByteArray part = file.read(block.size());
    while (!part.isEmpty() && block.startsWith(part)) {
        matching += part.size();
        part = file.read(block.size());
    }
    return matching;
}

} // namespace

class tst_LargeBodies : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void sketchIsStoredWhole();
    void indexIsAnError_data();
    void indexIsAnError();

private:
    bool isSettled() const { return window->findChildren<QNetworkReply *>().isEmpty(); }
    QString label() const { return child<QLabel>(*window, "label_status")->text(); }

    const QByteArray block = unevenBlock();
    std::unique_ptr<RepositoryServer> server;
    std::unique_ptr<MainWindow> window;
};

void tst_LargeBodies::init()
{
    if (freeMemory() < neededMemory)
        QSKIP("too little memory is free for a body of 3 GiB");
    ApplicationDirectory::clear();
    server = std::make_unique<RepositoryServer>();
}

void tst_LargeBodies::cleanup()
{
    window.reset();
    server.reset();
    ApplicationDirectory::clear();
}

void tst_LargeBodies::sketchIsStoredWhole()
{
    if (QStorageInfo(ApplicationDirectory::path()).bytesAvailable() < largeSize + gibibyte)
        QSKIP("too little of the disk is free for a body of 3 GiB");
    server->serve(NumberedSketches::indexAddress(), {Answer::ok(NumberedSketches::index(1))});
    server->serve(NumberedSketches::address(0), {Answer::repeated(block, largeSize)});
    const QString sketch = ApplicationDirectory::sketchesPath() + NumberedSketches::fileName(0);

    window = std::make_unique<MainWindow>();
    QTRY_VERIFY_WITH_TIMEOUT(!label().isEmpty() && isSettled(), longPatience);
    QCOMPARE(label(), QStringLiteral("Local repository up-to-date"));
    QCOMPARE(QFileInfo(sketch).size(), largeSize);
    QCOMPARE(matchingSize(sketch, block), largeSize);
}

void tst_LargeBodies::indexIsAnError_data()
{
    QTest::addColumn<qint64>("size");

    QTest::newRow("too large for a byte array") << 2 * gibibyte;
    QTest::newRow("too large for a string") << gibibyte + 1;
}

void tst_LargeBodies::indexIsAnError()
{
    QFETCH(qint64, size);
    const QString kept = ApplicationDirectory::sketchFileName(QStringLiteral("Blink__1"));
    ApplicationDirectory::addSketch(QStringLiteral("Blink__1"));
    server->serve(NumberedSketches::indexAddress(), {Answer::repeated(block, size)});

    window = std::make_unique<MainWindow>();
    QTRY_VERIFY_WITH_TIMEOUT(!label().isEmpty() && isSettled(), longPatience);
    QCOMPARE(label(), QStringLiteral("Error contacting online repository. Are you online?"));
    QCOMPARE(server->requests(), QStringList {NumberedSketches::indexAddress()});
    QCOMPARE(ApplicationDirectory::repositoryFiles(), QStringList {kept});
}

QTEST_MAIN(tst_LargeBodies)

#include "tst_largebodies.moc"
