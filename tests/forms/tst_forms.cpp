// The three forms and the pictures: every object, property and text that the windows rely on.
#include "support/contexttranslator.h"
#include "ui_about.h"
#include "ui_mainwindow.h"
#include "ui_serialmonitor.h"

#include <QAccessible>
#include <QDir>
#include <QImageReader>
#include <QMetaProperty>
#include <QResource>
#include <QTest>

#include <memory>

namespace {

const QString emblem = QStringLiteral(":/images/korvex_icon.png");
const QString arrow = QStringLiteral(":/images/renew.png");
constexpr int unlimited = 16777215;

// Takes the serial monitor's menu entry, as the main window does.
class Window : public QMainWindow
{
    Q_OBJECT

public:
    int monitorRequests = 0;

public slots:
    void on_openserialmonitorbutton_clicked() { ++monitorRequests; }
};

QString nameOf(const QObject *object)
{
    return object == nullptr ? QStringLiteral("none") : object->objectName();
}

QString className(const QObject *object)
{
    return QLatin1String(object->metaObject()->className());
}

QString contentOf(QLayoutItem *item)
{
    if (item->spacerItem() != nullptr)
        return QStringLiteral("a spacer");
    return item->layout() != nullptr ? nameOf(item->layout()) : nameOf(item->widget());
}

QStringList contentsOf(const QLayout *layout)
{
    QStringList contents;
    for (int i = 0; i < layout->count(); ++i)
        contents.append(contentOf(layout->itemAt(i)));
    return contents;
}

// As a screen reader says it.
QString spokenName(QObject *object)
{
    return QAccessible::queryAccessibleInterface(object)->text(QAccessible::Name);
}

QStringList entriesOf(const QWidget *menu)
{
    QStringList entries;
    const QList<QAction *> actions = menu->actions();
    for (const QAction *action : actions)
        entries.append(action->menu() != nullptr ? nameOf(action->menu()) : nameOf(action));
    return entries;
}

// Enumerators and flags as numbers: that is what a table can hold.
QVariant valueOf(const QObject *object, const char *property)
{
    const QMetaObject *meta = object->metaObject();
    const QMetaProperty metaProperty = meta->property(meta->indexOfProperty(property));
    const QVariant value = metaProperty.read(object);
    return metaProperty.isEnumType() ? QVariant(value.toInt()) : value;
}

// The monitor's slot is named after no object of the form, which connects it by its signature.
void expectUnmatchedSlot()
{
    QTest::ignoreMessage(QtWarningMsg,
                         "QMetaObject::connectSlotsByName: No matching signal for "
                         "on_openserialmonitorbutton_clicked()");
}

// "type name" of a form's member; the type is the declared one, not the object's own.
template <typename Form, typename Type>
QString describe(const Form &form, Type *Form::*member)
{
    return QLatin1String(Type::staticMetaObject.className()) + QLatin1Char(' ')
        + nameOf(form.*member);
}

QString describe(const Ui_SerialMonitor &form, QSpacerItem *Ui_SerialMonitor::*member)
{
    return form.*member == form.horizontalSpacer ? QStringLiteral("QSpacerItem horizontalSpacer")
                                                 : QString();
}

// Which of the form's pointers the member is.
template <typename Form, typename Type>
qptrdiff position(const Form &form, Type *Form::*member)
{
    const auto *start = reinterpret_cast<const char *>(&form);
    const auto *place = reinterpret_cast<const char *>(&(form.*member));
    return (place - start) / qptrdiff(sizeof(void *));
}

// The form's members in the order of their declaration.
template <typename Form, typename... Types>
QStringList membersOf(const Form &form, Types *Form::*...members)
{
    static_assert(sizeof(Form) == sizeof...(Types) * sizeof(void *), "every member is named");
    QMap<qptrdiff, QString> byPosition;
    (byPosition.insert(position(form, members), describe(form, members)), ...);
    return byPosition.values();
}

} // namespace

class tst_Forms : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void mainWindowMembers();
    void serialMonitorMembers();
    void aboutMembers();
    void objects_data();
    void objects();
    void noOtherObjects();
    void layouts_data();
    void layouts();
    void margins_data();
    void margins();
    void properties_data();
    void properties();
    void fontSizes_data();
    void fontSizes();
    void sizePolicies_data();
    void sizePolicies();
    void heightForWidthIsKept();
    void cursors() const;
    void icons_data();
    void icons();
    void menus_data();
    void menus();
    void centralWidgetAndMenuBar();
    void monitorEntryReachesTheWindow();
    void spacer() const;
    void noStyleSheets();
    void texts_data();
    void texts();
    void textsAreTranslated_data();
    void textsAreTranslated();
    void windowsKeepTheirOwnNames();

    void everyControlHasAName_data();
    void everyControlHasAName();
    void captionsNameTheirLists_data();
    void captionsNameTheirLists();

    void pictures_data();
    void pictures();
    void noOtherPictures();
    void picturesComeAndGo();

