#include "TestRegistry.h"

#include "LogCapture.h"

#include "foundation/UserDefaults.h"
#include "network/AirPrintAdvertiser.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace quirepad;

namespace {

// Records what the advertiser asks of DNS-SD; the test plays the network.
class RecordingDnsSd : public DnsSd
{
public:
    bool isAvailable() const override { return m_available; }
    QString problem() const override { return m_available ? QString() : QStringLiteral("daemon gone"); }
    void browse(const QString& type) override { browsed << type; }
    void resolve(const DnsSdService& service, int timeoutMs) override
    {
        resolving << service.name;
        lastTimeout = timeoutMs;
    }
    int publish(const DnsSdRegistration& registration) override
    {
        publications << registration;
        live.insert(++m_handle);
        return m_handle;
    }
    void withdraw(int handle) override { live.remove(handle); }
    QString publishedName(int handle) const override
    {
        return live.contains(handle) ? publications.last().name : QString();
    }
    void setAvailable(bool available)
    {
        m_available = available;
        emit availabilityChanged(available);
    }

    QStringList browsed;
    QStringList resolving;
    int lastTimeout = 0;
    QList<DnsSdRegistration> publications;
    QSet<int> live;

private:
    bool m_available = true;
    int m_handle = 0;
};

const QString OwnAddress = QStringLiteral("192.168.7.20");
const QString AdminUrl = QStringLiteral("http://box.local:631/printers/Print_to_Quirepad");

DnsSdResolved cupsRecord(const QString& address, const TxtRecord& txt)
{
    DnsSdResolved resolved;
    resolved.hostName = QStringLiteral("box.local");
    resolved.port = 631;
    resolved.addresses << QHostAddress(address);
    resolved.txt = txt;
    return resolved;
}

TxtRecord cupsTxt(const QByteArray& rp = "printers/Print_to_Quirepad")
{
    return { { "txtvers", "1" }, { "rp", rp }, { "adminurl", AdminUrl.toUtf8() }, { "ty", "Quirepad" } };
}

class AirPrintTest : public QObject
{
    Q_OBJECT
private:
    QTemporaryDir m_dir;
    std::unique_ptr<RecordingDnsSd> m_dnsSd;
    std::unique_ptr<AirPrintAdvertiser> m_advertiser;

    // Found and resolved as the network would report them; waits for the
    // address comparison to come back.
    void announce(const DnsSdResolved& resolved, const QString& name = QStringLiteral("Print_to_Quirepad @ box"))
    {
        DnsSdService service { name, QStringLiteral("_ipp._tcp"), QStringLiteral("local"), 2, 0 };
        emit m_dnsSd->serviceFound(service);
        QCOMPARE(m_dnsSd->resolving.last(), name);
        QSignalSpy settled(m_advertiser.get(), &AirPrintAdvertiser::stateChanged);
        emit m_dnsSd->serviceResolved(service, resolved);
        // A record that is turned down changes nothing: give the comparison
        // time to come back either way.
        settled.wait(300);
    }

private slots:
    void init()
    {
        UserDefaults::setStandard(std::make_unique<UserDefaults>(m_dir.filePath(QStringLiteral("settings.conf"))));
        UserDefaults::standard().setValue(QStringLiteral("enable_airprinter"), true);
        UserDefaults::standard().setValue(QStringLiteral("air_printer"), QStringLiteral("stale from before"));
        m_dnsSd = std::make_unique<RecordingDnsSd>();
        m_advertiser = std::make_unique<AirPrintAdvertiser>(*m_dnsSd);
        m_advertiser->setHostAddresses([] { return QStringList { QStringLiteral("127.0.0.1"), OwnAddress, QStringLiteral("fe80::1") }; });
        m_advertiser->setHostName(QStringLiteral("box"));
        m_advertiser->advertiseItself();
    }
    void cleanup()
    {
        m_advertiser.reset();
        m_dnsSd.reset();
        UserDefaults::setStandard(nullptr);
        QFile::remove(m_dir.filePath(QStringLiteral("settings.conf")));
    }

    void searchStartsClean()
    {
        QCOMPARE(m_dnsSd->browsed, QStringList { QStringLiteral("_ipp._tcp") });
        QVERIFY(!UserDefaults::standard().contains(QStringLiteral("air_printer")));
        QVERIFY(m_dnsSd->publications.isEmpty());
    }

    void resolvedRecords_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<TxtRecord>("txt");
        QTest::addColumn<bool>("published");

