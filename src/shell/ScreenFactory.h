#pragma once

#include <QString>

struct AppServices;
class QWidget;

// Makes screens by their identifiers: "main_vc", "qrCode_vc", "EncryptingViewController",
// "DecryptingViewController". Unknown identifiers give nothing.
namespace ScreenFactory {
QWidget* make(const QString& identifier, AppServices& services, QWidget* parent = nullptr);
}