private:
    QObject *root(const QString &form);
    QObject *object(const QString &form, const QString &name);
    void setUpForms();

    // The windows own what the forms point to.
    std::unique_ptr<Window> mainWindow;
    std::unique_ptr<QMainWindow> monitorWindow;
    std::unique_ptr<QDialog> aboutDialog;
    Ui_MainWindow mainForm = {};
    Ui_SerialMonitor monitorForm = {};
    Ui_about aboutForm = {};
};

void tst_Forms::init()
{
    setUpForms();
}

void tst_Forms::cleanup()
{
    mainWindow.reset();
    monitorWindow.reset();
    aboutDialog.reset();
}

void tst_Forms::setUpForms()
{
    mainWindow = std::make_unique<Window>();
    monitorWindow = std::make_unique<QMainWindow>();
    aboutDialog = std::make_unique<QDialog>();
    expectUnmatchedSlot();
    mainForm.setupUi(mainWindow.get());
    monitorForm.setupUi(monitorWindow.get());
    aboutForm.setupUi(aboutDialog.get());
}

QObject *tst_Forms::root(const QString &form)
{
    if (form == QLatin1String("MainWindow"))
        return mainWindow.get();
    if (form == QLatin1String("SerialMonitor"))
        return monitorWindow.get();
    return aboutDialog.get();
}

// The form's object of this name, which may be the window itself.
QObject *tst_Forms::object(const QString &form, const QString &name)
{
    return name == form ? root(form) : root(form)->findChild<QObject *>(name);
}

void tst_Forms::mainWindowMembers()
{
    using Form = Ui_MainWindow;
    const QStringList members = membersOf(
        mainForm, &Form::actionSerial_Monitor, &Form::actionAbout, &Form::centralWidget,
        &Form::frame_deviceinfo, &Form::layoutWidget, &Form::verticalLayout_3,
        &Form::label_programondevice, &Form::label_updaterecommendation, &Form::layoutWidget1,
        &Form::horizontalLayout, &Form::label_static_programondevice,
        &Form::pushButton_programondevice_refresh, &Form::layoutWidget2, &Form::verticalLayout,
        &Form::horizontalLayout_3, &Form::label_static_programlist,
        &Form::pushButton_programlist_refresh, &Form::listWidget_programlist, &Form::layoutWidget3,
        &Form::verticalLayout_2, &Form::horizontalLayout_2, &Form::label_static_devicelist,
        &Form::pushButton_devicelist_refresh, &Form::listWidget_devicelist,
        &Form::pushButton_update, &Form::progressBar, &Form::label_status, &Form::menuBar,
        &Form::menuTools, &Form::menuHelp);
    QCOMPARE(members,
             QStringList({QStringLiteral("QAction actionSerial_Monitor"),
                          QStringLiteral("QAction actionAbout"),
                          QStringLiteral("QWidget centralWidget"),
                          QStringLiteral("QFrame frame_deviceinfo"),
                          QStringLiteral("QWidget layoutWidget"),
                          QStringLiteral("QVBoxLayout verticalLayout_3"),
                          QStringLiteral("QLabel label_programondevice"),
                          QStringLiteral("QLabel label_updaterecommendation"),
                          QStringLiteral("QWidget layoutWidget1"),
                          QStringLiteral("QHBoxLayout horizontalLayout"),
                          QStringLiteral("QLabel label_static_programondevice"),
                          QStringLiteral("QPushButton pushButton_programondevice_refresh"),
                          QStringLiteral("QWidget layoutWidget2"),
                          QStringLiteral("QVBoxLayout verticalLayout"),
                          QStringLiteral("QHBoxLayout horizontalLayout_3"),
                          QStringLiteral("QLabel label_static_programlist"),
                          QStringLiteral("QPushButton pushButton_programlist_refresh"),
                          QStringLiteral("QListWidget listWidget_programlist"),
                          QStringLiteral("QWidget layoutWidget3"),
                          QStringLiteral("QVBoxLayout verticalLayout_2"),
                          QStringLiteral("QHBoxLayout horizontalLayout_2"),
                          QStringLiteral("QLabel label_static_devicelist"),
                          QStringLiteral("QPushButton pushButton_devicelist_refresh"),
                          QStringLiteral("QListWidget listWidget_devicelist"),
                          QStringLiteral("QPushButton pushButton_update"),
                          QStringLiteral("QProgressBar progressBar"),
                          QStringLiteral("QLabel label_status"),
                          QStringLiteral("QMenuBar menuBar"),
                          QStringLiteral("QMenu menuTools"),
                          QStringLiteral("QMenu menuHelp")}));
}

