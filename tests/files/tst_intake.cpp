#include "files/FileListModel.h"
#include "files/IntakeList.h"
#include "files/ResultFolder.h"

#include <QAbstractItemModelTester>
#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using Buttons = IntakeList::Buttons;
Q_DECLARE_METATYPE(IntakeList::Kind)

namespace {

QStringList names(const FileList& files)
{
    QStringList result;
    for (const auto& f : files)
        result.append(f->filePath->section(u'/', -1));
    return result;
}

void touch(const QString& path)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write("x");
}

} // namespace

class TestIntake : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void admission_data();
    void admission();
    void onlyRegularFilesAreAdmitted();
    void buttonUnit_data();
    void buttonUnit();
    void recipientsCompleteTheOperationRule();
    void modelFollowsTheList();
    void reloadChangesOnlyWhatChanged_data();
    void reloadChangesOnlyWhatChanged();
    void resultFolderKeepsMarksUntilTheFolderChanges();
    void resultFolderSeesNewFilesAtOnce();
};

void TestIntake::admission_data()
{
    QTest::addColumn<IntakeList::Kind>("kind");
    QTest::addColumn<QStringList>("paths");
    QTest::addColumn<QStringList>("admitted");
    QTest::addColumn<bool>("refused");
    const auto E = IntakeList::Kind::Encrypt;
    const auto D = IntakeList::Kind::Decrypt;
    QTest::newRow("encrypt: mixed drop") << E << QStringList { u"/a/report.pdf"_qs, u"/a/photo.vx"_qs, u"/a/notes.txt"_qs }
                                         << QStringList { u"report.pdf"_qs, u"notes.txt"_qs } << true;
    QTest::newRow("same name, other folder") << E << QStringList { u"/a/report.pdf"_qs, u"/b/report.pdf"_qs }
                                             << QStringList { u"report.pdf"_qs } << true;
    QTest::newRow("encrypt: .VX is not encrypted") << E << QStringList { u"/a/archive.VX"_qs } << QStringList { u"archive.VX"_qs } << false;
    QTest::newRow("encrypt: no extension") << E << QStringList { u"/a/README"_qs } << QStringList { u"README"_qs } << false;
    QTest::newRow("decrypt: no extension") << D << QStringList { u"/a/README"_qs } << QStringList {} << true;
    QTest::newRow("decrypt: only .vx") << D << QStringList { u"/e/report.pdf.vx"_qs, u"/e/report.pdf"_qs, u"/e/x.VX"_qs }
                                       << QStringList { u"report.pdf.vx"_qs } << true;
    QTest::newRow("decrypt: trailing dot") << D << QStringList { u"/e/a.vx."_qs } << QStringList { u"a.vx."_qs } << false;
    QTest::newRow("only dots") << E << QStringList { u"/a/..."_qs } << QStringList { u"..."_qs } << false;
    QTest::newRow("empty list") << E << QStringList {} << QStringList {} << false;
}

void TestIntake::admission()
{
    QFETCH(IntakeList::Kind, kind);
    QFETCH(QStringList, paths);
    IntakeList list(kind);
    QSignalSpy changed(&list, &IntakeList::changed);
    QTEST(list.addFiles(paths), "refused");
    QTEST(names(list.files()), "admitted");
    QCOMPARE(changed.size(), 1); // the table is reloaded once, whatever happened
    QCOMPARE(list.buttons().markAll, !list.files().isEmpty());
    for (const auto& f : list.files())
        QVERIFY(!f->isChecked);
}

void TestIntake::onlyRegularFilesAreAdmitted()
{
    QTemporaryDir dir;
    touch(dir.filePath(u"report.pdf"_qs));
    QVERIFY(QFile::link(dir.filePath(u"report.pdf"_qs), dir.filePath(u"link.pdf"_qs))); // a link to a file is a file
    QCOMPARE(::mkfifo(QFile::encodeName(dir.filePath(u"pipe.txt"_qs)).constData(), 0600), 0);
    QDir().mkpath(dir.filePath(u"folder.txt"_qs));
    QDir().mkpath(dir.filePath(u"folder.vx"_qs));
    IntakeList encrypt(IntakeList::Kind::Encrypt);
    QVERIFY(encrypt.addFiles({ dir.filePath(u"pipe.txt"_qs), dir.filePath(u"report.pdf"_qs), dir.filePath(u"folder.txt"_qs),
                               u"/dev/null"_qs, dir.filePath(u"link.pdf"_qs) }));
    QCOMPARE(names(encrypt.files()), (QStringList { u"report.pdf"_qs, u"link.pdf"_qs }));
    IntakeList decrypt(IntakeList::Kind::Decrypt);
    QVERIFY(decrypt.addFiles({ dir.filePath(u"folder.vx"_qs) }));
    QVERIFY(decrypt.files().isEmpty());
}

