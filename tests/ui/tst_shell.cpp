#include "TestFiles.h"
#include "TestRegistry.h"
#include "UiFixture.h"

#include "foundation/session.h"
#include "pipeline/jobinfo.h"
#include "network/NetworkServices.h"
#include "ui/ApplicationShell.h"
#include "ui/DestinationPanelView.h"
#include "ui/DestinationListModel.h"
#include "ui/DestinationForm.h"
#include "ui/DestinationsPage.h"
#include "ui/GeneralSettingsPage.h"
#include "ui/NetworkSettingsBox.h"
#include "ui/PreferencesWindow.h"
#include "ui/StatusMenu.h"
#include "ui/WorkflowEditor.h"

#include <QAction>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QDir>
#include <QMenu>
#include <QPushButton>
#include <QSignalSpy>
#include <QSystemTrayIcon>
#include <QTableView>
#include <QTest>

using namespace quirepad;
using namespace quirepad::test;

class ApplicationShellTest : public QObject
{
    Q_OBJECT

    UiFixture m_fx;
    std::unique_ptr<ApplicationShell> m_shell;

    QString spool() const { return SpoolLocations::spoolDirectory(); }
    QString desktop() const { return m_fx.root.filePath("home/Desktop"); }

    void spoolJob(const QString& title)
    {
        const QString path = spool() + user_name() + QStringLiteral("-D3F2UG-") + title + QStringLiteral(".pdf");
        QVERIFY(writeFile(path, "%PDF-1.4 " + title.toUtf8()));
        QVERIFY(writeFile(path + ".info", "TITLE=" + title.toUtf8() + "\n"));
    }
    QStringList files(const QString& dir) const { return QDir(dir).entryList(QDir::Files, QDir::Name); }
    QStringList menuTexts() const
    {
        QStringList texts;
        for (const QAction* action : m_shell->statusMenu().menu()->actions())
            if (!action->isSeparator())
                texts << action->text();
        return texts;
    }
    QAction* menuAction(const QString& text) const
    {
        for (QAction* action : m_shell->statusMenu().menu()->actions())
            if (action->text() == text)
                return action;
        return nullptr;
    }
    QStringList panelTitles()
    {
        QStringList titles;
        runPanel(m_shell->panel(), [&] {
            for (const QVariant& item : m_shell->panel().destnationList())
                titles << item.toMap().value("title").toString();
            m_shell->panel().cancelOperation();
        });
        return titles;
    }

private slots:
    void initTestCase() { m_fx.setUpEnvironment(); }

    void init()
    {
        m_fx.start();
        QDir(spool()).removeRecursively();
        QVERIFY(QDir().mkpath(spool()));
        QDir(desktop()).removeRecursively();
        m_shell = std::make_unique<ApplicationShell>(*m_fx.delegate);
    }

    void cleanup()
    {
        m_shell.reset();
        m_fx.stop();
    }

    // Jobs that name no destination ask through the panel: a choice holds
    // for the rest of the batch; a cancel discards one job, and the next
    // job asks again.
    void spoolJobsAskThroughThePanel_data()
    {
        QTest::addColumn<bool>("emptyMenu");
        QTest::addColumn<QString>("keys");
        QTest::addColumn<QStringList>("delivered");
        QTest::addColumn<int>("questions");
        QTest::newRow("Copy to Desktop chosen") << false << "c" << QStringList{"First.pdf", "Second.pdf"} << 1;
        QTest::newRow("Escape discards each job") << false << "Escape" << QStringList() << 2;
        QTest::newRow("nothing in the menu, Escape") << true << "Escape" << QStringList() << 2;
    }

