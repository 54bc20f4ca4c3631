#pragma once

#include <QtCore/QByteArray>

namespace HostKit {

/*
 * The token by which a window may come to the front on Wayland. A launcher gives one to each process
 * that it starts; a launch passes its own on to the master. The application's thread.
 */

/*!
    Returns the token that the launcher left in this process's environment, or nothing. Qt may have
    removed it once there is an application object.
*/
QByteArray ownActivationToken();

/*! Returns whether \a token can be passed on: 1 to 1,024 visible ASCII characters. Any thread. */
bool isValidToken(const QByteArray& token);

/*!
    Puts \a token into the environment, where Qt's requestActivate() looks for it, if the application
    runs on Wayland and the token is valid.
*/
void exportToEnvironment(const QByteArray& token);

/*!
    Removes \a token from the environment if nobody used it, so that child processes do not inherit
    it.
*/
void removeFromEnvironment(const QByteArray& token);

} // namespace HostKit
