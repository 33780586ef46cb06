#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

class QWidget;

// The one seam for every modal dialog and every hand-over to the desktop environment, so
// tests can answer dialogs and observe what would have been opened, without a person.
class Dialogs
{
public:
    enum class Style { Informational, Warning, Critical };

    virtual ~Dialogs() = default;

    // A message with a single "OK" button.
    virtual void alert(QWidget* parent, const QString& title, const QString& message, Style style) = 0;

    // Asks a question; returns the index of the chosen button (buttons in display order), or -1
    // when the dialog was dismissed. The default button, which Enter presses, is Cancel
    // (cancelText()) where it is offered, else the first: a question that offers Cancel
    // confirms something that cannot be undone, and a stray Enter must not do it. Escape
    // answers the same button.
    virtual int ask(QWidget* parent, const QString& title, const QString& message, const QStringList& buttons,
        Style style)
        = 0;

    // Judges a text as it is typed: nothing when it may be confirmed, else why not (possibly
    // empty: the confirm button is off and nothing is said, as for an empty field).
    using TextCheck = std::function<std::optional<QString>(const QString&)>;

    // Asks for one line of text; nothing when cancelled. With a check, the reason a text is
    // refused shows under the field while the user types, and the confirm button stays off
    // until the text passes: what was typed is never lost to a refusal.
    virtual std::optional<QString> askText(QWidget* parent, const QString& title, const QString& message,
        const QString& initialText, const QString& placeholder, const QString& okButton,
        const QString& cancelButton, const TextCheck& check = {})
        = 0;

    // Lets the user pick several of `items`; returns the chosen indexes, nothing when cancelled.
    virtual std::optional<QList<int>> chooseItems(QWidget* parent, const QString& title,
        const QString& message, const QStringList& items, const QString& okButton,
        const QString& cancelButton)
        = 0;

    // The choose-files dialog: several files, no folders, starting in `folder`.
    virtual QStringList chooseFiles(QWidget* parent, const QString& folder) = 0;

    // Opens a file with its default application, or a folder in the file manager.
    virtual bool openPath(const QString& path) = 0;

    // The dialogs in use; real ones unless a test installed its own.
    static Dialogs& current();
    // Installs `dialogs` (not owned) for the process; nullptr restores the real ones.
    static void setCurrent(Dialogs* dialogs);

    // The buttons that accept and decline a dialog, in the user's language.
    static QString okText();
    static QString cancelText();
};

// The single "OK" dialog of the file screens.
void showAlert(QWidget* parent, const QString& title, const QString& message, Dialogs::Style style);
