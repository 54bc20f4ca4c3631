#include "FileName.h"

#include <algorithm>
#include <array>
#include <climits>

#include <unistd.h>

namespace HostKit {

namespace {

/* Returns the scheme of a URI, or nothing: a single letter before a colon is no scheme. */
QByteArray schemeOf(const QByteArray& argument)
{
    const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    const auto isInScheme = [&isLetter](char c) {
        return isLetter(c) || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
    };
    const auto* const end = std::find_if_not(argument.begin(), argument.end(), isInScheme);
    const auto length = end - argument.begin();
    if (length < 2 || end == argument.end() || *end != ':' || !isLetter(argument.at(0)))
        return {};
    return argument.left(static_cast<int>(length)).toLower();
}

/* Returns the path in a file URL of this machine, or nothing. */
QByteArray pathOfFileUrl(const QByteArray& argument)
{
    QByteArray path = argument.mid(int(sizeof "file:") - 1);
    if (path.startsWith("//"))
        path = path.mid(path.startsWith("//localhost/") ? int(sizeof "//localhost") - 1 : 2);
    constexpr std::array marks = {'?', '#'};
    const auto* const end =
        std::find_first_of(path.begin(), path.end(), marks.begin(), marks.end());
    path = QByteArray::fromPercentEncoding(path.left(int(end - path.begin())));
    return path.startsWith('/') && !path.contains('\0') ? path : QByteArray();
}

} // namespace

QByteArray workingFolder()
{
    std::array<char, PATH_MAX> folder = {};
    return ::getcwd(folder.data(), folder.size()) ? QByteArray(folder.data()) + '/' : QByteArray();
}

bool isRelativeFileName(const QByteArray& argument)
{
    return !argument.isEmpty() && !argument.startsWith('/') && schemeOf(argument).isEmpty();
}

QByteArray absoluteFileName(const QByteArray& argument, const QByteArray& folder)
{
    if (argument.isEmpty() || argument.startsWith('/'))
        return argument;
    const QByteArray scheme = schemeOf(argument);
    if (scheme.isEmpty() || ::access((folder + argument).constData(), F_OK) == 0)
        return folder + argument;
    const QByteArray path = scheme == "file" ? pathOfFileUrl(argument) : QByteArray();
    return path.isEmpty() ? argument : path;
}

} // namespace HostKit
