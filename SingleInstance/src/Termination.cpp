#include "Termination.h"

#include <QtCore/QThread>

namespace SingleInstance {

namespace {

thread_local bool isForbidden = false;
thread_local int calls = 0; // one within the other: a slot may run an event loop

struct Thread : QThread {
    using QThread::setTerminationEnabled; // a protected static function
};

} // namespace

void forbidTermination()
{
    isForbidden = true;
    Thread::setTerminationEnabled(false);
}

HostCall::HostCall()
{
    if (isForbidden && calls++ == 0)
        Thread::setTerminationEnabled(true);
}

HostCall::~HostCall()
{
    if (isForbidden && --calls == 0)
        Thread::setTerminationEnabled(false);
}

} // namespace SingleInstance
