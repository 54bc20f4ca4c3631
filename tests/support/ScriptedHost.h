#pragma once

#include <TrvUtilities/Logging.h>

#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QPointer>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

#include <mutex>

/*!
    A host whose functions a test sets up and looks into: it takes the place of HostKit in the test
    programs that link it. It is used from the master's thread, too.
*/
namespace ScriptedHost {

struct State {
    torvane::LogLevel threshold = torvane::LogLevel::Trace;
    std::function<void(torvane::LogLevel, const std::wstring&)> sink; // fills the log at first
    QStringList log; // "level text", without the prefix that all lines have to carry
    QVariantList portReads; // answers to the next reads of the port, before the stored value
    QHash<QString, QVariant> settings;
    QHash<QString, QPointer<QObject>> registry;
    bool holdsInvoked = false; // keeps what is to be invoked instead
    QList<std::function<void()>> invoked;
};

/*! The state, locked for as long as this object lives. */
struct Access {
    State* operator->() const { return state; }
    std::unique_lock<std::recursive_mutex> lock;
    State* state;
};
Access state();

void reset();
QStringList takeLog();

} // namespace ScriptedHost
