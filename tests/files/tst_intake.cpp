#include "app/Session.h"
#include "app/Translations.h"
#include "common/TestFiles.h"
#include "files/FileListModel.h"
#include "files/IntakeList.h"
#include "files/OperationLine.h"
#include "files/ResultFolder.h"
#include "files/ResultOrderModel.h"

#include <QAbstractItemModelTester>
#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using Buttons = IntakeList::Buttons;
Q_DECLARE_METATYPE(IntakeList::Kind)

using namespace TestFiles;

namespace {

// Each refused path's name and reason, as "name:reason" joined with spaces.
QString refusals(const QList<IntakeList::Refusal>& refused)
{
    QStringList out;
    for (const auto& r : refused) {
        static const char* const words[] = { "missing", "invalid", "folder", "special", "unreadable",
            "listed", "long", "encrypted", "plain" };
        out.append(r.path.section(u'/', -1, -1, QString::SectionSkipEmpty).left(8) + u':'
            + QLatin1String(words[int(r.reason)]));
    }
    return out.join(u' ');
}

} // namespace

class TestIntake : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void admission_data();
    void admission();
    void onlyRegularFilesAreAdmitted();
    void largeBatchesAreAdmittedInOrder();
    void buttons_data();
    void buttons();
    void modelFollowsTheList();
    void reloadChangesOnlyWhatChanged_data();
    void reloadChangesOnlyWhatChanged();
    void resultFolderFollowsTheFolder();
    void initTestCase() { installTranslations(*QCoreApplication::instance()); }
    void operationLine_data();
    void operationLine();
    void resultOrder_data();
    void resultOrder();

private:
    // `spaced` paths made as empty files under the test's folder (except those that start with
    // "!" or end with "/": nothing is there), as absolute paths in their order.
    QStringList made(const QString& spaced);
    QTemporaryDir m_root;
};

QStringList TestIntake::made(const QString& spaced)
{
    QStringList paths;
    for (const QString& given : spaced.split(u' ', Qt::SkipEmptyParts)) {
        const bool missing = given.startsWith(u'!');
        const QString path = m_root.path() + given.mid(missing ? 1 : 0);
        if (!missing && !path.endsWith(u'/')) {
            QDir().mkpath(QFileInfo(path).path());
            write(path, {});
        }
        paths.append(path);
    }
    return paths;
}

void TestIntake::admission_data()
{
    QTest::addColumn<IntakeList::Kind>("kind");
    QTest::addColumn<QString>("paths"); // separated by spaces
    QTest::addColumn<QString>("admitted");
    QTest::addColumn<QString>("refused"); // name (8 characters at most) and reason
    const auto E = IntakeList::Kind::Encrypt;
    const auto D = IntakeList::Kind::Decrypt;
    const auto row = [](const char* tag, IntakeList::Kind kind, const char* paths, const char* admitted,
                         const char* refused) {
        QTest::newRow(tag) << kind << QString::fromUtf8(paths) << QString::fromUtf8(admitted)
                           << QString::fromUtf8(refused);
    };
    row("encrypt: mixed drop", E, "/a/report.pdf /a/photo.vx /a/notes.txt", "report.pdf notes.txt",
        "photo.vx:encrypted");
    row("same name, other folder", E, "/a/report.pdf /b/report.pdf", "report.pdf", "report.p:listed");
    row("missing, and a file's name with a trailing slash", E, "!/a/gone.txt /a/x.txt /b/x.txt/", "x.txt",
        "gone.txt:missing x.txt:missing");
    row("encrypt: .VX is not encrypted", E, "/a/archive.VX", "archive.VX", "");
    row("encrypt: no extension", E, "/a/README", "README", "");
    row("decrypt: no extension", D, "/a/README", "", "README:plain");
    row("decrypt: only .vx", D, "/e/report.pdf.vx /e/report.pdf /e/x.VX", "report.pdf.vx",
        "report.p:plain x.VX:plain");
    row("decrypt: trailing dot", D, "/e/a.vx.", "a.vx.", "");
    row("only dots", E, "/a/...", "...", "");
    row("empty list", E, "", "", "");
    // The encrypted result adds ".vx": a name takes at most 252 bytes, counted in UTF-8.
    const QString fits = QString(248, u'a') + u".txt";
    QTest::newRow("encrypt: 252 bytes fit, 253 do not")
        << E << u"/a/"_qs + fits + u" /b/b" + fits + u" /a/" + QString(125, QChar(0xe9)) + u".txt" << fits
        << u"baaaaaaa:long "_qs + QString(8, QChar(0xe9)) + u":long";
    QTest::newRow("decrypt: 255 bytes fit")
        << D << u"/e/"_qs + fits.left(248) + u".txt.vx" << fits.left(248) + u".txt.vx" << "";
}

