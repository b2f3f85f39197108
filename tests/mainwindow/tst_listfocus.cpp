// The two lists and the focus: a row becomes current by a click or by a key, and by nothing else.
#include "mainwindow/listfocus.h"
#include "mainwindow/mainwindow.h"
#include "support/applicationdirectory.h"
#include "support/hands.h"
#include "support/messageboxdriver.h"
#include "support/patience.h"
#include "support/repositoryserver.h"
#include "support/scripteddevice.h"
#include "support/usbtestbed.h"
#include "support/windowdriver.h"

#include <QApplication>
#include <QDir>
#include <QFont>
#include <QListWidget>
#include <QMenu>
#include <QMetaEnum>
#include <QPushButton>
#include <QScreen>
#include <QTest>

#include <memory>

namespace {

const QString repository = QStringLiteral("http://updates.korvex.example/vt_updater/");
const QString noProgramSelected = QStringLiteral("No program selected!");

const QByteArray programs = "listWidget_programlist";
const QByteArray devices = "listWidget_devicelist";

void addListRows()
{
    QTest::addColumn<QByteArray>("listName");
    QTest::newRow("programs") << programs;
    QTest::newRow("devices") << devices;
}

// What the screen shows of the widget.
QImage picture(const QWidget &widget)
{
    const QWidget *window = widget.window();
    const QImage whole = window->screen()->grabWindow(window->winId()).toImage();
    return whole.copy(QRect(widget.mapTo(window, QPoint()), widget.size()));
}

// Whether the list shows that it has the focus itself, and not one of its rows.
bool isFramed(const QListWidget &list)
{
    const QImage image = picture(list);
    const QColor frame = list.palette().color(QPalette::Highlight);
    const QRect area = image.rect();
    const QPoint middle = area.center();
    return image.pixelColor(area.left(), middle.y()) == frame
        && image.pixelColor(area.right(), middle.y()) == frame
        && image.pixelColor(middle.x(), area.top()) == frame
        && image.pixelColor(middle.x(), area.bottom()) == frame;
}

bool isBold(const QListWidget &list, int row)
{
    return list.item(row)->data(Qt::FontRole).value<QFont>().weight() == QFont::Bold;
}

// Neither current nor bold nor highlighted.
bool isUnchosen(const QListWidget &list)
{
    bool bold = false;
    for (int row = 0; row < list.count(); ++row)
        bold = bold || isBold(list, row);
    return list.currentRow() == -1 && list.selectedItems().isEmpty() && !bold;
}

// Whether this row is chosen, and shows it.
bool isChosen(const QListWidget &list, int row)
{
    return list.currentRow() == row && isBold(list, row)
        && list.selectedItems() == QList<QListWidgetItem *> {list.item(row)};
}

} // namespace

class tst_ListFocus : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void cleanupTestCase();

    void focusChoosesNothing_data();
    void focusChoosesNothing();
    void tabShowsTheFocusAndChoosesNothing_data();
    void tabShowsTheFocusAndChoosesNothing();
    void mouseUsersSeeNoFrame_data();
    void mouseUsersSeeNoFrame();
    void firstKeyChooses_data();
    void firstKeyChooses();
    void otherKeysChooseNothing_data();
    void otherKeysChooseNothing();
    void clickChooses_data();
    void clickChooses();
    void startChoosesNothing();
    void rebuiltProgramListStaysUnchosen();
    void emptiedAndFilledListStaysUnchosen();
    void closedBoxChoosesNothing_data();
    void closedBoxChoosesNothing();
    void closedMenuChoosesNothing_data();
    void closedMenuChoosesNothing();
    void firstDeviceIsNotOpenedForThePulledSecond();

private:
    void makeWindow();
    // As on macOS, where a click on a button leaves the focus where it is.
    void letButtonsTakeNoFocus();
    QListWidget &find(const QByteArray &list) const
    {
        return *child<QListWidget>(*window, list.constData());
    }
    void focusByTab(QListWidget &list);
    void chooseByMouse(QListWidget &list, int row);
    void goAwayAndComeBack();
    bool devicesWereLeftAlone() const;

    std::unique_ptr<RepositoryServer> server;
    std::unique_ptr<UsbTestbed> usb;
    std::unique_ptr<ScriptedDevice> first;
    std::unique_ptr<ScriptedDevice> second;
    QString secondPort;
    std::unique_ptr<MainWindow> window;
    std::unique_ptr<QWidget> otherWindow;
};

