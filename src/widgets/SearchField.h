#pragma once

#include <QLineEdit>

// A field that searches or filters a list. Reached by Tab it selects its text as any field
// does, but only once a screen reader has been told it has the focus: Qt selects first, and
// Orca then takes the field for focused already and says nothing.
class SearchField : public QLineEdit
{
    Q_OBJECT

public:
    explicit SearchField(QWidget* parent = nullptr);

protected:
    void focusInEvent(QFocusEvent* event) override;
};
