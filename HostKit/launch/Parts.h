#pragma once

#include <SingleInstanceController.h>

#include <QtCore/QStringList>

namespace HostKit {

struct CommandLine;

/*!
    The same as startSingleInstance(), for arguments of any number and length.

    Those that take more than one message are handed over as several lists, one after the other; in
    a master they stay one. \a line is what the application object refers to, or null: then they
    are not divided. Failed, with a warning, if one argument alone is too long for a master, or if
    not all lists could be handed over: then those that were are no longer in \a line. Hold the
    launch lock, or lists of others come in between. Blocks as startSingleInstance() does, and for
    three seconds more.
*/
SingleInstanceState startInParts(CommandLine* line);

/*! Returns whether each of \a arguments fits into a message. */
bool fitMessages(const QStringList& arguments);

} // namespace HostKit
