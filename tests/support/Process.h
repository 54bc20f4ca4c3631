#pragma once

#include <QtTest/QtTest>

#include <csignal>

/* A process of a test. It is killed with the object; what it said is shown when a check fails. */
class Process : public QProcess {
public:
    Process(const QString& program, const QStringList& arguments, const QString& folder = {})
    {
        setWorkingDirectory(folder);
        start(program, arguments);
    }
    ~Process() override
    {
        if (QTest::currentTestFailed())
            qInfo().noquote() << program() << arguments() << "said:\n" << said << errors;
        kill();
        waitForFinished();
    }

    /* Waits for a whole line that \a pattern matches; returns it, or nothing in time. */
    QString waitForLine(const QString& pattern, int milliseconds = 20000)
    {
        const QRegularExpression expression(QRegularExpression::anchoredPattern(pattern));
        QString found;
        const bool appeared = QTest::qWaitFor(
            [&] {
                read();
                const QStringList all = lines();
                const int index = all.indexOf(expression, position);
                if (index < 0)
                    return false;
                found = all.at(index);
                position = index + 1;
                return true;
            },
            milliseconds);
        return appeared ? found : QString();
    }

    /* Waits for the end; returns all lines on standard output. */
    QStringList waitForEnd()
    {
        if (state() != NotRunning)
            waitForFinished();
        read();
        return QString::fromUtf8(said).split('\n', Qt::SkipEmptyParts);
    }

    void signal(int number)
    {
        const auto id = static_cast<pid_t>(processId());
        if (id > 0) // it may have ended, and 0 would mean ourselves
            ::kill(id, number);
    }

private:
    void read()
    {
        said += readAllStandardOutput();
        errors += readAllStandardError();
    }
    QStringList lines() const
    {
        return QString::fromUtf8(said.left(said.lastIndexOf('\n') + 1)
                                 + errors.left(errors.lastIndexOf('\n')))
            .split('\n');
    }

    QByteArray said;
    QByteArray errors;
    int position = 0;
};
