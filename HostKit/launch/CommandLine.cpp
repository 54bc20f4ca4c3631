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

void CommandLine::replace(size_t position, const QByteArray& text)
{
    arguments[position] = text;
    pointers[position] = arguments[position].data();
}

QStringList decoded(const std::vector<QByteArray>& arguments)
{
    QStringList texts;
    for (const QByteArray& argument : arguments)
        texts.append(QString::fromLocal8Bit(argument));
    return texts;
}

} // namespace HostKit
