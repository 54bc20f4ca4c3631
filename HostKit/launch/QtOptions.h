#pragma once

#include <vector>

namespace HostKit {

/*
 * The options that Qt takes out of the command line of an application with windows before that sees
 * its arguments. Any thread.
 */

/*! Returns whether Qt takes the argument behind \a argument, a text that begins with -, with it. */
bool takesValue(const char* argument);

/*!
    Removes from \a arguments, of which the first is the program, what a QApplication would, as far
    as that can be told without one: the platform is the one that is asked for, or that of the
    user's desktop.
*/
void removeQtOptions(std::vector<char*>& arguments);

} // namespace HostKit