void TestIntake::admission()
{
    QFETCH(IntakeList::Kind, kind);
    QFETCH(QString, paths);
    QFETCH(QString, admitted);
    IntakeList list(kind);
    QSignalSpy changed(&list, &IntakeList::changed);
    QTEST(refusals(list.addFiles(made(paths))), "refused");
    QCOMPARE(fileNames(list.files()).join(u' '), admitted);
    QCOMPARE(changed.size(), 1); // the table is reloaded once, whatever happened
    QCOMPARE(list.buttons().markAll, !list.files().isEmpty());
    for (const auto& f : list.files())
        QVERIFY(!f->isChecked);
}

void TestIntake::onlyRegularFilesAreAdmitted()
{
    QTemporaryDir dir;
    write(dir.filePath(u"report.pdf"_qs), "pdf");
    QVERIFY(QFile::link(
        dir.filePath(u"report.pdf"_qs), dir.filePath(u"link.pdf"_qs))); // a link to a file is a file
    QCOMPARE(::mkfifo(QFile::encodeName(dir.filePath(u"pipe.txt"_qs)).constData(), 0600), 0);
    QDir().mkpath(dir.filePath(u"folder.txt"_qs));
    QDir().mkpath(dir.filePath(u"folder.vx"_qs));
    IntakeList encrypt(IntakeList::Kind::Encrypt);
    write(dir.filePath(u"secret.txt"_qs), "no one may read this");
    QVERIFY(QFile::setPermissions(dir.filePath(u"secret.txt"_qs), QFile::WriteOwner));
    const bool root = ::geteuid() == 0; // root reads every file
    QCOMPARE(refusals(encrypt.addFiles({ dir.filePath(u"pipe.txt"_qs), dir.filePath(u"report.pdf"_qs),
                 dir.filePath(u"folder.txt"_qs), u"/dev/null"_qs, dir.filePath(u"link.pdf"_qs),
                 dir.filePath(u"secret.txt"_qs) })),
        u"pipe.txt:special folder.t:folder null:special"_qs + (root ? u"" : u" secret.t:unreadable"));
    QCOMPARE(fileNames(encrypt.files()).mid(0, 2), (QStringList { u"report.pdf"_qs, u"link.pdf"_qs }));
    IntakeList decrypt(IntakeList::Kind::Decrypt);
    QCOMPARE(refusals(decrypt.addFiles({ dir.filePath(u"folder.vx"_qs) })), u"folder.v:folder"_qs);
    QVERIFY(decrypt.files().isEmpty());
    // A name whose bytes are not UTF-8 arrives with a replacement character: never listed.
    const QByteArray latin1 = QFile::encodeName(dir.path()) + "/caf\xe9.txt";
    QVERIFY(::close(::creat(latin1.constData(), 0600)) == 0);
    QCOMPARE(refusals(encrypt.addFiles({ QFile::decodeName(latin1) })), u"caf\uFFFD.txt:invalid"_qs);
}

