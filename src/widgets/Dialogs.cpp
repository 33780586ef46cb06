#include "widgets/Dialogs.h"

#include <QCheckBox>
#include <QDesktopServices>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

namespace {

QMessageBox::Icon iconOf(Dialogs::Style style)
{
    switch (style) {
    case Dialogs::Style::Warning:
        return QMessageBox::Warning;
    case Dialogs::Style::Critical:
        return QMessageBox::Critical;
    case Dialogs::Style::Informational:
        break;
    }
    return QMessageBox::Information;
}

class RealDialogs final : public Dialogs
{
public:
    void alert(QWidget* parent, const QString& title, const QString& message, Style style) override
    {
        ask(parent, title, message, { QStringLiteral("OK") }, style);
    }

    int ask(QWidget* parent, const QString& title, const QString& message, const QStringList& buttons,
            Style style) override
    {
        QMessageBox box(iconOf(style), title, message, QMessageBox::NoButton, parent);
        box.setText(title);
        box.setInformativeText(message);
        box.setStyleSheet(QStringLiteral("QLabel#qt_msgbox_label, QLabel#qt_msgbox_informativelabel { min-width: 300px; }"));
        QList<QAbstractButton*> made;
        for (const QString& text : buttons) {
            made.append(box.addButton(text, made.isEmpty() ? QMessageBox::AcceptRole : QMessageBox::RejectRole));
            made.last()->setAccessibleName(text);
        }
        if (!made.isEmpty())
            box.setDefaultButton(static_cast<QPushButton*>(made.first()));
        box.exec();
        return int(made.indexOf(box.clickedButton()));
    }

    std::optional<QString> askText(QWidget* parent, const QString& title, const QString& message,
                                   const QString& initialText, const QString& placeholder, const QString& okButton,
                                   const QString& cancelButton) override
    {
        QInputDialog dialog(parent);
        dialog.setWindowTitle(title);
        dialog.setLabelText(message);
        dialog.setTextValue(initialText);
        dialog.setOkButtonText(okButton);
        dialog.setCancelButtonText(cancelButton);
        if (auto* edit = dialog.findChild<QLineEdit*>()) {
            edit->setPlaceholderText(placeholder);
            edit->setAccessibleName(message);
        }
        if (dialog.exec() != QDialog::Accepted)
            return std::nullopt;
        return dialog.textValue();
    }

    std::optional<QList<int>> chooseItems(QWidget* parent, const QString& title, const QString& message,
                                          const QStringList& items, const QString& okButton,
                                          const QString& cancelButton) override
    {
        QDialog dialog(parent);
        dialog.setWindowTitle(title);
        auto* layout = new QVBoxLayout(&dialog);
        // Without a message, the title heads the list (a window title is easy to miss).
        auto* label = new QLabel(message.isEmpty() ? title : message, &dialog);
        label->setWordWrap(true);
        QFont heading = label->font();
        heading.setBold(message.isEmpty());
        label->setFont(heading);
        layout->addWidget(label);
        auto* list = new QListWidget(&dialog);
        list->setAccessibleName(message);
        for (const QString& item : items) {
            auto* row = new QListWidgetItem(item, list);
            row->setFlags(row->flags() | Qt::ItemIsUserCheckable);
            row->setCheckState(Qt::Unchecked);
        }
        layout->addWidget(list);
        auto* buttons = new QDialogButtonBox(&dialog);
        buttons->addButton(okButton, QDialogButtonBox::AcceptRole);
        buttons->addButton(cancelButton, QDialogButtonBox::RejectRole);
        QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
        QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
        layout->addWidget(buttons);
        dialog.resize(420, 460);
        if (dialog.exec() != QDialog::Accepted)
            return std::nullopt;
        QList<int> chosen;
        for (int i = 0; i < list->count(); ++i) {
            if (list->item(i)->checkState() == Qt::Checked)
                chosen.append(i);
        }
        return chosen;
    }

    QStringList chooseFiles(QWidget* parent, const QString& folder) override
    {
        return QFileDialog::getOpenFileNames(parent, QString(), folder);
    }

    bool openPath(const QString& path) override { return QDesktopServices::openUrl(QUrl::fromLocalFile(path)); }
};

Dialogs* installed = nullptr;

} // namespace

Dialogs& Dialogs::current()
{
    static RealDialogs real;
    return installed ? *installed : real;
}

void Dialogs::setCurrent(Dialogs* dialogs)
{
    installed = dialogs;
}

void showAlert(QWidget* parent, const QString& title, const QString& message, Dialogs::Style style)
{
    Dialogs::current().alert(parent, title, message, style);
}
