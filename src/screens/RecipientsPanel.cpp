#include "screens/RecipientsPanel.h"

#include "api/NetworkClient.h"
#include "app/Session.h"
#include "app/Settings.h"
#include "recipients/AssociationsStore.h"
#include "recipients/GroupNameRule.h"
#include "recipients/RecipientsController.h"
#include "recipients/RecipientsModel.h"
#include "screens/AssociatedUserCellView.h"
#include "screens/ScreensLog.h"
#include "widgets/Accessibility.h"
#include "widgets/Colors.h"
#include "widgets/Dialogs.h"
#include "widgets/RoundedPanel.h"

#include <QAccessible>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMouseEvent>
#include <QPointer>
#include <QPushButton>
#include <QRegularExpression>
#include <QTimer>
#include <QVBoxLayout>

namespace {

using Kind = AssociatedUserRowType::Kind;

QString groupNamePlaceholder()
{
    //: Placeholder of the group name field
    //% "Group name"
    return qtTrId("groupNamePlaceholder");
}

// The texts that tell a failed group change. They live out here because lupdate does not
// read the English text of an id inside a lambda that is passed as an argument.
QString usersNotLoaded(const APIError& error)
{
    //% "Failed to load users: %1"
    return qtTrId("groupLoadUsersFailed").arg(error.description());
}

QString groupNotUpdated(const APIError& error)
{
    //% "Failed to update group: %1"
    return qtTrId("groupUpdateFailed").arg(error.description());
}

QString groupNotDeleted(const APIError& error)
{
    //% "Failed to delete group: %1"
    return qtTrId("groupDeleteFailed").arg(error.description());
}

QString membersNotChanged(bool add, const APIError& error)
{
    //% "Failed to add users: %1"
    const QString added = qtTrId("groupAddFailed");
    //% "Failed to remove users: %1"
    const QString removed = qtTrId("groupRemoveFailed");
    return (add ? added : removed).arg(error.description());
}

// What is wrong with a group name while it is typed: nothing when it passes the rule (a
// letter, then letters and digits, 2 to 250 in all, after trimming), an empty reason for an
// empty field, and otherwise the rule in the words of what was typed wrong. Only the letters
// A-Z count as letters, so "Steuerbüro" is refused saying so.
std::optional<QString> groupNameProblem(const QString& typed)
{
    const QString name = typed.trimmed();
    if (name.isEmpty())
        return QString();
    static const QRegularExpression characters(QStringLiteral("^[a-zA-Z][a-zA-Z0-9]*$"));
    if (!characters.match(name).hasMatch())
        //: Under the group name field while the name has other characters
        //% "Use only the letters A-Z and digits, starting with a letter."
        return qtTrId("groupNameCharacters");
    if (name.size() < 2 || name.size() > 250)
        //: Under the group name field while the name is too short or too long
        //% "Use 2 to 250 characters."
        return qtTrId("groupNameLength");
    return std::nullopt;
}

QString noUsersAvailable()
{
    //% "No users available"
    return qtTrId("groupNoUsersAvailable");
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

RecipientsPanel::RecipientsPanel(QWidget* parent)
    : QWidget(parent)
    , m_store(new AssociationsStore(this))
    , m_controller(new RecipientsController(m_store, this))
    , m_model(new RecipientsModel(m_store, this))
    , m_phoneEpoch(Session::instance().phoneEpoch())
{
    setObjectName(QStringLiteral("recipientsPanel"));
    //: Associated users title
    //% "ASSOCIATES"
    associatedUsersText = new QLabel(qtTrId("associatedUsers"), this);
    QFont title = associatedUsersText->font();
    title.setPointSize(13);
    title.setBold(true);
    title.setLetterSpacing(QFont::AbsoluteSpacing, 1.5);
    associatedUsersText->setFont(title);
    associatedUsersText->setStyleSheet(QStringLiteral("color: rgb(70,70,70);"));

    //: Select deselect all users button
    //% "SELECT/DESELECT ALL"
    selectDeselectAllUsersButton = new QPushButton(qtTrId("selectDeselectAll"), this);
    //: Button under the recipients that creates a group
    //% "CREATE GROUP"
    createGroupButton = new QPushButton(qtTrId("createGroupButton"), this);
    for (QPushButton* b : { createGroupButton, selectDeselectAllUsersButton }) {
        b->setStyleSheet(
            amberButtonStyle() + QStringLiteral("QPushButton { font-size: 11px; padding: 7px 12px; }"));
        b->setAccessibleName(b->text());
        b->setCursor(Qt::PointingHandCursor);
    }
    selectDeselectAllUsersButton->setEnabled(false);

    searchTextField = new QLineEdit(this);
    //: Search placeholder
    //% "Search"
    searchTextField->setPlaceholderText(qtTrId("search") + QStringLiteral("..."));
    //: Accessible name of the recipients search field
    //% "Search recipients"
    searchTextField->setAccessibleName(qtTrId("searchRecipientsName"));
    searchTextField->setClearButtonEnabled(true);
    searchTextField->installEventFilter(this);
    // The field's own colours, set before its style sheet: polishing fixes the palette it has
    // then, and the white field keeps dark text and a readable hint whatever the system's.
    searchTextField->setPalette(Colors::lightPalette(searchTextField->palette()));
    searchTextField->setStyleSheet(
        QStringLiteral("QLineEdit { background: white; border: 1px solid rgb(225,225,225); border-radius: "
                       "10px; padding: 7px 12px;"
                       " font-size: 15px; } QLineEdit:focus { border: 1px solid rgb(254,173,2); }"));

    associatedUsersTable = new RecipientsTableView(new AssociatedUserCellView, this);
    associatedUsersTable->setModel(m_model);
    associatedUsersTable->setAccessibleName(associatedUsersText->text());

    auto* header = new QHBoxLayout;
    header->addWidget(associatedUsersText);
    header->addStretch();
    header->addWidget(createGroupButton);
    header->addWidget(selectDeselectAllUsersButton);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);
    layout->addLayout(header);
    layout->addWidget(searchTextField);
    layout->addWidget(associatedUsersTable, 1);

    connect(searchTextField, &QLineEdit::textChanged, m_store, &AssociationsStore::applySearch);
    connect(
        selectDeselectAllUsersButton, &QPushButton::clicked, m_store, &AssociationsStore::selectDeselectAll);
    connect(createGroupButton, &QPushButton::clicked, this, &RecipientsPanel::createGroupButtonClicked);
    connect(associatedUsersTable, &RecipientsTableView::rowClicked, m_store, &AssociationsStore::clickRow);
    connect(associatedUsersTable, &RecipientsTableView::groupCheckBoxClicked, m_store,
        &AssociationsStore::toggleGroupChecked);
    connect(associatedUsersTable, &RecipientsTableView::disclosureClicked, m_store,
        &AssociationsStore::toggleGroupExpansion);
    connect(associatedUsersTable, &RecipientsTableView::menuClicked, this, &RecipientsPanel::showGroupMenu);
    connect(m_controller, &RecipientsController::usersLoaded, this, [this](bool anyUsers) {
        selectDeselectAllUsersButton->setEnabled(anyUsers);
        selectDeselectAllUsersButton->setProperty("state", anyUsers ? 1 : 0);
    });
    // A group just made or renamed is shown and made the current row once the list has it.
    connect(m_store, &AssociationsStore::rowsChanged, this, [this] {
        if (m_revealGroupName.isEmpty())
            return;
        // A renamed group shows its new name only after the refresh that fetched it.
        const GroupPtr listed = m_store->groupById(m_revealGroupId);
        if (m_revealGroupId && (!listed || listed->name != m_revealGroupName))
            return;
        if (associatedUsersTable->revealGroup(m_revealGroupName))
            m_revealGroupName.clear();
    });
    setTabOrder(createGroupButton, selectDeselectAllUsersButton);
    setTabOrder(selectDeselectAllUsersButton, searchTextField);
    setTabOrder(searchTextField, associatedUsersTable);
}

bool RecipientsPanel::eventFilter(QObject* watched, QEvent* event)
{
    // Focus by Tab selects the field's text before Qt tells that the field has the focus; a
    // screen reader (Orca) then takes the field for focused already and says nothing. So the
    // focus is told first, and the field is announced with its name and role.
    if (watched == searchTextField && event->type() == QEvent::FocusIn && Accessibility::listening()) {
        QAccessibleEvent focus(searchTextField, QAccessible::Focus);
        Accessibility::send(&focus);
    }
    return QWidget::eventFilter(watched, event);
}

bool RecipientsPanel::servesCurrentPhone() const
{
    return Session::instance().isPhoneConnected() && Session::instance().phoneEpoch() == m_phoneEpoch;
}

bool RecipientsPanel::isGone(const QPointer<RecipientsPanel>& self)
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

void RecipientsPanel::afterGroupChange()
{
    m_controller->refreshGroups();
    RecipientsController::notifyPhoneGroupsUpdated();
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
    const auto typed = Dialogs::current().askText(this, title, prompt, QString(), groupNamePlaceholder(),
        create, Dialogs::cancelText(), groupNameProblem);
    if (isGone(self) || !typed)
        return;
    const auto verdict = GroupNameRule::check(*typed);
    if (!verdict.name)
        return showErrorAlert(verdict.message);
    const auto user = Settings::string(Settings::userEmailKey);
    if (!user)
        //% "Not connected. Please scan QR code with iOS app first."
        return showErrorAlert(qtTrId("groupNotConnected"));
    NetworkClient::shared().createGroup(
        *user, *verdict.name, this, [this](const APIResult<GroupPtr>& result) {
            if (!result.isSuccess())
                return showErrorAlert(result.error().description());
            revealWhenListed(result.value());
            afterGroupChange();
            m_controller->refreshGroups();
        });
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
    const auto typed = Dialogs::current().askText(this, title, prompt, group->name, groupNamePlaceholder(),
        save, Dialogs::cancelText(), groupNameProblem);
    if (isGone(self) || !typed)
        return;
    const auto verdict = GroupNameRule::check(*typed);
    if (!verdict.name)
        return showErrorAlert(verdict.message);
    if (*verdict.name == group->name)
        return;
    const QString name = *verdict.name;
    NetworkClient::shared().updateGroup(
        groupId, name, this, [this, groupId, name](const APIResult<GroupPtr>& result) {
            if (!result.isSuccess())
                return showErrorAlert(groupNotUpdated(result.error()));
            auto renamed = std::make_shared<GroupModel>();
            renamed->id = groupId;
            renamed->name = name;
            revealWhenListed(renamed);
            RecipientsController::postGroupMembersChanged();
            afterGroupChange();
        });
}

void RecipientsPanel::revealWhenListed(const GroupPtr& group)
{
    if (!group)
        return;
    m_revealGroupId = group->id;
    m_revealGroupName = group->name;
}

void RecipientsPanel::menuAddMember(qint64 groupId)
{
    const GroupPtr group = m_store->groupById(groupId);
    if (!group)
        return;
    const auto user = Settings::string(Settings::userEmailKey);
    if (!user)
        return showErrorAlert(usersNotLoaded(APIError::notAuthenticated()));
    //: Title of the dialog that adds members; %1 is the group's name
    //% "Add Users to '%1'"
    const QString title = qtTrId("groupAddUsersTitle").arg(group->name);
    NetworkClient::shared().fetchUsersNotAssociated(
        groupId, *user, this, [this, groupId, title](const APIResult<QList<GroupMemberModel>>& result) {
            if (!result.isSuccess())
                return showErrorAlert(usersNotLoaded(result.error()));
            if (result.value().isEmpty())
                return showErrorAlert(noUsersAvailable());
            memberPicker(groupId, title, result.value(), true);
        });
}

void RecipientsPanel::menuRemoveMember(qint64 groupId)
{
    const GroupPtr group = m_store->groupById(groupId);
    if (!group)
        return;
    if (group->groupMembers.isEmpty())
        //% "No members to remove"
        return showErrorAlert(qtTrId("groupNoMembersToRemove"));
    //: Title of the dialog that removes members; %1 is the group's name
    //% "Remove Users from '%1'"
    memberPicker(groupId, qtTrId("groupRemoveUsersTitle").arg(group->name), group->groupMembers, false);
}

void RecipientsPanel::memberPicker(
    qint64 groupId, const QString& title, const QList<GroupMemberModel>& candidates, bool add)
{
    if (isGone(this))
        return;
    QStringList items;
    for (const GroupMemberModel& c : candidates)
        items.append(c.fullName + u'\n' + c.email);
    const QPointer<RecipientsPanel> self(this);
    const auto chosen = Dialogs::current().chooseItems(
        this, title, QString(), items, Dialogs::okText(), Dialogs::cancelText());
    if (isGone(self) || !chosen || chosen->isEmpty())
        return;
    QList<qint64> ids;
    for (int index : *chosen)
        ids.append(candidates.at(index).id);
    auto done = [this, add](const APIResult<NoContent>& result) {
        if (!result.isSuccess())
            return showErrorAlert(membersNotChanged(add, result.error()));
        QPointer<RecipientsPanel> self(this);
        QTimer::singleShot(300, this, [self] {
            if (self)
                self->afterGroupChange();
        });
    };
    if (add)
        NetworkClient::shared().addUsersToGroup(groupId, ids, this, done);
    else
        NetworkClient::shared().removeUsersFromGroup(groupId, ids, this, done);
}

void RecipientsPanel::menuDeleteGroup(qint64 groupId)
{
    const GroupPtr group = m_store->groupById(groupId);
    if (!group)
        return;
    if (!group->groupMembers.isEmpty()) {
        //% "Cannot Delete Group"
        const QString title = qtTrId("groupCannotDeleteTitle");
        //: %1 is the group's name
        //% "Please remove all members from '%1' before deleting the group."
        const QString text = qtTrId("groupCannotDeleteText").arg(group->name);
        Dialogs::current().alert(this, title, text, Dialogs::Style::Warning);
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
    NetworkClient::shared().deleteGroup(groupId, this, [this](const APIResult<NoContent>& result) {
        if (!result.isSuccess())
            return showErrorAlert(groupNotDeleted(result.error()));
        afterGroupChange();
    });
}
