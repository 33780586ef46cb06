#include "api/NetworkClient.h"
#include "api/PhoneServiceClient.h"
#include "app/Session.h"
#include "app/Translations.h"
#include "common/FakeDialogs.h"
#include "common/TestFiles.h"
#include "desktop/DesktopNotifier.h"
#include "files/ResultFolder.h"
#include "screens/DecryptViewController.h"
#include "screens/EncryptViewController.h"
#include "screens/FileCellDelegate.h"
#include "screens/FileTableView.h"
#include "storage/WorkingFolders.h"

#include <QDir>
#include <QFile>
#include <QMimeData>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

namespace {

// Drops file URLs on `target` at `position`, as the file manager does.
bool dropOn(QWidget* target, const QStringList& paths, QPoint position)
{
    QMimeData data;
    QList<QUrl> urls;
    for (const QString& p : paths)
        urls.append(QUrl::fromLocalFile(p));
    data.setUrls(urls);
    QDragEnterEvent enter(position, Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &enter);
    QDragMoveEvent move(position, Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &move);
    if (!move.isAccepted())
        return false;
    QDropEvent dropEvent(
        QPointF(position), Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &dropEvent);
    return dropEvent.isAccepted();
}

bool drop(FileTableView* table, const QStringList& paths, QPoint position)
{
    return dropOn(table->viewport(), paths, position);
}

} // namespace

class TestFileScreens : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void dropsAnywhereOnTheList();
    void oneDialogForSeveralRefusals();
    void chooseFilesStartsInTheRightFolder();
    void previewAndOpenFolderOpenTheRightPaths();
    void clicksAndKeysFlipMarks();
    void keyboardFocusIsVisible();

private:
    PhoneServiceClient m_phoneService { Session::instance() };
    QTemporaryDir m_home;
    QString m_files;
};

void TestFileScreens::initTestCase()
{
    installTranslations(*QCoreApplication::instance());
    WorkingFolders::prepareWorkingFolders(m_home.filePath(u"Documents"_qs));
    m_files = m_home.filePath(u"files"_qs);
    QDir().mkpath(m_files);
    for (const char* name : { "report.pdf", "photo.vx", "notes.txt", "budget.xlsx", "report.pdf.vx" })
        TestFiles::write(m_files + u'/' + QString::fromLatin1(name), QByteArray(2048, 'x'));
}

void TestFileScreens::dropsAnywhereOnTheList()
{
    EncryptViewController screen(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, NetworkClient::shared());
    screen.resize(1100, 650);
    screen.show();
    QVERIFY(QTest::qWaitForWindowExposed(&screen));
    FileTableView* table = screen.filesToEncryptTable();
    FakeDialogs dialogs;
    QVERIFY(drop(table, { m_files + u"/report.pdf"_qs }, QPoint(50, 5)));
    QCOMPARE(screen.filesToEncrypt().size(), 1);
    // Onto the middle of a row, and below the last one.
    const QRect row = table->visualRect(table->model()->index(0, 0));
    QVERIFY(drop(table, { m_files + u"/notes.txt"_qs }, row.center()));
    QVERIFY(drop(table, { m_files + u"/budget.xlsx"_qs }, QPoint(50, table->viewport()->height() - 5)));
    QCOMPARE(screen.filesToEncrypt().size(), 3);
    // On the panel around the list (its margin), as on the list.
    QWidget* panel = table->parentWidget();
    QVERIFY(dropOn(panel, { m_files + u"/report.pdf.vx"_qs, m_files + u"/extra.txt"_qs }, QPoint(2, 2)));
    QCOMPARE(TestFiles::fileNames(screen.filesToEncrypt()).last(), u"extra.txt"_qs);
    QCOMPARE(dialogs.shown.size(), 1); // the encrypted one was refused
    // A dragged folder is refused as the list's rule says, with the list unchanged.
    QVERIFY(drop(table, { m_files }, row.center()));
    QCOMPARE(screen.filesToEncrypt().size(), 4);
    QCOMPARE(dialogs.shown.size(), 2);
    // Never on a result table.
    QVERIFY(!drop(screen.encryptedFilesTable(), { m_files + u"/budget.xlsx"_qs }, QPoint(50, 5)));
    QVERIFY(screen.widgets().selectDeselectAllButton->isEnabled());
}

