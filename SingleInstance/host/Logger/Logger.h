#pragma once

#ifndef SINGLEINSTANCE_HOST_IS_HIDDEN
#pragma GCC visibility push(default) // the library finds no hidden definition
#endif

/*! The host's logger. */
namespace Logger {

/*!
    Lets the host's logger catch Qt's own messages, or no longer. The library calls it with false
    before it ends the process on a broken precondition.
*/
void setQtDebugCatchingOn(bool on);

} // namespace Logger

#ifndef SINGLEINSTANCE_HOST_IS_HIDDEN
#pragma GCC visibility pop
#endif
