#include "TestRegistry.h"

#include "foundation/FreedesktopNotifier.h"
#include "foundation/PowerInhibitor.h"
#include "foundation/Workspace.h"
#include "foundation/XdgWorkspace.h"
#include "foundation/desktop.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusUnixFileDescriptor>
#include <QDesktopServices>
#include <QFile>
#include <QMutex>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

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
    // Each as { app name, replaced id, summary, body, actions, sound-name hint, timeout }; ids count from 41.
    QList<QVariantList> calls;

public slots:
    uint Notify(const QString& appName, uint replacesId, const QString& appIcon, const QString& summary,
        const QString& body, const QStringList& actions, const QVariantMap& hints, int expireTimeout)
    {
        const QVariant sound = hints.value(QStringLiteral("sound-name"));
        calls.append({ appName, replacesId, summary, body, actions, sound, expireTimeout });
        return 40 + uint(calls.size());
    }

signals:
    void ActionInvoked(uint id, const QString& actionKey);
    void NotificationClosed(uint id, uint reason);
};

// A file manager that notes what it was asked to show. Its unscriptable
// open() stands in for the desktop's URL handlers (QDesktopServices).
class RecordingFileManager : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")

public:
    QList<QStringList> shownItems;
    QList<QUrl> opened;

public slots:
    Q_SCRIPTABLE void ShowItems(const QStringList& uris, const QString& startupId) { shownItems.append(uris); }
    void open(const QUrl& url) { opened.append(url); }
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
        QStringList arguments; // what, who, why, mode
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
        m_requests.append({ { what, who, why, mode }, ends[0] });
        return lock;
    }

private:
    mutable QMutex m_mutex;
    QList<Request> m_requests;
};

class DesktopTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_busDir;
    QProcess m_daemon;
    QDBusConnection m_client { QString() };
    QDBusConnection m_server { QString() };
    RecordingNotificationServer m_notifications;
    RecordingFileManager m_fileManager;
    QThread m_loginThread;
    std::unique_ptr<RecordingLoginManager> m_login;
    QTemporaryDir m_files;

    QString makeFile(const QString& name)
    {
        QFile file(m_files.filePath(name));
        return file.open(QIODevice::WriteOnly) && file.write("content") == 7 ? file.fileName() : QString();
    }

    // Posts a notification revealing a new file; the id the server gave it.
    uint post(FreedesktopNotifier& notifier, QSignalSpy& posted, const QString& fileName)
    {
        notifier.notify(QStringLiteral("Saved"), QStringLiteral("document"), makeFile(fileName));
        return posted.wait(5000) ? posted.constLast().constFirst().toUInt() : 0;
    }

