// Runs the chip in libsimavr: resets, cycles, and the bytes of its serial port.

#include "chip.h"

#include "error.h"

#include <algorithm>
#include <avr_uart.h>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {

constexpr char model[] = "atmega328p";
constexpr char serialPort = '0';

bool verboseLog = false;

[[gnu::format(printf, 3, 0)]] void logToStandardError(avr_t *, int level, const char *format,
                                                      va_list arguments)
{
    if (verboseLog && level <= LOG_WARNING)
        std::vfprintf(stderr, format, arguments);
}

void sleepWithoutWaiting(avr_t *, avr_cycle_count_t) { }

avr_cycle_count_t wakeUp(avr_t *, avr_cycle_count_t, void *)
{
    return 0;
}

void forwardByte(avr_irq_t *, std::uint32_t value, void *sink)
{
    (*static_cast<Chip::ByteSink *>(sink))(static_cast<std::uint8_t>(value));
}

avr_t *makeAvr()
{
    avr_global_logger_set(&logToStandardError);
    avr_t *avr = avr_make_mcu_by_name(model);
    if (!avr)
        throw Error(std::string("libsimavr does not know the ") + model);
    return avr;
}

} // namespace

Chip::Chip(const FlashImage &image, ByteSink transmitted)
    : m_transmitted(std::move(transmitted))
    , m_avr(makeAvr())
{
    avr_init(m_avr.get());
    m_avr->frequency = clockHz;
    m_avr->reset_pc = bootSectionStart;
    // Whoever calls run() keeps the pace.
    m_avr->sleep = &sleepWithoutWaiting;
    std::copy(image.begin(), image.end(), m_avr->flash);
    m_selfProgramming.attach(m_avr.get());

    std::uint32_t flags = 0;
    avr_ioctl(m_avr.get(), AVR_IOCTL_UART_SET_FLAGS(serialPort), &flags);
    const std::uint32_t uart = AVR_IOCTL_UART_GETIRQ(serialPort);
    m_receiver = avr_io_getirq(m_avr.get(), uart, UART_IRQ_INPUT);
    avr_irq_register_notify(avr_io_getirq(m_avr.get(), uart, UART_IRQ_OUTPUT), &forwardByte,
                            &m_transmitted);
    powerUp();
}

void Chip::powerUp()
{
    std::fill(m_avr->data, m_avr->data + m_avr->ramend + 1, std::uint8_t(0));
    restart(m_avr->reset_flags.porf);
}

void Chip::pullReset()
{
    restart(m_avr->reset_flags.extrf);
}

void Chip::restart(const avr_regbit_t &cause)
{
    avr_t *avr = m_avr.get();
    avr_reset(avr);
    // The bootloader waits for an upload after an external reset alone: exactly one flag is set.
    for (const avr_regbit_t &flag : {avr->reset_flags.porf, avr->reset_flags.extrf,
                                     avr->reset_flags.borf, avr->reset_flags.wdrf})
        avr_regbit_clear(avr, flag);
    avr_regbit_set(avr, cause);
}

void Chip::run(std::uint64_t cycles)
{
    m_dueCycles += static_cast<std::int64_t>(cycles);
    if (m_dueCycles <= 0)
        return;

    // A sleeping chip advances to its next timer at once: this one ends the sleep in time for the
    // next byte from outside.
    avr_cycle_timer_register(m_avr.get(), static_cast<avr_cycle_count_t>(m_dueCycles), &wakeUp,
                             this);
    while (m_dueCycles > 0 && isRunning()) {
        const avr_cycle_count_t before = m_avr->cycle;
        avr_run(m_avr.get());
        // A reset by the watchdog starts the count anew.
        const avr_cycle_count_t spent = m_avr->cycle > before ? m_avr->cycle - before : 1;
        m_dueCycles -= static_cast<std::int64_t>(spent);
    }
    if (!isRunning())
        m_dueCycles = 0;
}

void Chip::receive(std::uint8_t byte)
{
    avr_raise_irq(m_receiver, byte);
}

std::string Chip::flash() const
{
    return std::string(m_avr->flash, m_avr->flash + flashSize);
}

bool Chip::isRunning() const
{
    return m_avr->state == cpu_Running || m_avr->state == cpu_Sleeping;
}

void Chip::Terminate::operator()(avr_t *avr) const
{
    avr_terminate(avr);
    // The model is allocated in one piece, which avr_terminate leaves behind.
    std::free(avr);
}

void setChipVerbose(bool verbose)
{
    verboseLog = verbose;
}
