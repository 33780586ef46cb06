#include "screens/RecipientsPanel.h"

#include "app/Session.h"
#include "recipients/AssociationsStore.h"
#include "recipients/GroupNameRule.h"
#include "recipients/RecipientsController.h"
#include "recipients/RecipientsModel.h"
#include "screens/AssociatedUserCellView.h"
#include "screens/ScreensLog.h"
#include "widgets/Colors.h"
#include "widgets/Dialogs.h"
#include "widgets/RoundedPanel.h"
#include "widgets/SearchField.h"

#include <QAccessible>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMouseEvent>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

using Kind = AssociatedUserRowType::Kind;

QString groupNamePlaceholder()
{
    //: Placeholder of the group name field
    //% "Group name"
    return qtTrId("groupNamePlaceholder");
}

// What the name dialogs say under the field while a name is typed that the rule refuses.
std::optional<QString> refusalOf(const QString& typed)
{
    const auto verdict = GroupNameRule::check(typed);
    return verdict.name ? std::nullopt : std::optional<QString>(verdict.message);
}

} // namespace

RecipientsTableView::RecipientsTableView(AssociatedUserCellView* cell, QWidget* parent)
    : CheckableListView(parent)
    , m_cell(cell)
{
    setObjectName(QStringLiteral("associatedUsersTable"));
    setExpandedRole(RecipientsModel::ExpandedRole);
    cell->setParent(this);
    setItemDelegate(cell);
    setSelectionMode(QAbstractItemView::NoSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setFrameShape(QFrame::NoFrame);
    setSpacing(3);
    setFocusPolicy(Qt::StrongFocus);
    viewport()->setAutoFillBackground(false);
    setStyleSheet(QStringLiteral("QListView { background: transparent; }"));
}

void RecipientsTableView::mousePressEvent(QMouseEvent* event)
{
    const QModelIndex index = indexAt(event->position().toPoint());
    if (event->button() != Qt::LeftButton || !index.isValid()) {
        QListView::mousePressEvent(event);
        return;
    }
    setCurrentIndex(index);
    const int kind = index.data(RecipientsModel::KindRole).toInt();
    const qint64 group = index.data(RecipientsModel::GroupIdRole).toLongLong();
    const QRect rect = visualRect(index);
    switch (m_cell->hitTest(kind, rect, event->position().toPoint())) {
    case AssociatedUserCellView::Part::CheckBox:
        if (Kind(kind) == Kind::groupHeader)
            Q_EMIT groupCheckBoxClicked(group);
        else
            Q_EMIT rowClicked(index.row());
        break;
    case AssociatedUserCellView::Part::Disclosure:
        Q_EMIT disclosureClicked(group);
        break;
    case AssociatedUserCellView::Part::Menu:
        Q_EMIT menuClicked(group, menuPosition(index));
        break;
    case AssociatedUserCellView::Part::Row:
        Q_EMIT rowClicked(index.row());
        break;
    case AssociatedUserCellView::Part::None:
        break;
    }
    event->accept();
}

bool RecipientsTableView::hasRowMenu(const QModelIndex& index) const
{
    return Kind(index.data(RecipientsModel::KindRole).toInt()) == Kind::groupHeader;
}

QPoint RecipientsTableView::menuPosition(const QModelIndex& index) const
{
    // Below the row's options button, which sits at its right edge.
    const QRect button = m_cell->menuRect(visualRect(index));
    return viewport()->mapToGlobal(QPoint(button.left(), button.bottom() + 4));
}

void RecipientsTableView::showRowMenu(const QModelIndex& index)
{
    if (hasRowMenu(index)) {
        scrollTo(index);
        Q_EMIT menuClicked(index.data(RecipientsModel::GroupIdRole).toLongLong(), menuPosition(index));
    }
}

bool RecipientsTableView::revealGroup(const QString& name)
{
    for (int row = 0; row < model()->rowCount(); ++row) {
        const QModelIndex index = model()->index(row, 0);
        if (Kind(index.data(RecipientsModel::KindRole).toInt()) == Kind::groupHeader
            && index.data(Qt::AccessibleTextRole).toString() == name) {
            setCurrentIndex(index);
            scrollTo(index);
            setFocus(Qt::OtherFocusReason);
            return true;
        }
    }
    return false;
}

void RecipientsTableView::mouseDoubleClickEvent(QMouseEvent* event)
{
    mousePressEvent(event);
}

void RecipientsTableView::keyPressEvent(QKeyEvent* event)
{
    const QModelIndex current = currentIndex();
    if (current.isValid()) {
        const Kind kind = Kind(current.data(RecipientsModel::KindRole).toInt());
        const qint64 group = current.data(RecipientsModel::GroupIdRole).toLongLong();
        if (event->key() == Qt::Key_Space) {
            Q_EMIT rowClicked(current.row());
            return;
        }
        if (kind == Kind::groupHeader && (event->key() == Qt::Key_Right || event->key() == Qt::Key_Left)) {
            const bool expanded = current.data(RecipientsModel::ExpandedRole).toBool();
            if (expanded == (event->key() == Qt::Key_Left))
                Q_EMIT disclosureClicked(group);
            return;
        }
        if (kind == Kind::groupHeader && (event->key() == Qt::Key_Menu || event->key() == Qt::Key_Return)) {
            showRowMenu(current);
            return;
        }
    }
    QListView::keyPressEvent(event);
}

RecipientsPanel::RecipientsPanel(
    const Session& session, PhoneServiceClient& phoneService, NetworkClient& api, QWidget* parent)
    : QWidget(parent)
    , m_session(session)
    , m_store(new AssociationsStore(this))
    , m_controller(new RecipientsController(*m_store, session, phoneService, api, this))
    , m_groups(new GroupManagement(*m_controller, api, phoneService, this))
    , m_model(new RecipientsModel(m_store, this))
    , m_phoneEpoch(session.phoneEpoch())
{
    setObjectName(QStringLiteral("recipientsPanel"));
    //: Associated users title
    //% "ASSOCIATES"
    auto* title = m_widgets.associatedUsersText = new QLabel(qtTrId("associatedUsers"), this);
    QFont titleFont = title->font();
    titleFont.setPointSize(13);
    titleFont.setBold(true);
    titleFont.setLetterSpacing(QFont::AbsoluteSpacing, 1.5);
    title->setFont(titleFont);
    title->setStyleSheet(u"color: " + Colors::scheme().title.name() + u';');

    //: Select deselect all users button
    //% "SELECT/DESELECT ALL"
    auto* selectAll = m_widgets.selectDeselectAllUsersButton
        = new QPushButton(qtTrId("selectDeselectAll"), this);
    //: Button under the recipients that creates a group
    //% "CREATE GROUP"
    auto* createGroup = m_widgets.createGroupButton = new QPushButton(qtTrId("createGroupButton"), this);
    for (QPushButton* b : { createGroup, selectAll }) {
        b->setStyleSheet(
            amberButtonStyle() + QStringLiteral("QPushButton { font-size: 11px; padding: 7px 12px; }"));
        b->setAccessibleName(b->text());
        b->setCursor(Qt::PointingHandCursor);
    }
    selectAll->setEnabled(false);

    auto* search = m_widgets.searchTextField = new SearchField(this);
    //: Search placeholder
    //% "Search"
    search->setPlaceholderText(qtTrId("search") + QStringLiteral("..."));
    //: Accessible name of the recipients search field
    //% "Search recipients"
    search->setAccessibleName(qtTrId("searchRecipientsName"));
    search->setClearButtonEnabled(true);
    // The field's own colours, set before its style sheet: polishing fixes the palette it has
    // then, and the white field keeps dark text and a readable hint whatever the system's.
    search->setPalette(Colors::schemePalette(search->palette()));
    search->setStyleSheet(fieldStyle(15));

    // Checked people and groups the search hides are recipients all the same: counted here.
    auto* hidden = m_widgets.hiddenChecked = new QLabel(this);
    hidden->setObjectName(QStringLiteral("hiddenChecked"));
    hidden->hide();

    auto* table = m_widgets.associatedUsersTable = new RecipientsTableView(new AssociatedUserCellView, this);
    table->setModel(m_model);
    table->setAccessibleName(title->text());

    // The title and its buttons side by side while they fit, else the buttons under the title
    // (a larger desktop font, a longer language): never a cut title.
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(createGroup);
    buttons->addWidget(selectAll);
    auto* header = m_header = new QBoxLayout(QBoxLayout::LeftToRight);
    header->addWidget(title);
    header->addLayout(buttons, 1);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);
    layout->addLayout(header);
    layout->addWidget(search);
    layout->addWidget(hidden);
    layout->addWidget(table, 1);

    connect(search, &QLineEdit::textChanged, m_model, &RecipientsModel::applySearch);
    const auto countHidden = [this, hidden] {
        const int count = m_model->hiddenCheckedCount();
        if (count > 0) {
            //: Under the recipients' search: %1 checked users and groups that the search hides
            //% "%1 chosen, not shown"
            hidden->setText(qtTrId("hiddenChecked").arg(count));
        }
        hidden->setVisible(count > 0);
    };
    connect(search, &QLineEdit::textChanged, this, countHidden);
    connect(m_store, &AssociationsStore::marksChanged, this, countHidden);
    connect(m_store, &AssociationsStore::itemsChanged, this, countHidden);
    connect(selectAll, &QPushButton::clicked, m_store, &AssociationsStore::selectDeselectAll);
    connect(createGroup, &QPushButton::clicked, this, &RecipientsPanel::createGroupButtonClicked);
    connect(table, &RecipientsTableView::rowClicked, m_model, &RecipientsModel::clickRow);
    connect(
        table, &RecipientsTableView::groupCheckBoxClicked, m_store, &AssociationsStore::toggleGroupChecked);
    connect(
        table, &RecipientsTableView::disclosureClicked, m_store, &AssociationsStore::toggleGroupExpansion);
    connect(table, &RecipientsTableView::menuClicked, this, &RecipientsPanel::showGroupMenu);
    connect(m_controller, &RecipientsController::usersLoaded, this, [selectAll](bool anyUsers) {
        selectAll->setEnabled(anyUsers);
        selectAll->setProperty("state", anyUsers ? 1 : 0);
    });
    // What group management says is shown from the event loop, never from inside the reply or
    // the call that said it: a dialog's nested loop may outlast either.
    connect(m_groups, &GroupManagement::failed, this, &RecipientsPanel::showErrorAlert, Qt::QueuedConnection);
    connect(m_groups, &GroupManagement::offered, this, &RecipientsPanel::memberPicker, Qt::QueuedConnection);
    connect(m_groups, &GroupManagement::groupSaved, this, &RecipientsPanel::revealWhenListed);
    // A group just made or renamed is shown and made the current row once the list has it.
    connect(m_store, &AssociationsStore::itemsChanged, this, [this, table] {
        if (m_revealGroupName.isEmpty())
            return;
        // A renamed group shows its new name only after the refresh that fetched it.
        const GroupPtr listed = m_store->groupById(m_revealGroupId);
        if (!listed || listed->name != m_revealGroupName)
            return;
        if (table->revealGroup(m_revealGroupName))
            m_revealGroupName.clear();
    });
    setTabOrder(createGroup, selectAll);
    setTabOrder(selectAll, search);
    setTabOrder(search, table);
}

