#include "QtOptions.h"

#include <QtCore/QList>

#include <algorithm>
#include <array>

namespace HostKit {

namespace {

enum class Kind {
    Flag,
    Value, // the argument behind it
    Assignable, // the argument behind it, or "-name=value"
    X11Flag,
    X11Value,
};

struct Option {
    const char* name;
    Kind kind;
};

/* Those of QCoreApplication, QGuiApplication, QApplication and the platform plug-in for X11. */
constexpr std::array options = {
    Option{"platform", Kind::Value},
    Option{"platformpluginpath", Kind::Value},
    Option{"platformtheme", Kind::Value},
    Option{"plugin", Kind::Value},
    Option{"qwindowgeometry", Kind::Value},
    Option{"qwindowicon", Kind::Value},
    Option{"qwindowtitle", Kind::Value},
    Option{"session", Kind::Value},
    Option{"qmljsdebugger", Kind::Assignable},
    Option{"style", Kind::Assignable},
    Option{"stylesheet", Kind::Assignable},
    Option{"qdebug", Kind::Flag},
    Option{"qdevel", Kind::Flag},
    Option{"reverse", Kind::Flag},
    Option{"testability", Kind::Flag},
    Option{"widgetcount", Kind::Flag},
    Option{"display", Kind::X11Value},
    Option{"geometry", Kind::X11Value},
    Option{"icon", Kind::X11Value},
    Option{"name", Kind::X11Value},
    Option{"title", Kind::X11Value},
    Option{"dograb", Kind::X11Flag},
    Option{"nograb", Kind::X11Flag},
};

/* Returns what is behind one hyphen or two, without a value. */
QByteArray nameOf(const QByteArray& argument)
{
    const QByteArray text = argument.mid(argument.startsWith("--") ? 2 : 1);
    return text.split('=').first();
}

QByteArray platformOf(const std::vector<QByteArray>& arguments)
{
    QByteArray platform = qgetenv("QT_QPA_PLATFORM");
    if (platform.isEmpty())
        platform = qgetenv("XDG_SESSION_TYPE") == "wayland" ? "wayland" : "xcb";
    for (size_t i = 1; i + 1 < arguments.size(); ++i) {
        if (arguments[i] == "-platform" || arguments[i] == "--platform")
            platform = arguments[i + 1];
    }
    return platform;
}

/* Returns how many arguments from \a position on are an option of Qt's: 0, 1 or 2. */
size_t sizeOfQtOption(const std::vector<QByteArray>& arguments, size_t position, bool isX11)
{
    const QByteArray& argument = arguments[position];
    const QByteArray name = nameOf(argument);
    const auto* const option =
        std::find_if(options.begin(), options.end(), [&](const Option& each) {
            return argument.startsWith('-') && name == each.name;
        });
    if (option == options.end())
        return 0;
    const Kind kind = option->kind;
    if (!isX11 && (kind == Kind::X11Flag || kind == Kind::X11Value))
        return 0;
    if (argument.contains('='))
        return kind == Kind::Assignable ? 1 : 0;
    if (kind == Kind::Flag || kind == Kind::X11Flag)
        return 1;
    return position + 1 < arguments.size() ? 2 : 0; // a value is missing: Qt leaves it
}

} // namespace

std::vector<size_t> positionsWithoutQtOptions(const std::vector<QByteArray>& arguments)
{
    const bool isX11 = platformOf(arguments).startsWith("xcb");
    std::vector<size_t> left;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const size_t size = i == 0 ? 0 : sizeOfQtOption(arguments, i, isX11);
        if (size == 0)
            left.push_back(i);
        else
            i += size - 1;
    }
    return left;
}

} // namespace HostKit
