#pragma once

#include <QLabel>

// A line of text that a screen reader speaks whenever it changes, wherever the keyboard is:
// assistive technology sees a notification, shown anew with each new text (a label's own
// changes are spoken only while it has the focus, which a line of text never gets).
class AnnouncedLabel : public QLabel
{
    Q_OBJECT

public:
    explicit AnnouncedLabel(QWidget* parent = nullptr);

    // Shows `text`; told when it differs from what was shown and the line is in sight.
    void announce(const QString& text);
};
