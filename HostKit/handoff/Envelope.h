#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QStringList>

#include <memory>
#include <optional>

namespace HostKit {

class AnswerChannel;

/*
 * What a launch hands over: a list whose first string is an envelope of HostKit's own, and whose
 * other strings are the arguments. docs/protocol.md describes the envelope. Some local process
 * wrote it: nothing in it can be trusted. Any thread.
 */

/*! One launch, as the master receives it. */
struct LaunchMessage {
    QByteArray id; // 32 hexadecimal digits; empty for a list without an envelope
    QString workingFolder; // absolute, or empty
    QByteArray activationToken;
    bool isWaiting = false; // for an answer
    QStringList arguments;
    std::shared_ptr<AnswerChannel> channel; // to the launch, in a process that received it
};

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

/*! Returns the launch that \a chunks carry, by their numbers, or nothing if they do not fit. */
std::optional<LaunchMessage> joined(const QMap<int, QString>& chunks);

/*! Returns a list with which a process finds out that its inbox is complete up to here. */
QStringList markedList(const QString& mark);

/*!
    Reads \a list. A list without an envelope has only arguments; a single blank means none. Fields
    that are unknown or wrong are ignored. An envelope is never taken for an argument.
*/
Received opened(const QStringList& list);

} // namespace HostKit
