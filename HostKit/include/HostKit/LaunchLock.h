#pragma once

#include <HostKit/export.h>

#include <QtCore/QtGlobal>

#include <memory>

namespace HostKit {

class FileLock;

/*!
    Serialises the launches of one application while they decide which of them is the master.

    Launches find each other by the settings, which nobody locks. So two first launches at once can
    both become master, unless each holds this lock around startSingleInstance():

    \code
    const HostKit::LaunchLock lock;
    const SingleInstanceState state = startSingleInstance();
    \endcode

    InstanceSession and Launch take the lock themselves. Do not hold it while you build one.

    Build the lock after the application object: organisation and application name say whose lock it
    is. It is a file in the user's own configuration. The kernel releases it when its holder dies,
    so that a crash delays nobody.
*/
class HOSTKIT_EXPORT LaunchLock {
public:
    /*!
        Waits up to \a timeout milliseconds for the lock, in the calling thread. If it was not
        taken, continue without it: an application that starts twice is better than one that does
        not start.
    */
    explicit LaunchLock(int timeout = 10000);

    /*! Releases the lock, if it was taken. */
    ~LaunchLock();

    Q_DISABLE_COPY_MOVE(LaunchLock)

    /*! Returns whether this object holds the lock. */
    bool isTaken() const;

private:
    std::unique_ptr<FileLock> file;
};

} // namespace HostKit
