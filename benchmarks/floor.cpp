/* The least that a Qt program does: it builds its application object, and writes a byte. */

#include <QtCore/QCoreApplication>

#include <unistd.h>

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    return ::write(STDOUT_FILENO, "x", 1) == 1 ? 0 : 1;
}
