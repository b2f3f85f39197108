// Its maker has forgotten to raise the version in the answer.
void setup()
{
    Serial.begin(115200);
}

void loop()
{
    if (Serial.read() == 'v')
        Serial.println(F("Version:WrongVersion__1"));
}
