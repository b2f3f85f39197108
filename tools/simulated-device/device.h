#ifndef DEVICE_H
#define DEVICE_H

#include "adapter.h"
#include "chip.h"
#include "testbed.h"

#include <chrono>
#include <cstdint>
#include <string>

// The whole board: a chip behind an adapter that can be plugged in and out.
class Device : private PortListener
{
public:
    Device(const FlashImage &image, const AdapterIdentity &identity);
    ~Device() override;
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;

    void plugIn();
    void unplug();
    bool isPlugged() const { return m_adapter.isPlugged(); }
    void resetChip();
    std::string flash() const { return m_chip.flash(); }
    std::string status() const;
    const std::string &handedOver() const { return m_adapter.handedOver(); }

private:
    using Clock = std::chrono::steady_clock;

    void portOpened() override;
    void portClosed() override;
    int modemLines() const override { return m_adapter.modemLines(); }
    void setModemLines(int lines) override { m_adapter.setModemLines(lines); }

    static gboolean onTick(gpointer self);
    void advance();

    Adapter m_adapter;
    Chip m_chip;
    Testbed m_testbed;
    Clock::time_point m_advancedAt = Clock::now();
    Clock::duration m_dueTime = {};
    std::uint64_t m_opens = 0;
    std::uint64_t m_resets = 0;
    guint m_timer = 0;
};

#endif
