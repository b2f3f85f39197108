// The sketch catalogue: the local repository directory and the program list.
#include "mainwindow.h"

#include "listitemweight.h"
#include "ui_mainwindow.h"

#include <QDebug>
#include <QDir>

#include <algorithm>
#include <utility>

namespace {

const QString sketchFileTail = QStringLiteral("ino.with_bootloader.standard.hex");

bool makeDirectory(const QString &absolutePath)
{
    qWarning() << "Cannot find directory " << absolutePath;
    return QDir(QString()).mkdir(absolutePath);
}

// Whether a listing is sure to contain a file of this name. It also contains some with capital
// letters.
bool isListed(const QString &fileName)
{
    return fileName.endsWith(sketchFileTail) && !fileName.startsWith(QLatin1Char('.'));
}

// The order of a listing. It leaves open which of two names comes first that differ by case alone.
bool comesBefore(const QString &one, const QString &other)
{
    return one.toLower() < other.toLower();
}

// Whether the list shows what a refill would: that many rows, none of them chosen.
bool isAsRefilled(const QListWidget &list, int rows)
{
    return list.count() == rows && list.currentRow() == -1
        && !list.selectionModel()->hasSelection();
}

} // namespace

void MainWindow::updateCompiledSketckesList(const QString &path)
{
    sketchList.clear();
    localRepositoryFilenameList = QStringList();
    catalogueWatch.start(path);

    QDir directory(path);
    directory.setNameFilters({QLatin1Char('*') + sketchFileTail});
    if (!directory.exists() && !makeDirectory(directory.absolutePath()))
        return;

    const QFileInfoList entries = directory.entryInfoList();
    for (const QFileInfo &entry : entries) {
        localRepositoryFilenameList.append(entry.fileName());
        sketchList.append(Sketch(entry));
    }
}

void MainWindow::updateProgramlist()
{
    QListWidget *list = ui->listWidget_programlist;
    list->clear();
    for (const Sketch &sketch : std::as_const(sketchList))
        list->insertItem(list->count(), sketch.name);
}

bool MainWindow::addToCatalogue(const QString &fileName)
{
    QStringList &names = localRepositoryFilenameList;
    QListWidget *list = ui->listWidget_programlist;
    if (!isListed(fileName) || !isAsRefilled(*list, int(names.size())))
        return false;

    const auto next = std::lower_bound(names.cbegin(), names.cend(), fileName, comesBefore);
    if (next != names.cend() && !comesBefore(fileName, *next))
        return false;

    const int row = int(next - names.cbegin());
    const Sketch sketch(QFileInfo(compiledSketchesPath + fileName));
    names.insert(row, fileName);
    sketchList.insert(row, sketch);
    list->insertItem(row, sketch.name);
    return true;
}

Sketch MainWindow::findSketchByName(QString name)
{
    for (const Sketch &sketch : std::as_const(sketchList)) {
        if (sketch.name == name)
            return sketch;
    }
    return Sketch();
}

void MainWindow::on_listWidget_programlist_currentItemChanged(QListWidgetItem *current,
                                                              QListWidgetItem *previous)
{
    makeBold(current);
    makeNormal(previous);
}
