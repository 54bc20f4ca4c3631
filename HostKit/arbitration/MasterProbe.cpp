#include "MasterProbe.h"

#include "UniqueFd.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QThread>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace HostKit {

namespace {

constexpr int timeout = 2000; // ms, for a master that does not answer
constexpr unsigned long retryInterval = 20; // ms, while its queue is full

struct Request {
    nlmsghdr header;
    inet_diag_req_v2 query;
};

struct Reply {
    nlmsghdr header;
    inet_diag_msg found;
    std::array<char, 1024> more;
};

Request requestFor(int family, quint16 port)
{
    Request request = {};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    request.header.nlmsg_flags = NLM_F_REQUEST;
    request.query.sdiag_family = static_cast<__u8>(family);
    request.query.sdiag_protocol = IPPROTO_TCP;
    request.query.id.idiag_sport = htons(port);
    std::fill_n(request.query.id.idiag_cookie, 2, INET_DIAG_NOCOOKIE);
    if (family == AF_INET6)
        std::memcpy(request.query.id.idiag_src, &in6addr_loopback, sizeof in6addr_loopback);
    else
        request.query.id.idiag_src[0] = htonl(INADDR_LOOPBACK);
    return request;
}

enum class Listener { Unknown, Full, Ready, Stranger };

/*
 * Asks the kernel about the listener on \a port. The listener does not notice. A connection would
 * take as long as a hand-off, and it would need a place in the listener's queue. Unknown means that
 * there is no listener, or that the kernel does not answer, as in some sandboxes. Both look the
 * same.
 */
Listener listenerOn(int family, quint16 port)
{
    constexpr int listens = 10; // the state
    const Request request = requestFor(family, port);
    const UniqueFd kernel(
        ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_SOCK_DIAG));
    Reply reply = {};
    if (::send(kernel.get(), &request, sizeof request, 0) < 0
        || ::recv(kernel.get(), &reply, sizeof reply, 0) < static_cast<ssize_t>(NLMSG_LENGTH(4))
        || reply.header.nlmsg_type != SOCK_DIAG_BY_FAMILY || reply.found.idiag_state != listens)
        return Listener::Unknown;
    const uid_t user = ::geteuid();
    if (reply.found.idiag_uid != user && user != 0)
        return Listener::Stranger;
    return reply.found.idiag_rqueue > reply.found.idiag_wqueue ? Listener::Full : Listener::Ready;
}

/* Returns true if a process accepts a connection, or if that cannot be found out. */
bool connects(int family, quint16 port, const QDeadlineTimer& deadline)
{
    const sockaddr_in v4 = {AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
    const sockaddr_in6 v6 = {AF_INET6, htons(port), 0, IN6ADDR_LOOPBACK_INIT, 0};
    const bool isV6 = family == AF_INET6;
    const auto* const address =
        isV6 ? reinterpret_cast<const sockaddr*>(&v6) : reinterpret_cast<const sockaddr*>(&v4);
    const UniqueFd probe(::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!probe.isValid())
        return errno != EAFNOSUPPORT; // perhaps out of descriptors
    if (::connect(probe.get(), address, isV6 ? sizeof v6 : sizeof v4) == 0)
        return true;
    if (errno != EINPROGRESS)
        return false;
    pollfd waiting = {probe.get(), POLLOUT, 0};
    while (::poll(&waiting, 1, static_cast<int>(deadline.remainingTime())) < 0 && errno == EINTR) {
    }
    int error = 0;
    socklen_t size = sizeof error;
    return waiting.revents != 0
        && ::getsockopt(probe.get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

/* Returns Ready, Stranger, or neither of them. */
Listener tryListener(int family, quint16 port, const QDeadlineTimer& deadline)
{
    Listener listener = listenerOn(family, port);
    while (listener == Listener::Full && !deadline.hasExpired()) {
        QThread::msleep(retryInterval);
        listener = listenerOn(family, port);
    }
    if (listener == Listener::Unknown && connects(family, port, deadline))
        return Listener::Ready;
    return listener;
}

} // namespace

bool isReachable(quint16 port)
{
    const QDeadlineTimer deadline(timeout);
    for (const int family : {AF_INET6, AF_INET}) { // as a hand-off tries them
        const Listener listener = tryListener(family, port, deadline);
        if (listener == Listener::Ready || listener == Listener::Stranger)
            return listener == Listener::Ready;
    }
    return false;
}

} // namespace HostKit
