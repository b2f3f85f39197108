// The adapter as umockdev shows it: devices, the link in /dev, and the driver's ioctls.

#include "testbed.h"

#include "error.h"
#include "filedescriptor.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char usbDeviceName[] = "1-1";
constexpr mode_t directoryMode = 0755;

struct Free
{
    void operator()(gpointer memory) const { g_free(memory); }
};

using Text = std::unique_ptr<gchar, Free>;

std::string take(gchar *text)
{
    return text ? Text(text).get() : std::string();
}

void throwIfSet(GError *error)
{
    if (!error)
        return;
    const std::string message = error->message;
    g_error_free(error);
    throw Error("umockdev: " + message);
}

// The caller's word that a modem ioctl points to, mapped for reading and writing.
class CallersWord
{
public:
    explicit CallersWord(UMockdevIoctlClient *client)
        : m_data(umockdev_ioctl_data_resolve(umockdev_ioctl_client_get_arg(client), 0, sizeof(int),
                                             nullptr))
    {
    }
    ~CallersWord() { g_clear_object(&m_data); }
    CallersWord(const CallersWord &) = delete;
    CallersWord &operator=(const CallersWord &) = delete;

    bool isReadable() const { return m_data; }

    int value() const
    {
        int word = 0;
        std::memcpy(&word, m_data->data, sizeof word);
        return word;
    }

    void setValue(int word)
    {
        guint8 bytes[sizeof word];
        std::memcpy(bytes, &word, sizeof word);
        umockdev_ioctl_data_update(m_data, 0, bytes, sizeof word);
    }

private:
    UMockdevIoctlData *m_data;
};

void succeed(UMockdevIoctlClient *client)
{
    umockdev_ioctl_client_complete(client, 0, 0);
}

void refuse(UMockdevIoctlClient *client, int errorNumber)
{
    umockdev_ioctl_client_complete(client, -1, errorNumber);
}

bool isOurs(gulong request)
{
    constexpr gulong requests[] = {TIOCEXCL, TIOCNXCL, TIOCMGET, TIOCMSET, TIOCMBIS, TIOCMBIC};
    return std::find(std::begin(requests), std::end(requests), request) != std::end(requests);
}

int changedLines(gulong request, int lines, int word)
{
    switch (request) {
    case TIOCMBIS:
        return lines | word;
    case TIOCMBIC:
        return lines & ~word;
    default:
        return word;
    }
}

} // namespace

// What a program did with the port, on its way to the main loop.
struct Testbed::Event
{
    Testbed *testbed;
    Handler handler;
    std::unique_ptr<UMockdevIoctlClient, Unref> client;

    static gboolean deliver(gpointer self)
    {
        auto *event = static_cast<Event *>(self);
        (event->testbed->*event->handler)(event->client.get());
        return G_SOURCE_REMOVE;
    }
    static void discard(gpointer self) { delete static_cast<Event *>(self); }
};

Testbed::Testbed(const AdapterIdentity &identity, PortListener &listener)
    : m_identity(identity)
    , m_listener(listener)
    , m_testbed(umockdev_testbed_new())
    , m_ioctlHandler(umockdev_ioctl_base_new())
{
    const std::string devices = take(umockdev_testbed_get_root_dir(m_testbed.get())) + "/dev";
    if (mkdir(devices.c_str(), directoryMode) != 0 && errno != EEXIST)
        throw Error("cannot create " + devices + ": " + errorText(errno));
    attachIoctlHandler();
}

Testbed::~Testbed()
{
    g_signal_handlers_disconnect_by_data(m_ioctlHandler.get(), this);
    umockdev_testbed_detach_ioctl(m_testbed.get(), ("/dev/" + m_identity.portName).c_str(),
                                  nullptr);
}

void Testbed::attachIoctlHandler()
{
    UMockdevIoctlBase *handler = m_ioctlHandler.get();
    g_signal_connect(handler, "client-connected", G_CALLBACK(&Testbed::onConnected), this);
    g_signal_connect(handler, "client-vanished", G_CALLBACK(&Testbed::onVanished), this);
    g_signal_connect(handler, "handle-ioctl", G_CALLBACK(&Testbed::onIoctl), this);

    GError *error = nullptr;
    umockdev_testbed_attach_ioctl(m_testbed.get(), ("/dev/" + m_identity.portName).c_str(), handler,
                                  &error);
    throwIfSet(error);
}

void Testbed::addAdapter(const std::string &portPath)
{
    // The link stands before the device is announced: whoever is told of it may open it at once.
    if (symlink(portPath.c_str(), linkPath().c_str()) != 0)
        throw Error("cannot create " + linkPath() + ": " + errorText(errno));
    m_usbDevice = addUsbDevice();
    m_port = addPort(m_usbDevice);
    if (m_port.empty())
        throw Error("umockdev does not accept the port name " + m_identity.portName);
}