void RecipientsPanel::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    const int wide = m_widgets.associatedUsersText->sizeHint().width()
        + m_widgets.createGroupButton->sizeHint().width()
        + m_widgets.selectDeselectAllUsersButton->sizeHint().width() + 4 * m_header->spacing() + 20;
    m_header->setDirection(width() >= wide ? QBoxLayout::LeftToRight : QBoxLayout::TopToBottom);
}

bool RecipientsPanel::servesCurrentPhone() const
{
    return m_session.isPhoneConnected() && m_session.phoneEpoch() == m_phoneEpoch;
}

bool RecipientsPanel::isGone(const QPointer<RecipientsPanel>& self) const
{
    if (!self)
        return true;
    if (self->servesCurrentPhone())
        return false;
    qCInfo(lcScreens) << "dropped a group change: the phone it was meant for is gone";
    return true;
}

void RecipientsPanel::showErrorAlert(const QString& message)
{
    // A failure that comes back after the phone was lost or replaced would pop up over the
    // pairing screen or the next phone's lists.
    if (isGone(this))
        return;
    //: Title of the alert that tells why a group change failed
    //% "Error"
    Dialogs::current().alert(this, qtTrId("groupErrorTitle"), message, Dialogs::Style::Warning);
}

void RecipientsPanel::createGroupButtonClicked()
{
    // Every dialog runs a nested event loop: the panel, or the phone it serves, may be gone when
    // it returns (the window went back to pairing or on to another phone), so each one is
    // followed by this check.
    const QPointer<RecipientsPanel> self(this);
    //: Title of the dialog that names a new group
    //% "Create New Group"
    const QString title = qtTrId("groupCreateTitle");
    //% "Enter group name:"
    const QString prompt = qtTrId("groupCreatePrompt");
    //: Button that creates the group
    //% "Create"
    const QString create = qtTrId("groupCreateButton");
    const auto typed = Dialogs::current().askText(
        this, title, prompt, QString(), groupNamePlaceholder(), create, Dialogs::cancelText(), refusalOf);
    if (isGone(self) || !typed)
        return;
    m_groups->createGroup(*typed);
}

