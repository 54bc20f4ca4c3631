#include "CommandLine.h"

#include "QtOptions.h"

#include <QtCore/QFile>

#include <algorithm>
#include <array>

#include <climits>
#include <unistd.h>

namespace HostKit {

namespace {

/* Returns the working folder with a slash, or nothing if it is gone. */
QByteArray workingFolder()
{
    std::array<char, PATH_MAX> folder = {};
    return ::getcwd(folder.data(), folder.size()) ? QByteArray(folder.data()) + '/' : QByteArray();
}

/*
 * Returns the path that a file URL names, or nothing. Byte by byte, since it is the application
 * object that decides how texts are encoded.
 */
QByteArray pathOfUrl(const QByteArray& argument)
{
    for (const QByteArray& beginning : {QByteArray("file:///"), QByteArray("file://localhost/")}) {
        if (argument.startsWith(beginning)) {
            const QByteArray rest = argument.mid(beginning.size() - 1);
            constexpr std::array marks = {'?', '#'};
            const auto* const end =
                std::find_first_of(rest.begin(), rest.end(), std::begin(marks), std::end(marks));
            auto path = QByteArray::fromPercentEncoding(rest.left(int(end - rest.begin())));
            return path.contains('\0') ? argument : path; // no file has that in its name
        }
    }
    return {};
}

/* Whether it names something that is not on this machine: "scheme://". */
bool isOtherUrl(const QByteArray& argument)
{
    const auto isOfScheme = [](char letter) {
        return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z')
            || (letter >= '0' && letter <= '9') || letter == '+' || letter == '-' || letter == '.';
    };
    const auto* const end = std::find_if_not(argument.begin(), argument.end(), isOfScheme);
    return end != argument.begin() && QByteArray(end).startsWith("://");
}

QByteArray absolute(const QByteArray& argument, const QByteArray& folder)
{
    QByteArray path = pathOfUrl(argument);
    if (!path.isEmpty())
        return path;
    const bool isComplete = argument.isEmpty() || argument.startsWith('/') || isOtherUrl(argument);
    return isComplete ? argument : folder + argument;
}

} // namespace

CommandLine::CommandLine(int argc, char** argv, const QStringList& notFiles)
{
    std::vector<QByteArray> noFiles;
    for (const QString& text : notFiles)
        noFiles.push_back(QFile::encodeName(text));
    const auto isNoFile = [&noFiles](const QByteArray& argument) {
        return std::find(noFiles.begin(), noFiles.end(), argument) != noFiles.end();
    };
    const QByteArray folder = workingFolder();
    bool isValue = true; // the program path stays as it is, too
    bool endsOptions = false; // all behind "--" is a file
    for (int i = 0; i < argc; ++i) {
        const QByteArray argument = argv[i];
        const bool isOption = !endsOptions && argument.startsWith('-');
        const bool staysSo = isValue || isOption || (!endsOptions && isNoFile(argument));
        texts.push_back(staysSo ? argument : absolute(argument, folder));
        isValue = isOption && (takesValue(argument.constData()) || isNoFile(argument));
        endsOptions = endsOptions || argument == "--";
    }
    for (QByteArray& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    count = argc;
}

void removeArgument(CommandLine& line, const char* pointer)
{
    const auto found = std::find(line.pointers.begin(), line.pointers.end(), pointer);
    if (!pointer || found == line.pointers.end())
        return;
    line.pointers.erase(found);
    --line.count;
}

CommandLine withoutQtOptions(CommandLine line)
{
    line.pointers.pop_back();
    removeQtOptions(line.pointers);
    line.count = static_cast<int>(line.pointers.size());
    line.pointers.push_back(nullptr);
    return line;
}

} // namespace HostKit
