#include "widgets/Dialogs.h"

#include "widgets/Colors.h"
#include "widgets/MarkBox.h"
#include "widgets/ModalDialogs.h"

#include <QCheckBox>
#include <QDesktopServices>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QScrollArea>
#include <QTreeView>
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

QLabel* heading(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    QFont font = label->font();
    font.setPointSize(13);
    font.setBold(true);
    label->setFont(font);
    return label;
}

QDialogButtonBox* buttonBox(const QString& ok, const QString& cancel, QDialog* dialog)
{
    auto* buttons = new QDialogButtonBox(dialog);
    QPushButton* confirm = buttons->addButton(ok, QDialogButtonBox::AcceptRole);
    buttons->addButton(cancel, QDialogButtonBox::RejectRole);
    confirm->setDefault(true);
    QObject::connect(buttons, &QDialogButtonBox::accepted, dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    return buttons;
}

// Dialogs belong to the long-lived top-level window, never to a screen: a screen can be
// deleted while its dialog is open, and a dialog must not go with it mid-loop.
QWidget* topLevel(QWidget* parent)
{
    return parent ? parent->window() : nullptr;
}

class RealDialogs final : public Dialogs
{
public:
    void alert(QWidget* parent, const QString& title, const QString& message, Style style) override
    {
        ask(parent, title, message, { okText() }, style);
    }

    int ask(QWidget* parent, const QString& title, const QString& message, const QStringList& buttons,
        Style style) override
    {
        const ModalDialogs::Scope open;
        QMessageBox box(iconOf(style), title, message, QMessageBox::NoButton, topLevel(parent));
        box.setPalette(Colors::readable(box.palette()));
        box.setText(title);
        box.setInformativeText(message);
        box.setStyleSheet(QStringLiteral(
            "QLabel#qt_msgbox_label, QLabel#qt_msgbox_informativelabel { min-width: 300px; }"));
        QList<QAbstractButton*> made;
        const qsizetype cancel = buttons.indexOf(cancelText());
        for (const QString& text : buttons) {
            const bool accepts = made.size() == (cancel == 0 ? 1 : 0);
            made.append(box.addButton(text, accepts ? QMessageBox::AcceptRole : QMessageBox::RejectRole));
            made.last()->setAccessibleName(text);
        }
        if (!made.isEmpty()) {
            // Escape answers the same safe choice (the box would take the one other button).
            QAbstractButton* safe = made.at(std::max<qsizetype>(cancel, 0));
            box.setDefaultButton(static_cast<QPushButton*>(safe));
            box.setEscapeButton(safe);
        }
        box.exec();
        return int(made.indexOf(box.clickedButton()));
    }

    std::optional<QString> askText(QWidget* parent, const QString& title, const QString& message,
        const QString& initialText, const QString& placeholder, const QString& okButton,
        const QString& cancelButton, const TextCheck& check) override
    {
        // Laid out as an alert: the title as a heading, the question in the body, then a field
        // 300 points wide that has the focus.
        const ModalDialogs::Scope open;
        QDialog dialog(topLevel(parent));
        dialog.setPalette(Colors::readable(dialog.palette()));
        dialog.setWindowTitle(title);
        dialog.setAccessibleName(title);
        auto* layout = new QVBoxLayout(&dialog);
        layout->setContentsMargins(24, 20, 24, 16);
        layout->setSpacing(8);
        layout->addWidget(heading(title, &dialog));
        auto* body = new QLabel(message, &dialog);
        body->setWordWrap(true);
        layout->addWidget(body);
        auto* edit = new QLineEdit(initialText, &dialog);
        edit->setPlaceholderText(placeholder);
        edit->setAccessibleName(message);
        edit->setFixedWidth(300);
        edit->setMinimumHeight(24);
        body->setBuddy(edit);
        layout->addSpacing(4);
        layout->addWidget(edit);
        // Why the text cannot be confirmed yet, under the field, in a red that reads on the
        // dialog's background whatever the palette.
        auto* refusal = new QLabel(&dialog);
        refusal->setObjectName(QStringLiteral("refusal"));
        refusal->setWordWrap(true);
        refusal->setFixedWidth(300);
        QPalette warn = refusal->palette();
        warn.setColor(QPalette::WindowText,
            Colors::readableOn(QColor(200, 30, 30), dialog.palette().color(QPalette::Window)));
        refusal->setPalette(warn);
        refusal->hide();
        layout->addWidget(refusal);
        layout->addSpacing(8);
        auto* buttons = buttonBox(okButton, cancelButton, &dialog);
        layout->addWidget(buttons);
        layout->setSizeConstraint(QLayout::SetFixedSize);
        if (check) {
            QPushButton* confirm = nullptr;
            for (QAbstractButton* b : buttons->buttons()) {
                if (buttons->buttonRole(b) == QDialogButtonBox::AcceptRole)
                    confirm = qobject_cast<QPushButton*>(b);
            }
            const auto judge = [=](const QString& text) {
                const std::optional<QString> problem = check(text);
                confirm->setEnabled(!problem);
                const QString said = problem.value_or(QString());
                if (said != refusal->text()) {
                    refusal->setText(said);
                    refusal->setVisible(!said.isEmpty());
                    // Said with the field, and told at once to a screen reader.
                    edit->setAccessibleDescription(said);
                }
            };
            QObject::connect(edit, &QLineEdit::textChanged, &dialog, judge);
            judge(edit->text());
        }
        edit->setFocus();
        if (dialog.exec() != QDialog::Accepted)
            return std::nullopt;
        return edit->text();
    }

    std::optional<QList<int>> chooseItems(QWidget* parent, const QString& title, const QString& message,
        const QStringList& items, const QString& okButton, const QString& cancelButton) override
    {
        const ModalDialogs::Scope open;
        QDialog dialog(topLevel(parent));
        dialog.setPalette(Colors::readable(dialog.palette()));
        dialog.setWindowTitle(title);
        dialog.setAccessibleName(title);
        auto* layout = new QVBoxLayout(&dialog);
        layout->setContentsMargins(24, 20, 24, 16);
        layout->setSpacing(10);
        layout->addWidget(heading(title, &dialog));
        if (!message.isEmpty()) {
            auto* body = new QLabel(message, &dialog);
            body->setWordWrap(true);
            layout->addWidget(body);
        }
        // One row per item: a check box (nothing checked, nothing highlighted), the first line
        // of the item in medium 13 and the second (an e-mail) in 11, secondary colour.
        auto* rows = new QWidget;
        auto* rowsLayout = new QVBoxLayout(rows);
        rowsLayout->setContentsMargins(10, 6, 10, 6);
        rowsLayout->setSpacing(0);
        QList<MarkBox*> boxes;
        QFont nameFont = dialog.font();
        nameFont.setPointSize(13);
        nameFont.setWeight(QFont::Medium);
        QFont mailFont = dialog.font();
        mailFont.setPointSize(11);
        QColor secondary = dialog.palette().color(QPalette::WindowText);
        secondary.setAlphaF(0.6);
        for (const QString& item : items) {
            const QString name = item.section(u'\n', 0, 0);
            const QString mail = item.section(u'\n', 1);
            auto* row = new QWidget(rows);
            row->setMinimumHeight(50);
            auto* grid = new QGridLayout(row);
            grid->setContentsMargins(0, 4, 0, 4);
            grid->setHorizontalSpacing(8);
            grid->setVerticalSpacing(0);
            auto* box = new MarkBox(row);
            box->setAccessibleName(mail.isEmpty() ? name : name + u", " + mail);
            auto* nameLabel = new QLabel(name, row);
            nameLabel->setFont(nameFont);
            nameLabel->setBuddy(box);
            grid->addWidget(box, 0, 0, 2, 1, Qt::AlignVCenter);
            grid->addWidget(nameLabel, 0, 1);
            if (!mail.isEmpty()) {
                auto* mailLabel = new QLabel(mail, row);
                mailLabel->setFont(mailFont);
                QPalette p = mailLabel->palette();
                p.setColor(QPalette::WindowText, secondary);
                mailLabel->setPalette(p);
                grid->addWidget(mailLabel, 1, 1);
            }
            grid->setColumnStretch(1, 1);
            rowsLayout->addWidget(row);
            boxes.append(box);
        }
        rowsLayout->addStretch();
        auto* scroll = new QScrollArea(&dialog);
        scroll->setWidget(rows);
        scroll->setWidgetResizable(true);
        scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        scroll->setAccessibleName(title);
        // Sized to the rows, up to about eight of them; more scroll.
        const QSize content = rows->sizeHint();
        scroll->setFixedSize(qBound(320, content.width() + 24, 560), qMin(content.height() + 4, 8 * 50 + 16));
        layout->addWidget(scroll);
        layout->addWidget(buttonBox(okButton, cancelButton, &dialog));
        layout->setSizeConstraint(QLayout::SetFixedSize);
        if (!boxes.isEmpty())
            boxes.first()->setFocus();
        if (dialog.exec() != QDialog::Accepted)
            return std::nullopt;
        QList<int> chosen;
        for (int i = 0; i < boxes.size(); ++i) {
            if (boxes.at(i)->isChecked())
                chosen.append(i);
        }
        return chosen;
    }

    QStringList chooseFiles(QWidget* parent, const QString& folder) override
    {
        // Read-only: the dialog offers no "Create New Folder", renaming or deleting.
        const ModalDialogs::Scope open;
        QFileDialog dialog(topLevel(parent), QString(), folder);
        dialog.setPalette(Colors::readable(dialog.palette()));
        dialog.setFileMode(QFileDialog::ExistingFiles);
        dialog.setOption(QFileDialog::ReadOnly);
        // ReadOnly only greys the new-folder button of Qt's own dialog out; it goes altogether.
        if (auto* newFolder = dialog.findChild<QWidget*>(QStringLiteral("newFolderButton")))
            newFolder->hide();
        // Room for the name, size, type and date columns without cutting them short: the
        // figures take what they need and the name the rest.
        dialog.resize(dialog.sizeHint().expandedTo(QSize(800, 500)));
        if (auto* details = dialog.findChild<QTreeView*>(QStringLiteral("treeView"))) {
            QHeaderView* columns = details->header();
            columns->setStretchLastSection(false);
            columns->setSectionResizeMode(QHeaderView::ResizeToContents);
            columns->setSectionResizeMode(0, QHeaderView::Stretch);
        }
        if (dialog.exec() != QDialog::Accepted)
            return {};
        return dialog.selectedFiles();
    }

    bool openPath(const QString& path) override
    {
        return QDesktopServices::openUrl(QUrl::fromLocalFile(path));
    }
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

QString Dialogs::okText()
{
    //: Button that accepts a dialog
    //% "OK"
    return qtTrId("dialogOK");
}

QString Dialogs::cancelText()
{
    //: Button that declines a dialog
    //% "Cancel"
    return qtTrId("dialogCancel");
}
