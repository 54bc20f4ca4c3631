#pragma once

#include <QtCore/QByteArray>

#include <vector>

namespace HostKit {

/*!
    Returns the positions of the \a arguments that are left when an application object with windows
    has removed its own options. The first argument, which names the program, is always left.

    Options of X11 count where the platform is X11: the one that is asked for, or that of the user's
    desktop. Any thread.
*/
std::vector<size_t> positionsWithoutQtOptions(const std::vector<QByteArray>& arguments);

} // namespace HostKit
