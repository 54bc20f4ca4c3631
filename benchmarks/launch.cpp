/* A launch of an application, with the lock that it holds meanwhile. */

#include <HostKit/LaunchLock.h>
#include <SingleInstanceController.h>

#include <QtCore/QCoreApplication>

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("bench"));
    const HostKit::LaunchLock lock;
    return startSingleInstance();
}