void TestIntake::buttonUnit_data()
{
    QTest::addColumn<QStringList>("actions");
    QTest::addColumn<bool>("recipients");
    QTest::addColumn<QList<bool>>("marks");
    QTest::addColumn<Buttons>("buttons");
    QTest::newRow("flip one, no recipient") << QStringList { u"flip 1"_qs } << false << QList<bool> { false, true, false }
                                            << Buttons { true, true, false };
    QTest::newRow("flip one with recipient") << QStringList { u"flip 1"_qs } << true << QList<bool> { false, true, false }
                                             << Buttons { true, true, true };
    QTest::newRow("flip back") << QStringList { u"flip 1"_qs, u"flip 1"_qs } << true << QList<bool> { false, false, false }
                               << Buttons { true, false, false };
    QTest::newRow("mark all from one") << QStringList { u"flip 1"_qs, u"all"_qs } << true << QList<bool> { true, true, true }
                                       << Buttons { true, true, true };
    QTest::newRow("mark all twice clears") << QStringList { u"flip 1"_qs, u"all"_qs, u"all"_qs } << true
                                           << QList<bool> { false, false, false } << Buttons { true, false, false };
    QTest::newRow("remove the marked one keeps operation")
        << QStringList { u"flip 1"_qs, u"remove"_qs } << true << QList<bool> { false, false } << Buttons { true, false, true };
    QTest::newRow("remove all") << QStringList { u"all"_qs, u"remove"_qs } << true << QList<bool> {} << Buttons { false, false, false };
    QTest::newRow("flip outside the rows") << QStringList { u"flip -1"_qs, u"flip 7"_qs } << true << QList<bool> { false, false, false }
                                           << Buttons { true, false, false };
}

void TestIntake::buttonUnit()
{
    QFETCH(QStringList, actions);
    QFETCH(bool, recipients);
    QFETCH(QList<bool>, marks);
    IntakeList list(IntakeList::Kind::Encrypt);
    list.setOperationPrecondition([recipients] { return recipients; });
    list.addFiles({ u"/a/1.txt"_qs, u"/a/2.txt"_qs, u"/a/3.txt"_qs });
    for (const QString& action : actions) {
        if (action.startsWith(u"flip"))
            list.flip(action.section(u' ', 1).toInt());
        else if (action == u"all")
            list.markAll();
        else
            list.removeMarked();
    }
    QList<bool> actual;
    for (const auto& f : list.files())
        actual.append(f->isChecked);
    QCOMPARE(actual, marks);
    QTEST(list.buttons(), "buttons");
}

void TestIntake::recipientsCompleteTheOperationRule()
{
    bool recipients = false;
    IntakeList list(IntakeList::Kind::Encrypt);
    list.setOperationPrecondition([&recipients] { return recipients; });
    QSignalSpy buttons(&list, &IntakeList::buttonsChanged);
    list.addFiles({ u"/a/1.txt"_qs });
    list.flip(0);
    QVERIFY(!list.buttons().operation);
    recipients = true;
    list.updateOperationButton();
    QVERIFY(list.buttons().operation);
    recipients = false;
    list.updateOperationButton();
    QVERIFY(!list.buttons().operation);
    QCOMPARE(buttons.size(), 4);

    IntakeList decrypt(IntakeList::Kind::Decrypt); // no precondition: always
    decrypt.addFiles({ u"/e/1.vx"_qs });
    decrypt.flip(0);
    QVERIFY(decrypt.buttons().operation);
}

void TestIntake::modelFollowsTheList()
{
    IntakeList list(IntakeList::Kind::Encrypt);
    FileListModel model([&list]() -> const FileList& { return list.files(); });
    model.onFlip = [&list](int row) { list.flip(row); };
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    QObject::connect(&list, &IntakeList::changed, &model, &FileListModel::reload);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    list.addFiles({ u"/a/archive.tar.gz"_qs, u"/a/b.txt"_qs });
    QCOMPARE(model.rowCount(), 2);
    QCOMPARE(model.index(0).data(FileListModel::NameRole).toString(), QStringLiteral("archive.tar"));
    QCOMPARE(model.index(0).data(FileListModel::TypeRole).toString(), QStringLiteral("GZ"));
    QCOMPARE(model.index(0).data(Qt::ToolTipRole).toString(), QStringLiteral("archive.tar"));
    QCOMPARE(model.index(0).data(FileListModel::SizeRole).toString(), QString()); // no such file: empty
    QVERIFY(model.setData(model.index(1), Qt::Checked, Qt::CheckStateRole));
    QCOMPARE(model.index(1).data(Qt::CheckStateRole).value<Qt::CheckState>(), Qt::Checked);
    QVERIFY(!(model.flags(model.index(0)) & Qt::ItemIsSelectable));
    list.removeMarked();
    QCOMPARE(model.rowCount(), 1);
    // Rows come and go one by one and marks change in place: a view keeps its place.
    QCOMPARE(inserted.size(), 1);
    QCOMPARE(removed.size(), 1);
    QCOMPARE(reset.size(), 0);
}