void tst_Forms::serialMonitorMembers()
{
    using Form = Ui_SerialMonitor;
    const QStringList members =
        membersOf(monitorForm, &Form::centralwidget, &Form::verticalLayout, &Form::horizontalLayout,
                  &Form::lineEdit, &Form::pushButton, &Form::textBrowser, &Form::horizontalLayout_2,
                  &Form::checkBox, &Form::horizontalSpacer, &Form::pushButton_2);
    QCOMPARE(
        members,
        QStringList(
            {QStringLiteral("QWidget centralwidget"), QStringLiteral("QVBoxLayout verticalLayout"),
             QStringLiteral("QHBoxLayout horizontalLayout"), QStringLiteral("QLineEdit lineEdit"),
             QStringLiteral("QPushButton pushButton"), QStringLiteral("QTextBrowser textBrowser"),
             QStringLiteral("QHBoxLayout horizontalLayout_2"), QStringLiteral("QCheckBox checkBox"),
             QStringLiteral("QSpacerItem horizontalSpacer"),
             QStringLiteral("QPushButton pushButton_2")}));
}

void tst_Forms::aboutMembers()
{
    using Form = Ui_about;
    const QStringList members =
        membersOf(aboutForm, &Form::verticalLayout, &Form::label, &Form::horizontalLayout,
                  &Form::label_static_version, &Form::label_version, &Form::label_2, &Form::line,
                  &Form::label_6, &Form::label_5, &Form::label_4, &Form::label_3);
    QCOMPARE(
        members,
        QStringList({QStringLiteral("QVBoxLayout verticalLayout"), QStringLiteral("QLabel label"),
                     QStringLiteral("QHBoxLayout horizontalLayout"),
                     QStringLiteral("QLabel label_static_version"),
                     QStringLiteral("QLabel label_version"), QStringLiteral("QLabel label_2"),
                     QStringLiteral("QFrame line"), QStringLiteral("QLabel label_6"),
                     QStringLiteral("QLabel label_5"), QStringLiteral("QLabel label_4"),
                     QStringLiteral("QLabel label_3")}));
}

void tst_Forms::objects_data()
{
    QTest::addColumn<QString>("form");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("parent");

    const auto row = [](const char *form, const char *name, const char *type, const char *parent) {
        QTest::addRow("%s has %s", form, name)
            << QString::fromLatin1(form) << QString::fromLatin1(name) << QString::fromLatin1(type)
            << QString::fromLatin1(parent);
    };
    const char *form = "MainWindow";
    row(form, "actionSerial_Monitor", "QAction", form);
    row(form, "actionAbout", "QAction", form);
    row(form, "centralWidget", "QWidget", form);
    row(form, "frame_deviceinfo", "QFrame", "centralWidget");
    row(form, "layoutWidget", "QWidget", "frame_deviceinfo");
    row(form, "verticalLayout_3", "QVBoxLayout", "layoutWidget");
    row(form, "label_programondevice", "QLabel", "layoutWidget");
    row(form, "label_updaterecommendation", "QLabel", "layoutWidget");
    row(form, "layoutWidget1", "QWidget", "frame_deviceinfo");
    row(form, "horizontalLayout", "QHBoxLayout", "layoutWidget1");
    row(form, "label_static_programondevice", "QLabel", "layoutWidget1");
    row(form, "pushButton_programondevice_refresh", "QPushButton", "layoutWidget1");
    row(form, "layoutWidget2", "QWidget", "centralWidget");
    row(form, "verticalLayout", "QVBoxLayout", "layoutWidget2");
    row(form, "horizontalLayout_3", "QHBoxLayout", "verticalLayout");
    row(form, "label_static_programlist", "QLabel", "layoutWidget2");
    row(form, "pushButton_programlist_refresh", "QPushButton", "layoutWidget2");
    row(form, "listWidget_programlist", "QListWidget", "layoutWidget2");
    row(form, "layoutWidget3", "QWidget", "centralWidget");
    row(form, "verticalLayout_2", "QVBoxLayout", "layoutWidget3");
    row(form, "horizontalLayout_2", "QHBoxLayout", "verticalLayout_2");
    row(form, "label_static_devicelist", "QLabel", "layoutWidget3");
    row(form, "pushButton_devicelist_refresh", "QPushButton", "layoutWidget3");
    row(form, "listWidget_devicelist", "QListWidget", "layoutWidget3");
    row(form, "pushButton_update", "QPushButton", "centralWidget");
    row(form, "progressBar", "QProgressBar", "centralWidget");
    row(form, "label_status", "QLabel", "centralWidget");
    row(form, "menuBar", "QMenuBar", form);
    row(form, "menuTools", "QMenu", "menuBar");
    row(form, "menuHelp", "QMenu", "menuBar");

    form = "SerialMonitor";
    row(form, "centralwidget", "QWidget", form);
    row(form, "verticalLayout", "QVBoxLayout", "centralwidget");
    row(form, "horizontalLayout", "QHBoxLayout", "verticalLayout");
    row(form, "lineEdit", "QLineEdit", "centralwidget");
    row(form, "pushButton", "QPushButton", "centralwidget");
    row(form, "textBrowser", "QTextBrowser", "centralwidget");
    row(form, "horizontalLayout_2", "QHBoxLayout", "verticalLayout");
    row(form, "checkBox", "QCheckBox", "centralwidget");
    row(form, "pushButton_2", "QPushButton", "centralwidget");

    form = "about";
    row(form, "verticalLayout", "QVBoxLayout", form);
    row(form, "label", "QLabel", form);
    row(form, "horizontalLayout", "QHBoxLayout", "verticalLayout");
    row(form, "label_static_version", "QLabel", form);
    row(form, "label_version", "QLabel", form);
    row(form, "label_2", "QLabel", form);
    row(form, "line", "QFrame", form);
    row(form, "label_6", "QLabel", form);
    row(form, "label_5", "QLabel", form);
    row(form, "label_4", "QLabel", form);
    row(form, "label_3", "QLabel", form);
}

