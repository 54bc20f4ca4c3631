#pragma once

#include <HostKit/export.h>

#include <QtCore/QtGlobal>

#include <memory>

namespace HostKit {

class FileLock;

/*!
    Holds the launches of one application apart while they decide which is the master.

    Two first launches that overlap can both become master, since the settings by which they find
    each other are locked by nobody. Launches that each hold this lock around startSingleInstance()
    do not overlap:

    \code
    const HostKit::LaunchLock lock;
    const SingleInstanceState state = startSingleInstance();
    \endcode

    Not around an InstanceSession or a Launch: these hold it themselves, and would wait for it.

    Build it after the application object, whose organisation and application name tell whose lock
    it is. The lock is a file in the user's own configuration; the kernel releases it when its
    holder dies, so that a crash delays nobody.
*/
class HOSTKIT_EXPORT LaunchLock {
public:
    /*!
        Waits up to \a patience milliseconds for the lock, in the calling thread. Go on without it
        if it was not taken: an application that starts twice is better than one that does not
        start.
    */
    explicit LaunchLock(int patience = 10000);

    /*! Releases the lock, if it was taken. */
    ~LaunchLock();

    Q_DISABLE_COPY_MOVE(LaunchLock)

    /*! Returns whether this object holds the lock. */
    bool isTaken() const;

private:
    std::unique_ptr<FileLock> file;
};

} // namespace HostKit
