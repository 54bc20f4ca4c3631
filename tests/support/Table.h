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

/* Adds a row of texts, which the first field names. */
inline void addRow(const QStringList& fields)
{
    QTestData& row = QTest::newRow(fields.first().toUtf8());
    for (const QString& field : fields.mid(1))
        row << field;
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
    for (const QString& line : lines)
        addRow(line.split(border).replaceInStrings(QRegularExpression("^\\.$"), {}));
}

/* Adds two columns, and the rows of docs/protocol.md whose two fields \a pattern finds. */
inline void addProtocolRows(const QString& pattern, const char* first, const char* second)
{
    QTest::addColumn<QString>(first);
    QTest::addColumn<QString>(second);
    const QRegularExpression row(pattern, QRegularExpression::MultilineOption);
    for (auto rows = row.globalMatch(contentOf(PROTOCOL)); rows.hasNext();) {
        const QStringList fields = rows.next().capturedTexts();
        addRow({fields[1], fields[1], fields[2]});
    }
}
