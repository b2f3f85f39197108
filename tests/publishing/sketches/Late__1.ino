// Listens when the ten requests are over.
void setup()
{
    delay(20000);
    Serial.begin(115200);
}

void loop()
{
    if (Serial.read() == 'v')
        Serial.println(F("Version:Late__1"));
}