void TestFileScreens::oneDialogForSeveralRefusals()
{
    DecryptViewController screen(Session::instance(), DesktopNotifier::instance());
    screen.show();
    FakeDialogs dialogs;
    QVERIFY(drop(screen.filesToDecryptTable(),
        { m_files + u"/report.pdf"_qs, m_files + u"/photo.vx"_qs, m_files + u"/notes.txt"_qs },
        QPoint(40, 5)));
    QCOMPARE(screen.filesToDecrypt().size(), 1);
    QCOMPARE(dialogs.shown.size(), 1);
    QCOMPARE(dialogs.shown.at(0).title, QStringLiteral("Some of the files cannot be added"));
    // The screen's sentence stays; each refused file follows with its reason.
    QCOMPARE(dialogs.shown.at(0).message,
        u"You can only add encrypted files or files that haven't already been uploaded\n\n"
        u"report.pdf: not encrypted\nnotes.txt: not encrypted"_qs);
    QCOMPARE(dialogs.shown.at(0).style, Dialogs::Style::Informational);

    EncryptViewController encrypt(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, NetworkClient::shared());
    encrypt.addFiles({ m_files + u"/photo.vx"_qs });
    QCOMPARE(dialogs.shown.at(1).message,
        u"You can only add files that aren't encrypted or uploaded\n\nphoto.vx: already encrypted"_qs);
    encrypt.addFiles({});
    QCOMPARE(dialogs.shown.size(), 2);
    // A name that cannot take ".vx" within 255 bytes is shortened in the middle.
    const QString tooLong = QString(249, u'L') + u".txt";
    encrypt.addFiles(
        { m_files + u'/' + tooLong, m_files + u"/photo.vx"_qs, m_files + u'/' + tooLong.mid(1), m_files });
    QCOMPARE(encrypt.filesToEncrypt().size(), 1); // 252 bytes fit
    QCOMPARE(dialogs.shown.at(2).message,
        u"You can only add files that aren't encrypted or uploaded\n\n"_qs + tooLong.left(36) + u'…'
            + tooLong.right(20)
            + u": name too long to add \".vx\" (255 bytes at most)\nphoto.vx: already encrypted\n"
            + QDir(m_files).dirName() + u": a folder");
    // A long list ends after 20 files with how many more there are.
    QStringList many;
    for (int i = 0; i < 25; ++i)
        many.append(m_files + u"/many" + QString::number(i) + u".vx");
    encrypt.addFiles(many);
    const QStringList lines = dialogs.shown.at(3).message.split(u'\n');
    QCOMPARE(lines.size(), 2 + 20 + 1);
    QCOMPARE(lines.at(21), u"many19.vx: already encrypted"_qs);
    QCOMPARE(lines.last(), u"and 5 more"_qs);
}

void TestFileScreens::chooseFilesStartsInTheRightFolder()
{
    FakeDialogs dialogs;
    dialogs.filesToChoose = { m_files + u"/report.pdf"_qs, m_files + u"/notes.txt"_qs };
    EncryptViewController encrypt(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, NetworkClient::shared());
    QTest::mouseClick(encrypt.widgets().chooseFilesButton, Qt::LeftButton);
    QCOMPARE(dialogs.chooseFilesFolder, *WorkingFolders::documentsFolder());
    QCOMPARE(encrypt.filesToEncrypt().size(), 2);

    dialogs.filesToChoose = { m_files + u"/report.pdf.vx"_qs, m_files + u"/report.pdf"_qs };
    DecryptViewController decrypt(Session::instance(), DesktopNotifier::instance());
    decrypt.chooseFiles();
    QCOMPARE(dialogs.chooseFilesFolder, *WorkingFolders::encryptedFilesFolder());
    QCOMPARE(decrypt.filesToDecrypt().size(), 1);
    dialogs.filesToChoose = {}; // cancelled
    decrypt.chooseFiles();
    QCOMPARE(decrypt.filesToDecrypt().size(), 1);
}

