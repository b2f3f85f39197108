// Packs and paces bytes as an FT232R does, and passes the edge of DTR to the chip's reset.

#include "adapter.h"

#include <sys/ioctl.h>
#include <utility>

namespace {

constexpr std::size_t packetSize = 62; // 64 of a full-speed packet, less two status bytes
constexpr std::size_t bufferSize = 128;
constexpr std::size_t keptSize = 256; // of what is handed over
constexpr unsigned latencyMs = 16;
constexpr unsigned latencyByteTimes = latencyMs * baudRate / bitsPerByte / 1000;
constexpr speed_t hostSpeed = B115200;
constexpr std::uint8_t garbledByte = 0xff;
constexpr int linesWhenOpen = TIOCM_DTR | TIOCM_RTS;

} // namespace

Adapter::Adapter(ByteSink toChip, ResetLine resetChip)
    : m_toChip(std::move(toChip))
    , m_resetChip(std::move(resetChip))
{
}

void Adapter::plugIn()
{
    m_port.emplace();
    m_sincePacket = 0;
}

void Adapter::unplug()
{
    m_port.reset();
    m_isOpen = false;
    m_modemLines = 0;
    m_bufferToChip.clear();
    m_packet.clear();
}

void Adapter::open()
{
    m_isOpen = true;
    m_handedOver.clear();
    m_port->discardUnread();
    driveModemLines(0);
    driveModemLines(linesWhenOpen);
}

void Adapter::close()
{
    m_isOpen = false;
    setModemLines(0);
}

void Adapter::setModemLines(int lines)
{
    if (raisesReset(lines))
        finishTransfers();
    driveModemLines(lines);
}

bool Adapter::raisesReset(int lines) const
{
    return (lines & TIOCM_DTR) && !(m_modemLines & TIOCM_DTR);
}

void Adapter::driveModemLines(int lines)
{
    const bool raised = raisesReset(lines);
    m_modemLines = lines;
    // The capacitor lets the edge through, not the level.
    if (raised)
        m_resetChip();
}

// On a busy machine the simulation is late. What the host wrote before the edge has long been sent
// by a real adapter, and what the chip said has arrived: kept until after the reset, either would
// be taken for a part of the next exchange.
void Adapter::finishTransfers()
{
    while (!m_port->read(bufferSize).empty()) { }
    m_bufferToChip.clear();
    sendPacket();
}

void Adapter::fromChip(std::uint8_t byte)
{
    ++m_bytesFromChip;
    m_packet.push_back(static_cast<char>(byte));
}

void Adapter::fetchFromHost()
{
    for (const char byte : m_port->read(bufferSize - m_bufferToChip.size()))
        m_bufferToChip.push_back(static_cast<std::uint8_t>(byte));
}

void Adapter::passByteTime()
{
    if (!m_bufferToChip.empty())
        passByteToChip();
    ++m_sincePacket;
    if (m_packet.size() < packetSize && m_sincePacket < latencyByteTimes)
        return;
    // The latency timer counts from packet to packet, even from an empty one, and asks for no byte:
    // it expires in the middle of an answer as well.
    sendPacket();
    m_sincePacket = 0;
}

void Adapter::passByteToChip()
{
    ++m_bytesToChip;
    m_toChip(hostSpeedIsRight() ? m_bufferToChip.front() : garbledByte);
    m_bufferToChip.pop_front();
}

void Adapter::sendPacket()
{
    if (m_packet.empty())
        return;
    // Nobody asks a closed adapter for its packets.
    if (m_isOpen && hostSpeedIsRight())
        handOver();
    else if (m_isOpen)
        m_port->write(std::string(m_packet.size(), char(garbledByte)));
    m_packet.clear();
}

void Adapter::handOver()
{
    m_port->write(m_packet);
    m_handedOver += m_packet;
    if (m_handedOver.size() > keptSize)
        m_handedOver.erase(0, m_handedOver.size() - keptSize);
}

bool Adapter::hostSpeedIsRight() const
{
    return m_port->speed() == hostSpeed;
}