void tst_Forms::objects()
{
    QFETCH(QString, form);
    QFETCH(QString, name);

    QCOMPARE(root(form)->findChildren<QObject *>(name).size(), 1);
    const QObject *found = object(form, name);
    QTEST(className(found), "type");
    QTEST(nameOf(found->parent()), "parent");
}

// Qt names its own helpers "qt_...".
void tst_Forms::noOtherObjects()
{
    const auto count = [](const QWidget *window) {
        int named = 0;
        const QObjectList objects = window->findChildren<QObject *>();
        for (const QObject *candidate : objects) {
            const QString name = candidate->objectName();
            named += int(!name.isEmpty() && !name.startsWith(QLatin1String("qt_"))
                         && !name.startsWith(QLatin1Char('_')));
        }
        return named;
    };
    QCOMPARE(count(mainWindow.get()), 30);
    QCOMPARE(count(monitorWindow.get()), 9);
    QCOMPARE(count(aboutDialog.get()), 11);
}

void tst_Forms::layouts_data()
{
    QTest::addColumn<QString>("form");
    QTest::addColumn<QString>("layout");
    QTest::addColumn<QStringList>("contents");

    const auto row = [](const char *form, const char *layout, const char *contents) {
        QTest::addRow("%s: %s holds %s", form, layout, contents)
            << QString::fromLatin1(form) << QString::fromLatin1(layout)
            << QString::fromLatin1(contents).split(QStringLiteral(", "));
    };
    const char *form = "MainWindow";
    row(form, "horizontalLayout",
        "label_static_programondevice, pushButton_programondevice_refresh");
    row(form, "verticalLayout_3", "label_programondevice, label_updaterecommendation");
    row(form, "verticalLayout", "horizontalLayout_3, listWidget_programlist");
    row(form, "horizontalLayout_3", "label_static_programlist, pushButton_programlist_refresh");
    row(form, "verticalLayout_2", "horizontalLayout_2, listWidget_devicelist");
    row(form, "horizontalLayout_2", "label_static_devicelist, pushButton_devicelist_refresh");

    form = "SerialMonitor";
    row(form, "verticalLayout", "horizontalLayout, textBrowser, horizontalLayout_2");
    row(form, "horizontalLayout", "lineEdit, pushButton");
    row(form, "horizontalLayout_2", "checkBox, a spacer, pushButton_2");

    form = "about";
    row(form, "verticalLayout",
        "label, horizontalLayout, label_2, line, label_6, label_5, label_4, label_3");
    row(form, "horizontalLayout", "label_static_version, label_version");
}

void tst_Forms::layouts()
{
    QFETCH(QString, form);
    QFETCH(QString, layout);

    QTEST(contentsOf(root(form)->findChild<QLayout *>(layout)), "contents");
}

void tst_Forms::margins_data()
{
    QTest::addColumn<QString>("layout");
    QTest::addColumn<int>("spacing");

    QTest::newRow("program column") << QStringLiteral("verticalLayout") << 0;
    QTest::newRow("device column") << QStringLiteral("verticalLayout_2") << 0;
    QTest::newRow("device information") << QStringLiteral("verticalLayout_3") << 0;
    QTest::newRow("program on device") << QStringLiteral("horizontalLayout") << 6;
    QTest::newRow("head of the device column") << QStringLiteral("horizontalLayout_2") << 6;
    QTest::newRow("head of the program column") << QStringLiteral("horizontalLayout_3") << 6;
}

void tst_Forms::margins()
{
    QFETCH(QString, layout);

    const auto *found = mainWindow->findChild<QLayout *>(layout);
    QTEST(found->spacing(), "spacing");
    QCOMPARE(found->contentsMargins(), QMargins(0, 0, 0, 0));
}

