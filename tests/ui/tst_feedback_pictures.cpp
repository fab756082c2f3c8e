#include "TestFiles.h"
#include "TestRegistry.h"
#include "PictureFolder.h"
#include "UiFixture.h"

#include "foundation/QtDialogService.h"
#include "foundation/session.h"
#include "pipeline/JobQueue.h"
#include "pipeline/jobinfo.h"
#include "ui/MainWindow.h"
#include "ui/QueueWindow.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QGuiApplication>
#include <QProcess>
#include <QScreen>
#include <QSet>
#include <QStandardPaths>
#include <QTreeWidget>

using namespace quirepad;
using namespace quirepad::test;

// Pictures of the queue window with a job that stays, the window shown
// without a tray, and a notification as dunst shows it; run under xvfb-run
// with the xcb platform. Kept in QUIREPAD_SCREENSHOT_DIR.
class FeedbackPicturesTest : public QObject
{
    Q_OBJECT

    UiFixture m_fx;
    PictureFolder m_pictures;

    static QImage grab(const QWidget& window) { return PictureFolder::grab(window.frameGeometry()); }
    void keep(const QImage& image, const QString& name) { m_pictures.keep(image, name, 20); }
    void spoolJob(const QString& title, const QByteArray& info)
    {
        const QString path = SpoolLocations::spoolDirectory() + user_name() + "-D3F2UG-" + title + ".pdf";
        QVERIFY(writeFile(path, "%PDF-1.4 " + QByteArray(20000, 'x')));
        QVERIFY(writeFile(path + ".info", "TITLE=" + title.toUtf8() + "\n" + info));
    }

private slots:
    void initTestCase()
    {
        if (!PictureFolder::available())
            QSKIP("needs an X server: run under xvfb-run with QT_QPA_PLATFORM=xcb");
        QVERIFY(m_pictures.open());
        m_fx.setUpEnvironment();
        m_fx.start();
        QDir(SpoolLocations::spoolDirectory()).removeRecursively();
        QVERIFY(QDir().mkpath(SpoolLocations::spoolDirectory()));
    }

    void cleanupTestCase() { m_fx.stop(); }

    void queueWithAStuckJob()
    {
        m_fx.menuOf({ "Scans" });
        spoolJob("Quarterly plan", "NAME=Archive\nUSER=ann\n");
        spoolJob("Meeting notes", "USER=ann\n");
        m_fx.delegate->processAllFiles(); // no such destination; nobody to ask
        JobQueue queue(*m_fx.delegate);
        QueueWindow window(*m_fx.delegate, queue);
        window.move(60, 60);
        window.present();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        window.table()->setCurrentItem(window.table()->topLevelItem(0));
        QTest::qWait(300);
        keep(grab(window), "queue-window.png");
    }

    void windowWithoutTray()
    {
        JobQueue queue(*m_fx.delegate);
        MainWindow window(*m_fx.delegate, queue);
        window.setStatus(tr("Idle"));
        window.move(60, 60);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QTest::qWait(300);
        keep(grab(window), "no-tray-window.png");
    }

    // dunst on a bus of the test's own, drawing on the virtual screen.
    void notificationPopup()
    {
        const QString dunst = QStandardPaths::findExecutable("dunst");
        const QString daemon = QStandardPaths::findExecutable("dbus-daemon");
        if (dunst.isEmpty() || daemon.isEmpty())
            QSKIP("dunst or dbus-daemon is not installed");
        QTemporaryDir busDir;
        QProcess bus;
        bus.start(daemon, { "--session", "--nofork", "--print-address", "--address=unix:dir=" + busDir.path() });
        QVERIFY(bus.waitForStarted(10000));
        while (!bus.canReadLine())
            QVERIFY(bus.waitForReadyRead(10000));
        const QString address = QString::fromUtf8(bus.readLine()).trimmed();
        QProcess popup;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("DBUS_SESSION_BUS_ADDRESS", address);
        popup.setProcessEnvironment(environment);
        QVERIFY(writeFile(busDir.filePath("dunstrc"),
            "[global]\nfont = Sans 11\nwidth = 420\noffset = 20x20\nframe_width = 1\n"
            "frame_color = \"#8090a0\"\npadding = 12\nhorizontal_padding = 12\nicon_position = left\n"
            "min_icon_size = 32\nmax_icon_size = 48\nshow_indicators = no\n"
            "[urgency_normal]\nbackground = \"#ffffff\"\nforeground = \"#202830\"\ntimeout = 0\n"));
        popup.start(dunst, { "-config", busDir.filePath("dunstrc") });
        QVERIFY(popup.waitForStarted(10000));
        {
            QDBusConnection client = QDBusConnection::connectToBus(address, "pictures-client");
            QTRY_VERIFY_WITH_TIMEOUT(client.interface()->isServiceRegistered("org.freedesktop.Notifications"), 10000);
            QtDialogService service(client);
            Notification notification;
            notification.title = QStringLiteral("Quarterly plan \u2192 Copy to Desktop");
            notification.text = QStringLiteral("File Copied");
            notification.openPath = m_fx.root.filePath("home/Desktop/Quarterly plan.pdf");
            notification.revealPath = notification.openPath;
            service.post(notification);
            QTest::qWait(1500);
            const QRect screen = QGuiApplication::primaryScreen()->geometry();
            const QImage shot
                = QGuiApplication::primaryScreen()->grabWindow(0, screen.width() - 480, 0, 480, 160).toImage();
            keep(shot, "notification.png");
        }
        QDBusConnection::disconnectFromBus("pictures-client");
        popup.terminate();
        popup.waitForFinished(5000);
        bus.terminate();
        bus.waitForFinished(5000);
    }
};

QUIREPAD_REGISTER_TEST(FeedbackPicturesTest);
#include "tst_feedback_pictures.moc"
