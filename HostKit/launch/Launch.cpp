#include <HostKit/Launch.h>

#include "AbsoluteFileName.h"
#include "ActivationToken.h"
#include "AnswerWait.h"
#include "FileArgumentPositions.h"
#include "LaunchPrivate.h"
#include "LaunchSpool.h"
#include "QtOptions.h"
#include "StartupNotification.h"
#include "SuccessorProcess.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QDir>

#include <algorithm>
#include <array>
#include <clocale>
#include <cstdio>

namespace HostKit {

LaunchPrivate* LaunchPrivate::current = nullptr;

LaunchMessage thisLaunch()
{
    LaunchMessage message;
    message.id = newLaunchId();
    message.activationToken = ownActivationToken();
    message.workingFolder = QDir::cleanPath(workingFolder());
    return message;
}

LaunchPrivate::LaunchPrivate(int argc, char** argv)
    : line(argc, argv)
    , startupId(qgetenv("DESKTOP_STARTUP_ID"))
{
    std::setlocale(LC_ALL, ""); // as the application object does: it tells how names are decoded
    message = thisLaunch();
}

LaunchPrivate::~LaunchPrivate()
{
    const bool isUnused = decision && decision->outcome == Outcome::MasterToBe;
    decision.reset(); // and its lock
    if (current == this)
        current = nullptr;
    // The application built no session. Another process must show what launches left for it. But a
    // successor starts no other, or they would start each other for ever.
    if (isUnused && hasSpooled() && !wasSuccessor())
        startSuccessor(defaultRestartCommand());
}

namespace {

struct Application {
    QCommandLineParser* parser = nullptr; // or none
    OptionRoles roles;
    Positionals positionals = Positionals::FileNames;

    bool isSet(OptionRole role) const
    {
        return std::any_of(roles.begin(), roles.end(), [this, role](const auto& each) {
            return each.second == role && parser->isSet(each.first);
        });
    }
    bool hasOption(const QString& name) const
    {
        if (!parser)
            return false;
        parser->parse({QString(), QStringLiteral("--") + name});
        return !parser->unknownOptionNames().contains(name);
    }
};

/* An application object for a while. It gets copies, since it removes some arguments. */
struct TemporaryApplication {
    explicit TemporaryApplication(const ArgumentVector& line)
        : pointers(line.pointers)
        , count(line.count)
        , application(count, pointers.data())
    {
    }
    std::vector<char*> pointers;
    int count;
    const QCoreApplication application;
};

/* Ends the process if the user asks for help or the version, or made a mistake. */
void answerUser(QCommandLineParser& parser, const QStringList& arguments,
                const ArgumentVector& line)
{
    static constexpr std::array questions = {"h", "?", "help", "help-all", "v", "version"};
    const bool isMistake = !parser.parse(arguments);
    const QStringList found = parser.optionNames();
    const bool mayAsk = std::any_of(questions.begin(), questions.end(), [&found](const char* name) {
        return found.contains(QLatin1String(name));
    });
    if (!isMistake && !mayAsk)
        return;
    const TemporaryApplication application(line); // which takes a while, and process() needs it
    parser.process(arguments);
}

/* Makes the file names in \a arguments absolute. Returns one that cannot be made so, or nothing. */
QString completeFileNames(QStringList& arguments, const Application& application)
{
    const auto files = application.parser
        ? fileArguments(arguments, *application.parser, application.roles, application.positionals)
        : fileArguments(arguments);
    const QString folder = workingFolder();
    for (const FileArgument& file : files) {
        QString& argument = arguments[file.position];
        QString name = argument.mid(file.begin);
        if (name.isEmpty() || name == QLatin1String("-"))
            continue;
        const QString absolute = absoluteFileName(name, folder);
        if (absolute.isEmpty())
            return name;
        argument.replace(file.begin, name.size(), absolute);
    }
    return {};
}

/* Reads the command line. Leaves an exit code if there is nothing to hand over. */
void readArguments(LaunchPrivate& launch, const Application& application)
{
    const QStringList all = launch.line.decoded();
    const auto positions = positionsWithoutQtOptions(
        all, [&application](const QString& name) { return application.hasOption(name); });
    QStringList own;
    for (const int position : positions)
        own.append(all.at(position));
    if (application.parser)
        answerUser(*application.parser, own, launch.line);
    const QString lost = completeFileNames(own, application);
    if (!lost.isEmpty()) {
        const QString text = QCoreApplication::translate(
            "HostKit::Launch", "The working folder was removed, so that “%1” names no file.");
        std::fputs(qPrintable(text.arg(lost) + QLatin1Char('\n')), stderr);
        launch.exitCode = 1;
        return;
    }
    for (int i = 0; i < own.size(); ++i) {
        const int position = positions[static_cast<size_t>(i)];
        if (own.at(i) != all.at(position))
            launch.line.replace(position, own.at(i));
    }
    if (application.parser)
        application.parser->parse(own);
    launch.isNewInstance = application.isSet(OptionRole::NewInstance);
    launch.message.isWaiting = application.isSet(OptionRole::Wait);
    launch.message.arguments = own.mid(1);
}

/* Returns whether somebody has the arguments, or will have them. */
bool handOver(LaunchPrivate& launch)
{
    launch.decision = decide(launch.message);
    const Outcome outcome = launch.decision->outcome;
    launch.isHandedOver = outcome == Outcome::HandedOver;
    if (outcome == Outcome::MasterToBe || outcome == Outcome::Failed)
        return false;
    launch.exitCode = 0;
    if (outcome == Outcome::HandedOver)
        bringToFront(launch.startupId);
    else if (outcome == Outcome::Spooled)
        endStartup(launch.startupId);
    return outcome != Outcome::NothingToDo;
}

/* A launch that becomes the master is the application itself, and waits for nobody. */
void handOverAndWait(LaunchPrivate& launch)
{
    const TemporaryApplication application(launch.line);
    AnswerWait answer(launch.message.id);
    launch.message.isWaiting = answer.isListening();
    if (!handOver(launch))
        return;
    if (!launch.message.isWaiting)
        qWarning("HostKit: this launch cannot wait for an answer: it finds no place for a socket");
    launch.exitCode = launch.message.isWaiting ? answer.run(launch.decision->master) : 1;
}

void start(LaunchPrivate& launch, const QString& organisation, const QString& name,
           const Application& application)
{
    if (QCoreApplication::instance()) {
        qWarning("HostKit: this Launch hands nothing over: build it before the application object");
        return;
    }
    LaunchPrivate::current = &launch;
    QCoreApplication::setOrganizationName(organisation);
    QCoreApplication::setApplicationName(name);
    readArguments(launch, application);
    if (launch.exitCode || launch.isNewInstance || name.isEmpty())
        return;
    if (launch.message.isWaiting)
        handOverAndWait(launch);
    else
        handOver(launch);
}

} // namespace

Launch::Launch(int argc, char** argv, const QString& organisation, const QString& application)
    : d(new LaunchPrivate(argc, argv))
{
    start(*d, organisation, application, {});
}

Launch::Launch(int argc, char** argv, const QString& organisation, const QString& application,
               QCommandLineParser& parser, const OptionRoles& roles, Positionals positionals)
    : d(new LaunchPrivate(argc, argv))
{
    start(*d, organisation, application, {&parser, roles, positionals});
}

Launch::~Launch() = default;

bool Launch::isDone() const
{
    return d->exitCode.has_value();
}

int Launch::exitCode() const
{
    return d->exitCode.value_or(0);
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
