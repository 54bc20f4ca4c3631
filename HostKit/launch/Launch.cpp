#include <HostKit/Launch.h>

#include "ActivationToken.h"
#include "AnswerWait.h"
#include "FileArguments.h"
#include "FileName.h"
#include "LaunchPrivate.h"
#include "MessageSpool.h"
#include "QtOptions.h"
#include "StartupNotification.h"
#include "Successor.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QFile>

#include <algorithm>
#include <clocale>
#include <cstdio>

namespace HostKit {

LaunchPrivate* LaunchPrivate::current = nullptr;

LaunchPrivate::LaunchPrivate(int argc, char** argv)
    : line(argc, argv)
    , startupId(qgetenv("DESKTOP_STARTUP_ID"))
{
    std::setlocale(LC_ALL, ""); // as the application object does: it tells how names are decoded
    message.id = newLaunchId();
    message.activationToken = ownActivationToken();
    message.workingFolder = QFile::decodeName(workingFolder());
    if (message.workingFolder.size() > 1)
        message.workingFolder.chop(1); // the slash
}

LaunchPrivate::~LaunchPrivate()
{
    const bool isUnused = decision && decision->outcome == Outcome::MasterToBe;
    decision.reset(); // and its lock
    if (current == this)
        current = nullptr;
    // The application ended before its session. What launches left for it is for another process.
    if (isUnused && hasSpooledLists())
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
};

int fail(const QString& text)
{
    std::fputs(qPrintable(text + QLatin1Char('\n')), stderr);
    return 1;
}

/* Returns the arguments without Qt's own. */
std::vector<QByteArray> ownArguments(const CommandLine& line)
{
    std::vector<QByteArray> own;
    for (const size_t position : positionsWithoutQtOptions(line.texts()))
        own.push_back(line.texts()[position]);
    return own;
}

/* Makes all file names absolute. Returns false, with a message, if the working folder is gone. */
bool completeFileNames(LaunchPrivate& launch, const Application& application)
{
    const std::vector<size_t> positions = positionsWithoutQtOptions(launch.line.texts());
    const std::vector<QByteArray> own = ownArguments(launch.line);
    const auto files = application.parser
        ? fileArguments(own, *application.parser, application.roles, application.positionals)
        : fileArguments(own);
    const QByteArray folder = workingFolder();
    for (const FileArgument& file : files) {
        const QByteArray name = own[file.position].mid(file.begin);
        const QByteArray absolute = name == "-" ? name : absoluteFileName(name, folder);
        if (folder.isEmpty() && name != "-" && isRelativeFileName(name)) {
            launch.exitCode =
                fail(QCoreApplication::translate(
                         "HostKit::Launch",
                         "The working folder was removed, so that “%1” names no file.")
                         .arg(QString::fromLocal8Bit(name)));
            return false;
        }
        launch.line.replace(positions[file.position],
                            own[file.position].left(file.begin) + absolute);
    }
    return true;
}

/* An application object for a while. It gets copies, since it removes some arguments. */
struct TemporaryApplication {
    explicit TemporaryApplication(const CommandLine& line)
        : pointers(line.pointers)
        , count(line.count)
        , application(count, pointers.data())
    {
    }
    std::vector<char*> pointers;
    int count;
    const QCoreApplication application;
};

/* Whether \a found has the parser's own version option: -v alone may be anything. */
bool wantsVersion(QCommandLineParser& parser, const QStringList& found)
{
    const QString name = QStringLiteral("version");
    const bool isFound = found.contains(name) || found.contains(QLatin1String("v"));
    return isFound && parser.parse({QString(), QStringLiteral("--version")})
        && parser.parse({QString(), QStringLiteral("-v")}) && parser.isSet(name);
}

/* Whether \a found has the parser's own help option, which always comes with --help-all. */
bool wantsHelp(QCommandLineParser& parser, const QStringList& found)
{
    const bool isFound = std::any_of(found.begin(), found.end(), [](const QString& name) {
        return name == QLatin1String("h") || name == QLatin1String("help")
            || name == QLatin1String("help-all");
    });
    return isFound && parser.parse({QString(), QStringLiteral("--help-all")});
}

/* Prints what QCommandLineParser::process() would. Returns the exit code if the launch is done. */
std::optional<int> answerUser(QCommandLineParser& parser, const CommandLine& line)
{
    const QStringList arguments = decoded(ownArguments(line));
    if (!parser.parse(arguments))
        return fail(parser.errorText());
    const QStringList found = parser.optionNames();
    const bool isVersion = wantsVersion(parser, found);
    const bool isHelp = wantsHelp(parser, found);
    parser.parse(arguments);
    if (isVersion)
        std::printf("%s %s\n", qPrintable(QCoreApplication::applicationName()),
                    qPrintable(QCoreApplication::applicationVersion()));
    else if (isHelp) {
        const TemporaryApplication application(line); // helpText() crashes without one
        std::fputs(qPrintable(parser.helpText()), stdout);
    }
    return isVersion || isHelp ? std::make_optional(0) : std::nullopt;
}

bool isDecided(Outcome outcome)
{
    return outcome != Outcome::MasterToBe && outcome != Outcome::Failed;
}

void decideAndHandOver(LaunchPrivate& launch)
{
    launch.decision = decide(launch.message);
    const Outcome outcome = launch.decision->outcome;
    launch.isHandedOver = outcome == Outcome::HandedOver;
    if (isDecided(outcome))
        launch.exitCode = 0;
    if (outcome == Outcome::HandedOver)
        bringToFront(launch.startupId);
    else if (outcome == Outcome::Spooled)
        endStartup(launch.startupId);
}

/* The same, and waits for the answer. A first launch is the application itself, and waits for none. */
void waitForAnswer(LaunchPrivate& launch)
{
    const TemporaryApplication application(launch.line);
    AnswerWait answer(launch.message.id);
    launch.message.isWaiting = answer.isListening();
    if (!launch.message.isWaiting)
        qWarning("HostKit: this launch cannot wait for an answer, and ends at once");
    decideAndHandOver(launch);
    if (launch.message.isWaiting && launch.exitCode)
        launch.exitCode = answer.run(launch.decision->master);
}

void start(LaunchPrivate& launch, const QString& organisation, const QString& name,
           const Application& application)
{
    if (QCoreApplication::instance()) {
        qWarning("HostKit: a launch that is built after the application object hands nothing over");
        return;
    }
    LaunchPrivate::current = &launch;
    QCoreApplication::setOrganizationName(organisation);
    QCoreApplication::setApplicationName(name);
    if (application.parser)
        launch.exitCode = answerUser(*application.parser, launch.line);
    if (launch.exitCode || !completeFileNames(launch, application))
        return;
    const QStringList arguments = decoded(ownArguments(launch.line));
    if (application.parser)
        application.parser->parse(arguments);
    launch.isNewInstance = application.isSet(OptionRole::NewInstance);
    if (launch.isNewInstance || name.isEmpty())
        return;
    launch.message.arguments = arguments.mid(1);
    if (application.isSet(OptionRole::Wait))
        waitForAnswer(launch);
    else
        decideAndHandOver(launch);
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
