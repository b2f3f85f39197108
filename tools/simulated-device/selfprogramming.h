#ifndef SELFPROGRAMMING_H
#define SELFPROGRAMMING_H

#include "flashimage.h"

#include <avr_flash.h>
#include <sim_avr.h>
#include <vector>

// What simavr lacks of a chip that writes its own flash: the lock bits of the boot section, and the
// time that erasing and writing a page takes.
class SelfProgramming : private avr_io_t
{
public:
    SelfProgramming()
        : avr_io_t()
    {
    }

    // It stays in the chip's list of modules: it must outlive the chip.
    void attach(avr_t *chip);

private:
    static int onCommand(avr_io_t *module, std::uint32_t command, void *parameter);
    static avr_cycle_count_t onPageDone(avr_t *, avr_cycle_count_t, void *self);

    bool changesPage() const;
    void startPage();
    void endPage();

    avr_flash_t *m_flash = nullptr;
    std::vector<std::uint8_t> m_bootSection;
};

#endif
