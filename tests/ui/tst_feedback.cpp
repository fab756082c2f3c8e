#include "TestFiles.h"
#include "TestRegistry.h"
#include "UiFixture.h"

#include "foundation/QtDialogService.h"
#include "foundation/SettingsSchema.h"
#include "foundation/Workspace.h"
#include "foundation/session.h"
#include "pipeline/JobQueue.h"
#include "pipeline/jobinfo.h"
#include "ui/ApplicationShell.h"
#include "ui/MainWindow.h"
#include "ui/QueueWindow.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDir>
#include <QLabel>
#include <QMenu>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QToolButton>
#include <QTreeWidget>

using namespace quirepad;
using namespace quirepad::test;

// A notification server on a private bus: every Notify call as it came.
class CapturingNotificationServer : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    struct Call {
        uint replacesId;
        QString icon, summary, body;
        QStringList actions; // keys and labels
        QVariantMap hints;
        uint id;
    };
    QList<Call> calls;

public slots:
    uint Notify(const QString&, uint replacesId, const QString& appIcon, const QString& summary, const QString& body,
        const QStringList& actions, const QVariantMap& hints, int)
    {
        const uint id = replacesId != 0 ? replacesId : 100 + uint(calls.size());
        calls.append({ replacesId, appIcon, summary, body, actions, hints, id });
        return id;
    }
    void CloseNotification(uint) { }

signals:
    void ActionInvoked(uint id, const QString& actionKey);
    void NotificationClosed(uint id, uint reason);
};

class RecordingWorkspace : public Workspace
{
public:
    QList<QUrl>* opened;
    explicit RecordingWorkspace(QList<QUrl>* list)
        : opened(list)
    {
    }
    bool openUrl(const QUrl& url) override
    {
        opened->append(url);
        return true;
    }
    bool revealFile(const QString&) override { return true; }
};

// What the user sees of the waiting jobs and of deliveries: the queue
// window, the notifications, the window shown where there is no tray.
class FeedbackTest : public QObject
{
    Q_OBJECT

    UiFixture m_fx;
    QTemporaryDir m_busDir;
    QProcess m_daemon;

    QString spool() const { return SpoolLocations::spoolDirectory(); }
    void spoolJob(const QString& title, const QByteArray& info = {})
    {
        const QString path = spool() + user_name() + "-D3F2UG-" + title + ".pdf";
        QVERIFY(writeFile(path, "%PDF-1.4 " + title.toUtf8()));
        QVERIFY(writeFile(path + ".info", "TITLE=" + title.toUtf8() + "\n" + info));
    }
    static void click(QWidget* widget)
    {
        QVERIFY(widget->isEnabled());
        QTest::mouseClick(widget, Qt::LeftButton);
    }
    static void clickRow(QTreeWidget* table, const QString& title)
    {
        const QList<QTreeWidgetItem*> found = table->findItems(title, Qt::MatchExactly, QueueWindow::TitleColumn);
        QCOMPARE(found.size(), 1);
        QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, table->visualItemRect(found.first()).center());
        QVERIFY(found.first()->isSelected());
    }
    static QStringList rows(QTreeWidget* table)
    {
        QStringList titles;
        for (int i = 0; i < table->topLevelItemCount(); ++i)
            titles << table->topLevelItem(i)->text(QueueWindow::TitleColumn);
        titles.sort();
        return titles;
    }

