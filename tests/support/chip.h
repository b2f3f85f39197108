// The simulated device that the test program runs on; its command line names the port.
#ifndef CHIP_H
#define CHIP_H

#include <QByteArray>
#include <QString>

namespace Chip {

// The adapter's cable. False when the simulation refuses.
bool unplug();
bool replug();
// As its reset button does.
bool reset();
// A shell script for use while the window is blocked: unplugs after this many more bytes.
QString unplugAfter(int bytes);

// Whether the flash holds exactly what the image defines, in each byte that it defines. The image
// is the one that was built as "<name>__<version>".
bool holds(const QString &baseName);

// The built image, as a repository offers it.
QByteArray image(const QString &baseName);

// Puts the system's avrdude and its configuration into the uploader's directory.
void installAvrdude();
// That, and as the only sketches Lantern in version 1 and Metronome in version 2.
void fillApplicationDirectory();

} // namespace Chip

#endif
