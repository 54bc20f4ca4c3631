#include "QtOptions.h"

#include <algorithm>
#include <array>

namespace HostKit {

namespace {

constexpr std::array flags = {"dograb",  "nograb",      "qdebug",     "qdevel",
                              "reverse", "testability", "widgetcount"};
constexpr std::array withValue = {"display",       "geometry",     "icon",
                                  "name",          "platform",     "platformpluginpath",
                                  "platformtheme", "plugin",       "qwindowgeometry",
                                  "qwindowicon",   "qwindowtitle", "session",
                                  "title"};
constexpr std::array assignable = {"qmljsdebugger", "style", "stylesheet"}; // also "-name=value"

template <typename Names> bool contains(const Names& names, const QString& name)
{
    return std::any_of(names.begin(), names.end(),
                       [&name](const char* each) { return name == QLatin1String(each); });
}

/* Returns how many arguments, from \a option on, are an option of Qt's: 0, 1 or 2. */
int sizeOfQtOption(const QString& option, bool hasNext,
                   const std::function<bool(const QString&)>& isOwn)
{
    if (!option.startsWith(QLatin1Char('-')))
        return 0;
    const QString text = option.mid(option.startsWith(QLatin1String("--")) ? 2 : 1);
    const QString name = text.section(QLatin1Char('='), 0, 0);
    const bool isAssignable = contains(assignable, name);
    const bool isFlag = contains(flags, name);
    if ((!isFlag && !isAssignable && !contains(withValue, name)) || isOwn(name))
        return 0;
    if (name != text)
        return isAssignable ? 1 : 0;
    if (isFlag)
        return 1;
    return hasNext ? 2 : 0; // without its value, Qt leaves it
}

} // namespace

std::vector<int> positionsWithoutQtOptions(const QStringList& arguments,
                                           const std::function<bool(const QString&)>& isOwn)
{
    std::vector<int> left;
    const int count = static_cast<int>(arguments.size());
    for (int i = 0; i < count;) {
        const int size = i == 0 ? 0 : sizeOfQtOption(arguments[i], i + 1 < count, isOwn);
        if (size == 0)
            left.push_back(i);
        i += std::max(size, 1);
    }
    return left;
}

} // namespace HostKit
