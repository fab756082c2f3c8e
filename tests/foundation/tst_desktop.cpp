#include "TestRegistry.h"

#include "foundation/FreedesktopNotifier.h"
#include "foundation/PowerInhibitor.h"
#include "foundation/Workspace.h"
#include "foundation/XdgWorkspace.h"
#include "foundation/desktop.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusError>
#include <QDBusUnixFileDescriptor>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QLineEdit>
#include <QMutex>
#include <QMutexLocker>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QVBoxLayout>
#include <QWidget>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <limits>
#include <memory>

using namespace quirepad;

namespace {

const QString kNotificationsService = QStringLiteral("org.freedesktop.Notifications");
const QString kFileManagerService = QStringLiteral("org.freedesktop.FileManager1");
const QString kLoginService = QStringLiteral("org.freedesktop.login1");

// True once every writer of the pipe behind fd is gone.
bool hungUp(int fd)
{
    pollfd entry { fd, POLLIN, 0 };
    return ::poll(&entry, 1, 0) == 1 && (entry.revents & POLLHUP);
}

QString fileUri(const QString& path)
{
    return QString::fromUtf8(QUrl::fromLocalFile(path).toEncoded());
}

} // namespace

// The notification server of a desktop session, as seen on the bus.
class RecordingNotificationServer : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    struct Call {
        QString appName;
        uint replacesId = 0;
        QString summary;
        QString body;
        QStringList actions;
        QVariantMap hints;
        int expireTimeout = 0;
        uint id = 0;
    };
    QList<Call> calls;

public slots:
    uint Notify(const QString& appName, uint replacesId, const QString& appIcon, const QString& summary,
        const QString& body, const QStringList& actions, const QVariantMap& hints, int expireTimeout)
    {
        const uint id = m_nextId++;
        calls.append({ appName, replacesId, summary, body, actions, hints, expireTimeout, id });
        return id;
    }

signals:
    void ActionInvoked(uint id, const QString& actionKey);
    void NotificationClosed(uint id, uint reason);

private:
    uint m_nextId = 41;
};

// A file manager that notes what it was asked to show.
class RecordingFileManager : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")

public:
    QList<QStringList> shownItems;

public slots:
    void ShowItems(const QStringList& uris, const QString& startupId) { shownItems.append(uris); }
};

// logind's inhibitor locks: every lock is the write end of a pipe whose read
// end stays here, so the test sees when the holder closes it. Lives in a
// thread of its own because inhibitors wait for the answer.
class RecordingLoginManager : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.login1.Manager")

public:
    struct Request {
        QString what;
        QString who;
        QString why;
        QString mode;
        int lockReadEnd = -1;
    };

    ~RecordingLoginManager() override
    {
        for (const Request& request : m_requests)
            ::close(request.lockReadEnd);
    }

    QList<Request> requests() const
    {
        QMutexLocker locker(&m_mutex);
        return m_requests;
    }

public slots:
    QDBusUnixFileDescriptor Inhibit(const QString& what, const QString& who, const QString& why, const QString& mode)
    {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0)
            return QDBusUnixFileDescriptor();
        const QDBusUnixFileDescriptor lock(ends[1]); // keeps a duplicate
        ::close(ends[1]);
        QMutexLocker locker(&m_mutex);
        m_requests.append({ what, who, why, mode, ends[0] });
        return lock;
    }

private:
    mutable QMutex m_mutex;
    QList<Request> m_requests;
};

// Stands in for the desktop's URL handlers (QDesktopServices::setUrlHandler).
class RecordingUrlHandler : public QObject
{
    Q_OBJECT

public:
    QList<QUrl> opened;

public slots:
    void open(const QUrl& url) { opened.append(url); }
};

class DesktopTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_busDir;
    QProcess m_daemon;
    QString m_address;
    QDBusConnection m_client { QString() };
    QDBusConnection m_server { QString() };
    RecordingNotificationServer m_notifications;
    RecordingFileManager m_fileManager;
    QThread m_loginThread;
    std::unique_ptr<RecordingLoginManager> m_login;
    QTemporaryDir m_files;

    QString makeFile(const QString& name)
    {
        const QString path = m_files.filePath(name);
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly))
            return QString();
        file.write("content");
        return path;
    }

