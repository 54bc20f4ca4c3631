#pragma once

#include <QtCore/QByteArray>

namespace HostKit {

/*
 * The token that allows a window to come to the front on Wayland. A launcher gives one to each
 * process that it starts. A launch passes its token to the master. The application's thread.
 */

/*!
    Returns the token that the launcher put into this process's environment, or nothing. The
    application object may have removed it.
*/
QByteArray ownActivationToken();

/*! Returns whether \a token can be passed on: 1 to 1,024 visible ASCII characters. Any thread. */
bool isValidToken(const QByteArray& token);

/*!
    If the application runs on Wayland and \a token is valid, puts it into the environment. Qt's
    requestActivate() looks for it there.
*/
void exportToEnvironment(const QByteArray& token);

/*!
    Removes \a token from the environment, if it is still there. Otherwise child processes would
    inherit it.
*/
void removeFromEnvironment(const QByteArray& token);

} // namespace HostKit
