#include "shell/Shortcuts.h"

#include "screens/EncryptViewController.h"
#include "screens/RecipientsPanel.h"
#include "shell/MainViewController.h"
#include "widgets/CustomButton.h"
#include "widgets/ShortcutTip.h"

#include <QAbstractButton>
#include <QLineEdit>
#include <QShortcut>
#include <QToolButton>

void installShortcuts(MainViewController* main)
{
    main->encryptButtonTest->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_1));
    main->decryptButtonCustom->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_2));
    main->aboutButton->setShortcut(QKeySequence(QKeySequence::HelpContents));
    showShortcutInToolTip(main->aboutButton);
    // A tab's tool tip sits on its backing, which the tab fills (a tool tip the tab has not
    // goes to it): on the tab itself it would stand in for the accessible description,
    // which says which tab is shown.
    for (CustomButton* tab : { main->encryptButtonTest, main->decryptButtonCustom }) {
        tab->parentWidget()->setToolTip(
            tab->title() + QStringLiteral(" (") + tab->shortcut().toString(QKeySequence::NativeText) + u')');
    }

    // Find: the recipients' search, on the Encrypt screen (the only one with recipients).
    auto* find = new QShortcut(QKeySequence::Find, main);
    QObject::connect(find, &QShortcut::activated, main, [main] {
        main->selectEncrypt();
        QLineEdit* search = main->vc1->recipients->searchTextField;
        search->setFocus(Qt::ShortcutFocusReason);
        search->selectAll();
    });
    //: Tool tip of the recipients' search field; %1 is its shortcut (Ctrl+F)
    //% "Search people and groups (%1)"
    main->vc1->recipients->searchTextField->setToolTip(
        qtTrId("searchShortcutTip").arg(find->key().toString(QKeySequence::NativeText)));
}
