#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QStringList>

#include <vector>

namespace HostKit {

/*!
    A program's arguments in the shape in which main() gets them.

    The application object keeps references to the number and to the pointers, so this object must
    outlive it. The application's thread.
*/
class CommandLine {
public:
    CommandLine(int argc, char** argv);
    Q_DISABLE_COPY_MOVE(CommandLine)

    const std::vector<QByteArray>& texts() const { return arguments; }

    /*! Replaces the argument at \a position. */
    void replace(size_t position, const QByteArray& text);

    int count;
    std::vector<char*> pointers; // with a null behind the last

private:
    std::vector<QByteArray> arguments; // the pointers point into them
};

/*! Returns \a arguments as an application object decodes them. */
QStringList decoded(const std::vector<QByteArray>& arguments);

} // namespace HostKit
