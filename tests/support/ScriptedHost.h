#pragma once

#include <HostKit/Log.h>

#include <QtCore/QHash>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

#include <memory>

#pragma GCC visibility push(default) // also in a library that hides its symbols

/*!
    A host that a test sets up and looks into: its settings take the place of HostKit's, of which it
    uses all else. It is called from the master's thread, too.
*/
namespace ScriptedHost {

struct State {
    QStringList log; // "level text", without the prefix that all lines must have
    QVariantList portReads; // answers to the next reads of the port, before the stored value
    QHash<QString, QVariant> settings;
};

/*! The state. It is locked as long as the returned object lives. */
std::shared_ptr<State> state();

/*! Forgets everything. All lines go to the log. */
void reset();

QStringList takeLog();

} // namespace ScriptedHost

#pragma GCC visibility pop
