#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QStringList>

namespace HostKit {

/*
 * What a launch hands over: its arguments, and around them an envelope of strings of HostKit's own,
 * which docs/protocol.md describes. Everything in it was written by some local process: none of it
 * can be trusted. Any thread.
 */

/*! One launch, as the master receives it. */
struct LaunchMessage {
    QByteArray id; // 32 hexadecimal digits, or empty for a list without an envelope
    QString workingFolder; // absolute, or empty
    QByteArray activationToken;
    bool isWaiting = false; // for an answer
    QStringList arguments;
};

/*! One list of a launch, as it travels. */
struct Chunk {
    LaunchMessage message; // with the arguments of this chunk
    int number = 1; // from 1 on
    int count = 1;
    bool isContinued = false; // its first argument goes on the last one of the chunk before
    QString mark; // of a process that flushes its inbox: then this is no launch
};

/*! Returns 32 random hexadecimal digits. */
QByteArray newLaunchId();

/*! Returns the list that carries \a message, of any length. */
QStringList enveloped(const LaunchMessage& message);

/*! Returns the lists that carry \a message in order, each short enough for a hand-off. */
QList<QStringList> chunksOf(const LaunchMessage& message);

/*! Returns the list by which a process finds out that its inbox is complete up to here. */
QStringList markedList(const QString& mark);

/*!
    Reads \a list. A list without an envelope has arguments alone, and a single blank means no
    arguments. Of a damaged envelope, or one of a later version, what can be read is used; no string
    of an envelope is ever taken for an argument.
*/
Chunk opened(const QStringList& list);

} // namespace HostKit