void TestIntake::largeBatchesAreAdmittedInOrder()
{
    IntakeList list(IntakeList::Kind::Encrypt);
    QString names;
    for (int i = 0; i < IntakeList::inlineLimit; ++i)
        names += u" /big/f"_qs + QString::number(i) + u".txt";
    const QStringList big = made(names + u" /big/same.txt");
    QStringList calls;
    list.admit(big, &list, [&calls](const auto& refused) { calls.append(u"big:"_qs + refusals(refused)); });
    QVERIFY(list.isAdmitting());
    // A small batch behind a large one waits its turn, so the same name is refused in it.
    list.admit(made(u"/small/same.txt /small/x.vx"_qs), &list,
        [&calls](const auto& refused) { calls.append(u"small:"_qs + refusals(refused)); });
    QVERIFY(list.files().isEmpty());
    {
        QObject gone; // a screen closed before its files were looked at
        list.admit(made(u"/c/c.txt"_qs), &gone, [&calls](const auto&) { calls.append(u"gone"_qs); });
    }
    QTRY_VERIFY(!list.isAdmitting());
    QCOMPARE(calls, (QStringList { u"big:"_qs, u"small:same.txt:listed x.vx:encrypted"_qs }));
    QCOMPARE(list.files().size(), big.size() + 1);
    QCOMPARE(fileNames(list.files()).last(), u"c.txt"_qs);
}

void TestIntake::buttons_data()
{
    QTest::addColumn<IntakeList::Kind>("kind");
    QTest::addColumn<QString>("actions"); // of three files
    QTest::addColumn<bool>("recipients");
    QTest::addColumn<QString>("marks"); // "x" marked, "-" not
    QTest::addColumn<Buttons>("buttons"); // mark all, remove, operation
    const auto E = IntakeList::Kind::Encrypt;
    QTest::newRow("flip one, no recipient")
        << E << "flip1" << false << "-x-" << Buttons { true, true, false };
    QTest::newRow("flip one with recipient") << E << "flip1" << true << "-x-" << Buttons { true, true, true };
    QTest::newRow("a recipient comes")
        << E << "flip1 recipient" << false << "-x-" << Buttons { true, true, true };
    QTest::newRow("the recipient goes")
        << E << "flip1 recipient" << true << "-x-" << Buttons { true, true, false };
    QTest::newRow("decrypt needs no recipient")
        << IntakeList::Kind::Decrypt << "flip1" << false << "-x-" << Buttons { true, true, true };
    QTest::newRow("flip back") << E << "flip1 flip1" << true << "---" << Buttons { true, false, false };
    QTest::newRow("mark all from one") << E << "flip1 all" << true << "xxx" << Buttons { true, true, true };
    QTest::newRow("mark all twice clears")
        << E << "flip1 all all" << true << "---" << Buttons { true, false, false };
    // Nothing marked is left after removing: the operation button goes off too.
    QTest::newRow("remove the marked one")
        << E << "flip1 remove" << true << "--" << Buttons { true, false, false };
    QTest::newRow("remove all") << E << "all remove" << true << "" << Buttons { false, false, false };
    QTest::newRow("flip outside the rows")
        << E << "flip-1 flip7" << true << "---" << Buttons { true, false, false };
}

void TestIntake::buttons()
{
    QFETCH(IntakeList::Kind, kind);
    QFETCH(QString, actions);
    QFETCH(bool, recipients);
    IntakeList list(kind);
    if (kind == IntakeList::Kind::Encrypt)
        list.setOperationPrecondition([&recipients] { return recipients; });
    Buttons announced;
    QObject::connect(
        &list, &IntakeList::buttonsChanged, &list, [&announced](const Buttons& b) { announced = b; });
    const QString extension = kind == IntakeList::Kind::Encrypt ? u".txt"_qs : u".vx"_qs;
    list.addFiles(made(u"/a/1%1 /a/2%1 /a/3%1"_qs.arg(extension)));
    for (const QString& action : actions.split(u' ', Qt::SkipEmptyParts)) {
        if (action.startsWith(u"flip")) {
            list.flip(action.mid(4).toInt());
        } else if (action == u"all") {
            list.markAll();
        } else if (action == u"recipient") {
            recipients = !recipients;
            list.updateOperationButton();
        } else {
            list.removeMarked();
        }
    }
    QString marks;
    for (const auto& f : list.files())
        marks += f->isChecked ? u'x' : u'-';
    QTEST(marks, "marks");
    QTEST(list.buttons(), "buttons");
    QVERIFY(announced == list.buttons()); // the screen was told of every change
}