void tst_Forms::properties_data()
{
    QTest::addColumn<QString>("form");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("property");
    QTest::addColumn<QVariant>("value");

    const auto row = [](const char *form, const char *name, const char *property,
                        const QVariant &value) {
        QTest::addRow("%s: %s of %s", form, property, name)
            << QString::fromLatin1(form) << QString::fromLatin1(name) << QByteArray(property)
            << value;
    };
    const auto sizes = [&row](const char *name, const QSize &minimum, const QSize &maximum) {
        row("MainWindow", name, "minimumSize", minimum);
        row("MainWindow", name, "maximumSize", maximum);
    };
    const auto plainList = [&row](const char *name) {
        row("MainWindow", name, "autoFillBackground", false);
        row("MainWindow", name, "frameShape", int(QFrame::NoFrame));
        row("MainWindow", name, "frameShadow", int(QFrame::Plain));
        row("MainWindow", name, "verticalScrollBarPolicy", int(Qt::ScrollBarAsNeeded));
        row("MainWindow", name, "horizontalScrollBarPolicy", int(Qt::ScrollBarAlwaysOff));
        row("MainWindow", name, "autoScrollMargin", 1);
        row("MainWindow", name, "editTriggers", int(QAbstractItemView::NoEditTriggers));
        row("MainWindow", name, "spacing", 2);
        row("MainWindow", name, "uniformItemSizes", false);
    };

    const char *form = "MainWindow";
    row(form, form, "size", QSize(430, 332));
    sizes(form, QSize(0, 0), QSize(9999, 9999));
    row(form, form, "autoFillBackground", true);
    row(form, "centralWidget", "maximumSize", QSize(9999, 9999));

    row(form, "frame_deviceinfo", "geometry", QRect(220, 90, 201, 111));
    row(form, "frame_deviceinfo", "frameShape", int(QFrame::NoFrame));
    row(form, "frame_deviceinfo", "frameShadow", int(QFrame::Plain));
    row(form, "frame_deviceinfo", "lineWidth", 0);
    row(form, "layoutWidget", "geometry", QRect(0, 46, 201, 61));
    row(form, "layoutWidget1", "geometry", QRect(0, 10, 201, 37));
    row(form, "layoutWidget2", "geometry", QRect(10, 10, 191, 261));
    row(form, "layoutWidget3", "geometry", QRect(220, 10, 202, 89));
    row(form, "pushButton_update", "geometry", QRect(210, 200, 221, 80));
    row(form, "progressBar", "geometry", QRect(10, 270, 411, 31));
    row(form, "label_status", "geometry", QRect(10, 300, 411, 16));
    row(form, "menuBar", "geometry", QRect(0, 0, 430, 22));

    for (const char *label :
         {"label_programondevice", "label_updaterecommendation", "label_static_programlist"})
        sizes(label, QSize(0, 25), QSize(200, 25));
    for (const char *label : {"label_static_programondevice", "label_static_devicelist"})
        sizes(label, QSize(0, 25), QSize(170, 25));
    for (const char *label :
         {"label_programondevice", "label_updaterecommendation", "label_static_programlist",
          "label_static_programondevice", "label_static_devicelist", "label_status"})
        row(form, label, "alignment", int(Qt::AlignHCenter | Qt::AlignVCenter));
    for (const char *button : {"pushButton_programondevice_refresh",
                               "pushButton_programlist_refresh", "pushButton_devicelist_refresh"})
        row(form, button, "maximumSize", QSize(50, unlimited));

    plainList("listWidget_programlist");
    plainList("listWidget_devicelist");
    sizes("listWidget_programlist", QSize(0, 0), QSize(unlimited, unlimited));
    sizes("listWidget_devicelist", QSize(200, 0), QSize(200, 50));
    row(form, "pushButton_update", "maximumSize", QSize(500, 80));
    row(form, "pushButton_update", "iconSize", QSize(50, 50));
    row(form, "progressBar", "value", 24);

    form = "SerialMonitor";
    row(form, form, "size", QSize(458, 438));
    row(form, "checkBox", "checked", true);
    row(form, "lineEdit", "text", QString());

    form = "about";
    row(form, form, "size", QSize(264, 215));
    row(form, "line", "frameShape", int(QFrame::HLine));
    row(form, "line", "frameShadow", int(QFrame::Sunken));
    for (const char *label : {"label_2", "label_5", "label_4", "label_3"})
        row(form, label, "openExternalLinks", false);
}

void tst_Forms::properties()
{
    QFETCH(QString, form);
    QFETCH(QString, name);
    QFETCH(QByteArray, property);

    QTEST(valueOf(object(form, name), property.constData()), "value");
}

void tst_Forms::fontSizes_data()
{
    QTest::addColumn<QString>("label");
    QTest::addColumn<int>("points");

    QTest::newRow("program on device") << QStringLiteral("label_programondevice") << 11;
    QTest::newRow("recommendation") << QStringLiteral("label_updaterecommendation") << 11;
    QTest::newRow("caption of the device's program")
        << QStringLiteral("label_static_programondevice") << 12;
    QTest::newRow("caption of the programs") << QStringLiteral("label_static_programlist") << 12;
    QTest::newRow("caption of the devices") << QStringLiteral("label_static_devicelist") << 12;
}

