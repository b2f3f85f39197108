#ifndef CHIP_H
#define CHIP_H

#include "flashimage.h"
#include "selfprogramming.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <sim_avr.h>
#include <string>

constexpr std::uint64_t clockHz = 16'000'000;

// An ATmega328P with a bootloader, run cycle by cycle.
class Chip
{
public:
    using ByteSink = std::function<void(std::uint8_t)>;

    Chip(const FlashImage &image, ByteSink transmitted);

    void powerUp();
    void pullReset();
    void run(std::uint64_t cycles);
    void receive(std::uint8_t byte);

    unsigned programCounter() const { return m_avr->pc; }
    std::string flash() const;

private:
    struct Terminate
    {
        void operator()(avr_t *avr) const;
    };

    void restart(const avr_regbit_t &cause);
    bool isRunning() const;

    ByteSink m_transmitted;
    SelfProgramming m_selfProgramming;
    std::unique_ptr<avr_t, Terminate> m_avr;
    avr_irq_t *m_receiver = nullptr;
    std::int64_t m_dueCycles = 0;
};

void setChipVerbose(bool verbose);

#endif
