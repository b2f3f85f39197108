// Stands in front of simavr's flash when the bootloader erases and writes pages.

#include "selfprogramming.h"

#include "error.h"

#include <algorithm>
#include <string_view>

namespace {

// The longest that the data sheet gives for either, erasing or writing.
constexpr std::uint32_t pageUs = 4500;

avr_flash_t *flashOf(const avr_t *chip)
{
    avr_io_t *module = chip->io_port;
    while (module && std::string_view(module->kind) != "flash")
        module = module->next;
    if (!module)
        throw Error("libsimavr gives this chip no flash");
    return reinterpret_cast<avr_flash_t *>(module);
}

} // namespace

void SelfProgramming::attach(avr_t *chip)
{
    m_flash = flashOf(chip);
    m_bootSection.assign(chip->flash + bootSectionStart, chip->flash + flashSize);
    kind = "self-programming";
    ioctl = &SelfProgramming::onCommand;
    // A module registered last is asked first.
    avr_register_io(chip, this);
}

int SelfProgramming::onCommand(avr_io_t *module, std::uint32_t command, void *parameter)
{
    if (command != AVR_IOCTL_FLASH_SPM)
        return -1;

    auto *self = static_cast<SelfProgramming *>(module);
    const bool changesPage = self->changesPage();
    // The flash module does its work, so that its page buffer empties as on the real chip, and the
    // boot section is put back before the next instruction is fetched from it.
    const int result = self->m_flash->io.ioctl(&self->m_flash->io, command, parameter);
    std::copy(self->m_bootSection.begin(), self->m_bootSection.end(),
              self->avr->flash + bootSectionStart);
    if (changesPage)
        self->startPage();
    return result;
}

bool SelfProgramming::changesPage() const
{
    return avr_regbit_get(avr, m_flash->selfprgen)
        && (avr_regbit_get(avr, m_flash->pgers) || avr_regbit_get(avr, m_flash->pgwrt));
}

// The flash module has cleared the bit that the bootloader waits for. A reset ends the wait.
void SelfProgramming::startPage()
{
    avr_regbit_set(avr, m_flash->selfprgen);
    avr_cycle_timer_register_usec(avr, pageUs, &SelfProgramming::onPageDone, this);
}

avr_cycle_count_t SelfProgramming::onPageDone(avr_t *, avr_cycle_count_t, void *self)
{
    static_cast<SelfProgramming *>(self)->endPage();
    return 0;
}

void SelfProgramming::endPage()
{
    for (const avr_regbit_t &bit : {m_flash->selfprgen, m_flash->pgers, m_flash->pgwrt})
        avr_regbit_clear(avr, bit);
}
