#pragma once

#include "api/Records.h"

#include "widgets/CheckableListView.h"

#include <QPointer>
#include <QWidget>

class AssociatedUserCellView;
class AssociationsStore;
class QLineEdit;
class QLabel;
class QMenu;
class QPushButton;
class RecipientsController;
class RecipientsModel;

// The recipients table of the Encrypt screen: search, select/deselect all, group management.
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

class RecipientsPanel : public QWidget
{
    Q_OBJECT

public:
    explicit RecipientsPanel(QWidget* parent = nullptr);

    AssociationsStore* store() const { return m_store; }
    RecipientsController* controller() const { return m_controller; }
    RecipientsModel* model() const { return m_model; }

    // Group management.
    void createGroupButtonClicked();
    QMenu* buildGroupMenu(qint64 groupId);
    void showGroupMenu(qint64 groupId, const QPoint& globalPosition);
    void menuEditGroup(qint64 groupId);
    void menuAddMember(qint64 groupId);
    void menuRemoveMember(qint64 groupId);
    void menuDeleteGroup(qint64 groupId);
    void showErrorAlert(const QString& message);

    QLabel* associatedUsersText = nullptr;
    QLineEdit* searchTextField = nullptr;
    QPushButton* selectDeselectAllUsersButton = nullptr;
    QPushButton* createGroupButton = nullptr;
    RecipientsTableView* associatedUsersTable = nullptr;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    bool servesCurrentPhone() const;
    static bool isGone(const QPointer<RecipientsPanel>& self);
    void memberPicker(qint64 groupId, const QString& title, const QList<GroupMemberModel>& candidates, bool add);
    void afterGroupChange();
    // Reveals `group` (its id and new name) in the list once a refresh lists it so.
    void revealWhenListed(const GroupPtr& group);

    AssociationsStore* m_store;
    RecipientsController* m_controller;
    RecipientsModel* m_model;
    const quint64 m_phoneEpoch;
    qint64 m_revealGroupId = 0;
    QString m_revealGroupName;
};
