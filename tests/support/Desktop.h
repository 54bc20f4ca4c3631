#pragma once

#include "Process.h"

/* What a window manager says of the windows on the display. */

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
    QString window;
    const auto isThere = [&] {
        window = activeWindow();
        return stacking().contains(window)
            && output("xprop", {"-id", window, "-notype", "_NET_WM_PID"})
                   .endsWith(QString(" = %1").arg(process.processId()));
    };
    return QTest::qWaitFor(isThere, 20000) ? window : QString();
}
