#pragma once

#include <QWidget>

// The application's single window. It shows one content screen at a time: the pairing
// screen while no phone is connected, the main window's content while one is.
class AppWindow : public QWidget
{
    Q_OBJECT

public:
    explicit AppWindow(QWidget* parent = nullptr);
};
