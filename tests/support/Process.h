#pragma once

#include <QtTest/QtTest>

#include <csignal>
#include <memory>

#include <sys/wait.h>

/* A process of a test. It is killed with the object; what it said is shown when a check fails. */
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

    /* Waits for a whole line that \a pattern matches, behind the last one; returns it, if in time.
     */
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

    /* Waits for the end; returns all lines. */
    QStringList waitForEnd()
    {
        if (state() != NotRunning)
            waitForFinished();
        said += readAll();
        return QString::fromUtf8(said).split('\n', Qt::SkipEmptyParts);
    }

    void command(const QByteArray& line)
    {
        write(line + '\n');
        waitForBytesWritten();
    }

    void signal(int number)
    {
        const auto id = static_cast<pid_t>(processId());
        if (id > 0) // it may have ended, and 0 would mean ourselves
            ::kill(id, number);
    }

    /* Stops it; returns whether all its threads have by now. */
    bool stop()
    {
        signal(SIGSTOP);
        siginfo_t stopped;
        return ::waitid(P_PID, id_t(processId()), &stopped, WSTOPPED) == 0;
    }

private:
    QByteArray said;
    int position = 0;
};

using Launch = std::unique_ptr<Process>;

#ifdef PROGRAMS
/* Of support/application.cpp, whose last argument is its name. */
inline Launch launch(const QStringList& arguments = {"/own"})
{
    return std::make_unique<Process>(PROGRAMS "application", arguments);
}

/* Returns nothing if it is no master. */
inline Launch launchMaster(const QStringList& arguments = {"/own"})
{
    Launch master = launch(arguments);
    return master->waitForLine("state .*") == "state 1" ? std::move(master) : nullptr;
}

/* Returns the state that the launch came to. */
inline QString launched(const QString& name)
{
    return launch({name})->waitForLine("state .*");
}
#endif
