#pragma once

namespace SingleInstance {

/*
 * A terminated thread is cut off at its next system call, wherever that is. In Qt that could leave a
 * lock taken for good. So the server's thread can be terminated only while it runs code of the host,
 * which is the only code in it that may hang.
 */

/*! Forbids to terminate the calling thread, but for its calls of the host. */
void forbidTermination();

/*! A call of the host. Allows to terminate the thread until it returns; no effect in other threads. */
class HostCall {
public:
    HostCall();
    ~HostCall();
    HostCall(const HostCall&) = delete;
    HostCall& operator=(const HostCall&) = delete;
};

} // namespace SingleInstance
