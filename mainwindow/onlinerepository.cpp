// The online repository: its index, the removal of stale sketches and the downloads.
#include "mainwindow.h"

#include "addresses.h"
#include "ui_mainwindow.h"

#include <QNetworkAccessManager>
#include <QNetworkInterface>
#include <QNetworkReply>
#include <QSaveFile>
#include <QSet>

#include <algorithm>

namespace {

constexpr int transferTimeout = 30000; // ms without traffic

QNetworkRequest repositoryRequest(const QString &fileName)
{
    QNetworkRequest request(QUrl(QLatin1String(Addresses::onlineRepository) + fileName));
    request.setTransferTimeout(transferTimeout);
    // The page that a hotel's network redirects to must not pass for an index or a sketch.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::SameOriginRedirectPolicy);
    return request;
}

// Qt takes the answers of the 100s, and those of the 300s that it does not follow, for good ones.
bool succeeded(const QNetworkReply &reply)
{
    const int status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    return reply.error() == QNetworkReply::NoError && status >= 200 && status < 300;
}

// A manager lives as long as the window, its thread and descriptors only until here.
void release(QNetworkReply *reply)
{
    reply->manager()->clearConnectionCache();
    reply->deleteLater();
}

QStringList indexEntries(const QByteArray &index)
{
    // Up to a NUL byte, if any.
    return QString::fromUtf8(index.constData()).split(QLatin1Char('\n'));
}

// For looking up each entry of one long list in another.
QSet<QString> setOf(const QStringList &names)
{
    return QSet<QString>(names.cbegin(), names.cend());
}

// A disk that is nearly full takes a part, and gives its reason when it is asked to take the rest.
bool writeAll(QIODevice &file, const QByteArray &content)
{
    qint64 written = 0;
    while (written < content.size()) {
        const qint64 taken = file.write(content.constData() + written, content.size() - written);
        if (taken <= 0)
            return false;
        written += taken;
    }
    return true;
}

// The file appears under its name only when it is whole, whatever interrupts the writing. A buffer
// would be written by the commit, which takes no notice when that fails.
bool writeWhole(QSaveFile &file, const QByteArray &content)
{
    return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && writeAll(file, content)
        && file.commit();
}

bool isUsable(const QNetworkInterface &interface)
{
    return interface.flags().testFlag(QNetworkInterface::IsUp)
        && !interface.flags().testFlag(QNetworkInterface::IsLoopBack)
        && !interface.addressEntries().isEmpty();
}

} // namespace

void MainWindow::updateOnlineRepositoryFilenameList()
{
    // The slots that take replies are declared without the class, which moc then does not register.
    qRegisterMetaType<QNetworkReply *>("QNetworkReply*");

    auto *manager = new QNetworkAccessManager(this);
    connect(manager, SIGNAL(finished(QNetworkReply*)), this, SLOT(replyFinished(QNetworkReply*)));
    manager->get(repositoryRequest(QStringLiteral("file_list.txt")));
}

void MainWindow::replyFinished(QNetworkReply *reply)
{
    ui->label_status->setText(QStringLiteral("Checking online repository for files."));
    ui->progressBar->setVisible(true);
    ui->progressBar->setRange(0, 0);

    if (!succeeded(*reply)) {
        ui->label_status->setText(
            QStringLiteral("Error contacting online repository. Are you online?"));
        ui->progressBar->setVisible(false);
    } else {
        downloadedFilesCount = 0;
        onlineRepositoryFilenameList = indexEntries(reply->readAll());
        ui->progressBar->setRange(0, onlineRepositoryFilenameList.size());
        downloadFilesFromOnlineRepository();
    }
    release(reply);
}

void MainWindow::downloadFilesFromOnlineRepository()
{
    removeStaleSketches();
    if (downloadMissingFiles())
        return;

    ui->progressBar->setVisible(false);
    ui->label_status->setText(tr("Local repository up-to-date"));
}

void MainWindow::removeStaleSketches()
{
    const QSet<QString> listed = setOf(onlineRepositoryFilenameList);
    for (const Sketch &sketch : qAsConst(sketchList)) {
        if (!listed.contains(sketch.fileInfo.fileName()))
            QFile::remove(sketch.fileInfo.absoluteFilePath());
    }
}

bool MainWindow::downloadMissingFiles()
{
    const QSet<QString> present = setOf(localRepositoryFilenameList);
    bool started = false;
    for (const QString &fileName : qAsConst(onlineRepositoryFilenameList)) {
        if (present.contains(fileName))
            continue;
        auto *manager = new QNetworkAccessManager(this);
        connect(manager,
                SIGNAL(finished(QNetworkReply*)), this,
                       SLOT(sketchDownloadReplyFinished(QNetworkReply*)));
        manager->get(repositoryRequest(fileName));
        ui->label_status->setText(QStringLiteral("Downloading file..."));
        started = true;
    }
    return started;
}

void MainWindow::sketchDownloadReplyFinished(QNetworkReply *reply)
{
    ++downloadedFilesCount;
    ui->progressBar->setValue(downloadedFilesCount);
    // Counted against all entries: with some files already here the label stays as it is.
    if (downloadedFilesCount == onlineRepositoryFilenameList.size()) {
        ui->label_status->setText(tr("Local repository up-to-date"));
        ui->progressBar->setVisible(false);
    }

    if (succeeded(*reply))
        storeSketch(reply->url().fileName(QUrl::FullyDecoded), reply->readAll());
    release(reply);
}

void MainWindow::storeSketch(const QString &fileName, const QByteArray &content)
{
    const QString path = compiledSketchesPath + fileName;
    if (QFileInfo(path).isSymLink())
        QFile::remove(path); // what it leads to is not the repository's to write

    QSaveFile file(path);
    if (!writeWhole(file, content)) {
        ui->label_status->setText(QStringLiteral("Failed creating file...") + file.errorString());
        return;
    }
    updateCompiledSketckesList(compiledSketchesPath);
    updateProgramlist();
}

bool MainWindow::areYouOnline()
{
    const QList<QNetworkInterface> interfaces = QNetworkInterface::allInterfaces();
    return std::any_of(interfaces.cbegin(), interfaces.cend(), isUsable);
}

void MainWindow::on_pushButton_programlist_refresh_clicked()
{
    if (!areYouOnline()) {
        displayWarningBox(tr("No internet connection?"),
                          tr("Your computer needs to be online to update the program list. Please "
                             "check your cable or wireless connection and try again."),
                          QMessageBox::Ok);
        return;
    }
    updateOnlineRepositoryFilenameList();
    updateCompiledSketckesList(compiledSketchesPath);
    updateProgramlist();
}