private slots:
    void initTestCase()
    {
        const QString daemon = QStandardPaths::findExecutable(QStringLiteral("dbus-daemon"));
        if (daemon.isEmpty())
            QSKIP("dbus-daemon is not installed; these tests need a private message bus (apt-get install dbus)");
        QVERIFY(m_busDir.isValid());
        QVERIFY(m_files.isValid());

        // A bus of our own that activates no services: only what the test
        // registers answers on it.
        const QString configPath = m_busDir.filePath(QStringLiteral("bus.conf"));
        QFile config(configPath);
        QVERIFY(config.open(QIODevice::WriteOnly));
        config.write(
            QStringLiteral("<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
                           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                           "<busconfig>\n"
                           "  <type>session</type>\n"
                           "  <listen>unix:dir=%1</listen>\n"
                           "  <auth>EXTERNAL</auth>\n"
                           "  <policy context=\"default\">\n"
                           "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
                           "    <allow eavesdrop=\"true\"/>\n"
                           "    <allow own=\"*\"/>\n"
                           "  </policy>\n"
                           "</busconfig>\n")
                .arg(m_busDir.path())
                .toUtf8());
        config.close();

        m_daemon.setProgram(daemon);
        m_daemon.setArguments({ QStringLiteral("--config-file=") + configPath, QStringLiteral("--nofork"),
            QStringLiteral("--print-address") });
        m_daemon.start();
        QVERIFY2(m_daemon.waitForStarted(10000), qPrintable(m_daemon.errorString()));
        while (!m_daemon.canReadLine()) {
            QVERIFY2(m_daemon.waitForReadyRead(10000),
                qPrintable(QStringLiteral("dbus-daemon printed no address: ")
                    + QString::fromLocal8Bit(m_daemon.readAllStandardError())));
        }
        m_address = QString::fromUtf8(m_daemon.readLine()).trimmed();
        QVERIFY(!m_address.isEmpty());

        m_client = QDBusConnection::connectToBus(m_address, QStringLiteral("quirepad-desktop-client"));
        m_server = QDBusConnection::connectToBus(m_address, QStringLiteral("quirepad-desktop-server"));
        QVERIFY2(m_client.isConnected(), qPrintable(m_client.lastError().message()));
        QVERIFY2(m_server.isConnected(), qPrintable(m_server.lastError().message()));

        const auto exported = QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals;
        QVERIFY(m_server.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &m_notifications, exported));
        QVERIFY(m_server.registerService(kNotificationsService));
        QVERIFY(m_server.registerObject(QStringLiteral("/org/freedesktop/FileManager1"), &m_fileManager, exported));
        QVERIFY(m_server.registerService(kFileManagerService));

        m_login = std::make_unique<RecordingLoginManager>();
        m_loginThread.start();
        m_login->moveToThread(&m_loginThread);
        QVERIFY(m_server.registerObject(
            QStringLiteral("/org/freedesktop/login1"), m_login.get(), QDBusConnection::ExportAllSlots));
        // The login1 name is taken only by the tests that want logind.
    }

    void cleanupTestCase()
    {
        Workspace::setCurrent(nullptr);
        if (m_server.isConnected()) {
            m_server.unregisterObject(QStringLiteral("/org/freedesktop/login1"));
            m_server.unregisterObject(QStringLiteral("/org/freedesktop/FileManager1"));
            m_server.unregisterObject(QStringLiteral("/org/freedesktop/Notifications"));
        }
        m_loginThread.quit();
        m_loginThread.wait();
        m_login.reset();
        m_client = QDBusConnection(QString());
        m_server = QDBusConnection(QString());
        QDBusConnection::disconnectFromBus(QStringLiteral("quirepad-desktop-client"));
        QDBusConnection::disconnectFromBus(QStringLiteral("quirepad-desktop-server"));
        if (m_daemon.state() != QProcess::NotRunning) {
            m_daemon.terminate();
            if (!m_daemon.waitForFinished(5000)) {
                m_daemon.kill();
                m_daemon.waitForFinished(5000);
            }
        }
    }

    void init()
    {
        m_notifications.calls.clear();
        m_fileManager.shownItems.clear();
        Workspace::setCurrent(std::make_unique<XdgWorkspace>(m_client));
    }

    void cleanup() { Workspace::setCurrent(nullptr); }

    void notificationReachesServer()
    {
        FreedesktopNotifier notifier(m_client);
        QSignalSpy posted(&notifier, &FreedesktopNotifier::posted);
        notifier.notify(QStringLiteral("Saved"), QStringLiteral("report.pdf is ready"));

        QTRY_COMPARE(m_notifications.calls.size(), 1);
        const auto& call = m_notifications.calls.constFirst();
        QCOMPARE(call.appName, QStringLiteral("Quirepad"));
        QCOMPARE(call.summary, QStringLiteral("Saved"));
        QCOMPARE(call.body, QStringLiteral("report.pdf is ready"));
        QCOMPARE(call.replacesId, 0u);
        QCOMPARE(call.expireTimeout, -1);
        QVERIFY(call.actions.isEmpty());
        QCOMPARE(call.hints.value(QStringLiteral("sound-name")).toString(), QStringLiteral("message-new-instant"));

        QTRY_COMPARE(posted.size(), 1);
        QCOMPARE(posted.constFirst().constFirst().toUInt(), call.id);
    }

    void notificationWithRevealPathOffersActions()
    {
        FreedesktopNotifier notifier(m_client);
        notifier.notify(QStringLiteral("Printed"), QStringLiteral("3 pages"), makeFile(QStringLiteral("a.pdf")));

        QTRY_COMPARE(m_notifications.calls.size(), 1);
        const QStringList actions = m_notifications.calls.constFirst().actions;
        QCOMPARE(actions.size() % 2, 0);
        QVERIFY(actions.indexOf(QStringLiteral("default")) % 2 == 0);
        const int reveal = int(actions.indexOf(QStringLiteral("reveal")));
        QVERIFY(reveal >= 0 && reveal % 2 == 0);
        QCOMPARE(actions.at(reveal + 1), QStringLiteral("Show in Folder"));
    }

    void activatingNotificationRevealsFile()
    {
        const QString path = makeFile(QStringLiteral("Quarterly report é.pdf"));
        QVERIFY(!path.isEmpty());
        FreedesktopNotifier notifier(m_client);
        QSignalSpy posted(&notifier, &FreedesktopNotifier::posted);
        notifier.notify(QStringLiteral("Saved"), QStringLiteral("Quarterly report"), path);
        QTRY_COMPARE(posted.size(), 1);
        const uint id = posted.constFirst().constFirst().toUInt();

        // Another notification's activation and an unknown action change nothing.
        emit m_notifications.ActionInvoked(id + 100, QStringLiteral("default"));
        emit m_notifications.ActionInvoked(id, QStringLiteral("inline-reply"));
        emit m_notifications.ActionInvoked(id, QStringLiteral("default"));
        QTRY_COMPARE(m_fileManager.shownItems.size(), 1);
        QCOMPARE(m_fileManager.shownItems.constFirst(), QStringList { fileUri(path) });

        // The "Show in Folder" button of a second notification.
        const QString second = makeFile(QStringLiteral("second.pdf"));
        notifier.notify(QStringLiteral("Saved"), QStringLiteral("second"), second);
        QTRY_COMPARE(posted.size(), 2);
        emit m_notifications.ActionInvoked(posted.at(1).constFirst().toUInt(), QStringLiteral("reveal"));
        QTRY_COMPARE(m_fileManager.shownItems.size(), 2);
        QCOMPARE(m_fileManager.shownItems.at(1), QStringList { fileUri(second) });
    }

    void closedNotificationRevealsNothing()
    {
        const QString first = makeFile(QStringLiteral("closed.pdf"));
        const QString second = makeFile(QStringLiteral("open.pdf"));
        FreedesktopNotifier notifier(m_client);
        QSignalSpy posted(&notifier, &FreedesktopNotifier::posted);
        notifier.notify(QStringLiteral("One"), QString(), first);
        notifier.notify(QStringLiteral("Two"), QString(), second);
        QTRY_COMPARE(posted.size(), 2);
        const uint firstId = posted.at(0).constFirst().toUInt();
        const uint secondId = posted.at(1).constFirst().toUInt();

        emit m_notifications.NotificationClosed(firstId, 2);
        emit m_notifications.ActionInvoked(firstId, QStringLiteral("default"));
        emit m_notifications.ActionInvoked(secondId, QStringLiteral("default"));
        // Signals arrive in order: once the second is shown, the first was
        // already passed over.
        QTRY_COMPARE(m_fileManager.shownItems.size(), 1);
        QCOMPARE(m_fileManager.shownItems.constFirst(), QStringList { fileUri(second) });
    }

    void notificationWithoutServiceIsOnlyLogged()
    {
        QVERIFY(m_server.unregisterService(kNotificationsService));
        FreedesktopNotifier notifier(m_client);
        QSignalSpy undelivered(&notifier, &FreedesktopNotifier::undelivered);
        QSignalSpy posted(&notifier, &FreedesktopNotifier::posted);
        notifier.notify(QStringLiteral("Nobody"), QStringLiteral("listens"));
        QTRY_COMPARE(undelivered.size(), 1);
        QCOMPARE(undelivered.constFirst().at(0).toString(), QStringLiteral("Nobody"));
        QCOMPARE(undelivered.constFirst().at(1).toString(), QStringLiteral("listens"));
        QCOMPARE(posted.size(), 0);
        QVERIFY(m_server.registerService(kNotificationsService));

        FreedesktopNotifier offline(QDBusConnection(QStringLiteral("quirepad-never-connected")));
        QSignalSpy offlineUndelivered(&offline, &FreedesktopNotifier::undelivered);
        offline.notify(QStringLiteral("No bus"), QStringLiteral("at all"));
        QCOMPARE(offlineUndelivered.size(), 1);
        QCOMPARE(m_notifications.calls.size(), 0);
    }

    void revealUrlReachesFileManager_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("form");
        QTest::newRow("path text") << "plain.txt" << 0;
        QTest::newRow("file URL") << "with space.txt" << 1;
        QTest::newRow("string list") << "Grüße.txt" << 2;
        QTest::newRow("variant list") << "list item.txt" << 3;
        QTest::newRow("file URL text") << "url text ü.txt" << 4;
    }

    void revealUrlReachesFileManager()
    {
        QFETCH(QString, name);
        QFETCH(int, form);
        const QString path = makeFile(name);
        QVERIFY(!path.isEmpty());
        QVariant value;
        switch (form) {
        case 0:
            value = path;
            break;
        case 1:
            value = QUrl::fromLocalFile(path);
            break;
        case 2:
            value = QStringList { path, QStringLiteral("/elsewhere") };
            break;
        case 3:
            value = QVariantList { QUrl::fromLocalFile(path) };
            break;
        default:
            value = fileUri(path);
            break;
        }
        QVERIFY(reveal_url(value));
        QTRY_COMPARE(m_fileManager.shownItems.size(), 1);
        QCOMPARE(m_fileManager.shownItems.constFirst(), QStringList { fileUri(path) });
    }

    void revealUrlWithoutLocationIsFalse()
    {
        QVERIFY(!reveal_url(QVariant()));
        QVERIFY(!reveal_url(QString()));
        QVERIFY(!reveal_url(QStringLiteral("")));
        QVERIFY(!reveal_url(QUrl()));
        QVERIFY(!reveal_url(QStringList()));
        QVERIFY(!reveal_url(QVariantList()));
        QVERIFY(!reveal_url(m_files.filePath(QStringLiteral("does-not-exist.pdf"))));

        // Requests go out in order: once this one arrives none came before it.
        const QString path = makeFile(QStringLiteral("marker.txt"));
        QVERIFY(reveal_url(path));
        QTRY_COMPARE(m_fileManager.shownItems.size(), 1);
        QCOMPARE(m_fileManager.shownItems.constFirst(), QStringList { fileUri(path) });
    }

    void revealOpensFolderWithoutFileManager()
    {
        const QString path = makeFile(QStringLiteral("orphan.txt"));
        RecordingUrlHandler handler;
        QDesktopServices::setUrlHandler(QStringLiteral("file"), &handler, "open");
        QVERIFY(m_server.unregisterService(kFileManagerService));

        const bool revealed = reveal_url(path);
        QTRY_COMPARE(handler.opened.size(), 1);

        QVERIFY(m_server.registerService(kFileManagerService));
        QDesktopServices::unsetUrlHandler(QStringLiteral("file"));
        QVERIFY(revealed);
        QCOMPARE(handler.opened.constFirst(), QUrl::fromLocalFile(m_files.path()));
        QCOMPARE(m_fileManager.shownItems.size(), 0);
    }

    void openUrlUsesDesktopHandlers()
    {
        RecordingUrlHandler web;
        RecordingUrlHandler files;
        QDesktopServices::setUrlHandler(QStringLiteral("https"), &web, "open");
        QDesktopServices::setUrlHandler(QStringLiteral("file"), &files, "open");

        const bool openedText = open_url(QStringLiteral("https://example.org/a%20b?q=1"));
        const bool openedUrl = open_url(QUrl(QStringLiteral("https://example.org/x")));
        const bool revealedWeb = reveal_url(QStringLiteral("https://example.org/shown"));
        const bool openedPath = open_url(QStringLiteral("/tmp/some file.pdf"));
        const bool openedFile = open_file(QStringLiteral("/tmp/other.pdf"));
        const bool openedNothing = open_url(QVariant()) || open_url(QString()) || open_file(QString());

        QDesktopServices::unsetUrlHandler(QStringLiteral("https"));
        QDesktopServices::unsetUrlHandler(QStringLiteral("file"));

        QVERIFY(openedText);
        QVERIFY(openedUrl);
        QVERIFY(revealedWeb);
        QVERIFY(openedPath);
        QVERIFY(openedFile);
        QVERIFY(!openedNothing);
        QCOMPARE(web.opened,
            (QList<QUrl> { QUrl(QStringLiteral("https://example.org/a%20b?q=1")),
                QUrl(QStringLiteral("https://example.org/x")), QUrl(QStringLiteral("https://example.org/shown")) }));
        QCOMPARE(files.opened,
            (QList<QUrl> { QUrl::fromLocalFile(QStringLiteral("/tmp/some file.pdf")),
                QUrl::fromLocalFile(QStringLiteral("/tmp/other.pdf")) }));
        QCOMPARE(m_fileManager.shownItems.size(), 0);
    }

    void bookmarkRoundTrip_data()
    {
        QTest::addColumn<QUrl>("url");
        QTest::newRow("plain file") << QUrl::fromLocalFile(QStringLiteral("/tmp/report.pdf"));
        QTest::newRow("spaces") << QUrl::fromLocalFile(QStringLiteral("/tmp/My Documents/a b.pdf"));
        QTest::newRow("non-ASCII") << QUrl::fromLocalFile(QStringLiteral("/home/zoë/Überblick – 東京.pdf"));
        QTest::newRow("percent in name") << QUrl::fromLocalFile(QStringLiteral("/tmp/100% done#1.pdf"));
        QTest::newRow("web") << QUrl(QStringLiteral("https://example.org/path?q=a b&x=ü#frag"));
    }

    void bookmarkRoundTrip()
    {
        QFETCH(QUrl, url);
        const QByteArray bookmark = url2bookmark(url);
        QVERIFY(!bookmark.isEmpty());
        // Kept as plain ASCII, whatever the URL holds.
        for (const char c : bookmark)
            QVERIFY(static_cast<unsigned char>(c) < 0x80 && c > ' ');
        const QUrl back = bookmark2url(bookmark);
        QCOMPARE(back, url);
        QCOMPARE(back.toLocalFile(), url.toLocalFile());
    }

    void bookmarkOfNothing()
    {
        QVERIFY(url2bookmark(QUrl()).isNull());
        QVERIFY(bookmark2url(QByteArray()).isEmpty());
        QVERIFY(bookmark2url(QByteArrayLiteral("http://[::1")).isEmpty());
    }

    void cloudSharingOnlyLogs()
    {
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression(QStringLiteral("no cloud container.*report\\.pdf")));
        share_icloud(QUrl::fromLocalFile(QStringLiteral("/tmp/report.pdf")), QVariant());
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression(QStringLiteral("no cloud container.*report\\.pdf")));
        unshare_icloud(QUrl::fromLocalFile(QStringLiteral("/tmp/report.pdf")), QVariant());
    }

    void responderChainShowsFocus()
    {
        QWidget window;
        window.setObjectName(QStringLiteral("window"));
        auto* layout = new QVBoxLayout(&window);
        auto* field = new QLineEdit(&window);
        field->setObjectName(QStringLiteral("nameField"));
        layout->addWidget(field);
        window.show();
        window.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&window));
        field->setFocus();
        QTRY_COMPARE(first_responder(), static_cast<QWidget*>(field));

        QTest::ignoreMessage(QtInfoMsg, QRegularExpression(QStringLiteral("responder chain")));
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression(QStringLiteral("\\* QLineEdit \"nameField\"")));
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression(QStringLiteral("^ +QWidget \"window\"")));
        dump_responder_chain(nullptr);
    }

    void inhibitorWithoutLogindFails()
    {
        PowerInhibitor inhibitor(m_client);
        QVERIFY(!inhibitor.inhibitFor(30));
        QCOMPARE(inhibitor.heldCount(), 0);
        QCOMPARE(inhibitor.currentToken(), 0u);

        PowerInhibitor offline(QDBusConnection(QStringLiteral("quirepad-never-connected")));
        QVERIFY(!offline.inhibitFor(30));
    }

    void inhibitorHoldsLockForItsTime()
    {
        QVERIFY(m_server.registerService(kLoginService));
        PowerInhibitor inhibitor(m_client);
        const bool taken = inhibitor.inhibitFor(0.2);
        const QList<RecordingLoginManager::Request> requests = m_login->requests();
        const bool heldRightAfter = !requests.isEmpty() && !hungUp(requests.constLast().lockReadEnd);
        const int heldCount = inhibitor.heldCount();
        const quint64 token = inhibitor.currentToken();

        QVERIFY(taken);
        QCOMPARE(requests.size(), 1);
        const auto& request = requests.constFirst();
        QCOMPARE(request.what, QStringLiteral("idle:sleep"));
        QCOMPARE(request.who, QStringLiteral("Quirepad"));
        QCOMPARE(request.why, QStringLiteral("Halvern Initiated no-nap"));
        QCOMPARE(request.mode, QStringLiteral("block"));
        QVERIFY(heldRightAfter);
        QCOMPARE(heldCount, 1);
        QVERIFY(token != 0);

        QTRY_VERIFY(hungUp(request.lockReadEnd));
        QCOMPARE(inhibitor.heldCount(), 0);
        QCOMPARE(inhibitor.currentToken(), 0u);
        QVERIFY(m_server.unregisterService(kLoginService));
    }

    void laterInhibitionBecomesCurrent()
    {
        QVERIFY(m_server.registerService(kLoginService));
        const qsizetype before = m_login->requests().size();
        auto inhibitor = std::make_unique<PowerInhibitor>(m_client);
        QVERIFY(inhibitor->inhibitFor(0.3));
        const quint64 first = inhibitor->currentToken();
        QVERIFY(inhibitor->inhibitFor(600));
        const quint64 second = inhibitor->currentToken();
        QVERIFY(first != 0 && second != 0 && first != second);
        QCOMPARE(inhibitor->heldCount(), 2);

        const QList<RecordingLoginManager::Request> requests = m_login->requests();
        QCOMPARE(requests.size(), before + 2);
        const int firstLock = requests.at(before).lockReadEnd;
        const int secondLock = requests.at(before + 1).lockReadEnd;

        // The earlier lock ends at its own time, the later one stays.
        QTRY_VERIFY(hungUp(firstLock));
        QVERIFY(!hungUp(secondLock));
        QCOMPARE(inhibitor->heldCount(), 1);
        QCOMPARE(inhibitor->currentToken(), second);

        // Going away releases what is still held.
        inhibitor.reset();
        QTRY_VERIFY(hungUp(secondLock));
        QVERIFY(m_server.unregisterService(kLoginService));
    }

    void inhibitionNeedsPositiveTime()
    {
        QVERIFY(m_server.registerService(kLoginService));
        const qsizetype before = m_login->requests().size();
        PowerInhibitor inhibitor(m_client);
        QVERIFY(!inhibitor.inhibitFor(0));
        QVERIFY(!inhibitor.inhibitFor(-5));
        QVERIFY(!inhibitor.inhibitFor(std::numeric_limits<double>::quiet_NaN()));
        QCOMPARE(inhibitor.heldCount(), 0);
        // A real request afterwards shows that none went out before it.
        QVERIFY(inhibitor.inhibitFor(0.05));
        QCOMPARE(m_login->requests().size(), before + 1);
        QVERIFY(m_server.unregisterService(kLoginService));
    }
};

QUIREPAD_REGISTER_TEST(DesktopTest);
#include "tst_desktop.moc"
