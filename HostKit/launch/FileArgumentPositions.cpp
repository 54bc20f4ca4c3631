#include "FileArgumentPositions.h"

#include <QtCore/QCommandLineParser>

#include <algorithm>

/*
 * A parser tells which values it found, but not where. So it parses a copy of the command line in
 * which a mark replaces each text that may be a file name. The mark holds the position.
 */

namespace HostKit {

namespace {

constexpr QChar markSign(u'\1');

QString mark(int position, int begin)
{
    return QStringLiteral("%1%2:%3").arg(markSign).arg(position).arg(begin);
}

void addMarked(std::vector<FileArgument>& all, const QStringList& found)
{
    for (const QString& text : found) {
        if (text.startsWith(markSign))
            all.push_back({text.mid(1).section(QLatin1Char(':'), 0, 0).toInt(),
                           text.section(QLatin1Char(':'), 1).toInt()});
    }
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

/* Returns whether the option of one \a letter is among \a options, perhaps by another name. */
bool isAmong(const QStringList& options, QChar letter, QCommandLineParser& parser)
{
    parser.parse({QString(), QLatin1Char('-') + QString(letter), markSign});
    return std::any_of(options.begin(), options.end(), [&parser](const QString& name) {
        return parser.values(name).contains(markSign);
    });
}

/* Returns where the value in an option such as --file=name or -fname begins, or 0. */
int valueIn(const QString& option, QCommandLineParser& parser, const QStringList& options)
{
    const bool isShort = !option.startsWith(QLatin1String("--")) && option.size() > 2;
    if (isShort && isAmong(options, option.at(1), parser))
        return option.at(2) == QLatin1Char('=') ? 3 : 2;
    return static_cast<int>(option.indexOf(QLatin1Char('='))) + 1;
}

/* Returns the position of the "--" that ends the options, and that is not the value of one. */
int endOfOptions(const QStringList& arguments, QCommandLineParser& parser)
{
    auto end = arguments.indexOf(QLatin1String("--"));
    while (end > 0 && !parser.parse(arguments.mid(0, end))) // a value is missing there
        end = arguments.indexOf(QLatin1String("--"), end + 1);
    return static_cast<int>(end < 0 ? arguments.size() : end);
}

QStringList marked(const QStringList& arguments, QCommandLineParser& parser,
                   const QStringList& options)
{
    const int end = endOfOptions(arguments, parser);
    QStringList texts = arguments;
    for (int i = 1; i < texts.size(); ++i) {
        const QString& text = arguments.at(i);
        const bool isOption = i <= end && text.startsWith(QLatin1Char('-')) && text.size() > 1;
        const int begin = isOption ? valueIn(text, parser, options) : 0;
        if (!isOption || begin > 0)
            texts[i] = text.left(begin) + mark(i, begin);
    }
    return texts;
}

} // namespace

std::vector<FileArgument> fileArguments(const QStringList& arguments)
{
    std::vector<FileArgument> all;
    bool endsOptions = false;
    for (int i = 1; i < arguments.size(); ++i) {
        if (endsOptions || !arguments.at(i).startsWith(QLatin1Char('-')))
            all.push_back({i, 0});
        endsOptions = endsOptions || arguments.at(i) == QLatin1String("--");
    }
    return all;
}

std::vector<FileArgument> fileArguments(const QStringList& arguments, QCommandLineParser& parser,
                                        const OptionRoles& roles, Positionals positionals)
{
    const QStringList options = fileOptions(roles);
    parser.parse(marked(arguments, parser, options));
    std::vector<FileArgument> all;
    if (positionals == Positionals::FileNames)
        addMarked(all, parser.positionalArguments());
    for (const QString& option : options)
        addMarked(all, parser.values(option));
    return all;
}

} // namespace HostKit
