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

enum class Kind { Positional, Option, OptionBeforeItsValue };

/* \a parser must accept the whole command line. Then an error means that a value is missing. */
Kind kindOf(const QString& text, bool isAfterPositional, QCommandLineParser& parser)
{
    if (!text.startsWith(QLatin1Char('-')) || text.size() == 1)
        return Kind::Positional;
    const QString program;
    if (isAfterPositional && parser.parse({program, QStringLiteral("x"), text})
        && parser.positionalArguments().size() == 2)
        return Kind::Positional; // in this mode, options come before positional arguments
    return parser.parse({program, text}) ? Kind::Option : Kind::OptionBeforeItsValue;
}

/* Returns where the value of a file option in \a text begins, which \a parser has parsed, or -1. */
int valueIn(const QString& text, const QCommandLineParser& parser, const QStringList& fileOptions)
{
    for (const QString& option : fileOptions) {
        const QString value = parser.isSet(option) ? parser.value(option) : QString();
        if (!value.isEmpty() && text.endsWith(value))
            return static_cast<int>(text.size() - value.size());
    }
    return -1;
}

QStringList marked(const QStringList& arguments, QCommandLineParser& parser,
                   const QStringList& fileOptions)
{
    QStringList texts = arguments;
    bool hasPositional = false;
    bool endsOptions = false;
    bool isValue = false; // of the option before
    for (int i = 1; i < texts.size(); ++i) {
        const QString& text = arguments.at(i);
        if (!isValue && !endsOptions && text == QLatin1String("--")) {
            endsOptions = true;
            continue;
        }
        const Kind kind =
            isValue || endsOptions ? Kind::Positional : kindOf(text, hasPositional, parser);
        const int begin = kind == Kind::Positional ? 0
            : kind == Kind::Option                 ? valueIn(text, parser, fileOptions)
                                                   : -1;
        if (begin >= 0 && text != QLatin1String("-"))
            texts[i] = text.left(begin) + mark(i, begin);
        hasPositional =
            hasPositional || (kind == Kind::Positional && !isValue && text != QLatin1String("-"));
        isValue = kind == Kind::OptionBeforeItsValue;
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
