#include "FileArguments.h"

#include "CommandLine.h"

#include <QtCore/QCommandLineParser>

#include <algorithm>

/*
 * A parser tells the values that it found, and not where it found them. So it parses a copy of the
 * command line first, in which each text that may be a file name is replaced by a mark with its
 * position.
 */

namespace HostKit {

namespace {

constexpr QChar markSign(u'\1');

QString mark(size_t position, int begin)
{
    return QStringLiteral("%1%2:%3").arg(markSign).arg(position).arg(begin);
}

bool isMark(const QString& text)
{
    return text.startsWith(markSign);
}

FileArgument unmarked(const QString& text)
{
    const QStringList numbers = text.mid(1).split(QLatin1Char(':'));
    return {static_cast<size_t>(numbers.value(0).toULongLong()), numbers.value(1).toInt()};
}

QStringList fileOptions(const OptionRoles& roles)
{
    QStringList names;
    for (const auto& [name, role] : roles) {
        if (role == OptionRole::FileName)
            names.append(name);
    }
    return names;
}

/* Whether the option of one \a letter is one of \a fileOptions: they may have been told otherwise. */
bool isFileOption(QCommandLineParser& parser, const QByteArray& letter,
                  const QStringList& fileOptions)
{
    parser.parse({QString(), QLatin1Char('-') + QString::fromLatin1(letter), markSign});
    return std::any_of(fileOptions.begin(), fileOptions.end(), [&parser](const QString& name) {
        return parser.values(name).contains(markSign);
    });
}

/* Returns where the value in an option such as --file=name or -fname begins, or 0. */
int valueIn(const QByteArray& option, QCommandLineParser& parser, const QStringList& fileOptions)
{
    const bool isShort = !option.startsWith("--") && option.size() > 2;
    if (isShort && isFileOption(parser, option.mid(1, 1), fileOptions))
        return option.at(2) == '=' ? 3 : 2;
    return static_cast<int>(option.indexOf('=')) + 1;
}

QStringList marked(const std::vector<QByteArray>& arguments, QCommandLineParser& parser,
                   const QStringList& fileOptions)
{
    QStringList texts = decoded(arguments);
    for (size_t i = 1; i < arguments.size(); ++i) {
        const bool isOption = arguments[i].startsWith('-') && arguments[i].size() > 1;
        const int begin = isOption ? valueIn(arguments[i], parser, fileOptions) : 0;
        if (!isOption || begin > 0)
            texts[int(i)] = QString::fromLocal8Bit(arguments[i].left(begin)) + mark(i, begin);
    }
    return texts;
}

/*
 * Returns the position of the "--" that ends the options, or the number of arguments: one before it
 * may be an option's value. All behind it are positional arguments, of which there are \a count.
 */
size_t endOfOptions(const std::vector<QByteArray>& arguments,
                    const std::vector<FileArgument>& positionals, int count)
{
    for (size_t i = 1; i < arguments.size(); ++i) {
        const auto before =
            std::count_if(positionals.begin(), positionals.end(),
                          [i](const FileArgument& each) { return each.position < i; });
        if (arguments[i] == "--"
            && static_cast<size_t>(before) + arguments.size() - 1 - i == static_cast<size_t>(count))
            return i;
    }
    return arguments.size();
}

std::vector<FileArgument> positionalArguments(const std::vector<QByteArray>& arguments,
                                              const QStringList& found)
{
    std::vector<FileArgument> all;
    for (const QString& text : found) {
        if (isMark(text))
            all.push_back(unmarked(text));
    }
    const size_t end = endOfOptions(arguments, all, static_cast<int>(found.size()));
    all.erase(std::remove_if(all.begin(), all.end(),
                             [end](const FileArgument& each) { return each.position > end; }),
              all.end());
    for (size_t i = end + 1; i < arguments.size(); ++i)
        all.push_back({i, 0});
    return all;
}

} // namespace

std::vector<FileArgument> fileArguments(const std::vector<QByteArray>& arguments)
{
    std::vector<FileArgument> all;
    bool endsOptions = false;
    for (size_t i = 1; i < arguments.size(); ++i) {
        if (endsOptions || !arguments[i].startsWith('-'))
            all.push_back({i, 0});
        endsOptions = endsOptions || arguments[i] == "--";
    }
    return all;
}

std::vector<FileArgument> fileArguments(const std::vector<QByteArray>& arguments,
                                        QCommandLineParser& parser, const OptionRoles& roles,
                                        Positionals positionals)
{
    const QStringList options = fileOptions(roles);
    parser.parse(
        marked(arguments, parser, options)); // the caller tells its mistakes by a parse of its own
    std::vector<FileArgument> all;
    if (positionals == Positionals::FileNames)
        all = positionalArguments(arguments, parser.positionalArguments());
    for (const QString& option : options) {
        for (const QString& value : parser.values(option)) {
            if (isMark(value))
                all.push_back(unmarked(value));
        }
    }
    return all;
}

} // namespace HostKit
