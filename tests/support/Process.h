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
                const int index = lines.indexOf(expression, position);
                if (index < 0)
                    return false;
                found = lines.at(index);
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
        const QByteArray output = readAllStandardOutput();
        said += output;
        split(unfinishedOutput += output);
        const QByteArray error = readAllStandardError();
        errors += error;
        split(unfinishedErrors += error);
    }
    void split(QByteArray& text)
    {
        for (int end = text.indexOf('\n'); end >= 0; end = text.indexOf('\n')) {
            lines.append(QString::fromUtf8(text.left(end)));
            text.remove(0, end + 1);
        }
    }

    QByteArray said;
    QByteArray errors;
    QByteArray unfinishedOutput;
    QByteArray unfinishedErrors;
    QStringList lines; // of both, as they came
    int position = 0;
};
