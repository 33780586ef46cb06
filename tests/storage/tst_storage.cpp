#include "common/LogCapture.h"
#include "storage/File.h"
#include "storage/FolderListing.h"
#include "storage/WorkingFolders.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <dirent.h>

namespace {

void touch(const QString& path, qint64 size = 0)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    if (size > 0)
        QVERIFY(file.resize(size));
}

QStringList names(const FileList& files)
{
    QStringList result;
    for (const auto& file : files)
        result.append(file->filePath->section(u'/', -1));
    return result;
}

} // namespace

class TestStorage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void derivedNameAndType_data();
    void derivedNameAndType();
    void sizeUnits_data();
    void sizeUnits();
    void modifiedUsesDayMonthYearPattern();
    void absentAttributesGiveNoValues();
    void equalityIgnoresMarks();
    void listingFiltersNamesAndKeepsPlatformOrder();
    void refreshReplacesTheListOnlyWhenTheFolderChanges();
    void unreadableFolderLogsAndKeepsTheList();
    void preparingCreatesMissingFoldersOnlyOnce();
    void preparingLogsAFolderItCannotCreate();
};

void TestStorage::derivedNameAndType_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("type");
    QTest::newRow("plain") << "/d/report.pdf" << "report" << "PDF";
    QTest::newRow("two extensions") << "/d/archive.tar.gz" << "archive.tar" << "GZ";
    QTest::newRow("empty piece dropped") << "/d/a..b.txt" << "a.b" << "TXT";
    QTest::newRow("no extension") << "/d/README" << "" << "README";
    QTest::newRow("leading dot") << "/d/.hidden.txt" << "hidden" << "TXT";
    QTest::newRow("only dots") << "/d/..." << "" << "";
    QTest::newRow("encrypted") << "/d/photo.jpg.vx" << "photo.jpg" << "VX";
    QTest::newRow("dot in folder only") << "/d.x/plain" << "" << "PLAIN";
}

void TestStorage::derivedNameAndType()
{
    QFETCH(QString, path);
    File file(path);
    QTEST(file.fileName(), "name");
    QTEST(file.fileType(), "type");
}

void TestStorage::sizeUnits_data()
{
    QTest::addColumn<quint64>("bytes");
    QTest::addColumn<QString>("text");
    QTest::newRow("zero") << quint64(0) << "0 B";
    QTest::newRow("999") << quint64(999) << "999 B";
    QTest::newRow("1000") << quint64(1000) << "1.0 KB";
    QTest::newRow("1050") << quint64(1050) << "1.1 KB";
    QTest::newRow("999999") << quint64(999999) << "1000.0 KB";
    QTest::newRow("1000000") << quint64(1000000) << "1.0 MB";
    QTest::newRow("999999999") << quint64(999999999) << "1000.0 MB";
    QTest::newRow("1000000000") << quint64(1000000000) << "1.0 GB";
    QTest::newRow("5 TB") << quint64(5000000000000) << "5000.0 GB";
}

void TestStorage::sizeUnits()
{
    QFETCH(quint64, bytes);
    QTEST(formatFileSize(bytes), "text");
}

void TestStorage::modifiedUsesDayMonthYearPattern()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("a.txt"));
    touch(path, 999);
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(file.setFileTime(QDateTime(QDate(2024, 3, 5), QTime(14, 7, 31)), QFileDevice::FileModificationTime));
    file.close();
    File record(path);
    QCOMPARE(record.fileModified(), QStringLiteral("05-03-24 14:07"));
    QCOMPARE(record.fileSize(), QStringLiteral("999 B"));
}

void TestStorage::absentAttributesGiveNoValues()
{
    File missing(QStringLiteral("/nonexistent/folder/x.pdf"));
    QCOMPARE(missing.fileSize(), std::nullopt);
    QCOMPARE(missing.fileModified(), std::nullopt);
    QCOMPARE(missing.fileName(), QStringLiteral("x"));
    File noPath;
    QCOMPARE(noPath.fileSize(), std::nullopt);
    QCOMPARE(noPath.fileName(), QString());
}

void TestStorage::equalityIgnoresMarks()
{
    QVERIFY(File(QStringLiteral("/a"), true) == File(QStringLiteral("/a"), false));
    QVERIFY(!(File(QStringLiteral("/a")) == File(QStringLiteral("/b"))));
    QVERIFY(File() == File());
    QVERIFY(!(File() == File(QStringLiteral("/a"))));
    const FileList one { std::make_shared<File>(QStringLiteral("/a")), std::make_shared<File>(QStringLiteral("/b")) };
    const FileList swapped { one.at(1), one.at(0) };
    QVERIFY(sameFiles(one, FileList { std::make_shared<File>(QStringLiteral("/a"), true), one.at(1) }));
    QVERIFY(!sameFiles(one, swapped));
    QVERIFY(!sameFiles(one, FileList { one.at(0) }));
}

