#pragma once

#include <QtCore/QtGlobal>

/*! Returns how often to repeat a fault: as often as the environment says, or \a usual. */
inline int rounds(const char* variable, int usual)
{
    return qEnvironmentVariableIsSet(variable) ? qEnvironmentVariableIntValue(variable) : usual;
}
