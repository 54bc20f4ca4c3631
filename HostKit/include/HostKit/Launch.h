#pragma once

#ifdef SINGLEINSTANCE_WITHOUT_HOSTKIT
#error "libHostKit has all that is in libSingleInstance: link one of the two"
#endif

#include <HostKit/export.h>

#include <QtCore/QString>

#include <memory>
#include <utility>
#include <vector>

class QCommandLineParser;

namespace HostKit {

struct LaunchPrivate;

/*! What an option of an application means to a Launch. */
enum class OptionRole {
    FileName, //!< its value is a file name
    NewInstance, //!< this process takes no part: it is neither master nor secondary
    Wait, //!< the launch waits until a master answers it: ReceivedLaunch::answer()
};

/*! Options of an application, each by one of its names, and what they mean. */
using OptionRoles = std::vector<std::pair<QString, OptionRole>>;

/*! What the positional arguments of an application are. */
enum class Positionals {
    FileNames, //!< file names, or URIs
    Text, //!< anything else: they are handed over unchanged
};

/*!
    The start of an application. If a master can be reached, the launch hands its arguments over,
    before anything of the window system is loaded.

    \code
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("files"), QStringLiteral("Documents to open."));
    HostKit::Launch launch(argc, argv, QStringLiteral("Example"), QStringLiteral("Documents"),
                           parser);
    if (launch.isDone())
        return launch.exitCode();
    QApplication application(launch.argc(), launch.argv());
    HostKit::InstanceSession session;
    \endcode

    The master may run in another folder. Therefore the launch makes file names absolute, for the
    master and for the application object of this process:
    - A relative name is completed with the working folder.
    - A file URL of this machine becomes a path.
    - Another URI, such as mailto:someone, is not changed, unless a file has that name. A URI begins
      with a scheme of two characters or more, and a colon.

    Options of Qt's own, such as -platform, are not handed over. The application object still gets
    them. If the parser knows an option of the same name, it is the application's.

    Build one object in main(), before the application object. It must outlive the application
    object.

    If no master runs, the launch holds a lock until its session is master. Later launches wait for
    that, up to 10 s, and then hand over. If the application takes longer, they leave their
    arguments for it and end. Its window shows them when it opens.
*/
class HOSTKIT_EXPORT Launch {
public:
    /*!
        Sets \a organisation and \a application as names of the application. If a master of these
        names can be reached, hands the arguments over.

        Without a parser, an argument that begins with "-" is an option without a value. All other
        arguments are file names. So is everything after "--".

        Blocks for some milliseconds. At worst it waits 10 s for earlier launches, 2 s for a master
        that cannot be reached, 90 s for one whose queue fills up just before a hand-off, and 4 s
        for the desktop. Long arguments take several hand-offs. With OptionRole::Wait it blocks
        until the answer comes.

        Hands nothing over if \a application is empty. Does nothing, with a warning, if an
        application object exists already.
    */
    Launch(int argc, char** argv, const QString& organisation, const QString& application);

    /*!
        The same for an application with a \a parser, which must know all options of the
        application.

        If the user asks for help or the version, or makes a mistake, this constructor prints the
        text and ends the process, exactly as QCommandLineParser::process() does. It does so before
        it looks for a master. Set the application's version first.

        \a roles says what options mean to the launch. \a positionals says whether positional
        arguments are file names. Afterwards the parser holds this launch's own arguments.
    */
    Launch(int argc, char** argv, const QString& organisation, const QString& application,
           QCommandLineParser& parser, const OptionRoles& roles = {},
           Positionals positionals = Positionals::FileNames);

    /*!
        If no session was built, and other launches have left their arguments meanwhile, starts the
        application again for them, by a session's default command.
    */
    ~Launch();
    Q_DISABLE_COPY_MOVE(Launch)

    /*!
        Returns whether main() must return exitCode(). That is so
        - if a master has the arguments or will get them;
        - if a file name is relative and the working folder was removed, as a message on standard
          error says;
        - if this process was started for launches that were left, and has nothing to do.
    */
    bool isDone() const;

    /*!
        Returns what main() must return if isDone():
        - 1 if a file name cannot be made absolute;
        - after a wait: the exit code of the answer, 1 if the master died without one, 130 after a
          signal;
        - 1 if the launch must wait, but finds no place for the socket on which it listens;
        - otherwise 0.
    */
    int exitCode() const;

    /*!
        Returns whether a master has the arguments. By then the launch has asked the desktop to
        activate the master's window, and has ended the busy cursor.
    */
    bool isHandedOver() const;

    /*! Returns the number of arguments. Pass it to the application object as it is. */
    int& argc();

    /*! Returns the arguments for the application object. This object owns them. */
    char** argv();

private:
    const std::unique_ptr<LaunchPrivate> d;
};

} // namespace HostKit
