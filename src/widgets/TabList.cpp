#include "widgets/TabList.h"

#include "widgets/Accessibility.h"

#include <QAbstractButton>
#include <QAccessible>
#include <QAccessibleWidget>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QPointer>

namespace {

const char* const tabListProperty = "varnexTabList";
const char* const selectedProperty = "varnexTabSelected";
const char* const nameProperty = "varnexTabName";

class TabListAccessible final : public QAccessibleWidget
{
public:
    explicit TabListAccessible(TabList* list)
        : QAccessibleWidget(list, QAccessible::PageTabList)
    {
    }

    TabList* list() const { return static_cast<TabList*>(widget()); }

    // The tabs themselves, not the panels they stand in.
    int childCount() const override { return int(list()->tabs().size()); }
    QAccessibleInterface* child(int index) const override
    {
        const QList<QAbstractButton*> tabs = list()->tabs();
        return index >= 0 && index < tabs.size() ? QAccessible::queryAccessibleInterface(tabs.at(index))
                                                 : nullptr;
    }
    int indexOfChild(const QAccessibleInterface* child) const override
    {
        return child ? int(list()->tabs().indexOf(qobject_cast<QAbstractButton*>(child->object()))) : -1;
    }
};

QAccessibleInterface* tabListFactory(const QString&, QObject* object)
{
    if (auto* list = qobject_cast<TabList*>(object))
        return new TabListAccessible(list);
    return nullptr;
}

} // namespace

TabList::TabList(QWidget* parent)
    : QWidget(parent)
    , m_layout(new QHBoxLayout(this))
{
    static const bool installed = [] {
        QAccessible::installFactory(tabListFactory);
        return true;
    }();
    Q_UNUSED(installed);
    m_layout->setContentsMargins(0, 0, 0, 0);
    m_layout->setSpacing(10);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void TabList::addTab(QWidget* holder, QAbstractButton* tab)
{
    tab->setProperty(tabListProperty, QVariant::fromValue(QPointer<TabList>(this)));
    tab->setProperty(nameProperty, tab->accessibleName());
    tab->installEventFilter(this);
    m_tabs.append(tab);
    m_layout->addWidget(holder, 0, Qt::AlignBottom);
}

TabList* TabList::of(const QAbstractButton* tab)
{
    return tab ? tab->property(tabListProperty).value<QPointer<TabList>>().data() : nullptr;
}

bool TabList::isSelected(const QAbstractButton* tab)
{
    return tab && tab->property(selectedProperty).toBool();
}

void TabList::setSelected(QAbstractButton* tab, bool selected)
{
    if (isSelected(tab) == selected && tab->property(selectedProperty).isValid())
        return;
    tab->setProperty(selectedProperty, selected);
    // Orca speaks a focused page tab by name and role only, never its state: the shown tab
    // says it in its name (a name change of the focused tab is spoken too).
    const QString name = tab->property(nameProperty).toString();
    if (!name.isEmpty()) {
        //: Accessible name of the navigation tab whose screen is shown; %1 is the tab's title
        //% "%1, selected"
        tab->setAccessibleName(selected ? qtTrId("tabSelectedName").arg(name) : name);
    }
    if (Accessibility::listening()) {
        QAccessible::State changed;
        changed.selected = true;
        QAccessibleStateChangeEvent event(tab, changed);
        Accessibility::send(&event);
    }
}

bool TabList::eventFilter(QObject* watched, QEvent* event)
{
    auto* tab = qobject_cast<QAbstractButton*>(watched);
    if (event->type() != QEvent::KeyPress || !tab || m_tabs.isEmpty())
        return QWidget::eventFilter(watched, event);
    const int at = int(m_tabs.indexOf(tab));
    const bool reversed = layoutDirection() == Qt::RightToLeft;
    int next = -1;
    switch (static_cast<QKeyEvent*>(event)->key()) {
    case Qt::Key_Left:
        next = reversed ? at + 1 : at - 1;
        break;
    case Qt::Key_Right:
        next = reversed ? at - 1 : at + 1;
        break;
    case Qt::Key_Up:
        next = at - 1;
        break;
    case Qt::Key_Down:
        next = at + 1;
        break;
    case Qt::Key_Home:
        next = 0;
        break;
    case Qt::Key_End:
        next = int(m_tabs.size()) - 1;
        break;
    default:
        return QWidget::eventFilter(watched, event);
    }
    // Round from the last tab to the first and back, as tab bars do.
    const int count = int(m_tabs.size());
    QAbstractButton* target = m_tabs.at(((next % count) + count) % count);
    target->setFocus(Qt::TabFocusReason);
    if (!isSelected(target))
        target->click();
    return true;
}
