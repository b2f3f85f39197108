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
    return succeeds(QStringLiteral(SIMULATED_DEVICE_CONTROL), command);
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

bool Chip::holds(const QString &baseName)
{
    const QString dump = ApplicationDirectory::path() + QStringLiteral("flash.bin");
    const QString image = imagePath(baseName);
    // The upload erases nothing, so only what the image covers can be compared.
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
