// Thousands of files on the Encrypt screen: added at once through the file dialog (the path a
// drop takes too: both end in FileScreen::addFiles), marked all, removed all. For each step:
// the time until the list shows the result, and the main thread's slowest step meanwhile,
// measured by a 1 ms timer that cannot fire while the main thread is busy. Meant to run with
// the accessibility bridge on and a screen reader's registration, as bench/run-benchmarks.sh
// runs it (X server, session bus, accessibility bus): that is when every event sent costs.
#include "api/NetworkClient.h"
#include "api/PhoneServiceClient.h"
#include "app/Session.h"
#include "app/Translations.h"
#include "common/FakeDialogs.h"
#include "desktop/DesktopNotifier.h"
#include "files/FileListModel.h"
#include "screens/EncryptViewController.h"
#include "storage/WorkingFolders.h"

#include "BenchSupport.h"

#include <QAccessible>
#include <QApplication>
#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusReply>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>

namespace {

// The file dialog as the user closes it: the clock starts when it hands its paths over.
class TimedDialogs : public FakeDialogs
{
public:
    QElapsedTimer* clock = nullptr;
    QStringList chooseFiles(QWidget* parent, const QString& folder) override
    {
        QStringList chosen = FakeDialogs::chooseFiles(parent, folder);
        clock->start();
        return chosen;
    }
};

// The longest stretch the main thread went without coming back to its event loop.
class StepWatch : public QObject
{
public:
    StepWatch()
    {
        m_tick.setInterval(1);
        m_tick.setTimerType(Qt::PreciseTimer);
        connect(&m_tick, &QTimer::timeout, this, [this] {
            m_slowest = std::max(m_slowest, m_since.nsecsElapsed() / 1e6);
            m_since.start();
        });
    }
    void start()
    {
        m_slowest = 0;
        m_since.start();
        m_tick.start();
    }
    double stop()
    {
        m_tick.stop();
        return std::max(m_slowest, m_since.nsecsElapsed() / 1e6);
    }

private:
    QTimer m_tick;
    QElapsedTimer m_since;
    double m_slowest = 0;
};

struct Measured
{
    double ms = 0;
    double slowestStepMs = 0;
};

// Runs `action` from the event loop and waits until `done`, with one more turn of the loop so
// that the rows are drawn.
template <typename Action, typename Done>
Measured measure(StepWatch& watch, QElapsedTimer& clock, Action action, Done done)
{
    watch.start();
    bool started = false;
    QTimer::singleShot(5, qApp, [&] {
        clock.start();
        started = true;
        action();
    });
    while (!started || !done())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    QCoreApplication::processEvents();
    Measured m;
    m.ms = clock.nsecsElapsed() / 1e6;
    // Whatever the change left for later (drawing, layout) counts as a step too.
    QElapsedTimer settle;
    settle.start();
    while (settle.elapsed() < 100)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    m.slowestStepMs = watch.stop();
    return m;
}

} // namespace