void tst_ListFocus::init()
{
    ApplicationDirectory::clear();
    for (const QString &name :
         {QStringLiteral("Blink__2"), QStringLiteral("Radio__4"), QStringLiteral("Servo__1")})
        ApplicationDirectory::addSketch(name);

    server = std::make_unique<RepositoryServer>();
    usb = std::make_unique<UsbTestbed>();
    first = std::make_unique<ScriptedDevice>(QList<QByteArray> {"Version:Blink__2\r\n"});
    second = std::make_unique<ScriptedDevice>(QList<QByteArray> {"Version:Radio__4\r\n"});
    secondPort = UsbTestbed::uniquePortName(QStringLiteral("B"));
    usb->plug(UsbTestbed::uniquePortName(QStringLiteral("A")), first->portName());
    usb->plug(secondPort, second->portName());
    makeWindow();
}

void tst_ListFocus::makeWindow()
{
    window = std::make_unique<MainWindow>();
    window->show();
    QVERIFY(QTest::qWaitForWindowActive(window.get()));
    otherWindow = std::make_unique<QWidget>();
    otherWindow->setGeometry(700, 500, 100, 100); // beside the window
}

void tst_ListFocus::cleanup()
{
    otherWindow.reset();
    window.reset();
    first.reset();
    second.reset();
    usb.reset();
    server.reset();
    ApplicationDirectory::clear();
}

void tst_ListFocus::cleanupTestCase()
{
    letFadesEnd();
}

void tst_ListFocus::letButtonsTakeNoFocus()
{
    const QList<QPushButton *> buttons = window->findChildren<QPushButton *>();
    for (QPushButton *button : buttons)
        button->setFocusPolicy(Qt::NoFocus);
}

void tst_ListFocus::focusByTab(QListWidget &list)
{
    for (int presses = 0; presses < 10 && !list.hasFocus(); ++presses) {
        const QWidget *before = QApplication::focusWidget();
        Hands::press(QStringLiteral("Tab"));
        QTRY_VERIFY_WITH_TIMEOUT(QApplication::focusWidget() != before, patience);
    }
    QVERIFY(list.hasFocus());
}

void tst_ListFocus::chooseByMouse(QListWidget &list, int row)
{
    Hands::click(*list.viewport(), list.visualItemRect(list.item(row)).center());
    QTRY_COMPARE_WITH_TIMEOUT(list.currentRow(), row, patience);
    QVERIFY(isChosen(list, row));
}

void tst_ListFocus::goAwayAndComeBack()
{
    QWidget *before = QApplication::focusWidget();
    otherWindow->show();
    QVERIFY(QTest::qWaitForWindowExposed(otherWindow.get()));
    Hands::switchTo(*otherWindow);
    QTRY_VERIFY_WITH_TIMEOUT(otherWindow->isActiveWindow() && !before->hasFocus(), patience);
    Hands::switchTo(*window);
    QTRY_COMPARE_WITH_TIMEOUT(QApplication::focusWidget(), before, patience);
}

bool tst_ListFocus::devicesWereLeftAlone() const
{
    return first->received().isEmpty() && second->received().isEmpty();
}

void tst_ListFocus::focusChoosesNothing_data()
{
    QTest::addColumn<QByteArray>("listName");
    QTest::addColumn<Qt::FocusReason>("reason");
    const auto reasons = QMetaEnum::fromType<Qt::FocusReason>();
    for (const QByteArray &list : {programs, devices}) {
        for (int i = 0; i < reasons.keyCount(); ++i) {
            QTest::addRow("%s, %s", list.constData(), reasons.key(i))
                << list << static_cast<Qt::FocusReason>(reasons.value(i));
        }
    }
}

void tst_ListFocus::focusChoosesNothing()
{
    QFETCH(const QByteArray, listName);
    QFETCH(const Qt::FocusReason, reason);
    QListWidget &list = find(listName);
    QVERIFY(list.count() > 1);
    child<QPushButton>(*window, "pushButton_update")->setFocus();
    list.setFocus(reason);
    QVERIFY(list.hasFocus());
    QVERIFY(isUnchosen(list));
    QVERIFY(devicesWereLeftAlone());
}

void tst_ListFocus::tabShowsTheFocusAndChoosesNothing_data()
{
    addListRows();
}

void tst_ListFocus::tabShowsTheFocusAndChoosesNothing()
{
    QFETCH(const QByteArray, listName);
    QListWidget &list = find(listName);
    QVERIFY(!isFramed(list));
    focusByTab(list);
    QTRY_VERIFY_WITH_TIMEOUT(isFramed(list), patience);
    QVERIFY(isUnchosen(list));

    Hands::press(QStringLiteral("Tab"));
    QTRY_VERIFY_WITH_TIMEOUT(!list.hasFocus(), patience);
    QTRY_VERIFY_WITH_TIMEOUT(!isFramed(list), patience);
    Hands::press(QStringLiteral("shift+Tab"));
    QTRY_VERIFY_WITH_TIMEOUT(isFramed(list), patience);
    goAwayAndComeBack();
    QTRY_VERIFY_WITH_TIMEOUT(isFramed(list), patience);
    QVERIFY(isUnchosen(list));
    QVERIFY(devicesWereLeftAlone());

    Hands::press(QStringLiteral("Down"));
    QTRY_VERIFY_WITH_TIMEOUT(isChosen(list, 0), patience);
    QTRY_VERIFY_WITH_TIMEOUT(!isFramed(list), patience);
}

