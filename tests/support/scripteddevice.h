#ifndef SCRIPTEDDEVICE_H
#define SCRIPTEDDEVICE_H

#include <QByteArray>
#include <QList>
#include <QString>

#include <memory>

// A device on a pseudo terminal that answers the n-th version request with the n-th answer of its
// script and later ones with the last. It has its own thread, because the program blocks while it
// waits for an answer.
class ScriptedDevice
{
public:
    // An empty answer is silence.
    explicit ScriptedDevice(const QList<QByteArray> &script = {QByteArray()});
    ~ScriptedDevice();

    ScriptedDevice(const ScriptedDevice &) = delete;
    ScriptedDevice &operator=(const ScriptedDevice &) = delete;

    // Absolute path of the terminal; QSerialPort takes it for a port name.
    QString portName() const;

    // Replaces the script and resets the count of requests.
    void setAnswers(const QList<QByteArray> &answers);

    // How many "v" bytes came, and every byte that came.
    int requests() const;
    QByteArray received() const;

    // Sends without being asked, in one piece.
    void send(const QByteArray &bytes);

    // From now on it sends answers byte by byte, with a pause of this many ms.
    void setBytePause(int milliseconds);

    // Sends the text again and again at about this speed, as far as the terminal takes it.
    void flood(const QByteArray &text, int bytesPerSecond);

    // How many bytes that it sent wait for the program.
    int unread() const;

    // Whether the program has the terminal open.
    bool isOpen() const;

    // A busy device takes no bytes: what is written to it waits.
    void setBusy(bool busy);

    // Hangs the terminal up, at once or as soon as the n-th request has come. Its path does not
    // open from then on, and leads nowhere else as long as this device exists.
    void unplug();
    void unplugAtRequest(int number);

private:
    class Worker;
    std::unique_ptr<Worker> worker;
};

#endif
