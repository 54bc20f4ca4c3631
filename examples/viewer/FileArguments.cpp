#include "FileArguments.h"

#include <algorithm>
#include <array>
#include <cstring>

#include <climits>
#include <unistd.h>

namespace {

/* Whether Qt takes the argument behind this one as its value. */
bool takesValue(const char* option)
{
    static constexpr std::array options = {"display",
                                           "geometry",
                                           "platform",
                                           "platformpluginpath",
                                           "platformtheme",
                                           "plugin",
                                           "qwindowgeometry",
                                           "qwindowicon",
                                           "qwindowtitle",
                                           "session",
                                           "style",
                                           "stylesheet",
                                           "title",
                                           "icon",
                                           "name"};
    const char* const name = option + (option[1] == '-' ? 2 : 1);
    return std::any_of(options.begin(), options.end(),
                       [name](const char* known) { return std::strcmp(known, name) == 0; });
}

/* Returns the working folder with a slash, or nothing if it is gone. */
QByteArray workingFolder()
{
    std::array<char, PATH_MAX> folder = {};
    return ::getcwd(folder.data(), folder.size()) ? QByteArray(folder.data()) + '/' : QByteArray();
}

} // namespace

FileArguments::FileArguments(int argc, char** argv)
{
    const QByteArray folder = workingFolder();
    bool isValue = true; // the program path stays as it is, too
    bool endsOptions = false; // all behind "--" is a file
    for (int i = 0; i < argc; ++i) {
        const QByteArray argument = argv[i];
        const bool isOption = !endsOptions && argument.startsWith('-');
        const bool isRelative = !isValue && !isOption && !argument.startsWith('/');
        arguments.push_back(isRelative && !argument.isEmpty() ? folder + argument : argument);
        isValue = isOption && takesValue(argument.constData());
        endsOptions = endsOptions || argument == "--";
    }
    for (QByteArray& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    counted = argc;
}
