#pragma once

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QSocketNotifier>
#include <QtCore/QStringList>

#include <cstdio>
#include <functional>
#include <memory>

#include <fcntl.h>
#include <unistd.h>

/*
 * How a process of a test talks with it: in whole lines on standard output, and as "<process> line"
 * in the file LAUNCH_LOG if there is one, which processes share that nobody in the test started. It
 * obeys lines of its input, and ends when that ends, or when the pipe LAUNCH_LIFE loses its last
 * writer; after a minute at the latest.
 */

inline void say(const QString& line)
{
    std::puts(line.toUtf8().constData());
    std::fflush(stdout);
    QFile log(qEnvironmentVariable("LAUNCH_LOG"));
    if (!log.fileName().isEmpty() && log.open(QIODevice::Append | QIODevice::Unbuffered))
        log.write(QByteArray::number(::getpid()) + ' ' + line.toUtf8() + '\n');
}

/* Has \a command called with each line of the input. Ends with the input. */
class Telling {
public:
    explicit Telling(bool hasInput, const std::function<void(const QByteArray&)>& command = {})
        : life(::open(qgetenv("LAUNCH_LIFE").constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC))
    {
        ::alarm(60);
        if (hasInput)
            input = listenTo(STDIN_FILENO, command);
        if (life >= 0)
            end = listenTo(life, command);
    }

private:
    static std::unique_ptr<QSocketNotifier>
    listenTo(int file, const std::function<void(const QByteArray&)>& command)
    {
        auto notifier = std::make_unique<QSocketNotifier>(file, QSocketNotifier::Read);
        QObject::connect(notifier.get(), &QSocketNotifier::activated, [file, command] {
            QByteArray line(64, '\0');
            const auto got = ::read(file, line.data(), size_t(line.size()));
            if (got <= 0)
                ::_exit(0); // no quit: that is what tests look at
            command(line.left(int(got)).trimmed());
        });
        return notifier;
    }

    const int life;
    std::unique_ptr<QSocketNotifier> input;
    std::unique_ptr<QSocketNotifier> end;
};
