#pragma once

#ifdef SINGLEINSTANCE_WITHOUT_HOSTKIT
#error "libHostKit has all that is in libSingleInstance: link one of the two"
#endif

#include <HostKit/export.h>

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <memory>

namespace HostKit {

struct LaunchPrivate;

/*!
    The start of an application with windows: a launch that finds a master hands over to it before
    anything of the window system is loaded.

    \code
    HostKit::Launch launch(argc, argv, QStringLiteral("Example"), QStringLiteral("Documents"));
    if (launch.isHandedOver())
        return 0;
    QApplication application(launch.argc(), launch.argv());
    HostKit::InstanceSession session; // decides again: the master may have ended by now
    if (session.state() == SingleInstanceStateSecondary)
        return 0;
    \endcode

    The arguments that are handed over, and that the application object gets, are those of main()
    with the names of files made absolute, for the master runs in another folder:
    - what begins with - is an option and stays as it is, and so does what follows an option that
      Qt's application objects take with a value; behind -- all are files;
    - file:// URLs become paths; a text that begins with another scheme and :// stays as it is;
    - all else that does not begin with / is taken for the name of a file in the working folder.

    Qt's own options are left out of what is handed over, as a QApplication leaves them out.

    Arguments that take more than one message, some 30,000 characters, are handed over as several
    lists, of which each is received for itself. With a session behind it, they may be of any number
    in a first launch, too (as far as the system passes them on: its limit is `getconf ARG_MAX`).

    Build one, in main(), before the application object, and let it live longer than that.
*/
class HOSTKIT_EXPORT Launch {
public:
    /*!
        Sets \a organisation and \a application as the application object's names, and hands the
        arguments over if a master of that name answers; a launch that a session started to receive
        its lists does not.

        \a notFiles lists what is no file: an option in it keeps the argument behind it as it is,
        and any other text stays as it is itself.

        Blocks for some milliseconds; at worst 10 s for launches before it, 2 s for a master that
        does not answer, then as startSingleInstance(), 3 s more for lists behind the first, and 2 s
        for the busy cursor. If it fails, the session decides: what could be handed over before is
        no longer among the arguments. An empty \a application, or an application object that is
        there already, has nothing handed over.
    */
    Launch(int argc, char** argv, const QString& organisation, const QString& application,
           const QStringList& notFiles = {});
    ~Launch();
    Q_DISABLE_COPY_MOVE(Launch)

    /*!
        Returns whether the arguments were handed over, so that main() may return. The master's
        window was asked to the front by then, and the busy cursor of the launcher ended.
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
