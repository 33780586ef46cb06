#include "screens/RecipientsPanel.h"

#include "api/NetworkClient.h"
#include "app/Settings.h"
#include "recipients/AssociationsStore.h"
#include "recipients/GroupNameRule.h"
#include "recipients/RecipientsController.h"
#include "recipients/RecipientsModel.h"
#include "screens/AssociatedUserCellView.h"
#include "widgets/Dialogs.h"
#include "widgets/RoundedPanel.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMouseEvent>
#include <QPointer>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

namespace {

using Kind = AssociatedUserRowType::Kind;

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
    case AssociatedUserCellView::Part::Menu: {
        const QRect menu = m_cell->menuRect(rect);
        Q_EMIT menuClicked(group, viewport()->mapToGlobal(QPoint(menu.left(), menu.bottom() + 4)));
        break;
    }
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

void RecipientsTableView::showRowMenu(const QModelIndex& index)
{
    if (hasRowMenu(index))
        Q_EMIT menuClicked(index.data(RecipientsModel::GroupIdRole).toLongLong(),
                           viewport()->mapToGlobal(visualRect(index).bottomLeft()));
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
    createGroupButton = new QPushButton(QStringLiteral("CREATE GROUP"), this);
    for (QPushButton* b : { createGroupButton, selectDeselectAllUsersButton }) {
        b->setStyleSheet(amberButtonStyle() + QStringLiteral("QPushButton { font-size: 11px; padding: 7px 12px; }"));
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
    searchTextField->setStyleSheet(QStringLiteral(
        "QLineEdit { background: white; border: 1px solid rgb(225,225,225); border-radius: 10px; padding: 7px 12px;"
        " font-size: 15px; color: black; } QLineEdit:focus { border: 1px solid rgb(254,173,2); }"));

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
    connect(selectDeselectAllUsersButton, &QPushButton::clicked, m_store, &AssociationsStore::selectDeselectAll);
    connect(createGroupButton, &QPushButton::clicked, this, &RecipientsPanel::createGroupButtonClicked);
    connect(associatedUsersTable, &RecipientsTableView::rowClicked, m_store, &AssociationsStore::clickRow);
    connect(associatedUsersTable, &RecipientsTableView::groupCheckBoxClicked, m_store, &AssociationsStore::toggleGroupChecked);
    connect(associatedUsersTable, &RecipientsTableView::disclosureClicked, m_store, &AssociationsStore::toggleGroupExpansion);
    connect(associatedUsersTable, &RecipientsTableView::menuClicked, this, &RecipientsPanel::showGroupMenu);
    connect(m_controller, &RecipientsController::usersLoaded, this, [this](bool anyUsers) {
        selectDeselectAllUsersButton->setEnabled(anyUsers);
        selectDeselectAllUsersButton->setProperty("state", anyUsers ? 1 : 0);
    });
    setTabOrder(createGroupButton, selectDeselectAllUsersButton);
    setTabOrder(selectDeselectAllUsersButton, searchTextField);
    setTabOrder(searchTextField, associatedUsersTable);
}

void RecipientsPanel::showErrorAlert(const QString& message)
{
    Dialogs::current().alert(this, QStringLiteral("Error"), message, Dialogs::Style::Warning);
}

void RecipientsPanel::afterGroupChange()
{
    m_controller->refreshGroups();
    RecipientsController::notifyPhoneGroupsUpdated();
}

void RecipientsPanel::createGroupButtonClicked()
{
    // Every dialog runs a nested event loop: the panel may be gone when it returns (the phone
    // left and the window went back to pairing), so each one is followed by this check.
    const QPointer<RecipientsPanel> self(this);
    const auto typed = Dialogs::current().askText(this, QStringLiteral("Create New Group"), QStringLiteral("Enter group name:"),
                                                  QString(), QStringLiteral("Group name"), QStringLiteral("Create"),
                                                  QStringLiteral("Cancel"));
    if (!self || !typed)
        return;
    const auto verdict = GroupNameRule::check(*typed);
    if (!verdict.name)
        return showErrorAlert(verdict.message);
    const auto user = Settings::string(Settings::userEmailKey);
    if (!user)
        return showErrorAlert(QStringLiteral("Not connected. Please scan QR code with iOS app first."));
    NetworkClient::shared().createGroup(*user, *verdict.name, this, [this](const APIResult<GroupPtr>& result) {
        if (!result.isSuccess())
            return showErrorAlert(result.error().description());
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
    menu->setAccessibleName(AssociatedUserCellView::groupOptionsText());
    menu->addAction(QStringLiteral("Edit Group"), this, [this, groupId] { menuEditGroup(groupId); });
    menu->addSeparator();
    menu->addAction(QStringLiteral("Add Member"), this, [this, groupId] { menuAddMember(groupId); });
    QAction* remove = menu->addAction(QStringLiteral("Remove Member"), this, [this, groupId] { menuRemoveMember(groupId); });
    remove->setEnabled(!group->groupMembers.isEmpty());
    menu->addSeparator();
    menu->addAction(QStringLiteral("Delete Group"), this, [this, groupId] { menuDeleteGroup(groupId); });
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
    const auto typed = Dialogs::current().askText(this, QStringLiteral("Edit Group"), QStringLiteral("Enter new group name:"),
                                                  group->name, QStringLiteral("Group name"), QStringLiteral("Save"),
                                                  QStringLiteral("Cancel"));
    if (!self || !typed)
        return;
    const auto verdict = GroupNameRule::check(*typed);
    if (!verdict.name)
        return showErrorAlert(verdict.message);
    if (*verdict.name == group->name)
        return;
    NetworkClient::shared().updateGroup(groupId, *verdict.name, this, [this](const APIResult<GroupPtr>& result) {
        if (!result.isSuccess())
            return showErrorAlert(u"Failed to update group: " + result.error().description());
        RecipientsController::postGroupMembersChanged();
        afterGroupChange();
    });
}

void RecipientsPanel::menuAddMember(qint64 groupId)
{
    const GroupPtr group = m_store->groupById(groupId);
    if (!group)
        return;
    const auto user = Settings::string(Settings::userEmailKey);
    if (!user)
        return showErrorAlert(u"Failed to load users: " + APIError::notAuthenticated().description());
    const QString title = u"Add Users to '" + group->name + u"'";
    NetworkClient::shared().fetchUsersNotAssociated(
        groupId, *user, this, [this, groupId, title](const APIResult<QList<GroupMemberModel>>& result) {
            if (!result.isSuccess())
                return showErrorAlert(u"Failed to load users: " + result.error().description());
            if (result.value().isEmpty())
                return showErrorAlert(QStringLiteral("No users available"));
            memberPicker(groupId, title, result.value(), true);
        });
}

void RecipientsPanel::menuRemoveMember(qint64 groupId)
{
    const GroupPtr group = m_store->groupById(groupId);
    if (!group)
        return;
    if (group->groupMembers.isEmpty())
        return showErrorAlert(QStringLiteral("No members to remove"));
    memberPicker(groupId, u"Remove Users from '" + group->name + u"'", group->groupMembers, false);
}

void RecipientsPanel::memberPicker(qint64 groupId, const QString& title, const QList<GroupMemberModel>& candidates, bool add)
{
    QStringList items;
    for (const GroupMemberModel& c : candidates)
        items.append(c.fullName + u'\n' + c.email);
    const QPointer<RecipientsPanel> self(this);
    const auto chosen = Dialogs::current().chooseItems(this, title, QString(), items, QStringLiteral("OK"),
                                                       QStringLiteral("Cancel"));
    if (!self || !chosen || chosen->isEmpty())
        return;
    QList<qint64> ids;
    for (int index : *chosen)
        ids.append(candidates.at(index).id);
    auto done = [this, add](const APIResult<NoContent>& result) {
        if (!result.isSuccess())
            return showErrorAlert((add ? u"Failed to add users: "_qs : u"Failed to remove users: "_qs) + result.error().description());
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
        Dialogs::current().alert(this, QStringLiteral("Cannot Delete Group"),
                                 u"Please remove all members from '" + group->name + u"' before deleting the group.",
                                 Dialogs::Style::Warning);
        return;
    }
    const QPointer<RecipientsPanel> self(this);
    const int answer = Dialogs::current().ask(
        this, QStringLiteral("Delete Group"),
        u"Are you sure you want to delete '" + group->name + u"'? This action cannot be undone.",
        { QStringLiteral("Delete"), QStringLiteral("Cancel") }, Dialogs::Style::Warning);
    if (!self || answer != 0)
        return;
    NetworkClient::shared().deleteGroup(groupId, this, [this](const APIResult<NoContent>& result) {
        if (!result.isSuccess())
            return showErrorAlert(u"Failed to delete group: " + result.error().description());
        afterGroupChange();
    });
}
