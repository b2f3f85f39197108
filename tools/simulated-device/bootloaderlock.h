#ifndef BOOTLOADERLOCK_H
#define BOOTLOADERLOCK_H

#include "flashimage.h"

#include <sim_avr.h>
#include <vector>

// The lock bits of the boot section, which simavr does not know.
class BootloaderLock : private avr_io_t
{
public:
    BootloaderLock()
        : avr_io_t()
    {
    }

    // The lock stays in the chip's list of modules: it must outlive the chip.
    void attach(avr_t *chip);

private:
    static int forwardCommand(avr_io_t *module, std::uint32_t command, void *parameter);
    int askOtherModules(std::uint32_t command, void *parameter) const;

    std::vector<std::uint8_t> m_bootSection;
};

#endif