void TestFileScreens::previewAndOpenFolderOpenTheRightPaths()
{
    TestFiles::write(*WorkingFolders::decryptedFilesFolder() + u"/result.txt"_qs, "x");
    FakeDialogs dialogs;
    EncryptViewController encrypt(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, NetworkClient::shared());
    encrypt.resize(1100, 650);
    encrypt.show();
    QVERIFY(QTest::qWaitForWindowExposed(&encrypt));
    encrypt.addFiles({ m_files + u"/report.pdf"_qs });
    FileTableView* table = encrypt.filesToEncryptTable();
    const QRect row = table->visualRect(table->model()->index(0, 0));
    QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, table->cell()->previewRect(row).center());
    QTest::mouseClick(encrypt.widgets().openFolderButton, Qt::LeftButton);

    DecryptViewController decrypt(Session::instance(), DesktopNotifier::instance());
    decrypt.resize(1100, 650);
    decrypt.show();
    QVERIFY(QTest::qWaitForWindowExposed(&decrypt));
    QTRY_COMPARE(decrypt.decryptedFiles().size(), 1);
    FileTableView* results = decrypt.decryptedFilesTable();
    const QRect resultRow = results->visualRect(results->model()->index(0, 0));
    QTest::mouseClick(
        results->viewport(), Qt::LeftButton, {}, results->cell()->previewRect(resultRow).center());
    decrypt.openVarnexFolder();
    QCOMPARE(dialogs.opened,
        (QStringList { m_files + u"/report.pdf"_qs, *WorkingFolders::encryptedFilesFolder(),
            *WorkingFolders::decryptedFilesFolder() + u"/result.txt"_qs,
            *WorkingFolders::decryptedFilesFolder() }));
    QCOMPARE(encrypt.filesToEncrypt().at(0)->isChecked, false); // the eye does not mark
}

void TestFileScreens::clicksAndKeysFlipMarks()
{
    DecryptViewController screen(Session::instance(), DesktopNotifier::instance());
    screen.resize(1100, 650);
    screen.show();
    QVERIFY(QTest::qWaitForWindowExposed(&screen));
    screen.addFiles({ m_files + u"/photo.vx"_qs, m_files + u"/report.pdf.vx"_qs });
    FileTableView* table = screen.filesToDecryptTable();
    const QRect first = table->visualRect(table->model()->index(0, 0));
    QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, first.center());
    QVERIFY(screen.filesToDecrypt().at(0)->isChecked);
    QCOMPARE(screen.widgets().removeFilesButton->property("state").toInt(), 1);
    QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, table->cell()->checkBoxRect(first).center());
    QVERIFY(!screen.filesToDecrypt().at(0)->isChecked);
    table->setFocus();
    table->setCurrentIndex(table->model()->index(1, 0));
    QTest::keyClick(table, Qt::Key_Space);
    QVERIFY(screen.filesToDecrypt().at(1)->isChecked);
    QTest::mouseClick(screen.widgets().removeFilesButton, Qt::LeftButton);
    QCOMPARE(screen.filesToDecrypt().size(), 1);
    QCOMPARE(screen.widgets().removeFilesButton->property("state").toInt(), 0);
}

void TestFileScreens::keyboardFocusIsVisible()
{
    EncryptViewController screen(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, NetworkClient::shared());
    screen.resize(1100, 650);
    screen.show();
    QVERIFY(QTest::qWaitForWindowActive(&screen));
    FileTableView* table = screen.filesToEncryptTable();
    QCOMPARE(table->focusPolicy(), Qt::NoFocus); // empty: no row to show the focus on
    screen.addFiles({ m_files + u"/report.pdf"_qs });
    QCOMPARE(table->focusPolicy(), Qt::StrongFocus);
    table->setFocus(Qt::TabFocusReason);
    QTRY_VERIFY(table->hasFocus());
    const QPoint frame = table->visualRect(table->currentIndex()).topLeft() + QPoint(3, 20);
    const auto colourAtFrame = [&] { return table->viewport()->grab().toImage().pixelColor(frame); };
    QCOMPARE(colourAtFrame(), FileCellDelegate::focusColor);
    screen.widgets().chooseFilesButton->setFocus();
    QTRY_VERIFY(!table->hasFocus());
    QCOMPARE(colourAtFrame(), QColor(Qt::white));
}

QTEST_MAIN(TestFileScreens)
#include "tst_file_screens.moc"