QMenu* RecipientsPanel::buildGroupMenu(qint64 groupId)
{
    const GroupPtr group = m_store->groupById(groupId);
    if (!group)
        return nullptr;
    auto* menu = new QMenu(this);
    menu->setPalette(Colors::readable(menu->palette())); // Remove Member stays readable when off
    menu->setAccessibleName(AssociatedUserCellView::groupOptionsText());
    //: Group menu item that opens the dialog renaming the group
    //% "Rename Group…"
    menu->addAction(qtTrId("groupMenuRename"), this, [this, groupId] { menuEditGroup(groupId); });
    menu->addSeparator();
    //: Group menu item
    //% "Add Member"
    menu->addAction(qtTrId("groupMenuAddMember"), this, [this, groupId] { menuAddMember(groupId); });
    //: Group menu item
    //% "Remove Member"
    QAction* remove = menu->addAction(
        qtTrId("groupMenuRemoveMember"), this, [this, groupId] { menuRemoveMember(groupId); });
    remove->setEnabled(!group->groupMembers.isEmpty());
    menu->addSeparator();
    //: Group menu item
    //% "Delete Group"
    menu->addAction(qtTrId("groupMenuDelete"), this, [this, groupId] { menuDeleteGroup(groupId); });
    return menu;
}

void RecipientsPanel::showGroupMenu(qint64 groupId, const QPoint& globalPosition)
{
    QMenu* menu = buildGroupMenu(groupId);
    if (!menu)
        return;
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->popup(globalPosition);
}

