#pragma once

#include <QtCore/QString>

/*! The text of a file, or in plain words why it cannot be shown. */
struct TextFile {
    QString text;
    QString problem;
    bool isLonger = false; //!< than the limit; then text and problem are empty
};

/*!
    Reads the file \a path as text, in UTF-8 or else Latin-1, unless it has more than \a most bytes,
    whatever the file system says of its size. Blocks on the disk, never on a pipe.
*/
TextFile readTextFile(const QString& path, qint64 most);
