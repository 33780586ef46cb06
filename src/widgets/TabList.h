#pragma once

#include <QWidget>

class QAbstractButton;
class QHBoxLayout;

// A row of navigation tabs. Assistive technology sees a page tab list whose children are the
// tabs, each a page tab that reports whether it is the selected one; the arrow keys (and Home
// and End) move between the tabs and select the one they reach, as Tab and Space do.
class TabList : public QWidget
{
    Q_OBJECT

public:
    explicit TabList(QWidget* parent = nullptr);

    // Adds `tab`, shown inside `holder` (the tab itself when it stands alone), at the end.
    void addTab(QWidget* holder, QAbstractButton* tab);
    QList<QAbstractButton*> tabs() const { return m_tabs; }

    // The tab list `tab` belongs to, nullptr for any other button.
    static TabList* of(const QAbstractButton* tab);
    // Marks `tab` as selected or not, telling assistive technology when that changes.
    static void setSelected(QAbstractButton* tab, bool selected);
    static bool isSelected(const QAbstractButton* tab);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QHBoxLayout* m_layout;
    QList<QAbstractButton*> m_tabs;
};
