#pragma once

#include <QtCore/QString>

#include <utility>

class QObject;

#ifndef SINGLEINSTANCE_HOST_IS_HIDDEN
#pragma GCC visibility push(default) // the library could not find a hidden one
#endif

namespace Core {

/*!
    The host's registry of named objects, one per process.

    The library enters the master's controller here. When an object is destroyed, its entry must go,
    so that take() never returns a dangling pointer.
*/
class ObjectsPool {
public:
    /*! An object, twice: as an untyped pointer, and as the QObject that emits destroyed(). */
    using Entry = std::pair<void*, QObject*>;

    /*! Returns the process-wide registry, which lives as long as the process. */
    static ObjectsPool& getInstance();

    /*! Returns the entry \a name, or two null pointers. The library passes false as \a flag. */
    Entry find(const QString& name, bool flag) const;

    /*!
        Stores \a entry as \a name, without owning it. Returns whether it did. The library passes
        true as \a flag.
    */
    bool add(const Entry& entry, const QString& name, bool flag);

    /*!
        Removes the entry called \a name and returns it, or two null pointers. The library passes
        false as \a flag.
    */
    Entry take(const QString& name, bool flag);
};

} // namespace Core

#ifndef SINGLEINSTANCE_HOST_IS_HIDDEN
#pragma GCC visibility pop
#endif
