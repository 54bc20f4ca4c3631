#include <HostKit/InstanceSession.h>

#include <QtCore/QCoreApplication>

#include <cstdio>

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    const HostKit::InstanceSession session;
    std::printf("state %d\n", session.state());
    return 0;
}
