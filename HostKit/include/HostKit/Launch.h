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
    FileName, //!< its value names a file
    NewInstance, //!< this process takes no part: it is neither master nor secondary
    Wait, //!< the launch ends when the master is done with it: ReceivedLaunch::answer()
};

/*! Options of an application, each by one of its names, and what they mean. */
using OptionRoles = std::vector<std::pair<QString, OptionRole>>;

/*! What the positional arguments of an application are. */
enum class Positionals {
    FileNames, //!< names of files, or URIs
    Text, //!< anything else: they are handed over as they are
};

/*!
    The start of an application with windows. A launch that finds a master hands its arguments over
    before anything of the window system is loaded.

    \code
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("files"), QStringLiteral("Documents to open."));
    HostKit::Launch launch(argc, argv, QStringLiteral("Example"), QStringLiteral("Documents"), parser);
    if (launch.isDone())
        return launch.exitCode();
    QApplication application(launch.argc(), launch.argv());
    HostKit::InstanceSession session;
    \endcode

    The master runs in another folder. So file names become absolute, both in what is handed over
    and in what the application object gets:
    - a relative name is completed by the working folder;
    - a file URL becomes a path;
    - another URI, such as mailto:someone, stays as it is where no file has that name: a scheme of
      two letters or more, and a colon.

    Qt's own options, such as -platform, are not handed over. The application object still gets
    them.

    Build one object in main(), before the application object. It must outlive the application
    object.

    If there is no master, the launch holds a lock until its session is master. Launches behind it
    wait for up to 10 s, and then hand over. If the application takes longer, they leave their
    arguments for it and end: its window shows them when it comes.
*/
class HOSTKIT_EXPORT Launch {
public:
    /*!
        Sets \a organisation and \a application as the application object's names. Hands the
        arguments over if a master of these names answers.

        Without a parser, an argument that begins with "-" is an option without a value. All others
        are file names, and so is everything behind "--".

        Blocks for some milliseconds. At worst it waits 10 s for launches before it, 2 s for a
        master that does not answer, 30 s for one that stops while it accepts, and 4 s for the
        desktop. With OptionRole::Wait it blocks until the answer comes.

        An empty \a application, or an application object that exists already, has nothing handed
        over.
    */
    Launch(int argc, char** argv, const QString& organisation, const QString& application);

    /*!
        The same for an application with a \a parser, which must know all options of the
        application. Its help, its version and its errors are printed as QCommandLineParser::process()
        prints them, whether a master runs or not: then the launch is done and looks for no master.
        Set the application's version before.

        \a roles says what options mean to the launch. \a positionals says whether positional
        arguments are file names. The parser holds this launch's own arguments afterwards.
    */
    Launch(int argc, char** argv, const QString& organisation, const QString& application,
           QCommandLineParser& parser, const OptionRoles& roles = {},
           Positionals positionals = Positionals::FileNames);

    ~Launch();
    Q_DISABLE_COPY_MOVE(Launch)

    /*!
        Returns whether main() must return exitCode(): the arguments were handed over or left for
        the next master, help or version was printed, or the arguments are wrong, which was said on
        standard error.
    */
    bool isDone() const;

    /*!
        Returns what main() must return if isDone(): 0; 1 if the arguments are wrong; after a wait
        the exit code of the answer, 1 if the master died without one, or 130 after a signal.
    */
    int exitCode() const;

    /*!
        Returns whether a master has the arguments. Its window was asked to the front by then, and
        the busy cursor of the launcher ended.
    */
    bool isHandedOver() const;

    /*! Returns the number of arguments, to be given to the application object as it is. */
    int& argc();

    /*! Returns the arguments, owned by this object, for the application object. */
    char** argv();

private:
    const std::unique_ptr<LaunchPrivate> d;
};

} // namespace HostKit
