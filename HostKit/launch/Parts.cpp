#include "Parts.h"

#include "CommandLine.h"
#include "HandOver.h"
#include "MessageFormat.h"
#include "SettingsSlot.h"

#include <QtCore/QCoreApplication>

#include <algorithm>
#include <chrono>
#include <numeric>

namespace HostKit {

using SingleInstance::longestBody;
using SingleInstance::readMasterPort;

namespace {

constexpr std::chrono::seconds patience(3); // for all lists behind the first; others wait for us

qint64 packedSize(const QString& argument)
{
    return 4 + 2 * static_cast<qint64>(argument.size());
}

QList<QStringList> divided(const QStringList& arguments)
{
    QList<QStringList> parts = {QStringList()};
    qint64 size = 4;
    for (const QString& argument : arguments) {
        if (size + packedSize(argument) > longestBody && !parts.last().isEmpty()) {
            parts.append(QStringList());
            size = 4;
        }
        parts.last().append(argument);
        size += packedSize(argument);
    }
    return parts;
}

/* Hands over what is behind the first of \a parts; returns how many arguments were, with that. */
int handOverRest(const QList<QStringList>& parts)
{
    const int rest = handOverAll(parts.mid(1), readMasterPort(), patience);
    const auto end = parts.begin() + 1 + rest;
    return std::accumulate(parts.begin(), end, 0, [](int count, const QStringList& part) {
        return count + static_cast<int>(part.size());
    });
}

/* Calls startSingleInstance() while the application object shows the first \a count arguments. */
SingleInstanceState startWith(int count, CommandLine& line)
{
    const int all = line.count;
    line.count = 1 + count;
    const SingleInstanceState state = startSingleInstance();
    line.count = all;
    return state;
}

SingleInstanceState failed(const char* reason)
{
    qWarning("HostKit: cannot hand the arguments over: %s", reason);
    return SingleInstanceStateFailed;
}

} // namespace

SingleInstanceState startInParts(CommandLine* line)
{
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    const bool isDivisible = fitMessages(arguments);
    const QList<QStringList> parts = divided(arguments);
    if (!line || (parts.size() == 1 && isDivisible))
        return startSingleInstance();
    constexpr auto tooLong = "one of them is longer than a message can be";
    if (!isDivisible && readMasterPort() != 0)
        return failed(tooLong);
    const auto shown = isDivisible ? parts.first().size() : 0;
    const SingleInstanceState state = startWith(static_cast<int>(shown), *line);
    if (state != SingleInstanceStateSecondary)
        return state;
    if (!isDivisible)
        return failed(tooLong);
    const int handedOver = handOverRest(parts);
    if (handedOver == arguments.size())
        return state;
    // In place, for the application object points there.
    const auto first = line->pointers.begin() + 1;
    line->pointers.erase(first, first + handedOver);
    line->count -= handedOver;
    return failed("the master takes no more of them");
}

bool fitMessages(const QStringList& arguments)
{
    return std::all_of(arguments.begin(), arguments.end(), [](const QString& argument) {
        return 4 + packedSize(argument) <= longestBody;
    });
}

} // namespace HostKit
