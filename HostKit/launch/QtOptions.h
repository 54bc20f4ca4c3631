#pragma once

#include <QtCore/QStringList>

#include <functional>
#include <vector>

namespace HostKit {

/*!
    Returns the positions of the \a arguments that are not options of Qt's own, nor values of these.
    Qt's own options are those that an application object with windows removes, on any platform. The
    first argument names the program and is always returned. \a isOwn tells whether the application
    itself has an option of that name: then it is not Qt's. Any thread.
*/
std::vector<int> positionsWithoutQtOptions(const QStringList& arguments,
                                           const std::function<bool(const QString&)>& isOwn);

} // namespace HostKit
