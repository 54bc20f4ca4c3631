#include "ArgumentVector.h"

namespace HostKit {

ArgumentVector::ArgumentVector(int argc, char** argv)
    : count(argc)
    , arguments(argv, argv + argc)
{
    for (QByteArray& text : arguments)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
}

QStringList ArgumentVector::decoded() const
{
    QStringList texts;
    for (const QByteArray& argument : arguments)
        texts.append(QString::fromLocal8Bit(argument));
    return texts;
}

void ArgumentVector::replace(int position, const QString& text)
{
    QByteArray& argument = arguments[static_cast<size_t>(position)];
    argument = text.toLocal8Bit();
    pointers[static_cast<size_t>(position)] = argument.data();
}

} // namespace HostKit
