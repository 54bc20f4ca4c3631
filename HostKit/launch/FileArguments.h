#pragma once

#include <HostKit/Launch.h>

#include <QtCore/QByteArray>

#include <vector>

class QCommandLineParser;

namespace HostKit {

/*! Where a file name stands on a command line. */
struct FileArgument {
    size_t position; // of the argument
    int begin; // of the name in it, in bytes
};

/*!
    Returns the file names among \a arguments, of which the first is the program: all that do not
    begin with "-", and all behind "--". Any thread.
*/
std::vector<FileArgument> fileArguments(const std::vector<QByteArray>& arguments);

/*!
    Returns the file names among \a arguments as \a parser tells them: the positional arguments, if
    \a positionals says so, and the values of the options that \a roles calls file names. Leaves
    the parser with the result of another parse.
*/
std::vector<FileArgument> fileArguments(const std::vector<QByteArray>& arguments,
                                        QCommandLineParser& parser, const OptionRoles& roles,
                                        Positionals positionals);

} // namespace HostKit