    void spoolJobsAskThroughThePanel()
    {
        QFETCH(bool, emptyMenu);
        QFETCH(QString, keys);
        QFETCH(QStringList, delivered);
        QFETCH(int, questions);
        if (emptyMenu)
            m_fx.menuOf({});
        spoolJob("First");
        spoolJob("Second");
        DestinationPanel& panel = m_shell->panel();
        int asked = 0;
        int cells = -1;
        connect(&panel, &DestinationPanel::choosing, &panel, [&] {
            ++asked;
            QTimer::singleShot(0, &panel, [&] {
                QTest::qWaitForWindowActive(&panel, 2000);
                cells = panel.destinationView()->count();
                if (keys == QLatin1String("Escape")) {
                    QTest::keyClick(panel.destinationView(), Qt::Key_Escape);
                } else {
                    QTest::keyClicks(panel.destinationView(), keys);
                    QTest::keyClick(panel.destinationView(), Qt::Key_Return);
                }
            });
        });
        m_fx.delegate->processAllFiles();
        QCOMPARE(asked, questions);
        QCOMPARE(cells, emptyMenu ? 0 : 2);
        QCOMPARE(files(desktop()), delivered);
        m_fx.delegate->waitForPurge();
        QCOMPARE(files(spool()), QStringList()); // delivered or discarded by the user
    }

    // What happens while the panel waits: Stop withdraws the question and
    // keeps the job; files arriving then follow the batch.
    void whileThePanelWaits_data()
    {
        QTest::addColumn<QString>("event");
        QTest::addColumn<QStringList>("delivered");
        QTest::addColumn<QStringList>("spooled");
        const QString job = user_name() + "-D3F2UG-Waiting.pdf";
        QTest::newRow("Stop from the tray") << "stop" << QStringList() << QStringList{job, job + ".info"};
        QTest::newRow("a rescan, then a choice") << "scan" << QStringList{"Waiting.pdf"} << QStringList();
        QTest::newRow("a file opened, then a choice")
            << "open" << QStringList{"Opened.pdf", "Waiting.pdf"} << QStringList();
    }

    void whileThePanelWaits()
    {
        QFETCH(QString, event);
        QFETCH(QStringList, delivered);
        QFETCH(QStringList, spooled);
        spoolJob("Waiting");
        const QString opened = m_fx.root.filePath("Opened.pdf");
        QVERIFY(writeFile(opened, "%PDF-1.4 opened"));
        DestinationPanel& panel = m_shell->panel();
        int asked = 0;
        connect(&panel, &DestinationPanel::choosing, &panel, [&] {
            if (++asked > 1)
                return panel.cancelOperation();
            QTimer::singleShot(0, &panel, [&] {
                QTest::qWaitForWindowActive(&panel, 2000);
                if (event == QLatin1String("stop")) {
                    menuAction("Stop")->trigger();
                    return;
                }
                if (event == QLatin1String("scan"))
                    m_fx.delegate->processAllFiles();
                else
                    m_fx.delegate->processPDFFiles({opened}, "Copy to Desktop");
                QVERIFY(panel.isVisible());
                QTest::keyClicks(panel.destinationView(), "c");
                QTest::keyClick(panel.destinationView(), Qt::Key_Return);
            });
        });
        QTimer::singleShot(5000, &panel, [&panel] { panel.cancelOperation(); }); // never hang
        m_fx.delegate->processAllFiles();
        QTRY_COMPARE(files(desktop()), delivered);
        QCOMPARE(asked, 1);
        QVERIFY(!panel.isVisible());
        m_fx.delegate->waitForPurge();
        QCOMPARE(QDir(spool()).entryList(QDir::Files, QDir::Name), spooled);
    }

    void trayMenuOffersDestinationsAndCommands()
    {
        QCOMPARE(menuTexts(), (QStringList{"Idle", "Open in Preview", "Copy to Desktop", "Process PDF Files…",
                                           "Take Screenshot", "Print Web Page…", "Queue…", "Retry", "Stop", "Clear Queue",
                                           "Install Print Driver…", "Preferences…", "Plugins…", "Filters…",
                                           "Quit"}));
        QVERIFY(!menuAction("Stop")->isEnabled()); // nothing to stop

        // A destination of the menu sends the chosen files there.
        const QString chosen = m_fx.root.filePath("Chosen.pdf");
        QVERIFY(writeFile(chosen, "%PDF-1.4 chosen"));
        m_fx.dialogs->enqueueAnswer(QStringList{chosen});
        menuAction("Copy to Desktop")->trigger();
        QTRY_COMPARE(files(desktop()), QStringList{"Chosen.pdf"});
        QVERIFY(QFile::exists(chosen)); // a file of the user's is copied, not taken

        // An open panel cancelled sends nothing.
        menuAction("Process PDF Files…")->trigger();
        QTRY_COMPARE(m_fx.dialogs->interactions().last().kind, ScriptedDialogService::Kind::OpenPanel);
        QCOMPARE(files(desktop()), QStringList{"Chosen.pdf"});
    }

