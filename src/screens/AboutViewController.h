#pragma once

#include <QWidget>

class QLabel;

// The About screen: the product, its version, and how the desktop and the phone share work.
class AboutViewController : public QWidget
{
    Q_OBJECT

public:
    explicit AboutViewController(QWidget* parent = nullptr);

    QLabel* version = nullptr;
    QLabel* versionNum = nullptr;
};
