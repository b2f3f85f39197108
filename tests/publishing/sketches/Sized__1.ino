// As large as its table makes it.
const byte table[TABLE_SIZE] PROGMEM __attribute__((used)) = {1};

void setup()
{
    Serial.begin(115200);
}

void loop()
{
    if (Serial.read() == 'v')
        Serial.println(F("Version:Sized__1"));
}
