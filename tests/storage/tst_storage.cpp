#include "common/LogCapture.h"
#include "common/TestFiles.h"
#include "storage/File.h"
#include "storage/FolderListing.h"
#include "storage/WorkingFolders.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <dirent.h>

using namespace TestFiles;

class TestStorage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void derivedNameAndType_data();
    void derivedNameAndType();
    void sizeUnits_data();
    void sizeUnits();
    void attributesOnDiskAndOff();
    void listingFiltersNamesAndKeepsPlatformOrder();
    void refreshReplacesTheListOnlyWhenTheFolderChanges();
    void preparingCreatesWhatIsMissingAndLogsWhatItCannot();
};

void TestStorage::derivedNameAndType_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("type");
    const auto row = [](const char* tag, const char* path, const char* name, const char* type) {
        QTest::newRow(tag) << QString::fromUtf8(path) << QString::fromUtf8(name) << QString::fromUtf8(type);
    };
    row("plain", "/d/report.pdf", "report", "PDF");
    row("two extensions", "/d/archive.tar.gz", "archive.tar", "GZ");
    row("empty piece dropped", "/d/a..b.txt", "a.b", "TXT");
    row("no extension", "/d/README", "", "README");
    row("leading dot", "/d/.hidden.txt", "hidden", "TXT");
    row("only dots", "/d/...", "", "");
    row("encrypted", "/d/photo.jpg.vx", "photo.jpg", "VX");
    row("dot in folder only", "/d.x/plain", "", "PLAIN");
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
    QTest::newRow("1000000000") << quint64(1000000000) << "1.0 GB";
    QTest::newRow("5 TB") << quint64(5000000000000) << "5000.0 GB";
}

void TestStorage::sizeUnits()
{
    QFETCH(quint64, bytes);
    QTEST(formatFileSize(bytes), "text");
}

void TestStorage::attributesOnDiskAndOff()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("a.txt"));
    write(path, QByteArray(999, 'x'));
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(
        file.setFileTime(QDateTime(QDate(2024, 3, 5), QTime(14, 7, 31)), QFileDevice::FileModificationTime));
    file.close();
    QCOMPARE(File(path).fileModified(), QStringLiteral("05-03-24 14:07"));
    QCOMPARE(File(path).fileSize(), QStringLiteral("999 B"));
    // A file that is gone, or no path at all: no values, and no crash.
    File missing(QStringLiteral("/nonexistent/folder/x.pdf"));
    QCOMPARE(missing.fileSize(), std::nullopt);
    QCOMPARE(missing.fileModified(), std::nullopt);
    QCOMPARE(missing.fileName(), QStringLiteral("x"));
    QCOMPARE(File().fileSize(), std::nullopt);
    QCOMPARE(File().fileName(), QString());
}

void TestStorage::listingFiltersNamesAndKeepsPlatformOrder()
{
    QTemporaryDir dir;
    for (const char* name : { ".DS_Store", "README", "notes.", ".hidden.txt" })
        write(dir.filePath(QString::fromLatin1(name)), {});
    // Enough names, made out of order, that the directory's own order is no sorted one.
    QStringList kept;
    for (int i : { 7, 2, 11, 0, 9, 4, 1, 10, 5, 8, 3, 6 })
        kept.append(QStringLiteral("file-%1.txt").arg(i, 2, 10, QLatin1Char('0')));
    kept << u"archive.tar.gz"_qs << u"x.vx"_qs;
    for (const QString& name : kept)
        write(dir.filePath(name), {});
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
    QCOMPARE(fileNames(*files), platformOrder);
    for (const auto& file : *files) {
        QVERIFY(!file->isChecked);
        QVERIFY(file->filePath->startsWith(dir.path() + u'/'));
    }
}

