#include "foundation/DialogService.h"
#include "foundation/UserDefaults.h"
#include "store/DestinationItem.h"
#include "store/DestinationTemplates.h"
#include "store/MainAppDelegateBase.h"
#include "store/Predicate.h"
#include "ui/DestinationPanel.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>

using namespace quirepad;

// How long the destination panel takes from the question to a panel on
// screen waiting for the user: reading the records, their icons, laying
// out the grid and showing the window. Run with QT_QPA_PLATFORM=offscreen
// or on a display.
class BenchPanel : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;
    std::unique_ptr<MainAppDelegateBase> m_delegate;
    std::unique_ptr<DestinationPanel> m_panel;

private slots:
    void initTestCase()
    {
        qputenv("HOME", m_root.filePath("home").toUtf8());
        qputenv("XDG_DATA_HOME", m_root.filePath("data").toUtf8());
        qputenv("XDG_CONFIG_HOME", m_root.filePath("config").toUtf8());
        UserDefaults::setStandard(std::make_unique<UserDefaults>(m_root.filePath("settings.conf")));
        m_delegate = std::make_unique<MainAppDelegateBase>();
        m_delegate->registerDefaults();
        m_panel = std::make_unique<DestinationPanel>(*m_delegate);
    }

    void cleanupTestCase()
    {
        m_panel.reset();
        m_delegate.reset();
        UserDefaults::setStandard(nullptr);
    }

    void openPanel_data()
    {
        QTest::addColumn<int>("destinations");
        QTest::newRow("the two built-ins") << 2;
        QTest::newRow("7 destinations") << 7;
        QTest::newRow("50 destinations") << 50;
    }

    void openPanel()
    {
        QFETCH(int, destinations);
        ManagedObjectContext& context = *m_delegate->managedObjectContext();
        DestinationTemplates templates(context);
        while (context.entities("Destination", Predicate::always())->size() < destinations)
            templates.createDestination("F", QStringLiteral("Folder %1").arg(context.entities("Destination", Predicate::always())->size()));

        QElapsedTimer clock;
        qint64 shownNs = 0;
        int cells = 0;
        auto connection = connect(m_panel.get(), &DestinationPanel::choosing, this, [&] {
            shownNs = clock.nsecsElapsed();
            cells = m_panel->destinationView() ? int(m_panel->destnationList().size()) : 0;
            m_panel->cancelOperation();
        });
        QBENCHMARK {
            clock.start();
            m_panel->chooseDestination();
        }
        disconnect(connection);
        QCOMPARE(cells, destinations);
        qInfo().noquote() << QStringLiteral("last open: %1 ms to a waiting panel").arg(shownNs / 1e6, 0, 'f', 2);
    }
};

QTEST_MAIN(BenchPanel)
#include "bench_panel.moc"
