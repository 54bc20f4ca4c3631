#pragma once

#include "Process.h"

#include <QtCore/QTemporaryDir>

#include <set>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

/*
 * The processes of one application in a settings folder of their own, those included that were
 * started by others of them. What they say is in one log, in its order; they end with this object.
 */
class Family {
public:
    Family()
    {
        ::mkfifo(path("life").constData(), S_IRWXU);
        life = ::open(path("life").constData(), O_RDWR | O_CLOEXEC);
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
            qWarning("a process stays");
        for (const char* const variable : {"XDG_CONFIG_HOME", "LAUNCH_LIFE", "LAUNCH_LOG"})
            qunsetenv(variable);
    }
    Q_DISABLE_COPY_MOVE(Family)

    QByteArray path(const char* name) const { return QFile::encodeName(folder.filePath(name)); }

    /* "process line" each. */
    QStringList lines() const
    {
        QFile log(path("log"));
        if (!log.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(log.readAll()).split('\n', Qt::SkipEmptyParts);
    }

    int count(const QString& line) const
    {
        return int(lines().filter(QRegularExpression("^\\d+ " + line + "$")).size());
    }

    /* Waits until that was said; returns whether it was in time. */
    bool said(const QString& line) const
    {
        return QTest::qWaitFor([&] { return count(line) > 0; }, 20000);
    }

    std::set<QString> processes() const
    {
        std::set<QString> all;
        for (const QString& line : lines())
            all.insert(line.section(' ', 0, 0));
        return all;
    }

    bool haveEnded() const
    {
        const auto all = processes();
        return std::all_of(all.begin(), all.end(), [](const QString& each) {
            return QFile::symLinkTarget("/proc/" + each + "/exe").isEmpty();
        });
    }

    /* The most masters that there were at a time, none of which was about to end. */
    size_t mostMasters() const
    {
        size_t most = 0;
        size_t masters = 0;
        for (const QString& line : lines()) {
            masters += line.endsWith(" state 1") ? 1 : 0;
            masters -= line.endsWith(" ends") ? 1 : 0;
            most = std::max(most, masters);
        }
        return most;
    }

private:
    QTemporaryDir folder;
    int life = -1;
};

/* What became of many launches. */
struct Tally {
    int twoMasters = 0;
    int failed = 0;
    int handedOver = 0;
    int lost = 0;
    int repeated = 0;

    /* Counts what became of \a launch, of which the last argument is the name. */
    void count(const Family& family, Process& launch)
    {
        const QString state = launch.waitForLine("state .*");
        const QString list = "list " + launch.arguments().last();
        const bool isHandedOver = state == "state 2";
        handedOver += isHandedOver ? 1 : 0;
        failed += isHandedOver || state == "state 1" ? 0 : 1;
        lost += isHandedOver && !family.said(list) ? 1 : 0;
        repeated += family.count(list) > 1 ? 1 : 0;
    }

    /* Counts what cannot be told of one launch. */
    void count(const Family& family)
    {
        lost += family.count("(late|hidden) .*");
        twoMasters += family.mostMasters() > 1 ? 1 : 0;
    }

    bool isClean() const { return twoMasters + failed + lost + repeated == 0; }
    QByteArray text() const
    {
        const auto* const format = "%d with two masters, %d of %d lists lost, %d repeated, "
                                   "%d launches failed";
        return QString::asprintf(format, twoMasters, lost, handedOver, repeated, failed).toUtf8();
    }
};
