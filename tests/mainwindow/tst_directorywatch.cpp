// What is known of a directory after each question.
#include "mainwindow/directorywatch.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace {

bool touch(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly);
}

} // namespace

class tst_DirectoryWatch : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void theFirstQuestionIsAnsweredWithNo();
    void seesTheFile();
    void seesWhatElseHappens_data();
    void seesWhatElseHappens();
    void eachQuestionBeginsAnew();
    void startForgetsWhatWasBefore();
    void watchesOneDirectoryAlone();
    void aMissingDirectoryIsNotKnown();

private:
    QString path(const char *name) const { return place->filePath(QLatin1String(name)); }
    bool sawFile() { return watch->sawOnlyNewFile(QStringLiteral("file")); }

    std::unique_ptr<QTemporaryDir> place;
    std::unique_ptr<DirectoryWatch> watch;
};

// A watch that has been asked once, and knows the place with one file in it.
void tst_DirectoryWatch::init()
{
    place = std::make_unique<QTemporaryDir>();
    watch = std::make_unique<DirectoryWatch>();
    QVERIFY(touch(path("other")));
    sawFile();
    watch->start(place->path());
#ifndef Q_OS_LINUX
    QSKIP("only Linux tells it exactly; elsewhere the answer is always no");
#endif
}

void tst_DirectoryWatch::theFirstQuestionIsAnsweredWithNo()
{
    DirectoryWatch unasked;
    unasked.start(place->path());
    QVERIFY(touch(path("file")));
    QVERIFY(!unasked.sawOnlyNewFile(QStringLiteral("file")));
}

void tst_DirectoryWatch::seesTheFile()
{
    QVERIFY(!sawFile());
    QVERIFY(touch(path("file")));
    QVERIFY(sawFile());
}

void tst_DirectoryWatch::seesWhatElseHappens_data()
{
    QTest::addColumn<QString>("what");

    for (const char *what :
         {"removed", "renamed", "permissions", "another", "other removed", "other permissions",
          "directory's permissions", "directory moved", "directory gone"})
        QTest::newRow(what) << QString::fromLatin1(what);
}

// After the file has come.
void tst_DirectoryWatch::seesWhatElseHappens()
{
    QFETCH(QString, what);
    QVERIFY(touch(path("file")));
    const auto happens = [this](const QString &event) {
        const QFileDevice::Permissions closed = QFileDevice::ExeOwner;
        if (event == QLatin1String("removed"))
            return QFile::remove(path("file"));
        if (event == QLatin1String("renamed"))
            return QFile::rename(path("file"), path("another"));
        if (event == QLatin1String("permissions"))
            return QFile::setPermissions(path("file"), closed);
        if (event == QLatin1String("another"))
            return touch(path("another"));
        if (event == QLatin1String("other removed"))
            return QFile::remove(path("other"));
        if (event == QLatin1String("other permissions"))
            return QFile::setPermissions(path("other"), closed);
        if (event == QLatin1String("directory's permissions"))
            return QFile::setPermissions(place->path(), closed | QFileDevice::WriteOwner);
        if (event == QLatin1String("directory moved"))
            return QFile::rename(place->path(), place->path() + QStringLiteral(".moved"))
                && QFile::rename(place->path() + QStringLiteral(".moved"), place->path());
        return place->remove();
    };
    QVERIFY(happens(what));
    QVERIFY(!sawFile());
}

void tst_DirectoryWatch::eachQuestionBeginsAnew()
{
    QVERIFY(touch(path("another")));
    QVERIFY(!sawFile());
    QVERIFY(touch(path("file")));
    QVERIFY(sawFile());
    QVERIFY(!sawFile());
    QVERIFY(QDir(place->path()).mkdir(QStringLiteral("directory")));
    QVERIFY(!watch->sawOnlyNewFile(QStringLiteral("directory")));
}

void tst_DirectoryWatch::startForgetsWhatWasBefore()
{
    // More than are read at a time.
    for (int number = 0; number < 1000; ++number)
        QVERIFY(touch(place->filePath(QString::number(number))));
    watch->start(place->path());
    QVERIFY(touch(path("file")));
    QVERIFY(sawFile());
}

void tst_DirectoryWatch::watchesOneDirectoryAlone()
{
    const QTemporaryDir next;
    watch->start(next.path());
    QVERIFY(touch(path("file")));
    QVERIFY(!sawFile());
    QVERIFY(touch(path("another")));
    QVERIFY(touch(next.filePath(QStringLiteral("file"))));
    QVERIFY(sawFile());
}

void tst_DirectoryWatch::aMissingDirectoryIsNotKnown()
{
    watch->start(path("missing"));
    QVERIFY(QDir(place->path()).mkdir(QStringLiteral("missing")));
    QVERIFY(touch(path("missing/file")));
    QVERIFY(!sawFile());
}

QTEST_GUILESS_MAIN(tst_DirectoryWatch)

#include "tst_directorywatch.moc"
