#include "SuccessorProcess.h"

#include "Directories.h"

#include <QtCore/QDateTime>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QProcess>

namespace HostKit {

namespace {

constexpr auto variable = "HOSTKIT_STARTED_FOR"; // holds the lines of a Note
constexpr qint64 shortTime = 60; // s
constexpr int maxInARow = 10;

/* What a process tells its successor. */
struct Note {
    QString folder; // the application's
    qint64 time = 0; // of the start, in seconds since the epoch
    int number = 0; // of this successor in a row
};

qint64 now()
{
    return QDateTime::currentSecsSinceEpoch();
}

QString packed(const Note& note)
{
    return QStringLiteral("%1\n%2\n%3").arg(note.number).arg(note.time).arg(note.folder);
}

Note unpacked(const QByteArray& text)
{
    const QStringList lines = QString::fromLocal8Bit(text).split(QLatin1Char('\n'));
    return {lines.value(2), lines.value(1).toLongLong(), lines.value(0).toInt()};
}

/* The note with which this process was started. */
Note& ownNote()
{
    static Note note;
    return note;
}

bool isRecent(const Note& note)
{
    return qAbs(now() - note.time) <= shortTime;
}

} // namespace

QStringList defaultRestartCommand()
{
    const QString image = QFile::decodeName(qgetenv("APPIMAGE"));
    const bool isImage = !image.isEmpty() && QFileInfo(image).isFile();
    // As QCoreApplication::applicationFilePath(), but without an application object.
    return {isImage ? image : QFile::symLinkTarget(QStringLiteral("/proc/self/exe"))};
}

bool startSuccessor(const QStringList& command)
{
    const int number = isRecent(ownNote()) ? ownNote().number : 0;
    QProcess process;
    process.setProgram(command.first());
    process.setArguments(command.mid(1));
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QString::fromLatin1(variable),
                       packed({configDirectory(), now(), number + 1}));
    // No launcher waits for the successor, and the token of this process is used up.
    environment.remove(QStringLiteral("DESKTOP_STARTUP_ID"));
    environment.remove(QStringLiteral("XDG_ACTIVATION_TOKEN"));
    process.setProcessEnvironment(environment);
    return process.startDetached();
}

bool isSuccessor()
{
    if (!qEnvironmentVariableIsSet(variable))
        return false;
    const Note note = unpacked(qgetenv(variable));
    return note.folder == configDirectory() && isRecent(note);
}

void forgetSuccessor()
{
    if (qEnvironmentVariableIsSet(variable))
        ownNote() = unpacked(qgetenv(variable));
    qunsetenv(variable);
}

bool wasSuccessor()
{
    return ownNote().number > 0;
}

bool isLastSuccessor()
{
    return isRecent(ownNote()) && ownNote().number >= maxInARow;
}

} // namespace HostKit
