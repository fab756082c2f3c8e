#pragma once

#include "foundation/DialogService.h"
#include "foundation/ScriptedDialogService.h"
#include "foundation/UserDefaults.h"
#include "pipeline/MainAppDelegate.h"
#include "store/DestinationItem.h"
#include "store/DestinationSchema.h"
#include "store/DestinationTemplates.h"
#include "store/Predicate.h"
#include "ui/DestinationPanel.h"

#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QUrl>

#include <functional>
#include <memory>

namespace quirepad::test {

// A private home, settings file, store and spool per test case, with the
// delegate that the interface works on.
class UiFixture
{
public:
    QTemporaryDir root;
    ScriptedDialogService* dialogs = nullptr;
    std::unique_ptr<MainAppDelegate> delegate;
    int round = 0;

    void setUpEnvironment()
    {
        qputenv("HOME", root.filePath("home").toUtf8());
        qputenv("XDG_CONFIG_HOME", root.filePath("config").toUtf8());
        qputenv("XDG_DATA_DIRS", root.filePath("system").toUtf8());
        qputenv("QUIREPAD_SHARED_DIR", root.filePath("shared").toUtf8());
    }

    void start()
    {
        ++round;
        qputenv("XDG_DATA_HOME", root.filePath(QStringLiteral("data%1").arg(round)).toUtf8());
        UserDefaults::setStandard(
            std::make_unique<UserDefaults>(root.filePath(QStringLiteral("settings%1.conf").arg(round))));
        auto scripted = std::make_unique<ScriptedDialogService>();
        dialogs = scripted.get();
        DialogService::setCurrent(std::move(scripted));
        delegate = std::make_unique<MainAppDelegate>();
        delegate->registerDefaults(); // the two built-ins
        delegate->setSessionProbe([] { return true; });
    }

    void stop()
    {
        delegate.reset();
        UserDefaults::setStandard(nullptr);
    }

    ManagedObjectContext& context() { return *delegate->managedObjectContext(); }

    QList<DestinationItem*> records()
    {
        return context()
            .entities(QString::fromLatin1(DestinationSchema::entityName), Predicate::always(), {{"order", true}})
            .value_or(QList<DestinationItem*>());
    }

    // Takes every record out of the menu, then adds folder destinations
    // with these names, in this order.
    void menuOf(const QStringList& names)
    {
        for (DestinationItem* item : records())
            item->setBool(false, "in_menu");
        int order = 10;
        for (const QString& name : names) {
            DestinationItem* item = DestinationTemplates(context()).createDestination("F", name);
            item->setInteger(order++, "order");
        }
    }
};

// Opens the panel, runs the actions once it waits and is active, and answers its choice.
// A panel still open after the actions is cancelled after a while, so a
// failing test cannot hang.
inline QString runPanel(DestinationPanel& panel, const std::function<void()>& whileOpen)
{
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, &panel, [&panel] { panel.cancelOperation(); });
    auto connection = QObject::connect(&panel, &DestinationPanel::choosing, &panel, [&panel, &guard, whileOpen] {
        QTimer::singleShot(0, &panel, [&panel, whileOpen] {
            // The user acts on an active panel.
            QTest::qWaitForWindowActive(&panel, 2000);
            whileOpen();
        });
        guard.start(5000);
    });
    const QString chosen = panel.chooseDestination();
    QObject::disconnect(connection);
    return chosen;
}

} // namespace quirepad::test
