#pragma once

#include "api/Records.h"
#include "recipients/GroupManagement.h"

#include "widgets/CheckableListView.h"

#include <QPointer>
#include <QWidget>

class AssociatedUserCellView;
class AssociationsStore;
class NetworkClient;
class PhoneServiceClient;
class QBoxLayout;
class QLineEdit;
class QLabel;
class QMenu;
class QPushButton;
class RecipientsController;
class RecipientsModel;
class Session;

// The recipients table: users, groups and the members of expanded groups, with what a click,
// a key or assistive technology does on a row's parts.
class RecipientsTableView : public CheckableListView
{
    Q_OBJECT
public:
    RecipientsTableView(AssociatedUserCellView* cell, QWidget* parent);
    AssociatedUserCellView* cell() const { return m_cell; }
    // A group row's options menu, for assistive technology.
    bool hasRowMenu(const QModelIndex& index) const override;
    void showRowMenu(const QModelIndex& index) override;
    // Where a group row's menu opens: below its options button.
    QPoint menuPosition(const QModelIndex& index) const;
    // Makes the header row of the group named `name` the current one, in view and focused;
    // false when no row shows it.
    bool revealGroup(const QString& name);

Q_SIGNALS:
    void rowClicked(int row);
    void groupCheckBoxClicked(qint64 id);
    void disclosureClicked(qint64 id);
    void menuClicked(qint64 id, const QPoint& globalPosition);

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    AssociatedUserCellView* m_cell;
};

// The recipients of the Encrypt screen: the people and groups to encrypt for, their search,
// select/deselect all, and the management of groups, whose flows run in GroupManagement while
// this asks the user and shows what it says.
class RecipientsPanel : public QWidget
{
    Q_OBJECT

public:
    RecipientsPanel(const Session& session, PhoneServiceClient& phoneService, NetworkClient& api,
        QWidget* parent = nullptr);

    AssociationsStore* store() const { return m_store; }
    RecipientsController* controller() const { return m_controller; }
    RecipientsModel* model() const { return m_model; }
    GroupManagement* groups() const { return m_groups; }

    // The user's ways into group management: the CREATE GROUP button, and a group row's menu
    // with its items.
    void createGroupButtonClicked();
    QMenu* buildGroupMenu(qint64 groupId);
    void showGroupMenu(qint64 groupId, const QPoint& globalPosition);
    void menuEditGroup(qint64 groupId);
    void menuAddMember(qint64 groupId);
    void menuRemoveMember(qint64 groupId);
    void menuDeleteGroup(qint64 groupId);
    void showErrorAlert(const QString& message);

    // For the window's shortcuts and for tests.
    struct Widgets
    {
        QLabel* associatedUsersText = nullptr;
        QLineEdit* searchTextField = nullptr;
        QLabel* hiddenChecked = nullptr; // "2 chosen, not shown" while the search hides them
        QPushButton* selectDeselectAllUsersButton = nullptr;
        QPushButton* createGroupButton = nullptr;
        RecipientsTableView* associatedUsersTable = nullptr;
    };
    const Widgets& widgets() const { return m_widgets; }

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    bool servesCurrentPhone() const;
    bool isGone(const QPointer<RecipientsPanel>& self) const;
    void memberPicker(const GroupManagement::MemberChoice& choice);
    // Reveals the group `id` under `name` in the list once a refresh lists it so.
    void revealWhenListed(qint64 id, const QString& name);

    const Session& m_session;
    AssociationsStore* m_store;
    RecipientsController* m_controller;
    GroupManagement* m_groups;
    RecipientsModel* m_model;
    Widgets m_widgets;
    QBoxLayout* m_header = nullptr;
    const quint64 m_phoneEpoch;
    qint64 m_revealGroupId = 0;
    QString m_revealGroupName;
};