        QTest::newRow("the shared queue of this host") << OwnAddress << cupsTxt() << true;
        QTest::newRow("loopback counts as this host") << QStringLiteral("127.0.0.1") << cupsTxt() << true;
        TxtRecord own = cupsTxt();
        own.append(qMakePair(QByteArray("qpid"), QByteArray("0F3B9F54-1D55-4C53-9E0F-6E0B2C1B7A11")));
        QTest::newRow("our own record (qpid)") << OwnAddress << own << false;
        QTest::newRow("reachable over IPv6 only") << QStringLiteral("fe80::1") << cupsTxt() << false;
        QTest::newRow("another queue") << OwnAddress << cupsTxt("printers/Office") << false;
        QTest::newRow("rp with a leading slash") << OwnAddress << cupsTxt("/printers/Print_to_Quirepad") << false;
        QTest::newRow("another host's queue") << QStringLiteral("192.168.7.21") << cupsTxt() << false;
        QTest::newRow("no adminurl") << OwnAddress << TxtRecord { { "rp", "printers/Print_to_Quirepad" } } << false;
        QTest::newRow("no rp") << OwnAddress << TxtRecord { { "adminurl", AdminUrl.toUtf8() } } << false;
    }
    void resolvedRecords()
    {
        QFETCH(QString, address);
        QFETCH(TxtRecord, txt);
        QFETCH(bool, published);

        announce(cupsRecord(address, txt));
        QCOMPARE(m_dnsSd->lastTimeout, 2000);
        QCOMPARE(m_dnsSd->publications.size(), published ? 1 : 0);
        QCOMPARE(UserDefaults::standard().contains(QStringLiteral("air_printer")), published);
        QCOMPARE(m_advertiser->airprinterRunning(), published);
        if (!published)
            return;
        QCOMPARE(UserDefaults::standard().stringValue(QStringLiteral("air_printer")), AdminUrl);
        const DnsSdRegistration& r = m_dnsSd->publications.first();
        QCOMPARE(r.name, QStringLiteral("AirPrint Quirepad"));
        QCOMPARE(r.type, QStringLiteral("_ipp._tcp"));
        QCOMPARE(r.subtypes, QStringList { QStringLiteral("_universal") });
        QCOMPARE(r.port, quint16(631));
        QStringList keys;
        for (const auto& pair : r.txt)
            keys << QString::fromLatin1(pair.first);
        QCOMPARE(keys.join(u' '), QStringLiteral("txtvers qtotal rp adminurl pdl product ty note URF qpid"));
        QCOMPARE(txtValue(r.txt, "rp"), QByteArray("/printers/Print_to_Quirepad"));
        QCOMPARE(txtValue(r.txt, "adminurl"), AdminUrl.toUtf8());
        QCOMPARE(txtValue(r.txt, "note"), QByteArray("Quirepad Printer @ box"));
        QVERIFY(QRegularExpression(QStringLiteral("^[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}$"))
                    .match(QString::fromLatin1(txtValue(r.txt, "qpid")))
                    .hasMatch());

        // Found again while published: nothing more.
        announce(cupsRecord(address, txt));
        QCOMPARE(m_dnsSd->publications.size(), 1);
    }

    void switchDecidesWithoutAnotherSearch()
    {
        UserDefaults::standard().setValue(QStringLiteral("enable_airprinter"), false);
        announce(cupsRecord(OwnAddress, cupsTxt()));
        QVERIFY(m_dnsSd->publications.isEmpty());
        QCOMPARE(UserDefaults::standard().stringValue(QStringLiteral("air_printer")), AdminUrl);
        QVERIFY(m_advertiser->whyNotPublished().contains(QStringLiteral("switched off")));

        const int resolves = int(m_dnsSd->resolving.size());
        UserDefaults::standard().setValue(QStringLiteral("enable_airprinter"), true);
        m_advertiser->publishAirPrinter();
        QCOMPARE(m_dnsSd->publications.size(), 1);
        QCOMPARE(m_dnsSd->resolving.size(), resolves);
        const QByteArray firstQpid = txtValue(m_dnsSd->publications.first().txt, "qpid");

        m_advertiser->publishAirPrinter(); // already published
        QCOMPARE(m_dnsSd->publications.size(), 1);

        UserDefaults::standard().setValue(QStringLiteral("enable_airprinter"), false);
        m_advertiser->publishAirPrinter();
        QVERIFY(m_dnsSd->live.isEmpty());
        QVERIFY(!m_advertiser->airprinterRunning());

        UserDefaults::standard().setValue(QStringLiteral("enable_airprinter"), true);
        m_advertiser->publishAirPrinter();
        QCOMPARE(m_dnsSd->publications.size(), 2);
        QVERIFY(txtValue(m_dnsSd->publications.last().txt, "qpid") != firstQpid);
    }

    void rpWithoutThePort()
    {
        UserDefaults::standard().setValue(QStringLiteral("air_printer"), QStringLiteral("ipp://box/printers/x"));
        m_advertiser->publishAirPrinter();
        QCOMPARE(txtValue(m_dnsSd->publications.first().txt, "rp"), QByteArray("://box/printers/x"));
    }

    void daemonOutageIsReportedOnce()
    {
        test::LogCapture log;
        for (int i = 0; i < 3; ++i) {
            m_dnsSd->setAvailable(false);
            m_dnsSd->setAvailable(true);
        }
        m_dnsSd->setAvailable(false);
        m_dnsSd->setAvailable(false);
        QCOMPARE(log.count(QStringLiteral("DNS-SD is unavailable")), 4);
        QVERIFY(m_advertiser->whyNotPublished().contains(QStringLiteral("daemon gone")));
    }
};

} // namespace

QUIREPAD_REGISTER_TEST(AirPrintTest);
#include "tst_airprint.moc"