void tst_Forms::fontSizes()
{
    QFETCH(QString, label);

    QTEST(mainWindow->findChild<QLabel *>(label)->font().pointSize(), "points");
}

void tst_Forms::sizePolicies_data()
{
    QTest::addColumn<QString>("name");

    QTest::newRow("the window") << QStringLiteral("MainWindow");
    QTest::newRow("its central widget") << QStringLiteral("centralWidget");
}

void tst_Forms::sizePolicies()
{
    QFETCH(QString, name);

    const auto *widget = qobject_cast<QWidget *>(object(QStringLiteral("MainWindow"), name));
    QCOMPARE(widget->sizePolicy(), QSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed));
}

void tst_Forms::heightForWidthIsKept()
{
    QSizePolicy policy;
    policy.setHeightForWidth(true);
    mainWindow->setSizePolicy(policy);
    expectUnmatchedSlot();
    Ui_MainWindow form = {};
    form.setupUi(mainWindow.get());
    QCOMPARE(mainWindow->sizePolicy().horizontalPolicy(), QSizePolicy::Fixed);
    QVERIFY(mainWindow->sizePolicy().hasHeightForWidth());
}

void tst_Forms::cursors() const
{
    QCOMPARE(mainForm.listWidget_programlist->viewport()->cursor().shape(), Qt::PointingHandCursor);
    QCOMPARE(mainForm.listWidget_devicelist->viewport()->cursor().shape(), Qt::PointingHandCursor);
    QCOMPARE(mainForm.pushButton_update->cursor().shape(), Qt::PointingHandCursor);
}

void tst_Forms::icons_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("property");
    QTest::addColumn<QString>("picture");

    const auto row = [](const char *name, const char *property, const QString &picture) {
        QTest::newRow(name) << QString::fromLatin1(name) << QString::fromLatin1(property)
                            << picture;
    };
    row("MainWindow", "windowIcon", emblem);
    row("pushButton_update", "icon", emblem);
    row("pushButton_programondevice_refresh", "icon", arrow);
    row("pushButton_programlist_refresh", "icon", arrow);
    row("pushButton_devicelist_refresh", "icon", arrow);
}

void tst_Forms::icons()
{
    QFETCH(QString, name);
    QFETCH(QString, property);
    QFETCH(QString, picture);

    const QObject *owner = object(QStringLiteral("MainWindow"), name);
    const auto icon = owner->property(qPrintable(property)).value<QIcon>();
    const QPixmap expected(picture);
    QCOMPARE(icon.pixmap(expected.size()).toImage(), expected.toImage());
    // For the normal mode and the off state; Qt derives the others.
    QCOMPARE(icon.availableSizes(QIcon::Normal, QIcon::Off), QList<QSize>({expected.size()}));
    QVERIFY(icon.availableSizes(QIcon::Normal, QIcon::On).isEmpty());
    QVERIFY(icon.availableSizes(QIcon::Disabled, QIcon::Off).isEmpty());
}

void tst_Forms::menus_data()
{
    QTest::addColumn<QString>("menu");
    QTest::addColumn<QStringList>("entries");

    QTest::newRow("the bar offers the tools, then help")
        << QStringLiteral("menuBar")
        << QStringList({QStringLiteral("menuTools"), QStringLiteral("menuHelp")});
    QTest::newRow("the tools are the serial monitor")
        << QStringLiteral("menuTools") << QStringList({QStringLiteral("actionSerial_Monitor")});
    QTest::newRow("help is the about dialog")
        << QStringLiteral("menuHelp") << QStringList({QStringLiteral("actionAbout")});
}

void tst_Forms::menus()
{
    QFETCH(QString, menu);

    QTEST(entriesOf(mainWindow->findChild<QWidget *>(menu)), "entries");
}

void tst_Forms::centralWidgetAndMenuBar()
{
    QCOMPARE(mainWindow->centralWidget(), mainForm.centralWidget);
    QCOMPARE(mainWindow->menuWidget(), mainForm.menuBar);
    QCOMPARE(monitorWindow->centralWidget(), monitorForm.centralwidget);
    QCOMPARE(aboutDialog->layout(), aboutForm.verticalLayout);
}

void tst_Forms::monitorEntryReachesTheWindow()
{
    mainForm.actionSerial_Monitor->trigger();
    QCOMPARE(mainWindow->monitorRequests, 1);
    mainForm.actionAbout->trigger();
    QCOMPARE(mainWindow->monitorRequests, 1);
}

void tst_Forms::spacer() const
{
    const QSpacerItem *spacer = monitorForm.horizontalSpacer;
    QCOMPARE(monitorForm.horizontalLayout_2->itemAt(1), spacer);
    QCOMPARE(spacer->sizeHint(), QSize(40, 20));
    QCOMPARE(spacer->sizePolicy(), QSizePolicy(QSizePolicy::Expanding, QSizePolicy::Minimum));
}

