#pragma once

#include <QString>

class QWidget;

// Makes screens by their identifiers: "main_vc", "qrCode_vc", "EncryptViewController",
// "DecryptViewController", "AboutViewController", "EncryptingViewController",
// "DecryptingViewController". Unknown identifiers give nothing.
namespace ScreenFactory {
QWidget* make(const QString& identifier, QWidget* parent = nullptr);
}
