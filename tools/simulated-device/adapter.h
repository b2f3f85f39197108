#ifndef ADAPTER_H
#define ADAPTER_H

#include "pseudoterminal.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>

constexpr unsigned baudRate = 115'200;
constexpr unsigned bitsPerByte = 10; // start bit, eight data bits, stop bit

// The USB serial adapter between the host and the chip.
class Adapter
{
public:
    using ByteSink = std::function<void(std::uint8_t)>;
    using ResetLine = std::function<void()>;

    Adapter(ByteSink toChip, ResetLine resetChip);

    void plugIn();
    void unplug();
    bool isPlugged() const { return m_port.has_value(); }
    const std::string &portPath() const { return m_port->path(); }

    // The driver's part: lines rise when the port is opened and fall when it is closed.
    void open();
    void close();
    int modemLines() const { return m_modemLines; }
    void setModemLines(int lines);

    void fromChip(std::uint8_t byte);
    void fetchFromHost();
    void passByteTime();

    std::uint64_t bytesToChip() const { return m_bytesToChip; }
    std::uint64_t bytesFromChip() const { return m_bytesFromChip; }
    // The last bytes that the host was handed, at the right speed, since the port was opened.
    const std::string &handedOver() const { return m_handedOver; }

private:
    bool raisesReset(int lines) const;
    void driveModemLines(int lines);
    void finishTransfers();
    void passByteToChip();
    void sendPacket();
    void handOver();
    bool hostSpeedIsRight() const;

    ByteSink m_toChip;
    ResetLine m_resetChip;
    std::optional<PseudoTerminal> m_port;
    bool m_isOpen = false;
    int m_modemLines = 0;
    std::deque<std::uint8_t> m_bufferToChip;
    std::string m_packet;
    unsigned m_sincePacket = 0; // in byte times
    std::string m_handedOver;
    std::uint64_t m_bytesToChip = 0;
    std::uint64_t m_bytesFromChip = 0;
};

#endif