void TestIntake::reloadChangesOnlyWhatChanged_data()
{
    QTest::addColumn<QStringList>("before");
    QTest::addColumn<QStringList>("after");
    QTest::addColumn<int>("changed");  // dataChanged signals
    QTest::addColumn<int>("inserted"); // rows inserted
    QTest::addColumn<int>("removed");  // rows removed
    QTest::addColumn<int>("resets");
    const QStringList abc { u"/a"_qs, u"/b"_qs, u"/c"_qs };
    QTest::newRow("same files") << abc << abc << 1 << 0 << 0 << 0;
    QTest::newRow("appended") << abc << (abc + QStringList { u"/d"_qs, u"/e"_qs }) << 1 << 2 << 0 << 0;
    QTest::newRow("first of empty") << QStringList() << QStringList { u"/a"_qs } << 0 << 1 << 0 << 0;
    QTest::newRow("middle removed") << abc << QStringList { u"/a"_qs, u"/c"_qs } << 1 << 0 << 1 << 0;
    QTest::newRow("all removed") << abc << QStringList() << 0 << 0 << 3 << 0;
    QTest::newRow("reordered") << abc << QStringList { u"/c"_qs, u"/b"_qs, u"/a"_qs } << 0 << 0 << 0 << 1;
    QTest::newRow("one replaced") << abc << QStringList { u"/a"_qs, u"/x"_qs, u"/c"_qs } << 0 << 0 << 0 << 1;
}

void TestIntake::reloadChangesOnlyWhatChanged()
{
    QFETCH(QStringList, before);
    QFETCH(QStringList, after);
    FileList files;
    for (const QString& path : before)
        files.append(std::make_shared<File>(path));
    FileListModel model([&files]() -> const FileList& { return files; });
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    FileList next;
    for (const QString& path : after)
        next.append(std::make_shared<File>(path)); // new records, as a folder listing makes them
    files = next;
    model.reload();
    QTEST(int(changed.size()), "changed");
    int insertedRows = 0;
    for (const auto& args : inserted)
        insertedRows += args.at(2).toInt() - args.at(1).toInt() + 1;
    QTEST(insertedRows, "inserted");
    QTEST(int(removed.size()), "removed");
    QTEST(int(reset.size()), "resets");
    QCOMPARE(model.rowCount(), after.size());
    for (int row = 0; row < after.size(); ++row)
        QCOMPARE(model.index(row).data(FileListModel::PathRole).toString(), after.at(row));
}

void TestIntake::resultFolderKeepsMarksUntilTheFolderChanges()
{
    QTemporaryDir dir;
    touch(dir.filePath(u"a.pdf.vx"_qs));
    touch(dir.filePath(u"b.pdf.vx"_qs));
    ResultFolder results(dir.path(), std::chrono::seconds(3));
    FileListModel model([&results]() -> const FileList& { return results.files(); });
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    QObject::connect(&results, &ResultFolder::replaced, &model, &FileListModel::reload);
    QVERIFY(results.refresh());
    QCOMPARE(model.rowCount(), 2);
    results.files().at(0)->isChecked = true;
    QSignalSpy replaced(&results, &ResultFolder::replaced);
    QVERIFY(!results.refresh());
    QVERIFY(results.files().at(0)->isChecked);
    QVERIFY(QFile::rename(dir.filePath(u"b.pdf.vx"_qs), dir.filePath(u"c.pdf.vx"_qs)));
    QTRY_COMPARE(replaced.size(), 1); // the watcher saw it
    QVERIFY(!results.files().at(0)->isChecked);
}

void TestIntake::resultFolderSeesNewFilesAtOnce()
{
    QTemporaryDir dir;
    ResultFolder results(dir.path(), std::chrono::hours(1)); // no periodic help
    results.refresh();
    QCOMPARE(results.files().size(), 0);
    touch(dir.filePath(u"new.txt"_qs));
    QTRY_COMPARE_WITH_TIMEOUT(results.files().size(), 1, 2000);
    // Removed and made again: the watch comes back with the folder.
    QVERIFY(QDir(dir.path()).removeRecursively());
    QVERIFY(QDir().mkpath(dir.path()));
    results.refresh();
    touch(dir.filePath(u"again.txt"_qs));
    QTRY_COMPARE_WITH_TIMEOUT(results.files().size(), 1, 2000);
    QCOMPARE(names(results.files()), QStringList { u"again.txt"_qs });
}

QTEST_GUILESS_MAIN(TestIntake)
#include "tst_intake.moc"