private slots:
    void initTestCase() { m_fx.setUpEnvironment(); }

    void init()
    {
        m_fx.start();
        QDir(spool()).removeRecursively();
        QVERIFY(QDir().mkpath(spool()));
    }

    void cleanup() { m_fx.stop(); }

    // Clicks on the rows and buttons: Remove takes the selected job, Deliver
    // to… sends it where the menu says, Remove All asks first.
    void queueWindowTakesInput()
    {
        m_fx.menuOf({ "Elsewhere" });
        spoolJob("Stuck");
        spoolJob("Redirected");
        m_fx.delegate->processAllFiles(); // nobody to ask: both stay
        JobQueue queue(*m_fx.delegate);
        QueueWindow window(*m_fx.delegate, queue);
        window.present();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QTreeWidget* table = window.table();
        QCOMPARE(rows(table), (QStringList { "Redirected", "Stuck" }));
        QVERIFY(
            table->topLevelItem(0)->text(QueueWindow::WhyColumn).startsWith("Not delivered: it names no destination"));
        QVERIFY(!window.removeButton()->isEnabled()); // nothing selected yet

        clickRow(table, "Stuck");
        click(window.removeButton());
        QCOMPARE(rows(table), QStringList { "Redirected" });

        clickRow(table, "Redirected");
        QTimer::singleShot(200, this, [] {
            if (auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget())) {
                QTest::keyClick(menu, Qt::Key_Down);
                QTest::keyClick(menu, Qt::Key_Return);
            }
        });
        click(window.deliverButton());
        m_fx.delegate->waitForPurge();
        QTRY_COMPARE(rows(table), QStringList());
        QCOMPARE(QDir(spool()).entryList(QDir::Files), QStringList());

        spoolJob("One");
        spoolJob("Two");
        QTRY_COMPARE(rows(table).size(), 0); // not seen until something tells
        window.refresh();
        m_fx.dialogs->enqueueAnswer(false);
        click(window.removeAllButton());
        QCOMPARE(rows(table).size(), 2);
        m_fx.dialogs->enqueueAnswer(true);
        click(window.removeAllButton());
        QCOMPARE(rows(table), QStringList());
        QCOMPARE(m_fx.dialogs->interactions().last().kind, ScriptedDialogService::Kind::Question);
    }

    // A long batch tells its progress under one tag; its Stop action stops
    // the batch, the rest stay queued; the summary takes the progress' place.
    void longBatchShowsProgressAndStops()
    {
        m_fx.menuOf({ "Out" });
        UserDefaults::standard().setValue(SettingKey::DestinationName, "Out");
        for (const char* title : { "A", "B", "C", "D", "E", "F" })
            spoolJob(QString::fromLatin1(title));
        int finished = 0;
        connect(m_fx.delegate.get(), &MainAppDelegate::jobFinished, this, [&] {
            if (++finished == 2)
                QVERIFY(m_fx.dialogs->triggerAction("Stop"));
        });
        m_fx.delegate->processAllFiles();
        m_fx.delegate->waitForPurge();
        QCOMPARE(QDir(spool()).entryList({ "*.pdf" }, QDir::Files).size(), 4);
        QStringList progress;
        for (const auto& shown : m_fx.dialogs->interactions())
            if (shown.tag == "batch")
                progress << shown.message
                        + (shown.progress >= 0 ? QStringLiteral(" %1%").arg(shown.progress) : QString());
        QCOMPARE(
            progress, (QStringList { "Delivering 1 of 6 0%", "Delivering 2 of 6 16%", "2 of 6 documents delivered" }));
        for (const auto& shown : m_fx.dialogs->interactions())
            QVERIFY2(shown.informative != "File Copied", "a long batch tells no single deliveries");
    }

    // Escape in the panel discards the job, and a notification names it;
    // the panel's header names the document it asks about.
    void panelNamesTheDocumentAndEscapeTellsWhatWent()
    {
        ApplicationShell shell(*m_fx.delegate);
        spoolJob("Quarterly plan");
        QString header;
        connect(&shell.panel(), &DestinationPanel::choosing, this, [&] {
            QTimer::singleShot(0, this, [&] {
                header = shell.panel().headerText();
                QTest::keyClick(&shell.panel(), Qt::Key_Escape);
            });
        });
        m_fx.delegate->processAllFiles();
        QVERIFY2(header.contains("Quarterly plan"), qPrintable(header));
        m_fx.delegate->waitForPurge();
        QCOMPARE(QDir(spool()).entryList(QDir::Files), QStringList());
        const auto& last = m_fx.dialogs->interactions().last();
        QCOMPARE(last.message, QStringLiteral("Print job discarded"));
        QVERIFY(last.informative.contains("Quarterly plan"));
    }

    // Where no tray can take the icon, a window stands in; a tray that
    // comes later takes over, and the window is back when it goes.
    void windowWithoutTray()
    {
        ApplicationShell shell(*m_fx.delegate);
        bool tray = false;
        shell.setTrayProbe([&tray] { return tray; });
        spoolJob("Waiting");
        shell.startTrayOrWindow();
        MainWindow* window = shell.mainWindow();
        QVERIFY(window && window->isVisible());
        QVERIFY(QTest::qWaitForWindowExposed(window));
        QCOMPARE(window->summaryLabel()->text(), QStringLiteral("1 print job waits."));
        QVERIFY(!window->statusLabel()->text().isEmpty());
        for (const QLabel* label : window->findChildren<QLabel*>())
            QVERIFY(!label->text().contains("double", Qt::CaseInsensitive));

        click(window->queueButton());
        QVERIFY(shell.queueWindow() && shell.queueWindow()->isVisible());
        QCOMPARE(shell.queueWindow()->table()->topLevelItemCount(), 1);
        QSignalSpy quit(&shell, &ApplicationShell::quitRequested);
        click(window->quitButton());
        QCOMPARE(quit.size(), 1);

        tray = true;
        shell.checkTray();
        QVERIFY(!window->isVisible());
        tray = false;
        shell.checkTray();
        QVERIFY(window->isVisible());
        QVERIFY(window->close()); // as quitting closes every window
    }

    // The real notification service's view: the application's icon, the
    // document and destination named, Open and Show in Folder offered (Open
    // opens the file), a kept job's Show Queue, progress replacing itself.
    void notificationsOnThePrivateBus()
    {
        const QString daemon = QStandardPaths::findExecutable("dbus-daemon");
        if (daemon.isEmpty())
            QSKIP("dbus-daemon is not installed (apt-get install dbus)");
        QFile config(m_busDir.filePath("bus.conf"));
        QVERIFY(config.open(QIODevice::WriteOnly));
        config.write("<busconfig><listen>unix:dir=" + QFile::encodeName(m_busDir.path())
            + "</listen><policy context=\"default\"><allow send_destination=\"*\"/><allow eavesdrop=\"true\"/>"
              "<allow own=\"*\"/></policy></busconfig>\n");
        config.close();
        m_daemon.start(daemon, { "--config-file=" + config.fileName(), "--nofork", "--print-address" });
        QVERIFY(m_daemon.waitForStarted(10000));
        while (!m_daemon.canReadLine())
            QVERIFY(m_daemon.waitForReadyRead(10000));
        const QString address = QString::fromUtf8(m_daemon.readLine()).trimmed();
        const auto stopDaemon = qScopeGuard([this] {
            m_daemon.terminate();
            m_daemon.waitForFinished(5000);
        });
        CapturingNotificationServer server;
        {
            QDBusConnection serverBus = QDBusConnection::connectToBus(address, "feedback-server");
            QDBusConnection clientBus = QDBusConnection::connectToBus(address, "feedback-client");
            QVERIFY(serverBus.registerObject("/org/freedesktop/Notifications", &server,
                QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals));
            QVERIFY(serverBus.registerService("org.freedesktop.Notifications"));
            QList<QUrl> opened;
            Workspace::setCurrent(std::make_unique<RecordingWorkspace>(&opened));
            DialogService::setCurrent(std::make_unique<QtDialogService>(clientBus));

            m_fx.menuOf({ "Out" });
            spoolJob("Quarterly plan", "NAME=Out\n");
            m_fx.delegate->processAllFiles();
            QTRY_VERIFY(!server.calls.isEmpty() && server.calls.last().body == "File Copied");
            const CapturingNotificationServer::Call delivered = server.calls.last();
            QCOMPARE(delivered.summary, QStringLiteral("Quarterly plan \u2192 Out"));
            QCOMPARE(delivered.icon, QStringLiteral("com.halvern.Quirepad"));
            QVERIFY(delivered.hints.contains("desktop-entry"));
            QVERIFY(delivered.actions.contains("Open") && delivered.actions.contains("Show in Folder"));
            emit server.ActionInvoked(delivered.id, "open");
            QTRY_COMPARE(opened.size(), 1);
            QVERIFY2(QFileInfo(opened.first().toLocalFile()).isFile()
                    && opened.first().fileName().contains("Quarterly plan"),
                qPrintable(opened.first().toString()));

            spoolJob("Unplaced", "NAME=Gone\n");
            QSignalSpy queueAsked(m_fx.delegate.get(), &MainAppDelegate::queueRequested);
            m_fx.delegate->processAllFiles();
            QTRY_VERIFY(server.calls.last().summary == "Not delivered: Unplaced");
            QVERIFY(server.calls.last().body.startsWith("“Unplaced” waits in the print queue: "));
            QVERIFY(server.calls.last().actions.contains("Show Queue"));
            emit server.ActionInvoked(server.calls.last().id, "queue");
            QTRY_COMPARE(queueAsked.size(), 1);

            const qsizetype before = server.calls.size();
            for (const char* title : { "P1", "P2", "P3", "P4", "P5" })
                spoolJob(QString::fromLatin1(title), "NAME=Out\n");
            m_fx.delegate->processPDFFiles(QDir(spool())
                                               .entryList({ "*-P?.pdf" }, QDir::Files, QDir::Name)
                                               .replaceInStrings(QRegularExpression("^"), spool()));
            QTRY_VERIFY(server.calls.last().summary == "5 of 5 documents delivered");
            const QList<CapturingNotificationServer::Call> batch = server.calls.mid(before);
            QVERIFY(batch.first().summary.startsWith("Delivering 1 of 5"));
            QCOMPARE(batch.first().replacesId, 0u);
            QVERIFY(batch.first().hints.contains("value") && batch.first().actions.contains("Stop"));
            for (qsizetype i = 1; i < batch.size(); ++i)
                QCOMPARE(batch.at(i).replacesId, batch.first().id); // one notification, updated
            DialogService::setCurrent(nullptr);
            Workspace::setCurrent(nullptr);
        }
        QDBusConnection::disconnectFromBus("feedback-server");
        QDBusConnection::disconnectFromBus("feedback-client");
    }
};

QUIREPAD_REGISTER_TEST(FeedbackTest);
#include "tst_feedback.moc"
