#pragma once

#include <HostKit/Launch.h>

#include <QtCore/QStringList>

#include <vector>

class QCommandLineParser;

namespace HostKit {

/*! Where a file name is on a command line. */
struct FileArgument {
    int position; // of the argument
    int begin; // of the name in it
};

/*!
    Returns the file names among \a arguments, of which the first is the program: all that do not
    begin with "-", and all after "--". Any thread.
*/
std::vector<FileArgument> fileArguments(const QStringList& arguments);

/*!
    Returns the file names among \a arguments as \a parser finds them: the positional arguments, if
    \a positionals says so, and the values of the options that \a roles calls file names. \a parser
    must accept the arguments. It holds the result of another parse afterwards.
*/
std::vector<FileArgument> fileArguments(const QStringList& arguments, QCommandLineParser& parser,
                                        const OptionRoles& roles, Positionals positionals);

} // namespace HostKit
