#include "TestRegistry.h"

#include "foundation/PlistReader.h"
#include "foundation/UserDefaults.h"

#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

using namespace quirepad;

namespace {

QString writeFile(const QTemporaryDir& dir, const QString& name, const QByteArray& contents)
{
    const QString path = dir.filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return {};
    file.write(contents);
    return path;
}

QByteArray plist(const QByteArray& body)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
        "<plist version=\"1.0\">" + body + "</plist>\n";
}

} // namespace

class UserDefaultsTest : public QObject
{
    Q_OBJECT

private slots:
    void plistValuesKeepTheirTypes()
    {
        QTemporaryDir dir;
        const QString path = writeFile(dir, "types.plist", plist("<dict>\n"
        "            <key>flag</key><true/>\n"
        "            <key>count</key><integer>-3</integer>\n"
        "            <key>ratio</key><real>0.5</real>\n"
        "            <key>name</key><string>Zoë</string>\n"
        "            <key>blob</key><data>AAEC</data>\n"
        "            <key>when</key><date>2001-01-01T00:01:00Z</date>\n"
        "            <key>list</key><array><string>a</string><integer>2</integer></array>\n"
        "            <key>nested</key><dict><key>k</key><string>v</string></dict>\n"
        "        </dict>"));
        const QVariantMap map = PlistReader::dictionaryFromFile(path);
        QCOMPARE(map.value("flag").typeId(), int(QMetaType::Bool));
        QCOMPARE(map.value("flag").toBool(), true);
        QCOMPARE(map.value("count").toLongLong(), -3);
        QCOMPARE(map.value("ratio").toDouble(), 0.5);
        QCOMPARE(map.value("name").toString(), QStringLiteral("Zoë"));
        QCOMPARE(map.value("blob").toByteArray(), QByteArray("\x00\x01\x02", 3));
        QCOMPARE(map.value("when").toDateTime().toUTC().time(), QTime(0, 1));
        QCOMPARE(map.value("list").toList().size(), 2);
        QCOMPARE(map.value("nested").toMap().value("k").toString(), QStringLiteral("v"));
    }

    void unreadablePropertyLists_data()
    {
        QTest::addColumn<QByteArray>("contents");
        QTest::newRow("garbage") << QByteArray("not a plist at all");
        QTest::newRow("truncated XML") << plist("<dict><key>a</key>").left(120);
        QTest::newRow("array at top") << plist("<array><string>a</string></array>");
        QTest::newRow("empty file") << QByteArray();
    }

    void unreadablePropertyLists()
    {
        QFETCH(QByteArray, contents);
        QTemporaryDir dir;
        UserDefaults defaults(dir.filePath("settings.conf"));
        QVERIFY(!defaults.registerDefaultsFromFile(writeFile(dir, "bad.plist", contents)));
        QVERIFY(defaults.registeredDefaults().isEmpty());
        QVERIFY(!defaults.registerDefaultsFromFile(dir.filePath("missing.plist")));
    }

    void plistRegisteredAfterCodeDefaultsWins()
    {
        QTemporaryDir dir;
        UserDefaults defaults(dir.filePath("settings.conf"));
        defaults.registerDefaults({{"show_menubar_icon", true}, {"maxcount", 5}});
        QVERIFY(defaults.registerDefaultsFromFile(
            writeFile(dir, "Defaults.plist", plist("<dict><key>maxcount</key><integer>7</integer></dict>"))));
        QCOMPARE(defaults.integerValue("maxcount"), 7);
        QCOMPARE(defaults.boolValue("show_menubar_icon"), true);
    }

    void applicationDefaultsFromStagedResources()
    {
        QTemporaryDir dir;
        UserDefaults defaults(dir.filePath("settings.conf"));
        defaults.registerApplicationDefaults();
        QCOMPARE(defaults.boolValue("show_menubar_icon"), true);
        QCOMPARE(defaults.integerValue("maxcount"), 5);
        // Present in the shipped Defaults.plist, and off.
        // Every optional feature ships off, destinations empty, the page
        // server on loopback at a port the system picks, unpublished.
        const QVariantMap registered = defaults.registeredDefaults();
        for (const char* key : {"disable_all_displaynotifications", "force_intro_window", "enable_airprinter",
                                "HTTPServer_bind_all"}) {
            QVERIFY2(registered.contains(key), key);
            QCOMPARE(defaults.boolValue(key), false);
        }
        for (const char* key : {"destination_name", "remote_destination_name", "screenshot_destination_name",
                                "HTTPServer_serviceName", "HTTPServer_serviceType"}) {
            QVERIFY2(registered.contains(key), key);
            QCOMPARE(defaults.stringValue(key), QString());
        }
        QCOMPARE(defaults.integerValue("HTTPServer_serverPort"), 8631);
    }

    void registrationIsNeverWritten()
    {
        QTemporaryDir dir;
        const QString file = dir.filePath("settings.conf");
        {
            UserDefaults defaults(file);
            defaults.registerDefaults({{"maxcount", 5}, {"destination_name", "Copy to Desktop"}});
            defaults.setValue("destination_name", "Mine");
            defaults.sync();
        }
        QSettings stored(file, QSettings::IniFormat);
        QCOMPARE(stored.allKeys(), QStringList{"destination_name"});
    }

    void storedValuesOverlayRegisteredOnes_data()
    {
        QTest::addColumn<QVariant>("registered");
        QTest::addColumn<QVariant>("stored");
        QTest::newRow("bool off over on") << QVariant(true) << QVariant(false);
        QTest::newRow("bool on over off") << QVariant(false) << QVariant(true);
        QTest::newRow("integer") << QVariant(5) << QVariant(9);
        QTest::newRow("string") << QVariant(QString("a")) << QVariant(QString("b c"));
    }

    void storedValuesOverlayRegisteredOnes()
    {
        QFETCH(QVariant, registered);
        QFETCH(QVariant, stored);
        QTemporaryDir dir;
        const QString file = dir.filePath("settings.conf");
        {
            UserDefaults writer(file);
            writer.setValue("key", stored);
        }
        // A fresh instance reads the text back and types it like the default.
        UserDefaults reader(file);
        reader.registerDefaults({{"key", registered}});
        QCOMPARE(reader.value("key"), stored);
        QCOMPARE(reader.dictionaryRepresentation().value("key"), stored);
        reader.remove("key");
        QCOMPARE(reader.value("key"), registered);
        reader.setValue("key", QVariant());
        QCOMPARE(reader.value("key"), registered);
    }
};

QUIREPAD_REGISTER_TEST(UserDefaultsTest);
#include "tst_userdefaults.moc"
