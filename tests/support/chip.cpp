// The simulated device that the test program runs on.
#include "chip.h"

#include "applicationdirectory.h"

#include <QDir>
#include <QFile>
#include <QProcess>

namespace {

bool succeeds(const QString &program, const QStringList &arguments)
{
    return QProcess::execute(program, arguments) == 0;
}

bool control(const QStringList &command)
{
    return succeeds(QStringLiteral(SIMULATED_DEVICE_CLIENT), command);
}

// A script that sets the variable to the number of received bytes.
QString countBytes(const QString &variable)
{
    return QStringLiteral("%1=$('%2' status | sed 's/.* in=\\([0-9]*\\).*/\\1/'); ")
        .arg(variable, QStringLiteral(SIMULATED_DEVICE_CLIENT));
}

QString imagePath(const QString &baseName)
{
    return QStringLiteral(FIRMWARE_DIR "/") + ApplicationDirectory::sketchFileName(baseName);
}

} // namespace

bool Chip::unplug()
{
    return control({QStringLiteral("unplug")});
}

bool Chip::replug()
{
    return control({QStringLiteral("replug")});
}

bool Chip::reset()
{
    return control({QStringLiteral("reset")});
}

QString Chip::unplugAfter(int bytes)
{
    return countBytes(QStringLiteral("before")) + countBytes(QStringLiteral("now"))
        + QStringLiteral("while [ $((now - before)) -lt %1 ]; do ").arg(bytes)
        + countBytes(QStringLiteral("now"))
        + QStringLiteral("done; '" SIMULATED_DEVICE_CLIENT "' unplug");
}

bool Chip::holds(const QString &baseName)
{
    const QString dump = ApplicationDirectory::path() + QStringLiteral("flash.bin");
    const QString image = imagePath(baseName);
    // An upload does not erase the flash, so compare only what the image covers.
    return control({QStringLiteral("dump"), dump})
        && succeeds(QStringLiteral("srec_cmp"),
                    {image, QStringLiteral("-intel"), QStringLiteral("("), dump,
                     QStringLiteral("-binary"), QStringLiteral("-crop"), QStringLiteral("-within"),
                     image, QStringLiteral("-intel"), QStringLiteral(")")});
}

QByteArray Chip::image(const QString &baseName)
{
    return ApplicationDirectory::contentOf(imagePath(baseName));
}

void Chip::installAvrdude()
{
    const QString directory = ApplicationDirectory::uploaderPath();
    QDir().mkpath(directory);
    if (!QFile::copy(QStringLiteral(AVRDUDE), directory + QStringLiteral("avrdude"))
        || !QFile::copy(QStringLiteral(AVRDUDE_CONF), directory + QStringLiteral("avrdude.conf")))
        qFatal("cannot install avrdude");
}

void Chip::fillApplicationDirectory()
{
    ApplicationDirectory::clear();
    installAvrdude();
    for (const QString &name : {QStringLiteral("Lantern__1"), QStringLiteral("Metronome__2")})
        ApplicationDirectory::addSketch(name, image(name));
}
