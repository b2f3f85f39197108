// Runs only where nothing was before: an update erases nothing but what it writes.
void setup()
{
    Serial.begin(115200);
    while (pgm_read_byte(0x0800) != 0xff)
        ;
}

void loop()
{
    if (Serial.read() == 'v')
        Serial.println(F("Version:BlankChip__1"));
}
