#include "files/EncryptViewController.h"

EncryptViewController::EncryptViewController(QWidget* parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("EncryptViewController"));
}
