#include "SuccessorProcess.h"

#include "Directories.h"

#include <QtCore/QDateTime>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QProcess>

namespace HostKit {

namespace {

constexpr auto variable = "HOSTKIT_STARTED_FOR"; // holds a note to the successor
constexpr qint64 shortTime = 60; // s
constexpr int maxInARow = 10;

/*
 * The note with which this process was started, in three lines: its number in a row, the time in
 * seconds since the epoch, and the application's folder. It leaves the environment when the library
 * is loaded. So no process that this one starts takes itself for a successor.
 */
const QByteArray ownNote = [] {
    QByteArray given = qgetenv(variable);
    qunsetenv(variable);
    return given;
}();

/* Returns the number of this process in a row, or 0. */
int ownNumber()
{
    const QList<QByteArray> lines = ownNote.split('\n');
    const qint64 age = QDateTime::currentSecsSinceEpoch() - lines.value(1).toLongLong();
    return qAbs(age) <= shortTime ? lines.value(0).toInt() : 0;
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
    QProcess process;
    process.setProgram(command.first());
    process.setArguments(command.mid(1));
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QString::fromLatin1(variable),
                       QStringLiteral("%1\n%2\n%3")
                           .arg(ownNumber() + 1)
                           .arg(QDateTime::currentSecsSinceEpoch())
                           .arg(configDirectory()));
    // No launcher waits for the successor, and the token of this process is used up.
    environment.remove(QStringLiteral("DESKTOP_STARTUP_ID"));
    environment.remove(QStringLiteral("XDG_ACTIVATION_TOKEN"));
    process.setProcessEnvironment(environment);
    return process.startDetached();
}

bool isSuccessor()
{
    return ownNumber() > 0 && ownNote.endsWith('\n' + configDirectory().toLocal8Bit());
}

bool wasSuccessor()
{
    return !ownNote.isEmpty();
}

bool isLastSuccessor()
{
    return ownNumber() >= maxInARow;
}

} // namespace HostKit
