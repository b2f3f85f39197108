// Replaces Qt's message handler.
#include "messagerecorder.h"

namespace {

const QString ownWarning = QStringLiteral("warning (default): ");

QStringList recorded;

void record(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    recorded.append(
        QStringLiteral("%1 (%2): ")
            .arg(type == QtWarningMsg ? QLatin1String("warning") : QLatin1String("other"),
                 QLatin1String(context.category))
        + text);
}

} // namespace

MessageRecorder::MessageRecorder()
{
    recorded.clear();
    previous = qInstallMessageHandler(record);
}

MessageRecorder::~MessageRecorder()
{
    qInstallMessageHandler(previous);
}

QStringList MessageRecorder::messages() const
{
    return recorded;
}

QStringList MessageRecorder::warnings() const
{
    QStringList texts;
    for (const QString &message : std::as_const(recorded)) {
        if (message.startsWith(ownWarning))
            texts.append(message.mid(ownWarning.size()));
    }
    return texts;
}
