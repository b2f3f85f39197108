/* A sketch that tells its name and version when asked, and repeats every other text it hears. */

#include <avr/interrupt.h>
#include <avr/io.h>
#include <avr/pgmspace.h>
#include <avr/sleep.h>
#include <stdbool.h>
#include <stdint.h>

#define TEXT(value) #value
#define VALUE_AS_TEXT(value) TEXT(value)
#define VERSION_ANSWER "Version:" SKETCH_NAME "__" VALUE_AS_TEXT(SKETCH_VERSION) "\r\n"

#define SILENCE_MS 20
#define TIMER_PRESCALER 256
#define TEXT_SIZE 80

/* A table of a few KiB whose every word depends on the version, so that an upload has real work. */
#define WORD(n) (uint16_t)(((n) + 1u) * 40503u + SKETCH_VERSION * 9973u + sizeof(SKETCH_NAME))
#define WORDS4(n) WORD(n), WORD(n + 1), WORD(n + 2), WORD(n + 3)
#define WORDS16(n) WORDS4(n), WORDS4(n + 4), WORDS4(n + 8), WORDS4(n + 12)
#define WORDS64(n) WORDS16(n), WORDS16(n + 16), WORDS16(n + 32), WORDS16(n + 48)
#define WORDS256(n) WORDS64(n), WORDS64(n + 64), WORDS64(n + 128), WORDS64(n + 192)
#define WORDS1024(n) WORDS256(n), WORDS256(n + 256), WORDS256(n + 512), WORDS256(n + 768)

static const uint16_t table[] PROGMEM __attribute__((used)) = {
    WORDS1024(0),
#if SKETCH_VERSION > 1
    WORDS256(1024),
#endif
#if SKETCH_VERSION > 2
    WORDS256(1280),
#endif
};

static volatile char text[TEXT_SIZE];
static volatile uint8_t length;
static volatile bool finished;

static void startSilenceTimer(void)
{
    TCNT1 = 0;
    TIFR1 = _BV(OCF1A);
    TIMSK1 = _BV(OCIE1A);
}

ISR(USART_RX_vect)
{
    const char byte = (char)UDR0;

    if (length < TEXT_SIZE)
        text[length++] = byte;
    startSilenceTimer();
}

ISR(TIMER1_COMPA_vect)
{
    TIMSK1 = 0;
    finished = true;
}

static void sendByte(char byte)
{
    loop_until_bit_is_set(UCSR0A, UDRE0);
    UDR0 = (uint8_t)byte;
}

static void sendConstant(PGM_P constant)
{
    for (char byte = (char)pgm_read_byte(constant); byte; byte = (char)pgm_read_byte(++constant))
        sendByte(byte);
}

static void sendHeard(const char *heard, uint8_t count)
{
    sendConstant(PSTR("Heard: "));
    for (uint8_t i = 0; i < count; ++i)
        sendByte(heard[i]);
    sendConstant(PSTR("\r\n"));
}

static uint8_t takeText(char *copy)
{
    cli();
    const uint8_t count = length;
    for (uint8_t i = 0; i < count; ++i)
        copy[i] = text[i];
    length = 0;
    finished = false;
    sei();
    return count;
}

static void answer(void)
{
    char heard[TEXT_SIZE];
    const uint8_t count = takeText(heard);

    if (count == 1 && heard[0] == 'v')
        sendConstant(PSTR(VERSION_ANSWER));
    else
        sendHeard(heard, count);
}

static void sleepUntilFinished(void)
{
    cli();
    while (!finished) {
        /* The instruction after sei runs before any interrupt: none is lost before the sleep. */
        sei();
        sleep_cpu();
        cli();
    }
    sei();
}

static void setUp(void)
{
    UCSR0A = _BV(U2X0);
    UBRR0 = (F_CPU + BAUD_RATE * 4L) / (BAUD_RATE * 8L) - 1;
    UCSR0C = _BV(UCSZ01) | _BV(UCSZ00);
    UCSR0B = _BV(RXCIE0) | _BV(RXEN0) | _BV(TXEN0);

    /* The bootloader leaves its own settings in timer 1. */
    TCCR1A = 0;
    TCCR1B = _BV(CS12);
    OCR1A = F_CPU / TIMER_PRESCALER * SILENCE_MS / 1000;

    set_sleep_mode(SLEEP_MODE_IDLE);
    sleep_enable();
}

int main(void)
{
    setUp();
    for (;;) {
        sleepUntilFinished();
        answer();
    }
}
