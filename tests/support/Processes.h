#pragma once

#include "Table.h"

#include <QtCore/QTemporaryDir>

#include <csignal>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

/* A process of a test. It is killed with the object. Its output is shown if a check fails. */
class Process : public QProcess {
public:
    explicit Process(const QString& program, const QStringList& arguments = {},
                     const QString& folder = {})
    {
        setWorkingDirectory(folder);
        setProcessChannelMode(MergedChannels);
        start(program, arguments);
    }
    ~Process() override
    {
        if (QTest::currentTestFailed())
            qInfo().noquote() << program() << arguments() << "said:\n" << said;
        kill();
        waitForFinished();
    }
    Q_DISABLE_COPY_MOVE(Process)

    /* Waits for the next line that \a pattern matches. Returns it, if it comes in time. */
    QString waitForLine(const QString& pattern)
    {
        const QRegularExpression line("^" + pattern + "$", QRegularExpression::MultilineOption);
        QRegularExpressionMatch found;
        const auto appears = [&] {
            said += readAll();
            const QByteArray lines = said.left(said.lastIndexOf('\n') + 1);
            found = line.match(QString::fromUtf8(lines), position);
            return found.hasMatch();
        };
        if (QTest::qWaitFor(appears, 20000))
            position = int(found.capturedEnd());
        return found.captured();
    }

    /* Waits for the end. Returns all lines. */
    QStringList waitForEnd()
    {
        if (state() != NotRunning && !waitForFinished()) {
            const QString threads = "cd /proc/$0/task; grep . */comm */wchan"; // what they wait in
            execute("sh", {"-c", threads, id()});
            QTest::qFail("a process goes on", __FILE__, __LINE__);
        }
        said += readAll();
        return QString::fromUtf8(said).split('\n', Qt::SkipEmptyParts);
    }

    bool hasEnded() const { return state() == NotRunning; }
    QString id() const { return QString::number(processId()); }

    void command(const QByteArray& line)
    {
        write(line + '\n');
        waitForBytesWritten();
    }

    void signal(int number)
    {
        const auto id = static_cast<pid_t>(processId());
        if (id > 0) // it may have ended; 0 would mean this process
            ::kill(id, number);
    }

    /* Stops the process. Returns whether all its threads have stopped. */
    bool stop()
    {
        signal(SIGSTOP);
        siginfo_t stopped;
        const auto wait = [&] { return ::waitid(P_PID, id_t(processId()), &stopped, WSTOPPED); };
        return TEMP_FAILURE_RETRY(wait()) == 0; // other children may end meanwhile
    }

private:
    QByteArray said;
    int position = 0;
};

using Launch = std::unique_ptr<Process>;

/* Starts support/application.cpp. Its last argument is its name. */
inline Launch launch(const QStringList& arguments = {"/own"}, const QString& folder = {})
{
    return std::make_unique<Process>(PROGRAMS "application", arguments, folder);
}

inline Launch launchMaster(const QStringList& arguments = {"/own"})
{
    Launch master = launch(arguments);
    if (master->waitForLine("state .*") != "state 1")
        QTest::qFail("this is no master", __FILE__, __LINE__);
    return master;
}

/* Returns the state of a launch with that name. */
inline QString launched(const QString& name)
{
    return launch({name})->waitForLine("state .*");
}

/*
 * The processes of one application, including those that another one started. They share a settings
 * folder, and a log of what they say. They end with this object.
 */
class Family {
public:
    Family()
    {
        ::mkfifo(path("life").constData(), S_IRWXU);
        const int reader = ::open(path("life").constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        life = ::open(path("life").constData(), O_WRONLY | O_CLOEXEC);
        ::close(reader);
        qputenv("XDG_CONFIG_HOME", path("settings"));
        qputenv("LAUNCH_LIFE", path("life"));
        qputenv("LAUNCH_LOG", path("log"));
    }
    ~Family()
    {
        if (QTest::currentTestFailed())
            qInfo().noquote() << lines().join('\n');
        ::close(life);
        if (!QTest::qWaitFor([this] { return haveEnded(); }))
            QTest::qFail("a process stays", __FILE__, __LINE__);
    }
    Q_DISABLE_COPY_MOVE(Family)

    QByteArray path(const char* name) const { return QFile::encodeName(folder.filePath(name)); }

    /* Returns lines of the log: "process line". */
    QStringList lines(const QString& pattern = ".*") const
    {
        return contentOf(path("log"))
            .split('\n', Qt::SkipEmptyParts)
            .filter(QRegularExpression("^\\d+ " + pattern + "$"));
    }

    /* Waits until a process says \a line. Returns whether it does in time. */
    bool said(const QString& line) const
    {
        return QTest::qWaitFor([&] { return !lines(line).isEmpty(); }, 20000);
    }

    bool isMaster(const Process& launch) const
    {
        return lines("state 1").contains(launch.id() + " state 1");
    }

    /* Each process has the pipe open. */
    bool haveEnded() const
    {
        const int pipe = ::open(path("life").constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        return pipe < 0 || ::close(pipe) != 0;
    }

    /* Waits until \a launch is a master or its list is shown. Returns whether it is. */
    bool isServed(Process& launch)
    {
        const QString state = launch.waitForLine("state .*");
        handedOver += state == "state 2" ? 1 : 0;
        return state == "state 1"
            || (state == "state 2" && said("list " + launch.arguments().last()));
    }

    /* Returns whether no second master came before the first began to end, and no list was shown
     * twice, by a process that was told to quit, or in a hidden window. */
    bool isInOrder() const
    {
        int masters = 0;
        for (const QString& line : lines()) {
            masters += int(line.endsWith(" state 1")) - int(line.endsWith(" ends"));
            if (masters > 1)
                return false;
        }
        QStringList shown = lines("list .*").replaceInStrings(QRegularExpression("^\\d+"), {});
        return shown.removeDuplicates() == 0 && lines("(late|hidden) .*").isEmpty();
    }

    int handedOver = 0; // of those that are served

private:
    QTemporaryDir folder;
    int life = -1;
};

inline QString output(const QString& program, const QStringList& arguments)
{
    Process process(program, arguments);
    return process.waitForEnd().join('\n');
}

inline QString rootProperty(const QString& name)
{
    return output("xprop", {"-root", "-notype", name}).section(QRegularExpression(" (=|#) "), 1);
}

inline QString activeWindow()
{
    return rootProperty("_NET_ACTIVE_WINDOW");
}

/* From the bottom up. */
inline QStringList stacking()
{
    return rootProperty("_NET_CLIENT_LIST_STACKING").split(", ");
}

inline bool becomesActive(const QString& window)
{
    return QTest::qWaitFor([&] { return activeWindow() == window; }, 20000);
}

/* Returns the active window, once it is one of \a process. */
inline QString windowOf(const Process& process)
{
    const auto isActive = [&process] {
        return output("xdotool", {"getactivewindow", "getwindowpid"}) == process.id();
    };
    return QTest::qWaitFor(isActive, 20000) ? activeWindow() : QString();
}
