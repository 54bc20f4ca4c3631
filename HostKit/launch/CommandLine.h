#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QStringList>

#include <vector>

namespace HostKit {

/*!
    A program's arguments in the shape that main() gets them, with all file names absolute.

    The application object keeps a reference to the number and the pointers, so keep this alive as
    long. Copies share the texts. The application's thread.
*/
struct CommandLine {
    /*!
        Copies \a argv. What follows one of the options in \a notFiles stays as it is, and so does
        any other text that is in it.
    */
    CommandLine(int argc, char** argv, const QStringList& notFiles);

    std::vector<QByteArray> texts; // never to be changed: the pointers point into them
    std::vector<char*> pointers; // with a null behind the last
    int count = 0;
};

/*! Removes the argument at \a pointer. */
void removeArgument(CommandLine& line, const char* pointer);

/*! Returns \a line without the options that an application object with windows takes out. */
CommandLine withoutQtOptions(CommandLine line);

} // namespace HostKit
