/* A launch of an application without windows. */

#include <HostKit/InstanceSession.h>

#include <QtCore/QCoreApplication>

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("bench"));
    const HostKit::InstanceSession session;
    return session.state();
}
