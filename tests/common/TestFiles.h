#pragma once

#include <QFile>
#include <QRandomGenerator>
#include <QStringList>
#include <QTest>

// Files for tests to work on: written whole, read back whole, filled with repeatable noise, or
// named as a list of file records shows them.
namespace TestFiles {

inline void write(const QString& path, const QByteArray& data)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    QCOMPARE(f.write(data), data.size());
}

inline QByteArray read(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

inline QByteArray randomBytes(qsizetype size, quint32 seed = 42)
{
    QByteArray data(size, Qt::Uninitialized);
    QRandomGenerator generator(seed);
    generator.fillRange(reinterpret_cast<quint32*>(data.data()), size / 4);
    return data;
}

// The last path pieces of file records (anything with a `filePath`), in their order.
template <typename Files> QStringList fileNames(const Files& files)
{
    QStringList result;
    for (const auto& file : files)
        result.append(file->filePath->section(u'/', -1));
    return result;
}

} // namespace TestFiles
