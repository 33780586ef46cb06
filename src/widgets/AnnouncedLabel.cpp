#include "widgets/AnnouncedLabel.h"

#include "widgets/Accessibility.h"

#include <QAccessible>
#include <QAccessibleWidget>

namespace {

class AnnouncedLabelAccessible final : public QAccessibleWidget
{
public:
    explicit AnnouncedLabelAccessible(AnnouncedLabel* label)
        : QAccessibleWidget(label, QAccessible::Notification)
    {
    }

    QString text(QAccessible::Text t) const override
    {
        if (t == QAccessible::Name)
            return static_cast<QLabel*>(widget())->text();
        return QAccessibleWidget::text(t);
    }
};

QAccessibleInterface* announcedLabelFactory(const QString&, QObject* object)
{
    if (auto* label = qobject_cast<AnnouncedLabel*>(object))
        return new AnnouncedLabelAccessible(label);
    return nullptr;
}

} // namespace

AnnouncedLabel::AnnouncedLabel(QWidget* parent)
    : QLabel(parent)
{
    static const bool installed = [] {
        QAccessible::installFactory(announcedLabelFactory);
        return true;
    }();
    Q_UNUSED(installed);
    setTextFormat(Qt::PlainText);
}

void AnnouncedLabel::announce(const QString& text)
{
    if (text == this->text())
        return;
    setText(text);
    if (!isVisible() || !Accessibility::listening())
        return;
    // A notification is spoken when it shows (Orca listens to "showing"); the line is the same
    // object, shown again with its new text.
    QAccessibleEvent shown(this, QAccessible::ObjectShow);
    Accessibility::send(&shown);
}
