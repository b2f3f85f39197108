// Its file was renamed.
void setup()
{
    Serial.begin(115200);
}

void loop()
{
    if (Serial.read() == 'v')
        Serial.println(F("Version:SomeName__1"));
}