int main(int argc, char* argv[])
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    installTranslations(app);
    // The bridge starts once the window system is up and the accessibility bus answers.
    {
        QWidget probe;
        probe.show();
        QElapsedTimer waited;
        waited.start();
        while (!QAccessible::isActive() && waited.elapsed() < 3000)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    // A screen reader listens: it asks the registry for the events it reads out, and only then
    // does the bridge send them.
    bool listening = false;
    if (QAccessible::isActive()) {
        QDBusInterface launcher(u"org.a11y.Bus"_qs, u"/org/a11y/bus"_qs, u"org.a11y.Bus"_qs);
        const QDBusReply<QString> address = launcher.call(u"GetAddress"_qs);
        QDBusConnection a11y = QDBusConnection::connectToBus(address.value(), u"reader"_qs);
        QDBusInterface registry(u"org.a11y.atspi.Registry"_qs, u"/org/a11y/atspi/registry"_qs,
            u"org.a11y.atspi.Registry"_qs, a11y);
        for (const QString& event : { u"object:"_qs, u"window:"_qs, u"focus:"_qs })
            listening = registry.call(u"RegisterEvent"_qs, event).type() == QDBusMessage::ReplyMessage;
        QElapsedTimer settle;
        settle.start();
        while (settle.elapsed() < 500)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    std::printf("accessibility bridge: %s, a screen reader listening: %s\n",
        QAccessible::isActive() ? "on" : "off", listening ? "yes" : "no");
    QTemporaryDir home;
    WorkingFolders::prepareWorkingFolders(home.filePath(u"Documents"_qs));
    const QString folder = home.filePath(u"files"_qs);
    QDir().mkpath(folder);
    QStringList all;
    for (int i = 0; i < 10000; ++i) {
        all.append(folder + u"/document-" + QString::number(i).rightJustified(5, u'0') + u".txt");
        QFile file(all.last());
        if (!file.open(QIODevice::WriteOnly) || file.write("some text") != 9) {
            std::fprintf(stderr, "cannot write %s\n", qPrintable(all.last()));
            return 1;
        }
    }

    constexpr double stepBudgetMs = 50;
    QList<double> addMs;
    PhoneServiceClient phoneService(Session::instance());
    NetworkClient api;
    for (const int count : { 1000, 5000, 10000 }) {
        EncryptViewController screen(Session::instance(), DesktopNotifier::instance(), phoneService, api);
        screen.resize(1100, 650);
        screen.show();
        QCoreApplication::processEvents();
        const QStringList paths = all.mid(0, count);
        FileListModel* rows = screen.intakeModel();
        StepWatch watch;
        QElapsedTimer clock;
        TimedDialogs dialogs;
        dialogs.clock = &clock;
        dialogs.filesToChoose = paths;
        // The clock restarts when the dialog closes.
        const Measured add = measure(
            watch, clock, [&] { screen.widgets().chooseFilesButton->click(); },
            [&] { return rows->rowCount() == count; });
        addMs.append(add.ms);
        const double addBudgetMs = 0.5 * 1000 * count / 10000; // linear in the files
        std::printf("add %d files (file dialog closed to last row listed): %.3f s (budget %.3f s) %s\n",
            count, add.ms / 1000, addBudgetMs / 1000, verdict(add.ms <= addBudgetMs));
        std::printf("add %d files: slowest main-thread step %.1f ms (budget %.0f ms) %s\n", count,
            add.slowestStepMs, stepBudgetMs, verdict(add.slowestStepMs <= stepBudgetMs));
        const Measured mark = measure(
            watch, clock, [&] { screen.widgets().selectDeselectAllButton->click(); },
            [&] { return screen.intakeList()->markedCount() == count; });
        constexpr double markBudgetMs = 100;
        std::printf(
            "mark all %d files: %.1f ms (budget %.0f ms) %s, slowest main-thread step %.1f ms (budget %.0f "
            "ms) %s\n",
            count, mark.ms, markBudgetMs, verdict(mark.ms <= markBudgetMs), mark.slowestStepMs, stepBudgetMs,
            verdict(mark.slowestStepMs <= stepBudgetMs));
        const Measured remove = measure(
            watch, clock, [&] { screen.widgets().removeFilesButton->click(); },
            [&] { return rows->rowCount() == 0; });
        std::printf("remove all %d files: %.1f ms, slowest main-thread step %.1f ms (budget %.0f ms) %s\n",
            count, remove.ms, remove.slowestStepMs, stepBudgetMs,
            verdict(remove.slowestStepMs <= stepBudgetMs));
    }
    // Linear work takes about twice as long for twice the files; work that grows with the
    // square of the list, four times.
    const double growth = addMs.at(2) / std::max(addMs.at(1), 0.01);
    std::printf(
        "adding 10,000 files against 5,000: %.1fx the time (budget 3x) %s\n", growth, verdict(growth <= 3));
    return 0;
}
