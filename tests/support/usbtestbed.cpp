// USB serial adapters in a mocked sysfs and udev.
#include "usbtestbed.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>

// GLib's headers use the name "signals", which is a macro of Qt's.
#undef signals
#include <gio/gio.h>
#include <umockdev.h>

#include <mutex>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

// Exclusive use of a port must succeed, or QSerialPort reports an error of the port.
gboolean allowExclusiveUse(UMockdevIoctlBase *, UMockdevIoctlClient *client, gpointer)
{
    const gulong request = umockdev_ioctl_client_get_request(client);
    if (request != TIOCEXCL && request != TIOCNXCL)
        return FALSE;
    umockdev_ioctl_client_complete(client, 0, 0);
    return TRUE;
}

// umockdev serves the nodes in a thread of its own, and GLib reads the environment when a class is
// used for the first time. It must not happen there, because a test may be changing the
// environment.
void useClassesOfServingThread()
{
    int ends[2] = {};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        qFatal("no pair of sockets");
    for (const int end : ends) {
        GSocket *socket = g_socket_new_from_fd(end, nullptr);
        GSocketConnection *connection = g_socket_connection_factory_create_connection(socket);
        g_io_stream_get_input_stream(G_IO_STREAM(connection));
        g_io_stream_get_output_stream(G_IO_STREAM(connection));
        g_object_unref(connection);
        g_object_unref(socket);
    }
    g_object_unref(g_socket_listener_new());
    g_object_unref(g_task_new(nullptr, nullptr, nullptr, nullptr));
}

} // namespace

struct UsbTestbed::Testbed
{
    UMockdevTestbed *mock = umockdev_testbed_new();
    UMockdevIoctlBase *ioctls = umockdev_ioctl_base_new();

    Testbed() { g_signal_connect(ioctls, "handle-ioctl", G_CALLBACK(allowExclusiveUse), nullptr); }
    ~Testbed()
    {
        g_object_unref(mock);
        g_object_unref(ioctls);
    }

    QString root() const
    {
        gchar *path = umockdev_testbed_get_root_dir(mock);
        const QString result = QFile::decodeName(path);
        g_free(path);
        return result;
    }
};

UsbTestbed::UsbTestbed()
    : testbed(new Testbed)
{
    static std::once_flag used;
    std::call_once(used, useClassesOfServingThread);
    if (umockdev_in_mock_environment() == FALSE)
        qFatal("run this test under umockdev-wrapper");
}

UsbTestbed::~UsbTestbed()
{
    const QStringList ports = devices.keys();
    for (const QString &port : ports)
        unplug(port);
    delete testbed;
}

QString UsbTestbed::uniquePortName(const QString &suffix)
{
    return QStringLiteral("cu.usbserial-%1%2").arg(QCoreApplication::applicationPid()).arg(suffix);
}

void UsbTestbed::plug(const QString &portName, const QString &terminal,
                      const QString &productIdentifier, const QString &vendorIdentifier)
{
    const QByteArray name = portName.toUtf8();
    const QByteArray product = productIdentifier.toUtf8();
    const QByteArray vendor = vendorIdentifier.toUtf8();
    const QByteArray node = "/dev/" + name;
    gchar *usb = umockdev_testbed_add_device(
        testbed->mock, "usb", ("usb-" + name).constData(), nullptr, "idVendor", vendor.constData(),
        "idProduct", product.constData(), nullptr, "DEVTYPE", "usb_device", "ID_VENDOR_ID",
        vendor.constData(), "ID_MODEL_ID", product.constData(), nullptr);
    gchar *tty = umockdev_testbed_add_device(
        testbed->mock, "tty", name.constData(), usb, nullptr, "DEVNAME", node.constData(), "ID_BUS",
        "usb", "ID_VENDOR_ID", vendor.constData(), "ID_MODEL_ID", product.constData(),
        "ID_SERIAL_SHORT", name.constData(), nullptr);
    devices.insert(portName, {QFile::decodeName(tty), QFile::decodeName(usb)});
    g_free(tty);
    g_free(usb);
    link(portName, terminal);
}

void UsbTestbed::plugWithoutIdentifiers(const QString &portName)
{
    const QByteArray name = portName.toUtf8();
    gchar *platform = umockdev_testbed_add_device(
        testbed->mock, "platform", ("platform-" + name).constData(), nullptr, nullptr, nullptr);
    gchar *tty =
        umockdev_testbed_add_device(testbed->mock, "tty", name.constData(), platform, nullptr,
                                    "DEVNAME", ("/dev/" + name).constData(), nullptr);
    devices.insert(portName, {QFile::decodeName(tty), QFile::decodeName(platform)});
    g_free(tty);
    g_free(platform);
}

void UsbTestbed::link(const QString &portName, const QString &terminal)
{
    if (terminal.isEmpty())
        return;
    const QString nodes = testbed->root() + QStringLiteral("/dev/");
    QDir().mkpath(nodes);
    QFile::link(terminal, nodes + portName);
    umockdev_testbed_attach_ioctl(testbed->mock, ("/dev/" + portName.toUtf8()).constData(),
                                  testbed->ioctls, nullptr);
}

void UsbTestbed::unplug(const QString &portName)
{
    if (!devices.contains(portName))
        return;
    const QString node = testbed->root() + QStringLiteral("/dev/") + portName;
    if (QFile::remove(node)) {
        umockdev_testbed_detach_ioctl(testbed->mock, ("/dev/" + portName.toUtf8()).constData(),
                                      nullptr);
        // Without a name, the path would be the directory itself, which umockdev cannot open.
        QDir().rmdir(testbed->root() + QStringLiteral("/ioctl/dev"));
    }
    const QStringList paths = devices.take(portName);
    for (const QString &path : paths)
        removeDevice(path);
}

void UsbTestbed::removeDevice(const QString &path)
{
    umockdev_testbed_remove_device(testbed->mock, path.toUtf8().constData());
}