void tst_ListFocus::mouseUsersSeeNoFrame_data()
{
    addListRows();
}

void tst_ListFocus::mouseUsersSeeNoFrame()
{
    QFETCH(const QByteArray, listName);
    QListWidget &list = find(listName);
    const QPoint besideTheRows(0, 1); // the origin means the middle to QTest
    QVERIFY(list.itemAt(besideTheRows) == nullptr);
    Hands::click(*list.viewport(), besideTheRows);
    QTRY_VERIFY_WITH_TIMEOUT(list.hasFocus(), patience);
    goAwayAndComeBack();
    QVERIFY(isUnchosen(list));
    QVERIFY(devicesWereLeftAlone());
    QVERIFY(list.findChild<ListFocus *>()->isHidden());
}

void tst_ListFocus::firstKeyChooses_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("programRow");
    QTest::newRow("down") << "Down" << 0;
    QTest::newRow("up") << "Up" << 0;
    QTest::newRow("home") << "Home" << 0;
    QTest::newRow("page down") << "Page_Down" << 0;
    QTest::newRow("page up") << "Page_Up" << 0;
    QTest::newRow("end") << "End" << 0; // the view begins at its first row, whatever the key
    QTest::newRow("a letter") << "s" << 2;
}

void tst_ListFocus::firstKeyChooses()
{
    QFETCH(const QString, key);
    QFETCH(const int, programRow);
    focusByTab(find(programs));
    Hands::press(key);
    QTRY_VERIFY_WITH_TIMEOUT(isChosen(find(programs), programRow), patience);
    Hands::press(QStringLiteral("End"));
    QTRY_VERIFY_WITH_TIMEOUT(isChosen(find(programs), 2), patience);
    Hands::press(QStringLiteral("Home"));
    QTRY_VERIFY_WITH_TIMEOUT(isChosen(find(programs), 0), patience);
}

void tst_ListFocus::otherKeysChooseNothing_data()
{
    QTest::addColumn<QByteArray>("listName");
    QTest::addColumn<QString>("key");
    for (const QByteArray &list : {programs, devices}) {
        for (const char *key : {"space", "Return", "Escape", "F2", "Delete", "ctrl+a"})
            QTest::addRow("%s, %s", list.constData(), key) << list << QString::fromLatin1(key);
    }
}

void tst_ListFocus::otherKeysChooseNothing()
{
    QFETCH(const QByteArray, listName);
    QFETCH(const QString, key);
    QListWidget &list = find(listName);
    focusByTab(list);
    Hands::press(key);
    Hands::press(QStringLiteral("Tab")); // whose effect is seen after that of the key
    QTRY_VERIFY_WITH_TIMEOUT(!list.hasFocus(), patience);
    QVERIFY(isUnchosen(list));
    QVERIFY(devicesWereLeftAlone());
}

void tst_ListFocus::clickChooses_data()
{
    addListRows();
}

void tst_ListFocus::clickChooses()
{
    QFETCH(const QByteArray, listName);
    QListWidget &list = find(listName);
    chooseByMouse(list, 1);
    goAwayAndComeBack();
    QVERIFY(isChosen(list, 1));
    chooseByMouse(list, 0);
}

void tst_ListFocus::startChoosesNothing()
{
    window.reset();
    window = std::make_unique<MainWindow>();
    letButtonsTakeNoFocus();
    window->show();
    QVERIFY(QTest::qWaitForWindowActive(window.get()));
    QTRY_VERIFY_WITH_TIMEOUT(find(programs).hasFocus(), patience);
    QVERIFY(isUnchosen(find(programs)));
    focusByTab(find(devices));
    QVERIFY(isUnchosen(find(devices)));
    QVERIFY(devicesWereLeftAlone());
}

