#include "Termination.h"

#include <QtCore/QThread>

namespace SingleInstance {

namespace {

thread_local bool isForbidden = false;

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
    if (isForbidden)
        Thread::setTerminationEnabled(true);
}

HostCall::~HostCall()
{
    if (isForbidden)
        Thread::setTerminationEnabled(false);
}

} // namespace SingleInstance
