#pragma once

#include <QtCore/QString>

/*! What came of reading a file: its text, or in plain words why there is none. */
struct TextFile {
    QString text;
    QString problem;
};

/*! Reads the file \a path as text, in UTF-8 or else Latin-1. Blocks on the disk, never on a pipe.
 */
TextFile readTextFile(const QString& path);