std::string Testbed::addUsbDevice()
{
    const char *vendor = m_identity.vendorId.c_str();
    const char *product = m_identity.productId.c_str();
    const char *serial = m_identity.serialNumber.c_str();
    return take(
        umockdev_testbed_add_device(m_testbed.get(), "usb", usbDeviceName, nullptr,
                                    // attributes
                                    "idVendor", vendor, "idProduct", product, "manufacturer",
                                    "FTDI", "product", "FT232R USB UART", "serial", serial, nullptr,
                                    // properties
                                    "DEVTYPE", "usb_device", "ID_VENDOR_ID", vendor, "ID_MODEL_ID",
                                    product, "ID_SERIAL_SHORT", serial, nullptr));
}

std::string Testbed::addPort(const std::string &usbDevice)
{
    return take(umockdev_testbed_add_device(
        m_testbed.get(), "tty", m_identity.portName.c_str(), usbDevice.c_str(),
        // attributes
        nullptr,
        // properties
        "DEVNAME", ("/dev/" + m_identity.portName).c_str(), "ID_BUS", "usb", "ID_VENDOR", "FTDI",
        "ID_VENDOR_ID", m_identity.vendorId.c_str(), "ID_MODEL", "FT232R_USB_UART", "ID_MODEL_ID",
        m_identity.productId.c_str(), "ID_SERIAL_SHORT", m_identity.serialNumber.c_str(), nullptr));
}

void Testbed::removeAdapter()
{
    // Ports still open belong to the adapter that is gone.
    m_clients.clear();
    unlink(linkPath().c_str());
    for (const std::string &device : {m_port, m_usbDevice}) {
        umockdev_testbed_uevent(m_testbed.get(), device.c_str(), "remove");
        umockdev_testbed_remove_device(m_testbed.get(), device.c_str());
    }
    m_port.clear();
    m_usbDevice.clear();
}

std::string Testbed::linkPath() const
{
    return take(umockdev_testbed_get_root_dir(m_testbed.get())) + "/dev/" + m_identity.portName;
}

void Testbed::onConnected(UMockdevIoctlBase *, UMockdevIoctlClient *client, Testbed *self)
{
    self->post(client, &Testbed::open);
}

void Testbed::onVanished(UMockdevIoctlBase *, UMockdevIoctlClient *client, Testbed *self)
{
    self->post(client, &Testbed::close);
}

gboolean Testbed::onIoctl(UMockdevIoctlBase *, UMockdevIoctlClient *client, Testbed *self)
{
    if (!isOurs(umockdev_ioctl_client_get_request(client)))
        return FALSE;
    self->post(client, &Testbed::handleIoctl);
    return TRUE;
}

// The chip must not be reset by one thread while the main loop's runs it.
void Testbed::post(UMockdevIoctlClient *client, Handler handler)
{
    auto *event = new Event {this, handler, {}};
    event->client.reset(UMOCKDEV_IOCTL_CLIENT(g_object_ref(client)));
    g_idle_add_full(G_PRIORITY_DEFAULT, &Event::deliver, event, &Event::discard);
}

void Testbed::open(UMockdevIoctlClient *client)
{
    // A program may have opened the port in the moment before it was unplugged.
    if (m_port.empty())
        return;
    m_clients.insert(client);
    m_listener.portOpened();
}

void Testbed::close(UMockdevIoctlClient *client)
{
    if (m_clients.erase(client) && m_clients.empty())
        m_listener.portClosed();
}

void Testbed::handleIoctl(UMockdevIoctlClient *client)
{
    if (!m_clients.count(client))
        return refuse(client, EIO);

    const gulong request = umockdev_ioctl_client_get_request(client);
    if (request == TIOCEXCL || request == TIOCNXCL)
        return succeed(client);
    if (request == TIOCMGET)
        return tellModemLines(client);
    changeModemLines(client, request);
}

void Testbed::tellModemLines(UMockdevIoctlClient *client)
{
    CallersWord word(client);
    if (!word.isReadable())
        return refuse(client, EFAULT);
    word.setValue(m_listener.modemLines());
    succeed(client);
}

void Testbed::changeModemLines(UMockdevIoctlClient *client, gulong request)
{
    const CallersWord word(client);
    if (!word.isReadable())
        return refuse(client, EFAULT);
    m_listener.setModemLines(changedLines(request, m_listener.modemLines(), word.value()));
    succeed(client);
}
