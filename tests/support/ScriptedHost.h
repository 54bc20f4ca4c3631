#pragma once

#include <HostKit/Log.h>

#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

#include <mutex>

#pragma GCC visibility push(default) // also in a library that hides its symbols

/*!
    A host that a test sets up and looks into: its settings and its invoker take the place of
    HostKit's, whose registry and log it uses. It is called from the master's thread, too.
*/
namespace ScriptedHost {

struct State {
    QStringList log; // "level text", without the prefix that all lines have to carry
    QVariantList portReads; // answers to the next reads of the port, before the stored value
    QHash<QString, QVariant> settings;
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

/*! Forgets everything and lets all lines through to the log. */
void reset();

QStringList takeLog();

} // namespace ScriptedHost

#pragma GCC visibility pop
