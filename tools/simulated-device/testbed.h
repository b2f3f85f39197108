#ifndef TESTBED_H
#define TESTBED_H

#include <gio/gio.h>
#include <memory>
#include <set>
#include <string>
#include <umockdev.h>

// What the host knows of the adapter before it opens the port.
struct AdapterIdentity
{
    std::string portName = "ttyUSB0";
    std::string vendorId = "0403";
    std::string productId = "6001";
    std::string serialNumber;
};

// What programs do with the port.
class PortListener
{
public:
    virtual ~PortListener() = default;
    virtual void portOpened() = 0;
    virtual void portClosed() = 0;
    virtual int modemLines() const = 0;
    virtual void setModemLines(int lines) = 0;
};

// Shows the adapter in sysfs, udev and /dev to this process and its children. The listener is told
// from the main loop, one thing after another.
class Testbed
{
public:
    Testbed(const AdapterIdentity &identity, PortListener &listener);
    ~Testbed();
    Testbed(const Testbed &) = delete;
    Testbed &operator=(const Testbed &) = delete;

    void addAdapter(const std::string &portPath);
    void removeAdapter();

private:
    struct Unref
    {
        void operator()(gpointer object) const { g_object_unref(object); }
    };

    using Handler = void (Testbed::*)(UMockdevIoctlClient *client);
    struct Event;

    // Called by umockdev, in a thread of its own.
    static void onConnected(UMockdevIoctlBase *, UMockdevIoctlClient *client, Testbed *self);
    static void onVanished(UMockdevIoctlBase *, UMockdevIoctlClient *client, Testbed *self);
    static gboolean onIoctl(UMockdevIoctlBase *, UMockdevIoctlClient *client, Testbed *self);
    void post(UMockdevIoctlClient *client, Handler handler);

    void attachIoctlHandler();
    void open(UMockdevIoctlClient *client);
    void close(UMockdevIoctlClient *client);
    void handleIoctl(UMockdevIoctlClient *client);
    void tellModemLines(UMockdevIoctlClient *client);
    void changeModemLines(UMockdevIoctlClient *client, gulong request);
    std::string addUsbDevice();
    std::string addPort(const std::string &usbDevice);
    std::string linkPath() const;

    AdapterIdentity m_identity;
    PortListener &m_listener;
    std::unique_ptr<UMockdevTestbed, Unref> m_testbed;
    std::unique_ptr<UMockdevIoctlBase, Unref> m_ioctlHandler;
    std::set<UMockdevIoctlClient *> m_clients;
    std::string m_usbDevice;
    std::string m_port;
};

#endif
