// The shell: construction and destruction of the window, and its child windows.
#include "mainwindow.h"

#include "about/about.h"
#include "addresses.h"
#include "compactmenubar.h"
#include "listfocus.h"
#include "serialmonitor/serialmonitor.h"
#include "ui_mainwindow.h"

#include <QCoreApplication>
#include <QDir>
#include <QShortcut>

namespace {

const QString applicationVersion = QStringLiteral("1.0 beta 6");
constexpr int pollInterval = 100; // ms

// The menus have no mnemonics, and not every style opens the menu bar with the Alt key.
void openByKey(QMenuBar *bar)
{
    const auto *key = new QShortcut(QKeySequence(Qt::Key_F10), bar);
    QObject::connect(key, &QShortcut::activated, bar,
                     [bar] { bar->setActiveAction(bar->actions().constFirst()); });
}

} // namespace

MainWindow::MainWindow(QWidget *parent)
    : QMainWindow(parent)
    , ui(new Ui_MainWindow)
{
    ui->setupUi(this);
    setFixedSize(size());
    new ListFocus(ui->listWidget_programlist);
    new ListFocus(ui->listWidget_devicelist);
    if (!ui->menuBar->isNativeMenuBar()) {
        openByKey(ui->menuBar);
        // A bar inside the window pushes the status line down, which has this much space below.
        makeCompact(ui->menuBar, height() - ui->label_status->geometry().bottom() - 1);
    }

    errorReportText = tr(Addresses::errorReportText);
    serialMonitor = new SerialMonitor(this);
    aboutWindow = new about(this);
    aboutWindow->setVersion(applicationVersion);
    serialPortOpen = false;

    const QDir applicationDirectory(QCoreApplication::applicationDirPath());
    compiledSketchesPath =
        applicationDirectory.absolutePath() + QStringLiteral("/compiled_sketches/");
    avrdudePath = applicationDirectory.absolutePath() + QStringLiteral("/avrdude/");

    // The reply arrives through the event loop, after the catalogue has been built.
    updateOnlineRepositoryFilenameList();
    updateCompiledSketckesList(compiledSketchesPath);
    updateProgramlist();
    updateSerialPortList();
    updateDeviceList();

    // Without a program in the list there is nothing to recommend for a device.
    if (ui->listWidget_programlist->currentRow() == -1)
        ui->frame_deviceinfo->setVisible(false);

    connect(&periodicTimer, SIGNAL(timeout()), this, SLOT(periodic_update()));
    periodicTimer.start(pollInterval);
    connect(ui->actionAbout, SIGNAL(triggered()), this, SLOT(open_window_about()));

    setWindowTitle(QStringLiteral("VTUpdater v") + applicationVersion);
}

MainWindow::~MainWindow()
{
    CloseSerialPort();
    delete ui;
}

void MainWindow::open_window_about()
{
    aboutWindow->setVisible(true);
}

void MainWindow::CloseSerialPort()
{
    serialPortOpen = false;
    serialPort.close();
}
