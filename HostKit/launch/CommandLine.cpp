#include "CommandLine.h"

namespace HostKit {

CommandLine::CommandLine(int argc, char** argv)
    : count(argc)
    , arguments(argv, argv + argc)
{
    for (QByteArray& text : arguments)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
}

QStringList CommandLine::decoded() const
{
    QStringList texts;
    for (const QByteArray& argument : arguments)
        texts.append(QString::fromLocal8Bit(argument));
    return texts;
}

void CommandLine::replace(int position, const QString& text)
{
    QByteArray& argument = arguments[static_cast<size_t>(position)];
    argument = text.toLocal8Bit();
    pointers[static_cast<size_t>(position)] = argument.data();
}

} // namespace HostKit
