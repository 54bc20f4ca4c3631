#include "QtOptions.h"

#include <QtCore/QByteArray>

#include <algorithm>
#include <cstring>
#include <initializer_list>

namespace HostKit {

namespace {

enum class Kind {
    Flag,
    Assignment, // "-name=value"
    Value, // with the argument behind it
    ValueIfThere, // likewise, but as the last argument it is none of Qt's
};

struct Option {
    const char* name;
    Kind kind;
};

using Options = std::initializer_list<Option>;

/* As Qt goes through them: once for each of its layers, each without what those before it took. */
constexpr Options core = {{"qmljsdebugger", Kind::Assignment},
                          {"qmljsdebugger", Kind::ValueIfThere}};
constexpr Options platform = {{"platformpluginpath", Kind::Value}, {"platform", Kind::Value},
                              {"platformtheme", Kind::Value},      {"qwindowgeometry", Kind::Value},
                              {"qwindowtitle", Kind::Value},       {"qwindowicon", Kind::Value}};
constexpr Options platformX11 = {
    {"geometry", Kind::Value}, {"title", Kind::Value}, {"icon", Kind::Value}};
constexpr Options pluginX11 = {{"display", Kind::ValueIfThere},
                               {"name", Kind::ValueIfThere},
                               {"nograb", Kind::Flag},
                               {"dograb", Kind::Flag}};
constexpr Options gui = {{"plugin", Kind::Value},     {"reverse", Kind::Flag},
                         {"testability", Kind::Flag}, {"session", Kind::ValueIfThere},
                         {"style", Kind::Assignment}, {"style", Kind::ValueIfThere}};
constexpr Options widgets = {{"qdevel", Kind::Flag},           {"qdebug", Kind::Flag},
                             {"style", Kind::Assignment},      {"style", Kind::ValueIfThere},
                             {"stylesheet", Kind::Assignment}, {"stylesheet", Kind::ValueIfThere},
                             {"widgetcount", Kind::Flag}};

const char* nameOf(const char* argument)
{
    return argument + (argument[1] == '-' ? 2 : 1);
}

bool isNamed(const Option& option, const char* name)
{
    if (option.kind != Kind::Assignment)
        return std::strcmp(option.name, name) == 0;
    const size_t length = std::strlen(option.name);
    return std::strncmp(option.name, name, length) == 0 && name[length] == '=';
}

bool hasValue(const Option& option)
{
    return option.kind == Kind::Value || option.kind == Kind::ValueIfThere;
}

const Option* find(const Options& options, const char* argument)
{
    const Option* const found =
        std::find_if(options.begin(), options.end(), [&](const Option& option) {
            return argument[0] == '-' && isNamed(option, nameOf(argument));
        });
    return found == options.end() ? nullptr : found;
}

/* Removes the options that \a isOption(argument, next) returns, and lets the others be. */
template <typename IsOption>
void removeOptions(std::vector<char*>& arguments, const IsOption& isOption)
{
    std::vector<char*> kept = {arguments.front()};
    for (size_t i = 1; i < arguments.size(); ++i) {
        const bool isLast = i + 1 == arguments.size();
        const Option* const option = isOption(arguments[i], isLast ? "" : arguments[i + 1]);
        if (!option || (option->kind == Kind::ValueIfThere && isLast))
            kept.push_back(arguments[i]);
        else if (hasValue(*option))
            ++i;
    }
    arguments.swap(kept);
}

void remove(std::vector<char*>& arguments, const Options& options)
{
    removeOptions(arguments, [&options](const char* argument, const char* /*next*/) {
        return find(options, argument);
    });
}

QByteArray defaultPlatform()
{
    const QByteArray named = qgetenv("QT_QPA_PLATFORM");
    const QByteArray desktop = qgetenv("XDG_CURRENT_DESKTOP") + qgetenv("XDG_SESSION_DESKTOP");
    const bool isGnome =
        QT_VERSION < QT_VERSION_CHECK(6, 0, 0) && desktop.toLower().contains("gnome");
    const bool isWayland = qgetenv("XDG_SESSION_TYPE") == "wayland" && !isGnome;
    return !named.isEmpty() ? named : QByteArray(isWayland ? "wayland" : "xcb");
}

/* Returns whether the platform is X11 behind the last of the options that name one. */
bool removeOfPlatform(std::vector<char*>& arguments)
{
    QByteArray name = defaultPlatform();
    removeOptions(arguments, [&name](const char* argument, const char* next) {
        const Option* const option = find(platform, argument);
        if (option && std::strcmp(option->name, "platform") == 0)
            name = next;
        return !option && name.startsWith("xcb") ? find(platformX11, argument) : option;
    });
    return name.startsWith("xcb");
}

} // namespace

bool takesValue(const char* argument)
{
    const auto takesIt = [name = nameOf(argument)](const Options& options) {
        return std::any_of(options.begin(), options.end(), [name](const Option& option) {
            return hasValue(option) && isNamed(option, name);
        });
    };
    return takesIt(core) || takesIt(platform) || takesIt(platformX11) || takesIt(pluginX11)
        || takesIt(gui) || takesIt(widgets);
}

void removeQtOptions(std::vector<char*>& arguments)
{
    if (arguments.empty())
        return;
    remove(arguments, core);
    if (removeOfPlatform(arguments))
        remove(arguments, pluginX11);
    remove(arguments, gui);
    remove(arguments, widgets);
}

} // namespace HostKit
