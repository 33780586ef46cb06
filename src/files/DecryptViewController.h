#pragma once

#include <QWidget>

// The Decrypt screen: its intake list, its result list and the decrypt operation.
class DecryptViewController : public QWidget
{
    Q_OBJECT

public:
    explicit DecryptViewController(QWidget* parent = nullptr);
};
