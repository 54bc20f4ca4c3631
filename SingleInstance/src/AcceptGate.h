#pragma once

class QTcpServer;

namespace SingleInstance {

/*!
    Stops \a server from accepting while the process is short of file descriptors, and lets it
    accept again once some are free. The server must be listening.

    The kernel's queue holds the connections meanwhile. Without this, Qt either stops accepting for
    good or spins at full load, and connections would take the last descriptors that the host needs
    for its own files. Writes no log line.

    Call it from the server's thread. What it makes ends with the server.
*/
void keepDescriptorsFree(QTcpServer& server);

} // namespace SingleInstance
