#pragma once

class QTcpServer;

namespace SingleInstance {

/*!
    Stops \a server from accepting while the process is short of file descriptors. When some are
    free, the server accepts again. It must be listening.

    Meanwhile the kernel's queue holds the connections. Otherwise Qt would either stop accepting for
    ever or spin at full load, and connections would take the last descriptors, which the host needs
    for its own files. Writes no log line.

    Call it from the server's thread. The object that it creates ends with the server.
*/
void keepDescriptorsFree(QTcpServer& server);

} // namespace SingleInstance
