#pragma once

#include "widgets/Dialogs.h"

#include <QList>
#include <QQueue>
#include <QStringList>
#include <QVariant>

// Answers dialogs from queued answers and records every dialog shown and every path opened.
class FakeDialogs : public Dialogs
{
public:
    struct Shown
    {
        QString kind; // "alert", "ask", "askText", "chooseItems"
        QString title;
        QString message;
        QStringList options; // buttons or items
        Style style = Style::Informational;
    };

    FakeDialogs() { Dialogs::setCurrent(this); }
    ~FakeDialogs() override { Dialogs::setCurrent(nullptr); }

    QList<Shown> shown;
    QStringList opened;
    QQueue<QVariant> answers; // int for ask, QString or invalid for askText, QList<int> for chooseItems
    QStringList filesToChoose;
    QString chooseFilesFolder;

    void alert(QWidget*, const QString& title, const QString& message, Style style) override
    {
        shown.append({ QStringLiteral("alert"), title, message, {}, style });
    }
    int ask(QWidget*, const QString& title, const QString& message, const QStringList& buttons, Style style) override
    {
        shown.append({ QStringLiteral("ask"), title, message, buttons, style });
        return answers.isEmpty() ? -1 : answers.dequeue().toInt();
    }
    std::optional<QString> askText(QWidget*, const QString& title, const QString& message, const QString&,
                                   const QString&, const QString& ok, const QString& cancel) override
    {
        shown.append({ QStringLiteral("askText"), title, message, { ok, cancel }, Style::Informational });
        const QVariant answer = answers.isEmpty() ? QVariant() : answers.dequeue();
        return answer.isValid() ? std::optional<QString>(answer.toString()) : std::nullopt;
    }
    std::optional<QList<int>> chooseItems(QWidget*, const QString& title, const QString& message,
                                          const QStringList& items, const QString&, const QString&) override
    {
        shown.append({ QStringLiteral("chooseItems"), title, message, items, Style::Informational });
        const QVariant answer = answers.isEmpty() ? QVariant() : answers.dequeue();
        return answer.isValid() ? std::optional<QList<int>>(answer.value<QList<int>>()) : std::nullopt;
    }
    QStringList chooseFiles(QWidget*, const QString& folder) override
    {
        chooseFilesFolder = folder;
        return filesToChoose;
    }
    bool openPath(const QString& path) override
    {
        opened.append(path);
        return true;
    }
};
