#include <HostKit/Launch.h>

#include <HostKit/LaunchLock.h>

#include "Activation.h"
#include "Election.h"
#include "LaunchPrivate.h"
#include "Parts.h"
#include "StartupNotification.h"
#include "Successor.h"

#include <QtCore/QCoreApplication>

#include <clocale>

namespace HostKit {

LaunchPrivate* LaunchPrivate::current = nullptr;

namespace {

/* As the application object will do: file names are decoded by it. */
CommandLine lineInLocale(int argc, char** argv, const QStringList& notFiles)
{
    std::setlocale(LC_ALL, "");
    return {argc, argv, notFiles};
}

/*
 * The library reads the arguments from an application object: one without windows, which is built
 * in a tenth of the time and loads nothing.
 */
bool handsOver(LaunchPrivate& launch)
{
    const LaunchLock launchLock;
    launch.hasWaitedInVain = !launchLock.isTaken();
    if (launch.hasWaitedInVain || isSuccessor() || answeringMaster() == 0)
        return false;
    const CommandLine whole = withoutQtOptions(launch.line);
    CommandLine own = whole;
    const QCoreApplication application(own.count, own.pointers.data());
    if (!fitMessages(QCoreApplication::arguments().mid(1)))
        return false;
    leaveActivationToken(launch.activationToken);
    const SingleInstanceState state = startInParts(&own);
    if (state == SingleInstanceStateMaster) // that one has just died: the session will decide
        stopSingleInstance();
    for (int i = 1; i <= whole.count - own.count; ++i) // what was handed over, before it failed
        removeArgument(launch.line, whole.pointers[static_cast<size_t>(i)]);
    return state == SingleInstanceStateSecondary;
}

} // namespace

Launch::Launch(int argc, char** argv, const QString& organisation, const QString& application,
               const QStringList& notFiles)
    : d(new LaunchPrivate{lineInLocale(argc, argv, notFiles), qgetenv("DESKTOP_STARTUP_ID"),
                          ownActivationToken()})
{
    if (QCoreApplication::instance()) {
        qWarning("HostKit: a launch that is built after the application object hands nothing over");
        return;
    }
    LaunchPrivate::current = d.get();
    QCoreApplication::setOrganizationName(organisation);
    QCoreApplication::setApplicationName(application);
    if (!application.isEmpty())
        d->isHandedOver = handsOver(*d);
    if (d->isHandedOver)
        endStartup(d->startupId);
}

Launch::~Launch()
{
    if (LaunchPrivate::current == d.get())
        LaunchPrivate::current = nullptr;
}

bool Launch::isHandedOver() const
{
    return d->isHandedOver;
}

int& Launch::argc()
{
    return d->line.count;
}

char** Launch::argv()
{
    return d->line.pointers.data();
}

} // namespace HostKit
