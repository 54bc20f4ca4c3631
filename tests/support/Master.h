#pragma once

#include "MessageFormat.h"
#include "MessageSender.h"
#include "Registry.h"
#include "ScriptedHost.h"
#include "SettingsSlot.h"
#include "SingleInstanceController.h"
#include "Table.h"

#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <memory>
#include <vector>

#ifdef Q_OS_LINUX
#include <malloc.h>
#include <sys/resource.h>
#include <sys/socket.h>
#else
#include <winsock2.h>
#endif

/* How many files are open, and how many bytes are allocated. On Windows both return 0. */
#ifdef Q_OS_LINUX
inline int openFiles()
{
    return int(QDir("/proc/self/fd").entryList(QDir::Files | QDir::System).size());
}
inline size_t usedMemory()
{
    return ::mallinfo2().uordblks;
}
#else
inline int openFiles()
{
    return 0;
}
inline size_t usedMemory()
{
    return 0;
}
#endif

/* Sets the soft limit of open files. Windows has none. */
inline void limitFiles(int count)
{
#ifdef Q_OS_LINUX
    const rlimit limit = {rlim_t(count), 2200};
    ::setrlimit(RLIMIT_NOFILE, &limit);
#else
    Q_UNUSED(count)
#endif
}

/* Returns the descriptor of a socket or server, in the type of the system. */
template <typename Socket> auto descriptorOf(const Socket& socket)
{
    return static_cast<decltype(::socket(0, 0, 0))>(socket.socketDescriptor());
}

/* An application object with arguments of its own. */
struct Application {
    explicit Application(const QStringList& arguments = {})
    {
        for (const QString& argument : QStringList("program") + arguments)
            texts.push_back(argument.toUtf8());
        for (QByteArray& text : texts)
            pointers.push_back(text.data());
        application =
            std::make_unique<QCoreApplication>(count = int(texts.size()), pointers.data());
    }
    std::vector<QByteArray> texts;
    std::vector<char*> pointers;
    int count = 0;
    std::unique_ptr<QCoreApplication> application;
};

/* A master in this process. */
struct Master : Application {
    const SingleInstanceState state = startSingleInstance();
    SingleInstance::SingleInstanceController* const controller = SingleInstance::findController();

    /* Returns whether nothing arrives for a while, and hardly any processor time is used. */
    bool rests(int milliseconds) const
    {
        const auto time = [] { // in units of 10 ms; 0 on Windows
            const QString status = contentOf("/proc/self/stat");
            return status.section(' ', 13, 13).toInt() + status.section(' ', 14, 14).toInt();
        };
        const int before = time();
        const auto receives = [this] { return !controller->peekMessages().isEmpty(); };
        return !QTest::qWaitFor(receives, milliseconds) && time() - before < milliseconds / 20;
    }
};

inline bool handOver(const QStringList& list)
{
    return SingleInstance::sendToMaster(SingleInstance::packArguments(list));
}

/* Returns whether \a name arrives. */
inline bool reaches(SingleInstance::SingleInstanceController* controller, const QString& name)
{
    return handOver({name})
        && QTest::qWaitFor([&] { return controller->takeMessages().contains({name}); });
}

/* Connects all to the master. Each sends \a bytes. If there is a \a controller, waits for it. */
inline void connectAll(SingleInstance::SingleInstanceController* controller,
                       std::vector<QTcpSocket>& clients, const QByteArray& bytes,
                       bool reset = false)
{
    int connected = 0;
    const linger end = {reset, 0};
    static const bool hasIPv6 = QTcpServer().listen(QHostAddress::LocalHostIPv6);
    for (QTcpSocket& client : clients) {
        client.connectToHost(hasIPv6 ? QHostAddress::LocalHostIPv6 : QHostAddress::LocalHost,
                             SingleInstance::readMasterPort());
        if (!client.waitForConnected())
            qFatal("no connection");
        ::setsockopt(descriptorOf(client), SOL_SOCKET, SO_LINGER,
                     reinterpret_cast<const char*>(&end), sizeof end);
        client.write(bytes);
        client.waitForBytesWritten();
        if (controller && ++connected % 25 == 0 && !reaches(controller, "paced"))
            qFatal("the queue is not served");
    }
}