private slots:
    void initTestCase()
    {
        const QString daemon = QStandardPaths::findExecutable(QStringLiteral("dbus-daemon"));
        if (daemon.isEmpty())
            QSKIP("dbus-daemon is not installed; these tests need a private message bus (apt-get install dbus)");
        QVERIFY(m_busDir.isValid() && m_files.isValid());
        // A bus of our own that activates no services: only what the test
        // registers answers on it.
        QFile config(m_busDir.filePath(QStringLiteral("bus.conf")));
        QVERIFY(config.open(QIODevice::WriteOnly));
        config.write("<busconfig><listen>unix:dir=" + QFile::encodeName(m_busDir.path())
            + "</listen><policy context=\"default\"><allow send_destination=\"*\"/><allow eavesdrop=\"true\"/>"
              "<allow own=\"*\"/></policy></busconfig>\n");
        config.close();

        m_daemon.start(daemon,
            { QStringLiteral("--config-file=") + config.fileName(), QStringLiteral("--nofork"),
                QStringLiteral("--print-address") });
        QVERIFY2(m_daemon.waitForStarted(10000), qPrintable(m_daemon.errorString()));
        while (!m_daemon.canReadLine())
            QVERIFY2(m_daemon.waitForReadyRead(10000), m_daemon.readAllStandardError().constData());
        const QString address = QString::fromUtf8(m_daemon.readLine()).trimmed();

        m_client = QDBusConnection::connectToBus(address, QStringLiteral("quirepad-desktop-client"));
        m_server = QDBusConnection::connectToBus(address, QStringLiteral("quirepad-desktop-server"));
        QVERIFY2(m_client.isConnected() && m_server.isConnected(), qPrintable(m_client.lastError().message()));

        const auto exported = QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals;
        QVERIFY(m_server.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &m_notifications, exported));
        QVERIFY(m_server.registerObject(
            QStringLiteral("/org/freedesktop/FileManager1"), &m_fileManager, QDBusConnection::ExportScriptableSlots));
        m_login = std::make_unique<RecordingLoginManager>();
        m_loginThread.start();
        m_login->moveToThread(&m_loginThread);
        QVERIFY(m_server.registerObject(
            QStringLiteral("/org/freedesktop/login1"), m_login.get(), QDBusConnection::ExportAllSlots));
    }

    void cleanupTestCase()
    {
        m_client = m_server = QDBusConnection(QString());
        QDBusConnection::disconnectFromBus(QStringLiteral("quirepad-desktop-client"));
        QDBusConnection::disconnectFromBus(QStringLiteral("quirepad-desktop-server"));
        m_loginThread.quit();
        m_loginThread.wait();
        m_login.reset();
    }

    // Every test starts with a notification server and a file manager on
    // the bus, and without logind.
    void init()
    {
        QVERIFY(m_server.registerService(kNotificationsService));
        QVERIFY(m_server.registerService(kFileManagerService));
        m_notifications.calls.clear();
        m_fileManager.shownItems.clear();
        m_fileManager.opened.clear();
        Workspace::setCurrent(std::make_unique<XdgWorkspace>(m_client));
    }

    void cleanup()
    {
        Workspace::setCurrent(nullptr);
        QDesktopServices::unsetUrlHandler(QStringLiteral("file"));
        m_server.unregisterService(kLoginService);
    }

    void notificationReachesServer()
    {
        FreedesktopNotifier notifier(m_client);
        QSignalSpy posted(&notifier, &FreedesktopNotifier::posted);
        notifier.notify(QStringLiteral("Saved"), QStringLiteral("r.pdf is ready"));
        notifier.notify(QStringLiteral("Printed"), QStringLiteral("3 pages"), makeFile(QStringLiteral("a.pdf")));

        QTRY_COMPARE(m_notifications.calls.size(), 2);
        QCOMPARE(m_notifications.calls.constFirst(),
            (QVariantList { "Quirepad", 0u, "Saved", "r.pdf is ready", QStringList(), "message-new-instant", -1 }));
        QTRY_COMPARE(posted.size(), 2);
        QCOMPARE(posted.constFirst().constFirst().toUInt(), 41u);

        // With a file to reveal: key and title pairs, "default" and "reveal" among the keys.
        const QStringList actions = m_notifications.calls.at(1).at(4).toStringList();
        const qsizetype reveal = actions.indexOf(QStringLiteral("reveal"));
        QVERIFY(actions.size() % 2 == 0 && actions.indexOf(QStringLiteral("default")) % 2 == 0 && reveal % 2 == 0);
        QCOMPARE(actions.value(reveal + 1), QStringLiteral("Show in Folder"));
    }

    void activatingNotificationRevealsFile()
    {
        FreedesktopNotifier notifier(m_client);
        QSignalSpy posted(&notifier, &FreedesktopNotifier::posted);
        const uint id = post(notifier, posted, QStringLiteral("Quarterly report é.pdf"));
        const uint secondId = post(notifier, posted, QStringLiteral("second.pdf"));
        const uint closedId = post(notifier, posted, QStringLiteral("closed.pdf"));
        QVERIFY(id && secondId && closedId);

        // Another notification's activation, an unknown action and a closed
        // notification change nothing; signals arrive in order, so once the
        // later ones are shown the earlier ones were passed over.
        emit m_notifications.ActionInvoked(id + 100, QStringLiteral("default"));
        emit m_notifications.ActionInvoked(id, QStringLiteral("inline-reply"));
        emit m_notifications.NotificationClosed(closedId, 2);
        emit m_notifications.ActionInvoked(closedId, QStringLiteral("default"));
        emit m_notifications.ActionInvoked(id, QStringLiteral("default"));
        emit m_notifications.ActionInvoked(secondId, QStringLiteral("reveal"));
        QTRY_COMPARE(m_fileManager.shownItems.size(), 2);
        QCOMPARE(m_fileManager.shownItems.at(0), QStringList { fileUri(m_files.filePath("Quarterly report é.pdf")) });
        QCOMPARE(m_fileManager.shownItems.at(1), QStringList { fileUri(m_files.filePath("second.pdf")) });
    }

    void notificationWithoutServiceIsOnlyLogged()
    {
        QVERIFY(m_server.unregisterService(kNotificationsService));
        FreedesktopNotifier notifier(m_client);
        QSignalSpy undelivered(&notifier, &FreedesktopNotifier::undelivered);
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression(QStringLiteral("notification .*Nobody - listens")));
        notifier.notify(QStringLiteral("Nobody"), QStringLiteral("listens"));
        QTRY_COMPARE(undelivered.size(), 1);
        QCOMPARE(undelivered.constFirst(), (QVariantList { QStringLiteral("Nobody"), QStringLiteral("listens") }));

        FreedesktopNotifier offline(QDBusConnection(QStringLiteral("quirepad-never-connected")));
        QSignalSpy offlineUndelivered(&offline, &FreedesktopNotifier::undelivered);
        offline.notify(QStringLiteral("No bus"), QStringLiteral("at all"));
        QCOMPARE(offlineUndelivered.size(), 1);
    }

    void revealUrlReachesFileManager_data()
    {
        QTest::addColumn<int>("form");
        int form = 0;
        for (const char* name : { "path text", "file URL", "string list", "variant list", "file URL text" })
            QTest::newRow(name) << form++;
    }

    void revealUrlReachesFileManager()
    {
        QFETCH(int, form);
        // Values without a location are refused. Requests go out in order:
        // once the real one arrives, none came before it.
        for (const QVariant& nothing : { QVariant(), QVariant(QString()), QVariant(QUrl()), QVariant(QStringList()),
                 QVariant(m_files.filePath(QStringLiteral("does-not-exist.pdf"))) })
            QVERIFY(!reveal_url(nothing));
        const QString path = makeFile(QStringLiteral("Grüße %1 #ü.txt").arg(form));
        const QVariant forms[] = { path, QUrl::fromLocalFile(path), QStringList { path, QStringLiteral("/elsewhere") },
            QVariantList { QUrl::fromLocalFile(path) }, fileUri(path) };
        QVERIFY(reveal_url(forms[form]));
        QTRY_COMPARE(m_fileManager.shownItems.size(), 1);
        QCOMPARE(m_fileManager.shownItems.constFirst(), QStringList { fileUri(path) });
    }

    void withoutFileManagerRevealOpensFolder()
    {
        QDesktopServices::setUrlHandler(QStringLiteral("file"), &m_fileManager, "open");
        QVERIFY(m_server.unregisterService(kFileManagerService));
        QVERIFY(reveal_url(makeFile(QStringLiteral("orphan.txt"))));
        QTRY_COMPARE(m_fileManager.opened, QList<QUrl> { QUrl::fromLocalFile(m_files.path()) });
    }

    void bookmarkRoundTrip_data()
    {
        QTest::addColumn<QUrl>("url");
        QTest::newRow("spaces") << QUrl::fromLocalFile(QStringLiteral("/tmp/My Documents/a b.pdf"));
        QTest::newRow("non-ASCII") << QUrl::fromLocalFile(QStringLiteral("/home/zoë/Überblick – 東京.pdf"));
        QTest::newRow("percent in name") << QUrl::fromLocalFile(QStringLiteral("/tmp/100% done#1.pdf"));
        QTest::newRow("web") << QUrl(QStringLiteral("https://example.org/path?q=a b&x=ü#frag"));
    }

    void bookmarkRoundTrip()
    {
        QFETCH(QUrl, url);
        const QByteArray bookmark = url2bookmark(url);
        // Kept as plain ASCII, whatever the URL holds.
        for (const char c : bookmark)
            QVERIFY(static_cast<unsigned char>(c) < 0x80 && c > ' ');
        QCOMPARE(bookmark2url(bookmark), url);
    }

    void bookmarkOfNothing()
    {
        QVERIFY(url2bookmark(QUrl()).isNull());
        QVERIFY(bookmark2url(QByteArray()).isEmpty());
        QVERIFY(bookmark2url(QByteArrayLiteral("http://[::1")).isEmpty());
    }

    void inhibitorHoldsLockForItsTime()
    {
        auto inhibitor = std::make_unique<PowerInhibitor>(m_client);
        PowerInhibitor offline(QDBusConnection(QStringLiteral("quirepad-never-connected")));
        QVERIFY(!offline.inhibitFor(30));
        QVERIFY(!inhibitor->inhibitFor(30)); // no logind on the bus yet
        QVERIFY(inhibitor->heldCount() == 0 && inhibitor->currentToken() == 0);

        QVERIFY(m_server.registerService(kLoginService));
        QVERIFY(!inhibitor->inhibitFor(0));
        QVERIFY(!inhibitor->inhibitFor(-5));
        QVERIFY(!inhibitor->inhibitFor(std::numeric_limits<double>::quiet_NaN()));
        QVERIFY(inhibitor->inhibitFor(0.3));
        const quint64 first = inhibitor->currentToken();
        QVERIFY(inhibitor->inhibitFor(600));
        const quint64 second = inhibitor->currentToken();
        QVERIFY(first != 0 && second != 0 && first != second);
        QCOMPARE(inhibitor->heldCount(), 2);

        // Only the two valid requests went out, and both locks are held.
        const QList<RecordingLoginManager::Request> requests = m_login->requests();
        QCOMPARE(requests.size(), 2);
        QCOMPARE(requests.at(0).arguments,
            (QStringList { "idle:sleep", "Quirepad", "Halvern Initiated no-nap", "block" }));
        const int firstLock = requests.at(0).lockReadEnd;
        const int secondLock = requests.at(1).lockReadEnd;
        QVERIFY(!hungUp(firstLock) && !hungUp(secondLock));

        // The earlier lock ends at its own time, the later one stays.
        QTRY_VERIFY(hungUp(firstLock));
        QVERIFY(!hungUp(secondLock));
        QCOMPARE(inhibitor->heldCount(), 1);
        QCOMPARE(inhibitor->currentToken(), second);

        // Going away releases what is still held.
        inhibitor.reset();
        QTRY_VERIFY(hungUp(secondLock));
    }
};

QUIREPAD_REGISTER_TEST(DesktopTest);
#include "tst_desktop.moc"
