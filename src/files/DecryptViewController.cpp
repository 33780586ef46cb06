#include "files/DecryptViewController.h"

DecryptViewController::DecryptViewController(QWidget* parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("DecryptViewController"));
}
