#pragma once

#include <HostKit/export.h>

#include <QtCore/QtGlobal>

#include <memory>

namespace HostKit {

class FileLock;

/*!
    Serialises the launches of one application while they decide which of them is the master.

    Nobody locks the settings by which launches find each other. So two first launches at once can
    both become master. Each must hold this lock around startSingleInstance():

    \code
    const HostKit::LaunchLock lock;
    const SingleInstanceState state = startSingleInstance();
    \endcode

    An InstanceSession and a Launch take it themselves: do not hold it around these.

    Build it after the application object: its organisation and application name tell whose lock it
    is. The lock is a file in the user's own configuration. The kernel releases it when its holder
    dies, so that a crash delays nobody.
*/
class HOSTKIT_EXPORT LaunchLock {
public:
    /*!
        Waits up to \a timeout milliseconds for the lock, in the calling thread. If it was not
        taken, go on without it: an application that starts twice is better than one that does not
        start.
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
