// Sketches made from their numbers.
#include "numberedsketches.h"

#include "applicationdirectory.h"

#include <QDir>

namespace {

constexpr int sketchSize = 30000;

const QString repository = QStringLiteral("http://updates.korvex.example/vt_updater/");
const QString namePrefix = QStringLiteral("Sketch");

// -1 if the name is not that of a numbered sketch.
int numberOf(const QString &fileName)
{
    bool ok = false;
    const int number =
        fileName.section(QStringLiteral("__"), 0, 0).mid(namePrefix.size()).toInt(&ok);
    return ok && NumberedSketches::fileName(number) == fileName ? number : -1;
}

bool isWhole(const QString &fileName, const QByteArray &content)
{
    const int number = numberOf(fileName);
    return number >= 0 && content == NumberedSketches::content(number);
}

} // namespace

QString NumberedSketches::indexAddress()
{
    return repository + QStringLiteral("file_list.txt");
}

QString NumberedSketches::address(int number)
{
    return repository + fileName(number);
}

QString NumberedSketches::fileName(int number)
{
    return ApplicationDirectory::sketchFileName(
        QStringLiteral("%1%2__1").arg(namePrefix).arg(number));
}

QByteArray NumberedSketches::content(int number)
{
    const QByteArray line = ':' + QByteArray::number(number) + '\n';
    return line.repeated(sketchSize / line.size() + 1).left(sketchSize);
}

QByteArray NumberedSketches::index(int count)
{
    QStringList names;
    for (int number = 0; number < count; ++number)
        names.append(fileName(number));
    return names.join(QLatin1Char('\n')).toUtf8();
}

void NumberedSketches::serve(RepositoryServer *server, int count)
{
    server->serve(indexAddress(), {Answer::ok(index(count))});
    for (int number = 0; number < count; ++number)
        server->serve(address(number), {Answer::ok(content(number))});
}

QStringList NumberedSketches::damaged(const QDir &directory)
{
    QStringList names;
    const QStringList entries = directory.entryList();
    for (const QString &entry : entries) {
        if (!isWhole(entry, ApplicationDirectory::contentOf(directory.filePath(entry))))
            names.append(entry);
    }
    return names;
}
