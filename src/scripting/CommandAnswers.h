#pragma once

#include <QObject>
#include <QSet>

class CommandChannel;
class ScriptingService;

// Answers the commands later starts ask for (`varnex-desktop people --json`): runs each through
// the scripting service and writes its answer back, in lines for people or as JSON, with the
// status the later start exits with.
class CommandAnswers : public QObject
{
    Q_OBJECT

public:
    explicit CommandAnswers(ScriptingService& service, QObject* parent = nullptr);

    void answer(CommandChannel* channel);
    // Commands not yet answered.
    int open() const { return int(m_waiting.size()); }
    // Commands taken so far.
    int taken() const { return m_taken; }

private:
    void finish(CommandChannel* channel, int exitCode);

    ScriptingService& m_service;
    QSet<const QObject*> m_waiting;
    int m_taken = 0;
};