// A download that ends rebuilds the list under a choice.
void tst_ListFocus::rebuiltProgramListStaysUnchosen()
{
    const QString late = ApplicationDirectory::sketchFileName(QStringLiteral("Zebra__1"));
    QStringList index = ApplicationDirectory::repositoryFiles();
    index.append(late);
    server->serve(repository + QStringLiteral("file_list.txt"),
                  {Answer::ok(index.join(QLatin1Char('\n')).toUtf8())});
    server->serve(repository + late, {Answer::held("sketch")});
    makeWindow();
    letButtonsTakeNoFocus();
    QTRY_COMPARE_WITH_TIMEOUT(server->requestCount(repository + late), 1, patience);
    chooseByMouse(find(programs), 1);
    chooseByMouse(find(devices), 1);
    find(programs).setFocus(Qt::MouseFocusReason);

    server->release(repository + late);
    QTRY_COMPARE_WITH_TIMEOUT(find(programs).count(), 4, patience);
    goAwayAndComeBack();
    QVERIFY(find(programs).hasFocus());
    QVERIFY(isUnchosen(find(programs)));

    const MessageBoxDriver boxes;
    Hands::click(*child<QPushButton>(*window, "pushButton_update"));
    QTRY_COMPARE_WITH_TIMEOUT(boxes.texts(), QStringList {noProgramSelected}, patience);
    QVERIFY(isUnchosen(find(programs)));
}

void tst_ListFocus::emptiedAndFilledListStaysUnchosen()
{
    focusByTab(find(programs));
    Hands::press(QStringLiteral("Down"));
    QTRY_VERIFY_WITH_TIMEOUT(isChosen(find(programs), 0), patience);

    QVERIFY(QDir(ApplicationDirectory::sketchesPath()).removeRecursively());
    window->updateCompiledSketckesList(ApplicationDirectory::sketchesPath());
    window->updateProgramlist();
    QCOMPARE(find(programs).count(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(isFramed(find(programs)), patience);
    goAwayAndComeBack();
    QTRY_VERIFY_WITH_TIMEOUT(isFramed(find(programs)), patience);

    ApplicationDirectory::addSketch(QStringLiteral("Blink__2"));
    window->updateCompiledSketckesList(ApplicationDirectory::sketchesPath());
    window->updateProgramlist();
    QCOMPARE(find(programs).count(), 1);
    goAwayAndComeBack();
    QTRY_VERIFY_WITH_TIMEOUT(isFramed(find(programs)), patience);
    QVERIFY(isUnchosen(find(programs)));
    Hands::press(QStringLiteral("Down"));
    QTRY_VERIFY_WITH_TIMEOUT(isChosen(find(programs), 0), patience);
}

void tst_ListFocus::closedBoxChoosesNothing_data()
{
    addListRows();
}

void tst_ListFocus::closedBoxChoosesNothing()
{
    QFETCH(const QByteArray, listName);
    QListWidget &list = find(listName);
    letButtonsTakeNoFocus();
    list.setFocus(Qt::MouseFocusReason);
    MessageBoxDriver boxes;
    boxes.whileOpen([&list] { QTRY_VERIFY_WITH_TIMEOUT(!list.hasFocus(), patience); });
    Hands::click(*child<QPushButton>(*window, "pushButton_update"));
    QTRY_COMPARE_WITH_TIMEOUT(boxes.texts(), QStringList {QStringLiteral("No device selected!")},
                              patience);
    Hands::switchTo(*window); // a window manager has done it already
    QTRY_VERIFY_WITH_TIMEOUT(list.hasFocus(), patience);
    QVERIFY(isUnchosen(list));
    QVERIFY(devicesWereLeftAlone());
}

void tst_ListFocus::closedMenuChoosesNothing_data()
{
    addListRows();
}

void tst_ListFocus::closedMenuChoosesNothing()
{
    QFETCH(const QByteArray, listName);
    QListWidget &list = find(listName);
    focusByTab(list);
    auto *bar = child<QWidget>(*window, "menuBar");
    auto *menu = child<QMenu>(*window, "menuTools");
    Hands::click(*bar, QPoint(15, 8));
    QTRY_VERIFY_WITH_TIMEOUT(menu->isVisible(), patience);
    Hands::press(QStringLiteral("Escape"));
    QTRY_VERIFY_WITH_TIMEOUT(!menu->isVisible(), patience);
    Hands::press(QStringLiteral("Escape")); // leaves the menu bar, too
    QTRY_VERIFY_WITH_TIMEOUT(list.hasFocus(), patience);
    QVERIFY(isUnchosen(list));
    QVERIFY(devicesWereLeftAlone());
}

void tst_ListFocus::firstDeviceIsNotOpenedForThePulledSecond()
{
    letButtonsTakeNoFocus();
    chooseByMouse(find(devices), 1);
    QTRY_VERIFY_WITH_TIMEOUT(!second->isOpen(), patience);
    second->unplug();
    usb->unplug(secondPort);
    Hands::click(*child<QPushButton>(*window, "pushButton_devicelist_refresh"));
    QTRY_COMPARE_WITH_TIMEOUT(find(devices).count(), 1, patience);

    QVERIFY(find(devices).hasFocus());
    goAwayAndComeBack();
    QVERIFY(isUnchosen(find(devices)));
    QCOMPARE(first->received(), QByteArray());
}

QTEST_MAIN(tst_ListFocus)

#include "tst_listfocus.moc"