    void trayShowsWaitingJobs()
    {
        StatusMenu& status = m_shell->statusMenu();
        spoolJob("One");
        spoolJob("Two");
        writeFile(spool() + "someone-else-D3F2UG-x.pdf", "%PDF-1.4"); // not this user's
        status.refreshStatus();
        QCOMPARE(status.waitingJobCount(), 2);
        QCOMPARE(status.statusText(), QStringLiteral("Idle — 2 job(s) waiting"));
        QVERIFY(status.trayIcon()->toolTip().contains("2 job(s) waiting"));
        const QImage waitingIcon = status.trayIcon()->icon().pixmap(32).toImage();

        menuAction("Clear Queue")->trigger();
        QTRY_COMPARE(status.waitingJobCount(), 0);
        QCOMPARE(status.statusText(), QStringLiteral("Idle"));
        QVERIFY(status.trayIcon()->icon().pixmap(32).toImage() != waitingIcon); // the badge went

        // While a batch runs the status names the job and Stop is offered.
        QString during;
        bool stopEnabled = false;
        m_fx.delegate->setDestinationChooser(nullptr); // nobody to ask: the job stays
        connect(m_fx.delegate.get(), &MainAppDelegate::currentFileInfoChanged, this, [&](const QVariantMap& info) {
            if (!info.isEmpty()) {
                during = status.statusText();
                stopEnabled = menuAction("Stop")->isEnabled();
            }
        });
        spoolJob("Report");
        m_fx.delegate->processAllFiles();
        QCOMPARE(during, QStringLiteral("Delivering “Report” — 1 job(s) waiting"));
        QVERIFY(stopEnabled);
    }

    void preferencesEditDestinations()
    {
        m_shell->showPreferences();
        PreferencesWindow* window = m_shell->preferencesWindow();
        QVERIFY(window && window->isVisible());
        DestinationsPage* page = window->destinationsPage();
        QCOMPARE(window->model()->rowCount(), 2);

        // Added through the Add menu: saved, in the tray menu and in the panel.
        QAction* folder = page->addButton()->menu()->actions().value(0);
        QCOMPARE(folder->text(), QStringLiteral("Copy to folder"));
        folder->trigger();
        QCOMPARE(window->model()->rowCount(), 3);
        QVERIFY(!m_fx.context().hasChanges());
        emit m_shell->statusMenu().menu()->aboutToShow(); // the menu reads the store when it opens
        QVERIFY(menuTexts().contains("Copy to folder"));

        // Renamed and taken out of the menu through the form.
        QLineEdit* name = page->form()->lineEdit(DestinationForm::Name);
        name->selectAll();
        QTest::keyClicks(name, "Scanned");
        QVERIFY(!m_fx.context().hasChanges());
        QCOMPARE(panelTitles(), (QStringList{"Scanned", "Open in Preview", "Copy to Desktop"}));
        QCheckBox* inMenu = nullptr;
        for (QCheckBox* box : page->form()->findChildren<QCheckBox*>())
            if (box->text().contains("panel"))
                inMenu = box;
        QVERIFY(inMenu && inMenu->isChecked());
        inMenu->click();
        QCOMPARE(panelTitles(), (QStringList{"Open in Preview", "Copy to Desktop"}));

        // The built-in Copy to Desktop is not removed, and the user is told why.
        page->select(m_fx.context().firstEntity("Destination", Predicate::equals("recid", "copy_to_desktop")));
        m_fx.dialogs->clearInteractions();
        page->removeButton()->click();
        QCOMPARE(window->model()->rowCount(), 3);
        QVERIFY(m_fx.dialogs->interactions().value(0).message.contains("built in"));
        page->select(m_fx.context().firstEntity("Destination", Predicate::equals("name", "Scanned")));
        m_fx.dialogs->enqueueAnswer(true);
        page->removeButton()->click();
        QCOMPARE(window->model()->rowCount(), 2);
        QVERIFY(!m_fx.context().hasChanges());
    }