void TestIntake::modelFollowsTheList()
{
    IntakeList list(IntakeList::Kind::Encrypt);
    FileListModel model([&list]() -> const FileList& { return list.files(); });
    model.onFlip = [&list](int row) { list.flip(row); };
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    QObject::connect(&list, &IntakeList::changed, &model, &FileListModel::reload);
    list.addFiles(made(u"/a/archive.tar.gz /a/b.txt"_qs));
    QCOMPARE(model.rowCount(), 2);
    QCOMPARE(model.index(0).data(FileListModel::NameRole).toString(), QStringLiteral("archive.tar"));
    QCOMPARE(model.index(0).data(FileListModel::TypeRole).toString(), QStringLiteral("GZ"));
    QCOMPARE(model.index(0).data(Qt::ToolTipRole).toString(), QStringLiteral("archive.tar"));
    QVERIFY(model.setData(model.index(1), Qt::Checked, Qt::CheckStateRole));
    QCOMPARE(model.index(1).data(Qt::CheckStateRole).value<Qt::CheckState>(), Qt::Checked);
    QVERIFY(!(model.flags(model.index(0)) & Qt::ItemIsSelectable));
    list.removeMarked();
    QCOMPARE(model.rowCount(), 1);
    // A removed file's name is free again; the kept one's is not.
    QCOMPARE(refusals(list.addFiles(made(u"/c/b.txt /c/archive.tar.gz"_qs))), u"archive.:listed"_qs);
    QCOMPARE(model.rowCount(), 2);
}

