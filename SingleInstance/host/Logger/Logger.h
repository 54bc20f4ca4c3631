#pragma once

#ifndef SINGLEINSTANCE_HOST_IS_HIDDEN
#pragma GCC visibility push(default) // the library could not find a hidden one
#endif

/*! The host's logger. */
namespace Logger {

/*!
    Sets whether the host's logger catches Qt's own messages. The library calls it with false before
    it ends the process because of a broken precondition.
*/
void setQtDebugCatchingOn(bool on);

} // namespace Logger

#ifndef SINGLEINSTANCE_HOST_IS_HIDDEN
#pragma GCC visibility pop
#endif
