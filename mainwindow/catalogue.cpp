// The sketch catalogue: the local repository directory and the program list.
#include "mainwindow.h"

#include "listitemweight.h"
#include "ui_mainwindow.h"

#include <QDebug>
#include <QDir>

#include <utility>

namespace {

const QString sketchFilePattern = QStringLiteral("*ino.with_bootloader.standard.hex");

bool makeDirectory(const QString &absolutePath)
{
    qWarning() << "Cannot find directory " << absolutePath;
    return QDir(QString()).mkdir(absolutePath);
}

} // namespace

void MainWindow::updateCompiledSketckesList(const QString &path)
{
    sketchList.clear();
    localRepositoryFilenameList = QStringList();

    QDir directory(path);
    directory.setNameFilters({sketchFilePattern});
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
