#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace HostKit {

/*
 * The token by which a master's window may come to the front on Wayland. A launcher gives one to
 * each process that it starts; a launch leaves its own in the settings, for the master to use.
 * Nobody removes it: the next one replaces it. The application's thread.
 */

/*!
    Returns what a token is passed on in: the environment, as the launcher set it. Qt may have
    removed it from there by the time there is an application object.
*/
QByteArray ownActivationToken();

/*!
    Leaves \a token in the settings, unless it is empty or no sound one. Hold the launch lock, and
    call it before the hand-over, so that the master finds it with the list.
*/
void leaveActivationToken(const QByteArray& token);

/*! A master's part. */
class ReceivedActivation {
public:
    /*! Has what is in the settings by now count as old. */
    void noteWhatIsThere();

    /*!
        If there is a new token, and the application runs on Wayland, has the environment name it,
        in which Qt's requestActivate() looks for it.
    */
    void takeOver();

private:
    QString seen;
};

} // namespace HostKit
