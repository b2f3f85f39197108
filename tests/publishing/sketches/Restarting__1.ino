// Nobody resets its watchdog.
#include <avr/wdt.h>

void setup()
{
    Serial.begin(115200);
    Serial.println(F("Hello"));
    Serial.flush();
    wdt_enable(WDTO_15MS);
}

void loop()
{
}
