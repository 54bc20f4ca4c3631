#pragma once

#include <HostKit/export.h>

#include <QtCore/QMetaType>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <memory>

namespace HostKit {

struct ReceivedLaunchPrivate;

/*!
    A launch that another process handed over: see InstanceSession::launchReceived().

    Copies are the same launch. Use them in the application's thread. Everything in it comes from
    some local process: do not trust it.
*/
class HOSTKIT_EXPORT ReceivedLaunch {
public:
    /*! Constructs a launch without arguments that does not wait. */
    ReceivedLaunch();
    /*! Constructs a copy, which is the same launch. */
    ReceivedLaunch(const ReceivedLaunch& other);
    /*! Makes this object the same launch as \a other. */
    ReceivedLaunch& operator=(const ReceivedLaunch& other);

    /*! The last copy ends the wait with the exit code 0, if the launch still waits. */
    ~ReceivedLaunch();

    /*! Returns the arguments, as InstanceSession::argumentsReceived() passes them. */
    QStringList arguments() const;

    /*! Returns the folder in which the launch was started: an absolute path, or nothing. */
    QString workingFolder() const;

    /*! Returns whether the launch waits for an answer. The user of the launch may end the wait. */
    bool isWaiting() const;

    /*!
        Ends the wait: the launch prints \a text on its standard error and exits with \a exitCode.
        Only the first answer counts. Does nothing if the launch does not wait. \a text is cut after
        32,000 UTF-16 units. Never blocks.
    */
    void answer(int exitCode, const QString& text = {}) const;

private:
    friend class InstanceSessionPrivate;
    explicit ReceivedLaunch(std::shared_ptr<ReceivedLaunchPrivate> received);

    std::shared_ptr<ReceivedLaunchPrivate> d;
};

} // namespace HostKit

Q_DECLARE_METATYPE(HostKit::ReceivedLaunch)