void tst_Forms::noStyleSheets()
{
    for (const QWidget *window : std::initializer_list<const QWidget *> {
             mainWindow.get(), monitorWindow.get(), aboutDialog.get()}) {
        QCOMPARE(window->styleSheet(), QString());
        const QList<QWidget *> widgets = window->findChildren<QWidget *>();
        for (const QWidget *widget : widgets)
            QCOMPARE(widget->styleSheet(), QString());
    }
}

void tst_Forms::texts_data()
{
    QTest::addColumn<QString>("form");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("property");
    QTest::addColumn<QString>("text");

    const char *form = "MainWindow";
    const auto row = [&form](const char *name, const char *property, const char *text) {
        QTest::addRow("%s: %s of %s", form, property, name)
            << QString::fromLatin1(form) << QString::fromLatin1(name) << QByteArray(property)
            << QString::fromLatin1(text);
    };
    row(form, "windowTitle", "Vantrel Updater");
    row("actionSerial_Monitor", "text", "Serial Monitor");
    row("actionAbout", "text", "About");
    row("label_programondevice", "text", "");
    row("label_programondevice", "toolTip", "");
    row("label_updaterecommendation", "text", "");
    row("label_updaterecommendation", "toolTip", "");
    row("label_static_programondevice", "text", "Program on device");
    row("label_static_programondevice", "toolTip", "");
    row("pushButton_programondevice_refresh", "text", "");
    row("pushButton_programondevice_refresh", "toolTip", "Check program on device.");
    row("pushButton_programondevice_refresh", "accessibleName", "Refresh program on device");
    row("label_static_programlist", "text", "Programs");
    row("label_static_programlist", "toolTip", "");
    row("pushButton_programlist_refresh", "text", "");
    row("pushButton_programlist_refresh", "toolTip", "Check online repository for updates.");
    row("pushButton_programlist_refresh", "accessibleName", "Refresh programs");
    row("listWidget_programlist", "toolTip", "Chose the program you want to upload.");
    row("listWidget_programlist", "accessibleName", "Programs");
    row("label_static_devicelist", "text", "Devices");
    row("label_static_devicelist", "toolTip", "");
    row("pushButton_devicelist_refresh", "text", "");
    row("pushButton_devicelist_refresh", "toolTip", "Check for connected devices.");
    row("pushButton_devicelist_refresh", "accessibleName", "Refresh devices");
    row("listWidget_devicelist", "toolTip", "Choose the device you want to upload to.");
    row("listWidget_devicelist", "accessibleName", "Devices");
    row("pushButton_update", "text", "Update Vantrel");
    row("pushButton_update", "toolTip", "Upload selected program to selected device.");
    row("progressBar", "accessibleName", "Progress");
    row("label_status", "text", "");
    row("label_status", "toolTip", "");
    row("menuTools", "title", "Tools");
    row("menuHelp", "title", "Help");

    form = "SerialMonitor";
    row(form, "windowTitle", "Vantrel Serial Monitor");
    row("lineEdit", "accessibleName", "Text to send");
    row("textBrowser", "accessibleName", "Received text");
    row("pushButton", "text", "Send");
    row("checkBox", "text", "Automatic scroll");
    row("pushButton_2", "text", "Clear");

    form = "about";
    row(form, "windowTitle", "About VTUpdater");
    row("label", "text", "Vantrel Updater by Korvex");
    row("label_static_version", "text", "Version:");
    row("label_version", "text", "");
    row("label_2", "text",
        "<html><head/><body><p>Visit <a href=\"" VTUPDATER_DEVELOPER_SITE "\">"
        "<span style=\" text-decoration: underline; color:#0000ff;\">" VTUPDATER_DEVELOPER_SITE
        "</span></a></p></body></html>");
    row("label_6", "text", "Powered by:");
    row("label_5", "text",
        "<html><head/><body><p><a href=\"" VTUPDATER_QT_PAGE "\">"
        "<span style=\" text-decoration: underline; color:#0000ff;\">QT Open Source</span></a>"
        " LGPLv3</p></body></html>");
    row("label_4", "text",
        "<html><head/><body><p><a href=\"" VTUPDATER_AVRDUDE_PAGE "\">"
        "<span style=\" text-decoration: underline; color:#0000ff;\">AVRDUDE</span></a>"
        " GPL </p></body></html>");
    row("label_3", "text",
        "<html><head/><body><p><a href=\"" VTUPDATER_LIBUSB_PAGE "\">"
        "<span style=\" text-decoration: underline; color:#0000ff;\">libusb</span></a>"
        " LGPLv2.1 (or later)</p></body></html>");
}

void tst_Forms::texts()
{
    QFETCH(QString, form);
    QFETCH(QString, name);
    QFETCH(QByteArray, property);

    QTEST(object(form, name)->property(property.constData()).toString(), "text");
}

void tst_Forms::textsAreTranslated_data()
{
    texts_data();
}