void RecipientsPanel::menuEditGroup(qint64 groupId)
{
    const GroupPtr group = m_store->groupById(groupId);
    if (!group)
        return;
    const QPointer<RecipientsPanel> self(this);
    //: Title of the dialog that renames a group
    //% "Rename Group"
    const QString title = qtTrId("groupRenameTitle");
    //% "Enter new group name:"
    const QString prompt = qtTrId("groupEditPrompt");
    //: Button that renames the group
    //% "Save"
    const QString save = qtTrId("groupSaveButton");
    const auto typed = Dialogs::current().askText(
        this, title, prompt, group->name, groupNamePlaceholder(), save, Dialogs::cancelText(), refusalOf);
    if (isGone(self) || !typed)
        return;
    m_groups->renameGroup(groupId, *typed);
}

void RecipientsPanel::revealWhenListed(qint64 id, const QString& name)
{
    m_revealGroupId = id;
    m_revealGroupName = name;
}

void RecipientsPanel::menuAddMember(qint64 groupId)
{
    m_groups->offerMembersToAdd(groupId);
}

void RecipientsPanel::menuRemoveMember(qint64 groupId)
{
    m_groups->offerMembersToRemove(groupId);
}

void RecipientsPanel::memberPicker(const GroupManagement::MemberChoice& choice)
{
    if (isGone(this))
        return;
    QStringList items;
    for (const GroupMemberModel& c : choice.candidates)
        items.append(c.fullName + u'\n' + c.email);
    //: Title of the dialog that adds members; %1 is the group's name
    //% "Add Users to '%1'"
    const QString add = qtTrId("groupAddUsersTitle");
    //: Title of the dialog that removes members; %1 is the group's name
    //% "Remove Users from '%1'"
    const QString remove = qtTrId("groupRemoveUsersTitle");
    const QPointer<RecipientsPanel> self(this);
    const auto chosen
        = Dialogs::current().chooseItems(this, (choice.add ? add : remove).arg(choice.groupName), QString(),
            items, Dialogs::okText(), Dialogs::cancelText());
    if (isGone(self) || !chosen)
        return;
    QList<qint64> ids;
    for (int index : *chosen)
        ids.append(choice.candidates.at(index).id);
    if (choice.add)
        m_groups->addMembers(choice.groupId, ids);
    else
        m_groups->removeMembers(choice.groupId, ids);
}

void RecipientsPanel::menuDeleteGroup(qint64 groupId)
{
    const GroupPtr group = m_store->groupById(groupId);
    if (!group)
        return;
    if (const auto refusal = m_groups->deletionRefusal(groupId)) {
        Dialogs::current().alert(this, refusal->title, refusal->text, Dialogs::Style::Warning);
        return;
    }
    const QPointer<RecipientsPanel> self(this);
    //: Title of the dialog that confirms deleting a group
    //% "Delete Group"
    const QString title = qtTrId("groupDeleteTitle");
    //: %1 is the group's name
    //% "Are you sure you want to delete '%1'? This action cannot be undone."
    const QString question = qtTrId("groupDeleteQuestion").arg(group->name);
    //: Button that deletes the group
    //% "Delete"
    const QString remove = qtTrId("groupDeleteButton");
    const int answer = Dialogs::current().ask(
        this, title, question, { remove, Dialogs::cancelText() }, Dialogs::Style::Warning);
    if (isGone(self) || answer != 0)
        return;
    m_groups->deleteGroup(groupId);
}
