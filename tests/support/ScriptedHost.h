#pragma once

#include <TrvUtilities/Logging.h>

#include <QtCore/QHash>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

#include <functional>
#include <memory>

/*!
    A host whose functions a test sets up and looks into: it takes the place of HostKit in the test
    programs that link it. All of it is guarded for use from the master's thread.
*/
namespace ScriptedHost {

/*! Forgets everything: threshold Trace, a sink that records, empty settings and registry. */
void reset();

void setThreshold(torvane::LogLevel level);
void setSink(std::function<void(torvane::LogLevel, const std::wstring&)> sink);

/*! Returns the lines so far as "level text", each without the prefix that all have to carry. */
QStringList takeLog();

/*! Returns how often the library asked for the sink. */
int sinkRequests();

/*! Answers the next reads of the port with \a ports before the stored value is told again. */
void scriptPortReads(const QVariantList& ports);

QVariant setting(const QString& key);
void set(const QString& key, const QVariant& value);

/*! Keeps invoked functions until runInvoked(), which tells how many there were. */
void holdInvoked();
int runInvoked();

} // namespace ScriptedHost
