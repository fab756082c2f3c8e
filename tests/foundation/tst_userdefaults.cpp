#include "TestRegistry.h"

#include "foundation/PlistReader.h"
#include "foundation/SettingsSchema.h"
#include "foundation/UserDefaults.h"
#include "foundation/pathvars.h"

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
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">"
        + body + "</plist>\n";
}

} // namespace

class UserDefaultsTest : public QObject
{
    Q_OBJECT

private slots:
    void plistValuesKeepTheirTypes()
    {
        QTemporaryDir dir;
        const QString path = writeFile(dir, "types.plist",
            plist("<dict>\n"
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
        defaults.registerDefaults({ { SettingKey::ShowMenubarIcon, true }, { SettingKey::Maxcount, 5 } });
        QVERIFY(defaults.registerDefaultsFromFile(
            writeFile(dir, "Defaults.plist", plist("<dict><key>maxcount</key><integer>7</integer></dict>"))));
        QCOMPARE(defaults.integerValue(SettingKey::Maxcount), 7);
        QCOMPARE(defaults.boolValue(SettingKey::ShowMenubarIcon), true);
    }

    void applicationDefaultsFromStagedResources()
    {
        QTemporaryDir dir;
        UserDefaults defaults(dir.filePath("settings.conf"));
        defaults.registerApplicationDefaults();
        QCOMPARE(defaults.boolValue(SettingKey::ShowMenubarIcon), true);
        QCOMPARE(defaults.integerValue(SettingKey::Maxcount), 5);
        // Every optional feature ships off, destinations empty, the page
        // server on loopback at its port, unpublished.
        for (const QString& key : { SettingKey::DisableNotifications, SettingKey::ForceIntroWindow,
                 SettingKey::EnableAirPrinter, SettingKey::HttpBindAll })
            QCOMPARE(defaults.value(key), QVariant(false));
        for (const QString& key : { SettingKey::DestinationName, SettingKey::RemoteDestinationName,
                 SettingKey::ScreenshotDestinationName, SettingKey::HttpServiceName, SettingKey::HttpServiceType })
            QCOMPARE(defaults.value(key), QVariant(QString()));
        QCOMPARE(defaults.integerValue(SettingKey::HttpPort), 8631);
    }

    // The shipped Defaults.plist and the settings table say the same: every
    // key of the file is in the table with its type and default, and every
    // other key of the table is registered with the table's default.
    void settingsTableAgreesWithTheShippedDefaults()
    {
        const QString shippedFile = f(QStringLiteral("${APP_RESOURCES}/Defaults.plist"));
        const QVariantMap shipped = PlistReader::dictionaryFromFile(shippedFile);
        QVERIFY2(!shipped.isEmpty(), qPrintable(shippedFile));
        for (auto it = shipped.cbegin(); it != shipped.cend(); ++it) {
            const SettingDefinition* setting = SettingsSchema::find(it.key());
            QVERIFY2(setting, qPrintable(it.key() + " is not in the settings table"));
            QVERIFY2(SettingsSchema::accepts(*setting, it.value()), qPrintable(it.key() + " has another type"));
            QVERIFY2(SettingsSchema::accepts(*setting, setting->defaultValue), qPrintable(it.key()));
            QCOMPARE(SettingsSchema::displayText(it.value()), SettingsSchema::displayText(setting->defaultValue));
        }
        QTemporaryDir dir;
        UserDefaults defaults(dir.filePath("settings.conf"));
        defaults.registerApplicationDefaults();
        for (const SettingDefinition& setting : SettingsSchema::all()) {
            if (shipped.contains(setting.key))
                continue;
            const QVariant registered = defaults.value(setting.key);
            QVERIFY2(registered.isValid(), qPrintable(setting.key + " is not registered"));
            QCOMPARE(registered.typeId(), setting.defaultValue.typeId());
            QCOMPARE(SettingsSchema::displayText(registered), SettingsSchema::displayText(setting.defaultValue));
        }
    }

    void registrationIsNeverWritten()
    {
        QTemporaryDir dir;
        const QString file = dir.filePath("settings.conf");
        {
            UserDefaults defaults(file);
            defaults.registerDefaults(
                { { SettingKey::Maxcount, 5 }, { SettingKey::DestinationName, "Copy to Desktop" } });
            defaults.setValue(SettingKey::DestinationName, "Mine");
            defaults.sync();
        }
        QSettings stored(file, QSettings::IniFormat);
        QCOMPARE(stored.allKeys(), QStringList { SettingKey::DestinationName });
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
        reader.registerDefaults({ { "key", registered } });
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
