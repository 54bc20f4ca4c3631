#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QStringList>

#include <vector>

namespace HostKit {

/*!
    A program's arguments in the form in which main() gets them.

    The application object keeps references to the count and to the pointers, so this object must
    outlive it. The application's thread.
*/
class ArgumentVector {
public:
    ArgumentVector(int argc, char** argv);
    Q_DISABLE_COPY_MOVE(ArgumentVector)

    /*! Returns the arguments as an application object decodes them. */
    QStringList decoded() const;

    /*! Replaces the argument at \a position. */
    void replace(int position, const QString& text);

    int count;
    std::vector<char*> pointers; // with a null after the last

private:
    std::vector<QByteArray> arguments; // the pointers point into them
};

} // namespace HostKit
