/* What every Qt program with network costs at its start: says so with a byte as soon as it is up.
 */

#include <QtCore/QCoreApplication>

#include <unistd.h>

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    return ::write(STDOUT_FILENO, "x", 1) == 1 ? 0 : 1;
}