void tst_Forms::textsAreTranslated()
{
    QFETCH(QString, form);
    QFETCH(QString, name);
    QFETCH(QByteArray, property);
    QFETCH(QString, text);

    ContextTranslator translator;
    QCoreApplication::installTranslator(&translator);
    setUpForms();
    QCOMPARE(object(form, name)->property(property.constData()).toString(),
             text.isEmpty() ? QString() : form + QLatin1Char('|') + text);
}

void tst_Forms::windowsKeepTheirOwnNames()
{
    QMainWindow monitor;
    monitor.setObjectName(QStringLiteral("mine"));
    monitorForm.setupUi(&monitor);
    QCOMPARE(monitor.objectName(), QStringLiteral("mine"));

    QDialog dialog;
    dialog.setObjectName(QStringLiteral("mine"));
    aboutForm.setupUi(&dialog);
    QCOMPARE(dialog.objectName(), QStringLiteral("mine"));
}

void tst_Forms::everyControlHasAName_data()
{
    QTest::addColumn<QString>("form");
    QTest::addColumn<QStringList>("names");

    QTest::newRow("main window") << QStringLiteral("MainWindow")
                                 << QStringList {QStringLiteral("Refresh program on device"),
                                                 QStringLiteral("Refresh programs"),
                                                 QStringLiteral("Programs"),
                                                 QStringLiteral("Refresh devices"),
                                                 QStringLiteral("Devices"),
                                                 QStringLiteral("Update Vantrel")};
    QTest::newRow("serial monitor")
        << QStringLiteral("SerialMonitor")
        << QStringList {QStringLiteral("Text to send"), QStringLiteral("Send"),
                        QStringLiteral("Received text"), QStringLiteral("Automatic scroll"),
                        QStringLiteral("Clear")};
    QTest::newRow("about dialog") << QStringLiteral("about") << QStringList();
}

// In the order of the tab key.
void tst_Forms::everyControlHasAName()
{
    QFETCH(const QString, form);
    const auto *window = qobject_cast<QWidget *>(root(form));
    QStringList names;
    for (QWidget *widget = window->nextInFocusChain(); widget != window;
         widget = widget->nextInFocusChain()) {
        if ((widget->focusPolicy() & Qt::TabFocus) != 0)
            names.append(spokenName(widget));
    }
    QTEST(names, "names");
}

void tst_Forms::captionsNameTheirLists_data()
{
    QTest::addColumn<QString>("caption");
    QTest::addColumn<QString>("list");
    QTest::newRow("programs") << QStringLiteral("label_static_programlist")
                              << QStringLiteral("listWidget_programlist");
    QTest::newRow("devices") << QStringLiteral("label_static_devicelist")
                             << QStringLiteral("listWidget_devicelist");
}

void tst_Forms::captionsNameTheirLists()
{
    QFETCH(const QString, caption);
    QFETCH(const QString, list);
    const QString form = QStringLiteral("MainWindow");
    auto *label = qobject_cast<QLabel *>(object(form, caption));
    const auto relations =
        QAccessible::queryAccessibleInterface(label)->relations(QAccessible::Labelled);
    QCOMPARE(relations.size(), 1);
    QCOMPARE(relations.first().first->object(), object(form, list));
    QCOMPARE(spokenName(object(form, list)), label->text());
    QVERIFY(!label->text().contains(QLatin1Char('&'))); // it would become a shortcut
}

void tst_Forms::pictures_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QSize>("size");

    QTest::newRow("refresh symbol") << arrow << QSize(36, 36);
    QTest::newRow("product logo") << QStringLiteral(":/images/logo.png") << QSize(300, 46);
    QTest::newRow("maker's emblem") << emblem << QSize(91, 111);
}

void tst_Forms::pictures()
{
    QFETCH(QString, path);

    QImageReader reader(path);
    QVERIFY(reader.canRead());
    QCOMPARE(reader.format(), QByteArrayLiteral("png"));
    QTEST(reader.read().size(), "size");

    const QResource resource(path);
    QCOMPARE(resource.compressionAlgorithm(), QResource::NoCompression);
    // The first version of the resource format knows no times.
    QVERIFY(!resource.lastModified().isValid());
}

void tst_Forms::noOtherPictures()
{
    QCOMPARE(QDir(QStringLiteral(":/images")).entryList(QDir::AllEntries, QDir::Name),
             QStringList({QStringLiteral("korvex_icon.png"), QStringLiteral("logo.png"),
                          QStringLiteral("renew.png")}));
}

void tst_Forms::picturesComeAndGo()
{
    const QString logo = QStringLiteral(":/images/logo.png");
    QVERIFY(QFile::exists(logo));
    Q_CLEANUP_RESOURCE(images);
    QVERIFY(!QFile::exists(logo));
    Q_INIT_RESOURCE(images);
    QVERIFY(QFile::exists(logo));
}

QTEST_MAIN(tst_Forms)

#include "tst_forms.moc"
