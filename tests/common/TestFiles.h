#pragma once

#include <QFile>
#include <QRandomGenerator>
#include <QTest>

// Files for tests to work on: written whole, read back whole, or filled with repeatable noise.
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

} // namespace TestFiles
