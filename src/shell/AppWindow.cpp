#include "shell/AppWindow.h"

#include "shell/Texts.h"

AppWindow::AppWindow(QWidget* parent)
    : QWidget(parent)
{
    setWindowTitle(Texts::varnexDesktopNotConnected());
    resize(1100, 720);
    setMinimumSize(960, 640);
    setPalette(QPalette(QColor(255, 192, 0)));
    setAutoFillBackground(true);
}
