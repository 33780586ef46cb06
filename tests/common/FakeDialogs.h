#pragma once

#include "widgets/Dialogs.h"
#include "widgets/ModalDialogs.h"

#include <QEventLoop>
#include <QList>
#include <QQueue>
#include <QStringList>
#include <QTimer>
#include <QVariant>

#include <functional>
#include <optional>
#include <utility>

// Answers dialogs from queued answers and records every dialog shown and every path opened.
// Like a real modal dialog, each one spins a nested event loop while it is "open": timers,
// network replies and deferred deletions run meanwhile. `whileOpen`, when set, runs inside
// the next dialog's loop (once), so a test can make the phone leave mid-dialog.
class FakeDialogs : public Dialogs
{
public:
    struct Shown
    {
        QString kind; // "alert", "ask", "askText", "chooseItems" (the file chooser is not recorded here)
        QString title;
        QString message;
        QStringList options; // buttons or items
        Style style = Style::Informational;
        QString initialText; // askText only
        QString placeholder; // askText only
        QWidget* parent = nullptr;
        // askText with a check: what it said of the answer under the field (nothing: accepted).
        std::optional<QString> refusal;
    };

    FakeDialogs() { Dialogs::setCurrent(this); }
    ~FakeDialogs() override { Dialogs::setCurrent(nullptr); }

    QList<Shown> shown;
    QStringList opened;
    // int for ask; QString or invalid for askText; QList<int> for chooseItems. An askText answer
    // that its check refuses cannot be confirmed, as in the real dialog: the user cancels.
    QQueue<QVariant> answers;
    QStringList filesToChoose;
    QString chooseFilesFolder;
    std::function<void()> whileOpen;

    void alert(QWidget* parent, const QString& title, const QString& message, Style style) override
    {
        shown.append({ QStringLiteral("alert"), title, message, {}, style, {}, {}, parent });
        spin();
    }
    int ask(QWidget* parent, const QString& title, const QString& message, const QStringList& buttons,
        Style style) override
    {
        shown.append({ QStringLiteral("ask"), title, message, buttons, style, {}, {}, parent });
        spin();
        return answers.isEmpty() ? -1 : answers.dequeue().toInt();
    }
    std::optional<QString> askText(QWidget* parent, const QString& title, const QString& message,
        const QString& initialText, const QString& placeholder, const QString& ok, const QString& cancel,
        const TextCheck& check) override
    {
        shown.append({ QStringLiteral("askText"), title, message, { ok, cancel }, Style::Informational,
            initialText, placeholder, parent, {} });
        spin();
        const QVariant answer = answers.isEmpty() ? QVariant() : answers.dequeue();
        if (!answer.isValid())
            return std::nullopt;
        if (check) {
            shown.last().refusal = check(answer.toString());
            if (shown.last().refusal)
                return std::nullopt;
        }
        return answer.toString();
    }
    std::optional<QList<int>> chooseItems(QWidget* parent, const QString& title, const QString& message,
        const QStringList& items, const QString&, const QString&) override
    {
        shown.append(
            { QStringLiteral("chooseItems"), title, message, items, Style::Informational, {}, {}, parent });
        spin();
        const QVariant answer = answers.isEmpty() ? QVariant() : answers.dequeue();
        return answer.isValid() ? std::optional<QList<int>>(answer.value<QList<int>>()) : std::nullopt;
    }
    QStringList chooseFiles(QWidget*, const QString& folder) override
    {
        chooseFilesFolder = folder;
        spin();
        return filesToChoose;
    }
    bool openPath(const QString& path) override
    {
        opened.append(path);
        return true;
    }

    // The recorded dialogs of one kind.
    QList<Shown> ofKind(const QString& kind) const
    {
        QList<Shown> result;
        for (const Shown& s : shown) {
            if (s.kind == kind)
                result.append(s);
        }
        return result;
    }

private:
    void spin()
    {
        const ModalDialogs::Scope open;
        QEventLoop loop;
        QTimer::singleShot(0, &loop, [this, &loop] {
            if (auto task = std::exchange(whileOpen, {}))
                task();
            loop.quit();
        });
        loop.exec();
    }
};
