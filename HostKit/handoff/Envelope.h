#pragma once

#include "LaunchMessage.h"

#include <QtCore/QList>
#include <QtCore/QMap>

namespace HostKit {

/*
 * A launch hands over a list. Its first string is an envelope of HostKit's own, its other strings
 * are the arguments. docs/protocol.md describes the envelope. Any thread.
 */

/*! A list that arrived. */
struct Received {
    LaunchMessage message;
    int chunk = 1; // the number of this list among those of its launch, from 1
    int chunkCount = 1; // if there are more, the only argument is a part of the launch
    QString mark; // if it is not empty, this is no launch: see markedList()
};

/*! Returns 32 random hexadecimal digits. */
QByteArray newLaunchId();

/*! Returns the list that carries \a message, whatever its length. */
QStringList enveloped(const LaunchMessage& message);

/*! Returns the lists that carry \a message in order, each short enough for a hand-off. */
QList<QStringList> chunksOf(const LaunchMessage& message);

/*! Returns what \a chunks carry, by their numbers. */
Received joined(const QMap<int, QString>& chunks);

/*! Returns a list that a process sends to itself, to find out whether all has arrived. */
QStringList markedList(const QString& mark);

/*!
    Reads \a list. A list without an envelope has only arguments; a single space means none. Fields
    that are unknown or wrong are ignored. The first string is never an argument if it is an
    envelope.
*/
Received opened(const QStringList& list);

} // namespace HostKit
