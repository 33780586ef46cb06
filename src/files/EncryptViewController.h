#pragma once

#include <QWidget>

// The Encrypt screen: its intake list, its result list and the encrypt operation.
class EncryptViewController : public QWidget
{
    Q_OBJECT

public:
    explicit EncryptViewController(QWidget* parent = nullptr);
};