    // The workflow windows open from the tray menu and from the preferences.
    void workflowEditorsAreReachable()
    {
        QVERIFY(!m_shell->pluginEditor() && !m_shell->filterEditor());
        menuAction("Plugins…")->trigger();
        QVERIFY(m_shell->pluginEditor() && m_shell->pluginEditor()->isVisible());
        QCOMPARE(m_shell->pluginEditor()->kind(), WorkflowKind::Plugin);
        menuAction("Filters…")->trigger();
        QVERIFY(m_shell->filterEditor() && m_shell->filterEditor()->isVisible());
        QCOMPARE(m_shell->filterEditor()->kind(), WorkflowKind::Filter);

        m_shell->pluginEditor()->close();
        m_shell->filterEditor()->close();
        m_shell->showPreferences();
        m_shell->preferencesWindow()->pluginsButton()->click();
        QVERIFY(m_shell->pluginEditor()->isVisible());
        m_shell->preferencesWindow()->filtersButton()->click();
        QVERIFY(m_shell->filterEditor()->isVisible());
    }

    void preferencesSettingsReachTheTray()
    {
        m_shell->showPreferences();
        PreferencesWindow* window = m_shell->preferencesWindow();
        QSystemTrayIcon* tray = m_shell->statusMenu().trayIcon();
        QVERIFY(tray->isVisible());
        QCheckBox* showTray = window->generalPage()->trayIconSwitch();
        QVERIFY(showTray->isChecked());
        showTray->click();
        QVERIFY(!UserDefaults::standard().boolValue("show_menubar_icon"));
        QVERIFY(!tray->isVisible());
    }

    // The feed switched on in the preferences serves at the address shown.
    void networkSwitchesReachTheServices()
    {
        UserDefaults::standard().setValue("HTTPServer_serverPort", 0); // any free port
        NetworkServices network;
        m_shell->setNetworkStatus([&network] { return std::make_pair(network.feedUrl(), network.airPrintSummary()); });
        connect(&network, &NetworkServices::stateChanged, m_shell.get(), &ApplicationShell::refreshNetworkStatus);
        connect(m_shell.get(), &ApplicationShell::settingsChanged, &network, &NetworkServices::applySettings);
        network.start();
        m_shell->showPreferences();
        NetworkSettingsBox* box = m_shell->preferencesWindow()->networkBox();
        QCOMPARE(box->feedAddress()->text(), QStringLiteral("not serving"));

        box->feedSwitch()->click();
        QVERIFY(UserDefaults::standard().boolValue("HTTPServer_enabled"));
        QVERIFY(network.isFeedServing());
        const QString url = network.feedUrl();
        QVERIFY(box->feedAddress()->text().contains(url));
        QNetworkAccessManager manager;
        std::unique_ptr<QNetworkReply> reply(manager.get(QNetworkRequest(QUrl(url + QStringLiteral("index.html")))));
        QTRY_VERIFY(reply->isFinished());
        QVERIFY(reply->readAll().contains("Quirepad::all printed pages"));

        box->airPrintSwitch()->click();
        QVERIFY(UserDefaults::standard().boolValue("enable_airprinter"));
        box->feedSwitch()->click();
        QVERIFY(!network.isFeedServing());
        QCOMPARE(box->feedAddress()->text(), QStringLiteral("not serving"));
    }
};

QUIREPAD_REGISTER_TEST(ApplicationShellTest);
#include "tst_shell.moc"
