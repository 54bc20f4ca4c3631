/*
 * An application with things of its own that have the names of what the library calls in its host,
 * and beside them a session: neither gets into the other's way.
 */

#include <HostKit/InstanceSession.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QTimer>
#include <QtCore/QVariant>

#include <cstdio>
#include <functional>
#include <string>

namespace {

int calls = 0; // of what is the application's alone

} // namespace

namespace Core {

class Settings {
public:
    static Settings* getInstance();
    QVariant getValue(const QString& group, const QString& key, const QVariant& value) const;
    void setValue(const QString& group, const QString& key, const QVariant& value, bool flag);
};

Settings* Settings::getInstance()
{
    ++calls;
    return nullptr;
}

QVariant Settings::getValue(const QString& /*group*/, const QString& /*key*/,
                            const QVariant& /*value*/) const
{
    ++calls;
    return 4711;
}

void Settings::setValue(const QString& /*group*/, const QString& /*key*/, const QVariant& /*value*/,
                        bool /*flag*/)
{
    ++calls;
}

class ObjectsPool {
public:
    using Entry = std::pair<void*, QObject*>;
    static ObjectsPool& getInstance();
    Entry find(const QString& name, bool flag) const;
};

ObjectsPool& ObjectsPool::getInstance()
{
    ++calls;
    static ObjectsPool pool;
    return pool;
}

ObjectsPool::Entry ObjectsPool::find(const QString& /*name*/, bool /*flag*/) const
{
    ++calls;
    return {};
}

} // namespace Core

namespace Logger {

void setQtDebugCatchingOn(bool /*on*/)
{
    ++calls;
}

} // namespace Logger

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    const HostKit::InstanceSession session;
    std::printf("state %d, own calls %d\n", session.state(), calls);
    std::fflush(stdout);
    if (session.state() != SingleInstanceStateMaster)
        return 0;
    QObject::connect(&session, &HostKit::InstanceSession::argumentsReceived,
                     [](const QStringList& list) {
                         std::printf("%s\n", qPrintable(list.join(QLatin1Char('|'))));
                         QCoreApplication::quit();
                     });
    QTimer::singleShot(20000, &QCoreApplication::quit);
    return QCoreApplication::exec();
}
