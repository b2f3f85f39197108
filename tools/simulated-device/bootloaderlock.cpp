// Keeps the bootloader from erasing itself when an uploaded image holds the boot section as well.

#include "bootloaderlock.h"

#include <algorithm>
#include <avr_flash.h>

void BootloaderLock::attach(avr_t *chip)
{
    m_bootSection.assign(chip->flash + bootSectionStart, chip->flash + flashSize);
    kind = "bootloader lock";
    ioctl = &BootloaderLock::forwardCommand;
    // A module registered last is asked first.
    avr_register_io(chip, this);
}

int BootloaderLock::forwardCommand(avr_io_t *module, std::uint32_t command, void *parameter)
{
    if (command != AVR_IOCTL_FLASH_SPM)
        return -1;

    // The flash module does its work, so that its page buffer empties as on the real chip, and the
    // boot section is put back before the next instruction is fetched from it.
    const BootloaderLock *lock = static_cast<BootloaderLock *>(module);
    const int result = lock->askOtherModules(command, parameter);
    std::copy(lock->m_bootSection.begin(), lock->m_bootSection.end(),
              lock->avr->flash + bootSectionStart);
    return result;
}

int BootloaderLock::askOtherModules(std::uint32_t command, void *parameter) const
{
    int result = -1;
    for (avr_io_t *module = next; module && result == -1; module = module->next) {
        if (module->ioctl)
            result = module->ioctl(module, command, parameter);
    }
    return result;
}