void TestStorage::listingFiltersNamesAndKeepsPlatformOrder()
{
    QTemporaryDir dir;
    for (const char* name : { ".DS_Store", "README", "notes.", ".hidden.txt" })
        touch(dir.filePath(QString::fromLatin1(name)));
    // Enough names, made out of order, that the directory's own order is no sorted one.
    QStringList kept;
    for (int i : { 7, 2, 11, 0, 9, 4, 1, 10, 5, 8, 3, 6 })
        kept.append(QStringLiteral("file-%1.txt").arg(i, 2, 10, QLatin1Char('0')));
    kept << u"archive.tar.gz"_qs << u"x.vx"_qs;
    for (const QString& name : kept)
        touch(dir.filePath(name));
    QVERIFY(QDir(dir.path()).mkdir(QStringLiteral("folder.d")));
    kept.append(u"folder.d"_qs);

    const auto files = listWorkingFolder(dir.path());
    QVERIFY(files);
    // The order is the file system's own, as readdir gives it.
    QStringList platformOrder;
    DIR* d = ::opendir(QFile::encodeName(dir.path()).constData());
    QVERIFY(d);
    while (const dirent* entry = ::readdir(d)) {
        const QString name = QFile::decodeName(entry->d_name);
        if (kept.contains(name))
            platformOrder.append(name);
    }
    ::closedir(d);
    QCOMPARE(platformOrder.size(), kept.size());
    QCOMPARE(names(*files), platformOrder);
    for (const auto& file : *files) {
        QVERIFY(!file->isChecked);
        QVERIFY(file->filePath->startsWith(dir.path() + u'/'));
    }

    QTemporaryDir empty;
    const auto none = listWorkingFolder(empty.path());
    QVERIFY(none && none->isEmpty());
}

void TestStorage::refreshReplacesTheListOnlyWhenTheFolderChanges()
{
    QTemporaryDir dir;
    touch(dir.filePath(QStringLiteral("a.txt")));
    touch(dir.filePath(QStringLiteral("b.txt")));
    FileList current;
    QVERIFY(refreshFromFolder(current, dir.path()));
    QCOMPARE(current.size(), 2);
    current.at(1)->isChecked = true;
    const FilePtr kept = current.at(1);
    // Unchanged: the same records, marks and all.
    QVERIFY(!refreshFromFolder(current, dir.path()));
    QCOMPARE(current.at(1).get(), kept.get());
    QVERIFY(current.at(1)->isChecked);

    QVERIFY(QFile::rename(dir.filePath(QStringLiteral("a.txt")), dir.filePath(QStringLiteral("c.txt"))));
    QVERIFY(refreshFromFolder(current, dir.path()));
    QCOMPARE(current.size(), 2);
    for (const auto& file : current)
        QVERIFY(!file->isChecked);

    QVERIFY(QFile::remove(dir.filePath(QStringLiteral("b.txt"))));
    QVERIFY(QFile::remove(dir.filePath(QStringLiteral("c.txt"))));
    QVERIFY(refreshFromFolder(current, dir.path()));
    QVERIFY(current.isEmpty());
}

void TestStorage::unreadableFolderLogsAndKeepsTheList()
{
    FileList current { std::make_shared<File>(QStringLiteral("/x/y.txt"), true) };
    LogCapture log;
    QVERIFY(!refreshFromFolder(current, QStringLiteral("/nonexistent/varnex")));
    QVERIFY(!refreshFromFolder(current, std::nullopt));
    QCOMPARE(current.size(), 1);
    QVERIFY(current.at(0)->isChecked);
    QCOMPARE(log.lines(), QStringList(2, QStringLiteral("Cannot read files in Varnex folder")));
}

void TestStorage::preparingCreatesMissingFoldersOnlyOnce()
{
    QTemporaryDir home;
    const QString documents = home.filePath(QStringLiteral("Documents"));
    LogCapture log;
    WorkingFolders::prepareWorkingFolders(documents + u'/');
    QCOMPARE(WorkingFolders::documentsFolder(), documents);
    QCOMPARE(WorkingFolders::varnexFolder(), documents + QStringLiteral("/Varnex"));
    QCOMPARE(WorkingFolders::encryptedFilesFolder(), documents + QStringLiteral("/Varnex/EncryptedFiles"));
    QCOMPARE(WorkingFolders::decryptedFilesFolder(), documents + QStringLiteral("/Varnex/DecryptedFiles"));
    QVERIFY(QFileInfo(*WorkingFolders::encryptedFilesFolder()).isDir());
    QVERIFY(QFileInfo(*WorkingFolders::decryptedFilesFolder()).isDir());

    touch(*WorkingFolders::encryptedFilesFolder() + QStringLiteral("/kept.vx"));
    WorkingFolders::prepareWorkingFolders(documents);
    QVERIFY(QFileInfo::exists(*WorkingFolders::encryptedFilesFolder() + QStringLiteral("/kept.vx")));
    QVERIFY(log.lines().isEmpty());
}

void TestStorage::preparingLogsAFolderItCannotCreate()
{
    QTemporaryDir home;
    // Something that is not a folder at a result folder's place is left alone, silently.
    const QString documents = home.filePath(QStringLiteral("Documents"));
    QVERIFY(QDir().mkpath(documents + QStringLiteral("/Varnex")));
    touch(documents + QStringLiteral("/Varnex/EncryptedFiles"));
    {
        LogCapture log;
        WorkingFolders::prepareWorkingFolders(documents);
        QVERIFY(log.lines().isEmpty());
        QVERIFY(QFileInfo(documents + QStringLiteral("/Varnex/EncryptedFiles")).isFile());
        QVERIFY(QFileInfo(documents + QStringLiteral("/Varnex/DecryptedFiles")).isDir());
    }
    // A documents "folder" that is a file: every folder fails, each is logged and tried.
    const QString blocked = home.filePath(QStringLiteral("blocked"));
    touch(blocked);
    LogCapture log;
    WorkingFolders::prepareWorkingFolders(blocked);
    QCOMPARE(log.lines(), (QStringList { u"\"Cannot create directory: " + blocked + u"/Varnex\"",
                                         u"\"Cannot create directory: " + blocked + u"/Varnex/EncryptedFiles\"",
                                         u"\"Cannot create directory: " + blocked + u"/Varnex/DecryptedFiles\"" }));
}

QTEST_GUILESS_MAIN(TestStorage)
#include "tst_storage.moc"
