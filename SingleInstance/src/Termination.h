#pragma once

namespace SingleInstance {

/*
 * A terminated thread stops at its next system call, wherever that is. Inside Qt it could hold a
 * lock then, for ever. So the server thread can be terminated only while it runs code of the host.
 * No other code in it may hang.
 */

/*! Forbids termination of the calling thread, except while it calls the host. */
void forbidTermination();

/*! A call to the host: the thread may be terminated during it. No effect in other threads. */
class HostCall {
public:
    HostCall();
    ~HostCall();
    HostCall(const HostCall&) = delete;
    HostCall& operator=(const HostCall&) = delete;
};

} // namespace SingleInstance
