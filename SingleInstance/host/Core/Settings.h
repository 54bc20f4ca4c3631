#pragma once

#include <QtCore/QString>
#include <QtCore/QVariant>

#ifndef SINGLEINSTANCE_HOST_IS_HIDDEN
#pragma GCC visibility push(default) // the library could not find a hidden one
#endif

/*! The host's core library: registry, settings, invoker. */
namespace Core {

/*!
    The host's persistent settings, shared by all its processes.

    The library keeps the master's port and process id here. Other processes must see immediately
    what one process has written. The library calls both functions from more than one thread.
*/
class Settings {
public:
    /*! Returns the process-wide store, which lives as long as the process. */
    static Settings* getInstance();

    /*! Returns the value of \a key in \a group, or \a defaultValue if there is none. */
    QVariant getValue(const QString& group, const QString& key, const QVariant& defaultValue) const;

    /*! Sets \a key in \a group to \a value. The library passes true as \a flag. */
    void setValue(const QString& group, const QString& key, const QVariant& value, bool flag);
};

} // namespace Core

#ifndef SINGLEINSTANCE_HOST_IS_HIDDEN
#pragma GCC visibility pop
#endif
