#pragma once

#include <QtTest/QtTest>

#include <set>

/* Returns what is in a file, or nothing. */
inline QString contentOf(const QString& name)
{
    QFile file(name);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

/* Returns the lines of the table \a name. */
inline QStringList tableLines(const QString& name)
{
    return contentOf(TABLES + name).split('\n');
}

/*
 * Adds the columns and rows of a table. All fields are texts. The first line names the columns, the
 * first column names the rows. A dot is an empty text.
 */
inline void addTable(const QString& name)
{
    QStringList lines = tableLines(name);
    lines.removeAll(QString());
    const QRegularExpression border(R"(\s+\|\s+)");
    static std::set<QByteArray> columns; // Qt Test keeps pointers to the names
    for (const QString& column : lines.takeFirst().split(border).mid(1))
        QTest::addColumn<QString>(*columns.insert(column.toLatin1()).first);
    for (const QString& line : lines) {
        QStringList fields = line.split(border);
        QTestData& row = QTest::newRow(fields.takeFirst().toUtf8());
        for (const QString& field : fields)
            row << (field == "." ? QString() : field);
    }
}
