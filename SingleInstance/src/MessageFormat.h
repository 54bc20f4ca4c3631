#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QDataStream>
#include <QtCore/QStringList>

namespace SingleInstance {

/*
 * A hand-off message carries one argument list. It is a prefix of two bytes, the length of the body
 * in little-endian order, and the body: the big-endian QDataStream form of a QStringList. The two
 * byte orders differ.
 */

constexpr int prefixSize = 2;
constexpr int maxBodySize = 0xFFFF; // what the prefix can state

/*! Returns the list that stands for no arguments: a single blank. */
QStringList noArguments();

/*! Returns the body that carries \a arguments, of any length. */
QByteArray packArguments(const QStringList& arguments);

/*! Returns how many bytes \a argument takes in a body. */
qint64 packedSize(const QString& argument);

/*! Returns the size of the body that carries \a arguments. */
qint64 packedSize(const QStringList& arguments);

/*! Returns \a body with its prefix in front, or nothing if the body is longer than maxBodySize. */
QByteArray prefixed(const QByteArray& body);

/*! Returns the length that the first two bytes of \a data state. */
quint16 bodySize(const QByteArray& data);

/*!
    Reads the list that \a body carries into \a arguments.

    Every status, and with QDataStream::Ok every list, is what the stream's own operator gives; but
    that one reserves room for whatever count it reads, which lets eight hostile bytes claim
    gigabytes. Bytes behind the last string are ignored.
*/
QDataStream::Status unpackArguments(const QByteArray& body, QStringList& arguments);

} // namespace SingleInstance
