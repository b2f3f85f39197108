// Ties the chip, the adapter and the testbed together and keeps them in step with the clock.

#include "device.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace {

using namespace std::chrono_literals;

constexpr guint tickMs = 1;
constexpr auto mostDueTime = 50ms;
constexpr auto byteTime = std::chrono::nanoseconds(1'000'000'000LL * bitsPerByte / baudRate);
constexpr std::uint64_t cyclesPerByte = clockHz * bitsPerByte / baudRate;

} // namespace

Device::Device(const FlashImage &image, const AdapterIdentity &identity)
    : m_adapter([this](std::uint8_t byte) { m_chip.receive(byte); }, [this] { resetChip(); })
    , m_chip(image, [this](std::uint8_t byte) { m_adapter.fromChip(byte); })
    , m_testbed(identity, *this)
{
    plugIn();
    // Openings and ioctls that have arrived are handled before the chip runs on.
    m_timer = g_timeout_add_full(G_PRIORITY_LOW, tickMs, &Device::onTick, this, nullptr);
}

Device::~Device()
{
    g_source_remove(m_timer);
}

void Device::plugIn()
{
    m_adapter.plugIn();
    m_testbed.addAdapter(m_adapter.portPath());
    m_chip.powerUp();
}

void Device::unplug()
{
    m_testbed.removeAdapter();
    m_adapter.unplug();
}

void Device::resetChip()
{
    ++m_resets;
    m_chip.pullReset();
}

std::string Device::status() const
{
    std::ostringstream text;
    text << (isPlugged() ? "plugged" : "unplugged") << " opens=" << m_opens
         << " resets=" << m_resets << " in=" << m_adapter.bytesToChip()
         << " out=" << m_adapter.bytesFromChip() << " pc=0x" << std::hex << std::setfill('0')
         << std::setw(4) << m_chip.programCounter();
    return text.str();
}

void Device::portOpened()
{
    ++m_opens;
    m_adapter.open();
}

void Device::portClosed()
{
    m_adapter.close();
}

gboolean Device::onTick(gpointer self)
{
    static_cast<Device *>(self)->advance();
    return G_SOURCE_CONTINUE;
}

void Device::advance()
{
    const Clock::time_point now = Clock::now();
    // After a pause of the whole machine the chip goes on where it was, rather than in a burst.
    m_dueTime = std::min<Clock::duration>(m_dueTime + (now - m_advancedAt), mostDueTime);
    m_advancedAt = now;
    if (!isPlugged())
        return;

    m_adapter.fetchFromHost();
    for (; m_dueTime >= byteTime; m_dueTime -= byteTime) {
        m_chip.run(cyclesPerByte);
        m_adapter.passByteTime();
    }
}
