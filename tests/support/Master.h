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
};

inline bool handOver(const QStringList& list)
{
    return SingleInstance::sendToMaster(SingleInstance::packArguments(list));
}