void TestStorage::refreshReplacesTheListOnlyWhenTheFolderChanges()
{
    QTemporaryDir dir;
    write(dir.filePath(QStringLiteral("a.txt")), {});
    write(dir.filePath(QStringLiteral("b.txt")), {});
    FileList current;
    QVERIFY(refreshFromFolder(current, dir.path()));
    QCOMPARE(current.size(), 2);
    current.at(1)->isChecked = true;
    const FilePtr kept = current.at(1);
    // Unchanged: the same records, marks and all.
    QVERIFY(!refreshFromFolder(current, dir.path()));
    QCOMPARE(current.at(1).get(), kept.get());
    QVERIFY(current.at(1)->isChecked);
    // The same files in another order are another list.
    QVERIFY(!sameFiles(current, FileList { current.at(1), current.at(0) }));

    QVERIFY(QFile::rename(dir.filePath(QStringLiteral("a.txt")), dir.filePath(QStringLiteral("c.txt"))));
    QVERIFY(refreshFromFolder(current, dir.path()));
    QCOMPARE(fileNames(current).size(), 2);
    QVERIFY(fileNames(current).contains(u"c.txt"_qs));
    for (const auto& file : current)
        QVERIFY(!file->isChecked);

    // An unreadable folder, or none: logged, and the list stays as it was.
    current.at(0)->isChecked = true;
    const LogCapture log;
    QVERIFY(!refreshFromFolder(current, QStringLiteral("/nonexistent/varnex")));
    QVERIFY(!refreshFromFolder(current, std::nullopt));
    QCOMPARE(current.size(), 2);
    QVERIFY(current.at(0)->isChecked);
    QCOMPARE(log.lines(), QStringList(2, QStringLiteral("Cannot read files in Varnex folder")));

    QVERIFY(QDir(dir.path()).removeRecursively() && QDir().mkpath(dir.path()));
    QVERIFY(refreshFromFolder(current, dir.path()));
    QVERIFY(current.isEmpty());
}

void TestStorage::preparingCreatesWhatIsMissingAndLogsWhatItCannot()
{
    QTemporaryDir home;
    const QString documents = home.filePath(QStringLiteral("Documents"));
    const QString varnex = documents + u"/Varnex";
    const QString encrypted = varnex + u"/EncryptedFiles";
    const QString decrypted = varnex + u"/DecryptedFiles";
    // Only the user may list or open results.
    constexpr auto others
        = QFileDevice::ReadGroup | QFileDevice::ExeGroup | QFileDevice::ReadOther | QFileDevice::ExeOther;
    const auto usersOwn = [others](const QString& folder) {
        const QFileInfo info(folder);
        return info.isDir() && !info.isSymLink()
            && (info.permissions() & (others | QFileDevice::ReadOwner)) == QFileDevice::ReadOwner;
    };
    {
        const LogCapture log;
        WorkingFolders::prepareWorkingFolders(documents + u'/');
        QCOMPARE(QStringList({ *WorkingFolders::varnexFolder(), *WorkingFolders::encryptedFilesFolder(),
                     *WorkingFolders::decryptedFilesFolder() }),
            QStringList({ varnex, encrypted, decrypted }));
        // A folder an older version left open to others is closed at the next start.
        QFile::setPermissions(varnex, QFileInfo(varnex).permissions() | others);
        WorkingFolders::prepareWorkingFolders(documents);
        QVERIFY(usersOwn(varnex) && usersOwn(encrypted) && usersOwn(decrypted));
        // A second start keeps what is there and makes what is missing. Something at a result
        // folder's place that is not a folder of the user's own (a file, a link that may lead
        // into another account's folder) is set aside, kept as it is, and the folder made anew.
        write(varnex + u"/kept.txt", "kept");
        QVERIFY(QDir(encrypted).removeRecursively() && QDir(decrypted).removeRecursively());
        write(encrypted, "a file");
        QTemporaryDir elsewhere;
        QVERIFY(QFile::link(elsewhere.path(), decrypted));
        WorkingFolders::prepareWorkingFolders(documents);
        QCOMPARE(read(varnex + u"/kept.txt"), QByteArray("kept"));
        QCOMPARE(read(encrypted + u".set-aside"), QByteArray("a file"));
        QCOMPARE(QFileInfo(decrypted + u".set-aside").symLinkTarget(), elsewhere.path());
        QVERIFY(usersOwn(encrypted) && usersOwn(decrypted));
        const QString newFolder = u".set-aside; results go to a new folder"_qs;
        QCOMPARE(log.lines(),
            (QStringList { u"[WorkingFolders] ⚠️ " + encrypted + u" was not a folder: kept as "
                    + encrypted + newFolder,
                u"[WorkingFolders] ⚠️ " + decrypted + u" was a link to " + elsewhere.path()
                    + u": kept as " + decrypted + newFolder }));
    }
    // A documents "folder" that is a file: every folder fails, each is logged and tried.
    const QString blocked = home.filePath(QStringLiteral("blocked"));
    write(blocked, {});
    const LogCapture log;
    WorkingFolders::prepareWorkingFolders(blocked);
    QStringList failed;
    for (const char* folder : { "/Varnex", "/Varnex/EncryptedFiles", "/Varnex/DecryptedFiles" })
        failed.append(u"\"Cannot create directory: " + blocked + QLatin1String(folder) + u'"');
    QCOMPARE(log.lines(), failed);
}

QTEST_GUILESS_MAIN(TestStorage)
#include "tst_storage.moc"
