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
#include <cerrno>
#include <utility>

namespace {

constexpr int transferTimeout = 30000; // ms without traffic
constexpr int statusOk = 200;
constexpr qint64 largestIndex = 1000000000; // bytes; a QString takes hardly more characters
constexpr qint64 blockSize = 65536; // bytes
constexpr qint64 glanceSize = 1024; // bytes; what a page's beginning takes, and more

QNetworkRequest repositoryRequest(const QString &fileName)
{
    QNetworkRequest request(QUrl(QLatin1String(Addresses::onlineRepository) + fileName));
    request.setTransferTimeout(transferTimeout);
    // The page that a hotel's network redirects to must not pass for an index or a sketch.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::SameOriginRedirectPolicy);
    // By default Qt requests compressed answers, and unpacks truncated ones without an error.
    request.setRawHeader("Accept-Encoding", "identity");
    return request;
}

bool isCoded(const QNetworkReply &reply, const QByteArray &header)
{
    const QByteArray coding = reply.rawHeader(header).trimmed().toLower();
    return !coding.isEmpty() && coding != "identity";
}

// Qt mistakes an unreadable chunk size for the end of the body and reports no error, so an answer
// in chunks may always be incomplete.
bool isPlain(const QNetworkReply &reply)
{
    return !isCoded(reply, "Content-Encoding") && !isCoded(reply, "Transfer-Encoding");
}

QByteArray withoutBlanks(const QByteArray &text)
{
    const QByteArray blanks = " \t\n\v\f\r";
    int begin = 0;
    while (begin < text.size() && blanks.contains(text.at(begin)))
        ++begin;
    return text.mid(begin);
}

// What follows the blanks and the byte order mark that text may begin with.
QByteArray textBehind(const QByteArray &beginning)
{
    const QByteArray mark = "\xEF\xBB\xBF";
    const QByteArray text = withoutBlanks(beginning);
    return text.startsWith(mark) ? withoutBlanks(text.mid(mark.size())) : text;
}

// The first letters of the text, in small letters; shorter only if the body is.
QByteArray beginningOf(QIODevice &body, int length)
{
    QByteArray text;
    while (text.size() < length) {
        const QByteArray block = body.read(glanceSize);
        if (block.isEmpty())
            break;
        text = textBehind(text + block);
    }
    return text.left(length).toLower();
}

// A network's login page, or a server's own page, instead of the requested file. Consumes nothing
// of the body.
bool isPage(QIODevice &body)
{
    const QByteArray declaration = "<!doctype html";
    body.startTransaction();
    const QByteArray beginning = beginningOf(body, int(declaration.size()));
    body.rollbackTransaction();
    return beginning == declaration || beginning.startsWith("<html");
}

// Qt accepts 1xx responses, all 2xx responses, and 3xx responses that it does not follow.
bool succeeded(QNetworkReply &reply)
{
    const int status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    return reply.error() == QNetworkReply::NoError && status == statusOk && isPlain(reply)
        && !isPage(reply);
}

// A larger body would be read as an empty one, or as a string that ends the program.
bool carriesIndex(QNetworkReply &reply)
{
    return succeeded(reply) && reply.bytesAvailable() <= largestIndex;
}

// A manager lives as long as the window, but its thread and descriptors are freed here.
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

// A disk that is nearly full accepts a part, and reports the reason when the rest is written.
bool writeAll(QIODevice &file, const QByteArray &block)
{
    qint64 written = 0;
    while (written < block.size()) {
        const qint64 taken = file.write(block.constData() + written, block.size() - written);
        if (taken <= 0)
            return false;
        written += taken;
    }
    return true;
}

// In blocks, because a body may be larger than a byte array.
bool copyAll(QIODevice &file, QIODevice &body)
{
    while (!body.atEnd()) {
        // Not more than there is: room for a whole block costs more than most sketches.
        const QByteArray block = body.read(qMin(blockSize, body.bytesAvailable()));
        if (block.isEmpty() || !writeAll(file, block))
            return false;
    }
    return true;
}

// The file gets its name only when it is complete. Unbuffered, because commit() would write a
// buffer and ignore a failure.
bool writeWhole(QSaveFile &file, QIODevice &body)
{
    return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && copyAll(file, body)
        && file.commit();
}

// If something is in the way, QSaveFile has its own text for it; opening the file gives the
// system's.
QString whatIsInTheWay(const QSaveFile &file)
{
    QFile inTheWay(file.fileName());
    if (inTheWay.open(QIODevice::Append | QIODevice::ExistingOnly))
        return file.errorString();
    return inTheWay.errorString();
}

// Call it at once: if QSaveFile keeps no reason, the system's last error is the reason.
QString systemsReason(const QSaveFile &file)
{
    if (file.error() == QFileDevice::UnspecifiedError)
        return qt_error_string(errno);
    if (!file.isOpen() && file.error() == QFileDevice::WriteError)
        return whatIsInTheWay(file);
    return file.errorString();
}

// Null if the body was stored completely, else the system's reason.
QString storeBody(const QString &path, QIODevice &body)
{
    // The repository must not write to the target of a link.
    QFile link(path);
    if (QFileInfo(path).isSymLink() && !link.remove())
        return link.errorString();

    QSaveFile file(path);
    return writeWhole(file, body) ? QString() : systemsReason(file);
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

    if (!carriesIndex(*reply)) {
        ui->label_status->setText(
            QStringLiteral("Error contacting online repository. Are you online?"));
        ui->progressBar->setVisible(false);
    } else {
        downloadedFilesCount = 0;
        onlineRepositoryFilenameList = indexEntries(reply->readAll());
        ui->progressBar->setRange(0, int(onlineRepositoryFilenameList.size()));
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
    for (const Sketch &sketch : std::as_const(sketchList)) {
        if (!listed.contains(sketch.fileInfo.fileName()))
            QFile::remove(sketch.fileInfo.absoluteFilePath());
    }
}

bool MainWindow::downloadMissingFiles()
{
    const QSet<QString> present = setOf(localRepositoryFilenameList);
    bool started = false;
    for (const QString &fileName : std::as_const(onlineRepositoryFilenameList)) {
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
        storeSketch(reply->url().fileName(QUrl::FullyDecoded), *reply);
    release(reply);
}

void MainWindow::storeSketch(const QString &fileName, QIODevice &content)
{
    const QString problem = storeBody(compiledSketchesPath + fileName, content);
    if (!problem.isNull()) {
        ui->label_status->setText(QStringLiteral("Failed creating file...") + problem);
        return;
    }
    // Reading the whole directory after each of many files takes longer than fetching them.
    if (catalogueWatch.sawOnlyNewFile(fileName) && addToCatalogue(fileName))
        return;
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