void TestIntake::reloadChangesOnlyWhatChanged_data()
{
    QTest::addColumn<QStringList>("before");
    QTest::addColumn<QStringList>("after");
    QTest::addColumn<int>("changed"); // dataChanged signals
    QTest::addColumn<int>("inserted"); // rows inserted
    QTest::addColumn<int>("removed"); // rows removed
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

void TestIntake::resultFolderFollowsTheFolder()
{
    QTemporaryDir dir;
    write(dir.filePath(u"a.pdf.vx"_qs), "a");
    write(dir.filePath(u"b.pdf.vx"_qs), "b");
    // An hour between periodic looks: only the folder watch can tell of changes in time.
    Session session;
    ResultFolder results(session, dir.path(), std::chrono::hours(1));
    FileListModel model([&results]() -> const FileList& { return results.files(); });
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    QObject::connect(&results, &ResultFolder::replaced, &model, &FileListModel::reload);
    QVERIFY(results.refresh());
    QCOMPARE(model.rowCount(), 2);
    QSignalSpy replaced(&results, &ResultFolder::replaced);
    QVERIFY(QFile::rename(dir.filePath(u"b.pdf.vx"_qs), dir.filePath(u"c.pdf.vx"_qs)));
    QTRY_COMPARE(replaced.size(), 1);
    // Removed and made again: the watch comes back with the folder.
    QVERIFY(QDir(dir.path()).removeRecursively());
    QVERIFY(QDir().mkpath(dir.path()));
    QTRY_VERIFY(results.files().isEmpty()); // the listing that noticed the removal
    write(dir.filePath(u"again.txt"_qs), "again");
    QTRY_COMPARE(fileNames(results.files()), QStringList { u"again.txt"_qs });
}

void TestIntake::operationLine_data()
{
    QTest::addColumn<int>("marked");
    QTest::addColumn<int>("listed");
    QTest::addColumn<bool>("encrypt");
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<int>("people");
    QTest::addColumn<QString>("line");
    const QStringList none;
    QTest::newRow("nothing listed, nobody")
        << 0 << 0 << true << none << 0 << u"Add the files to encrypt and choose who may open them"_qs;
    QTest::newRow("nothing listed, one") << 0 << 0 << true << QStringList { u"Ann Lee"_qs } << 1
                                         << u"Add the files to encrypt for Ann Lee (1 person)"_qs;
    QTest::newRow("decrypt, none marked") << 0 << 3 << false << none << 0 << u"Mark the files to decrypt"_qs;
    QTest::newRow("decrypt, two") << 2 << 3 << false << none << 0 << u"2 of 3 files"_qs;
    QTest::newRow("none marked, nobody")
        << 0 << 3 << true << none << 0 << u"Mark the files to encrypt and choose who may open them"_qs;
    QTest::newRow("none marked, one") << 0 << 3 << true << QStringList { u"Ann Lee"_qs } << 1
                                      << u"Mark the files to encrypt for Ann Lee (1 person)"_qs;
    QTest::newRow("one, nobody") << 1 << 1 << true << none << 0
                                 << u"1 of 1 file: choose who may open them"_qs;
    QTest::newRow("many") << 2 << 12 << true << QStringList { u"Ann Lee"_qs, u"Family"_qs } << 3
                          << u"2 of 12 files for Ann Lee and Family (3 people)"_qs;
    QTest::newRow("three names") << 1 << 2 << true << QStringList { u"A"_qs, u"B"_qs, u"C"_qs } << 5
                                 << u"1 of 2 files for A, B and C (5 people)"_qs;
    QTest::newRow("and N more") << 1 << 2 << true
                                << QStringList { u"A"_qs, u"B"_qs, u"C"_qs, u"D"_qs, u"E"_qs } << 9
                                << u"1 of 2 files for A, B and 3 more (9 people)"_qs;
}

void TestIntake::operationLine()
{
    QFETCH(int, marked);
    QFETCH(int, listed);
    QFETCH(QStringList, names);
    QFETCH(int, people);
    QFETCH(bool, encrypt);
    const auto recipients
        = encrypt ? std::optional(OperationLine::Recipients { names, people }) : std::nullopt;
    QTEST(OperationLine::text(marked, listed, recipients), "line");
}

void TestIntake::resultOrder_data()
{
    QTest::addColumn<int>("order"); // -1: as the list starts
    QTest::addColumn<QString>("filter");
    QTest::addColumn<QString>("shown");
    using Order = ResultOrderModel::Order;
    QTest::newRow("newest first from the start") << -1 << QString() << u"note-2 Note-1 note-10"_qs;
    QTest::newRow("oldest") << int(Order::Oldest) << QString() << u"note-10 Note-1 note-2"_qs;
    QTest::newRow("name, numbers as numbers")
        << int(Order::NameAscending) << QString() << u"Note-1 note-2 note-10"_qs;
    QTest::newRow("name, backwards") << int(Order::NameDescending) << QString()
                                     << u"note-10 note-2 Note-1"_qs;
    QTest::newRow("largest") << int(Order::Largest) << QString() << u"note-10 Note-1 note-2"_qs;
    QTest::newRow("smallest") << int(Order::Smallest) << QString() << u"note-2 Note-1 note-10"_qs;
    QTest::newRow("filter, any case") << -1 << u"NOTE-1"_qs << u"Note-1 note-10"_qs;
}

void TestIntake::resultOrder()
{
    // Written in this order, each with its own age and size.
    QTemporaryDir dir;
    FileList files;
    const QDateTime now = QDateTime::currentDateTime();
    for (const auto& [name, size, age] :
        { std::tuple { "note-10", 30, 3 }, { "note-2", 10, 1 }, { "Note-1", 20, 2 } }) {
        const QString path = dir.filePath(QString::fromLatin1(name) + u".txt.vx"_qs);
        write(path, QByteArray(size, 'x'));
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadWrite)
            && file.setFileTime(now.addSecs(-60 * age), QFileDevice::FileModificationTime));
        files.append(std::make_shared<File>(path));
    }
    FileListModel source([&files]() -> const FileList& { return files; });
    ResultOrderModel shown(FileListModel::PathRole);
    shown.setSourceModel(&source);
    QAbstractItemModelTester tester(&shown, QAbstractItemModelTester::FailureReportingMode::QtTest);
    QFETCH(int, order);
    if (order >= 0)
        shown.setOrder(ResultOrderModel::Order(order));
    QFETCH(QString, filter);
    shown.setFilterText(filter);
    QStringList names;
    for (int row = 0; row < shown.rowCount(); ++row)
        names.append(shown.index(row, 0).data(FileListModel::NameRole).toString().section(u'.', 0, 0));
    QTEST(names.join(u' '), "shown");
}

QTEST_GUILESS_MAIN(TestIntake)
#include "tst_intake.moc"
