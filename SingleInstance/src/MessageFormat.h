#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QDataStream>
#include <QtCore/QStringList>

namespace SingleInstance {

/*
 * A hand-off message carries one argument list. It begins with a prefix of two bytes: the length of
 * the body, in little-endian order. The body is the QDataStream form of a QStringList, in
 * big-endian order. The two byte orders differ.
 */

constexpr int prefixSize = 2;
constexpr int maxBodySize = 0xFFFF; // the largest number in the prefix

/*! Returns the list that stands for no arguments: a single space. */
QStringList noArguments();

/*! Returns the body that carries \a arguments, of any length. */
QByteArray packArguments(const QStringList& arguments);

/*! Returns how many bytes \a argument takes in a body. */
qint64 packedSize(const QString& argument);

/*! Returns the size of the body that carries \a arguments. */
qint64 packedSize(const QStringList& arguments);

/*! Returns the prefix followed by \a body, or nothing if \a body is longer than maxBodySize. */
QByteArray prefixed(const QByteArray& body);

/*! Returns the length that the first two bytes of \a data state. */
quint16 bodySize(const QByteArray& data);

/*!
    Reads the list that \a body carries into \a arguments.

    The status is that of QDataStream's own operator. So is the list, if the status is Ok. But that
    operator reserves memory for any count that it reads: eight hostile bytes could claim gigabytes.
    Bytes after the last string are ignored.
*/
QDataStream::Status unpackArguments(const QByteArray& body, QStringList& arguments);

} // namespace SingleInstance
