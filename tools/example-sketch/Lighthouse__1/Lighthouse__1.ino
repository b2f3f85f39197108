// A light that turns, and a device that the updater knows: a model for sketches of one's own.

const unsigned long turn = 2000; // ms
const unsigned long flash = 200;

void setup()
{
    pinMode(LED_BUILTIN, OUTPUT);
    Serial.begin(115200);
}

// Nothing waits: a sketch that is in delay() does not answer.
void turnLight()
{
    digitalWrite(LED_BUILTIN, millis() % turn < flash ? HIGH : LOW);
}

// It speaks only when it is spoken to. The version is that of the file's name.
void answer(char request)
{
    if (request == 'v')
        Serial.println(F("Version:Lighthouse__1"));
    else if (request == 't')
        Serial.println(millis() / turn);
}

void loop()
{
    turnLight();
    if (Serial.available() > 0)
        answer(Serial.read());
}
