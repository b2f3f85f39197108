// Looks for requests too seldom: what it says all the time takes the answer's place.
void setup()
{
    Serial.begin(115200);
}

void loop()
{
    for (int count = 0; count < 2000; ++count)
        Serial.println(F("21 degrees"));
    if (Serial.read() == 'v')
        Serial.println(F("Version:Chatty__1"));
}
