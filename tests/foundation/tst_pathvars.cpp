#include "LogCapture.h"
#include "TestRegistry.h"

#include "foundation/GlobalEnv.h"
#include "foundation/pathvars.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace quirepad;

namespace {

const QString kUnclosed = QStringLiteral("has no closing brace. Opening brace at position");

void writeInfoPlist(const QString& appPath, const QString& body)
{
    QDir().mkpath(appPath);
    QFile file(appPath + QStringLiteral("/Info.plist"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
        "<plist version=\"1.0\"><dict>" + body.toUtf8() + "</dict></plist>\n");
}

QProcessEnvironment environmentWith(const QString& home)
{
    QProcessEnvironment env;
    if (!home.isNull())
        env.insert(QStringLiteral("HOME"), home);
    return env;
}

} // namespace

class PathVariablesTest : public QObject
{
    Q_OBJECT

private slots:
    void tableOverrides_data()
    {
        QTest::addColumn<QString>("plistBody");
        QTest::addColumn<QString>("variable");
        QTest::addColumn<QString>("expected"); // "@APP@" and "@HOME@" are substituted

        const QString name = QStringLiteral("<key>CFBundleName</key><string>Quirepad</string>");
        QTest::newRow("plain resources") << name << "APP_RESOURCES" << "@APP@/Resources";
        QTest::newRow("contents is the app folder") << name << "APP_CONTENTS" << "@APP@";
        QTest::newRow("name from Info.plist") << name << "APP_NAME" << "Quirepad";
        QTest::newRow("support under XDG data") << name << "APP_SUPPORT" << "@HOME@/.local/share/Quirepad";
        QTest::newRow("plugins under support") << name << "APP_SUPPORT_PLUGINS"
                                               << "@HOME@/.local/share/Quirepad/PlugIns";
        QTest::newRow("metadata") << name << "APP_METADATA" << "@HOME@/.cache/Metadata/Quirepad";
        QTest::newRow("coredata") << name << "APP_COREDATA" << "@HOME@/.cache/Metadata/CoreData/Quirepad";
        QTest::newRow("MYGlobalEnv replaces resources")
            << name + "<key>MYGlobalEnv</key><dict><key>APP_RESOURCES</key><string>/custom/res</string></dict>"
            << "APP_RESOURCES" << "/custom/res";
        QTest::newRow("MYGlobalEnv cannot replace caches")
            << name + "<key>MYGlobalEnv</key><dict><key>APP_CACHES</key><string>/bogus</string></dict>"
            << "APP_CACHES" << "@HOME@/.cache/Quirepad";
        QTest::newRow("MYGlobalEnv cannot replace plugins")
            << name + "<key>MYGlobalEnv</key><dict><key>APP_PLUGINS</key><string>/bogus</string></dict>"
            << "APP_PLUGINS" << "@APP@/PlugIns";
        QTest::newRow("MYGlobalEnv renames the app but not its folders")
            << name + "<key>MYGlobalEnv</key><dict><key>APP_NAME</key><string>Other</string></dict>"
            << "APP_SUPPORT" << "@HOME@/.local/share/Quirepad";
        QTest::newRow("MYGlobalEnv may replace the name itself")
            << name + "<key>MYGlobalEnv</key><dict><key>APP_NAME</key><string>Other</string></dict>"
            << "APP_NAME" << "Other";
        QTest::newRow("MYGlobalEnv adds new variables")
            << name + "<key>MYGlobalEnv</key><dict><key>SPOOL</key><string>/var/x</string></dict>"
            << "SPOOL" << "/var/x";
        QTest::newRow("missing bundle name shows as (null)") << QString() << "APP_CACHES" << "@HOME@/.cache/(null)";
    }

    void tableOverrides()
    {
        QFETCH(QString, plistBody);
        QFETCH(QString, variable);
        QFETCH(QString, expected);
        QTemporaryDir dir;
        const QString app = dir.filePath(QStringLiteral("share/quirepad"));
        writeInfoPlist(app, plistBody);
        const QVariantMap table = GlobalEnv::build(app, environmentWith(QStringLiteral("/home/tester")));
        expected.replace(QStringLiteral("@APP@"), app).replace(QStringLiteral("@HOME@"), QStringLiteral("/home/tester"));
        QCOMPARE(table.value(variable).toString(), expected);
        QVERIFY(!table.contains(QStringLiteral("HOME")));
    }

    void xdgAndMissingHome()
    {
        QTemporaryDir dir;
        const QString app = dir.filePath(QStringLiteral("app"));
        writeInfoPlist(app, QStringLiteral("<key>CFBundleName</key><string>Quirepad</string>"));

        QProcessEnvironment env = environmentWith(QStringLiteral("/home/tester"));
        env.insert(QStringLiteral("XDG_DATA_HOME"), QStringLiteral("/data"));
        env.insert(QStringLiteral("XDG_CACHE_HOME"), QStringLiteral("relative/ignored"));
        QVariantMap table = GlobalEnv::build(app, env);
        QCOMPARE(table.value("APP_SUPPORT").toString(), QStringLiteral("/data/Quirepad"));
        QCOMPARE(table.value("APP_CACHES").toString(), QStringLiteral("/home/tester/.cache/Quirepad"));

        table = GlobalEnv::build(app, environmentWith(QString()));
        QCOMPARE(table.value("APP_SUPPORT").toString(), QStringLiteral("(null)/.local/share/Quirepad"));
    }

    void stagedApplicationFolder()
    {
        // Tests run from the build tree's bin/, beside the staged folder.
        const QVariantMap& table = GlobalEnv::instance();
        const QString app = table.value("APP_PATH").toString();
        QVERIFY2(app.endsWith(QLatin1String("/share/quirepad")), qPrintable(app));
        QVERIFY(QFile::exists(app + QStringLiteral("/Info.plist")));
        QVERIFY(QFile::exists(table.value("APP_RESOURCES").toString() + QStringLiteral("/Defaults.plist")));
        QCOMPARE(table.value("APP_NAME").toString(), QStringLiteral("Quirepad"));
    }

    void expansion_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected"); // "@RES@" and "@HOME@" substituted

        QTest::newRow("resource path") << "${APP_RESOURCES}/FinishUp.rtfd" << "@RES@/FinishUp.rtfd";
        QTest::newRow("HOME via environment") << "${HOME}/Library/PDF Services/Send PDF to Quirepad"
                                              << "@HOME@/Library/PDF Services/Send PDF to Quirepad";
        QTest::newRow("unknown name vanishes") << "a${QP_SURELY_UNKNOWN}b" << "ab";
        QTest::newRow("escaped keeps text, loses backslash") << "\\${APP_NAME}" << "${APP_NAME}";
        QTest::newRow("escaped then expanded") << "x\\${APP_NAME}y${APP_NAME}" << "x${APP_NAME}y42";
        QTest::newRow("dictionary wins over table") << "${APP_NAME}" << "42";
        QTest::newRow("values are not expanded again") << "<${NESTED}>" << "<${APP_NAME}>";
        QTest::newRow("no nesting: name runs to first brace") << "${A${B}}" << "}";
        QTest::newRow("lone dollar and brace are text") << "$ {x} } $x" << "$ {x} } $x";
        QTest::newRow("empty name looked up") << "[${}]" << "[]";
        QTest::newRow("backslash elsewhere stays") << "a\\b${APP_NAME}" << "a\\b42";
        QTest::newRow("boolean from dictionary") << "${FLAG}" << "1";
        QTest::newRow("adjacent placeholders") << "${APP_NAME}${APP_NAME}" << "4242";
    }

    void expansion()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        expected.replace(QStringLiteral("@RES@"), GlobalEnv::instance().value("APP_RESOURCES").toString())
            .replace(QStringLiteral("@HOME@"), qEnvironmentVariable("HOME"));
        const QVariantMap dictionary{{QStringLiteral("APP_NAME"), 42},
                                     {QStringLiteral("NESTED"), QStringLiteral("${APP_NAME}")},
                                     {QStringLiteral("FLAG"), true}};
        test::LogCapture log;
        QCOMPARE(expandStr(text, dictionary), expected);
        QCOMPARE(log.count(kUnclosed), 0);
    }

    void unclosedPlaceholderEndsTheScan_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<int>("position");
        QTest::newRow("alone") << "abc ${oops" << "abc ${oops" << 4;
        QTest::newRow("after an expansion") << "${APP_NAME} and ${oops" << "42 and ${oops" << 16;
        QTest::newRow("two unclosed") << "${a ${b" << "${a ${b" << 0;
        QTest::newRow("escaped") << "x\\${oops" << "x${oops" << 2;
    }

    void unclosedPlaceholderEndsTheScan()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QFETCH(int, position);
        test::LogCapture log;
        QCOMPARE(expandStr(text, QVariantMap{{QStringLiteral("APP_NAME"), 42}}), expected);
        QCOMPARE(log.count(kUnclosed), 1);
        QCOMPARE(log.count(QStringLiteral("%1 %2 %3").arg(text, kUnclosed).arg(position)), 1);
    }

    void unchangedTextIsTheSameString()
    {
        const QString plain = QStringLiteral("/no/placeholders/here $ { }");
        QCOMPARE(expandStr(plain).constData(), plain.constData());
        const QString unclosed = QStringLiteral("/x/${open");
        test::LogCapture log;
        QCOMPARE(expandStr(unclosed).constData(), unclosed.constData());
        const QString expanded = QStringLiteral("${APP_NAME}");
        QVERIFY(expandStr(expanded).constData() != expanded.constData());
    }

    void filePaths_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QVariantList>("arguments");
        QTest::addColumn<QString>("expected"); // "@HOME@" / "@RES@" substituted; "<null>" for nil

        QTest::newRow("nil") << QVariant() << QVariantList() << "<null>";
        QTest::newRow("empty") << QVariant(QString()) << QVariantList() << "<null>";
        QTest::newRow("URL object, no expansion")
            << QVariant(QUrl::fromLocalFile("/tmp/${HOME}")) << QVariantList() << "/tmp/${HOME}";
        QTest::newRow("file URL text decoded") << QVariant("file:///tmp/a%20b/${HOME}") << QVariantList()
                                               << "/tmp/a b/${HOME}";
        QTest::newRow("localhost URL text") << QVariant("file://localhost/tmp/x.pdf") << QVariantList()
                                            << "/tmp/x.pdf";
        QTest::newRow("tilde") << QVariant("~/Documents") << QVariantList() << "@HOME@/Documents";
        QTest::newRow("number") << QVariant(42) << QVariantList() << "42";
        QTest::newRow("format, expand, tilde")
            << QVariant("~/%@/${APP_NAME}.%ld") << QVariantList{"dir", 7} << "@HOME@/dir/Quirepad.7";
        QTest::newRow("formatted value is expanded")
            << QVariant("%@/ReduceFileSize.qfilter") << QVariantList{"${APP_RESOURCES}"}
            << "@RES@/ReduceFileSize.qfilter";
        QTest::newRow("nil first argument: no formatting") << QVariant("/x/%@") << QVariantList{QVariant()}
                                                           << "/x/%@";
    }

    void filePaths()
    {
        QFETCH(QVariant, value);
        QFETCH(QVariantList, arguments);
        QFETCH(QString, expected);
        const QString result = f(value, arguments);
        if (expected == QLatin1String("<null>")) {
            QVERIFY(result.isNull());
            return;
        }
        expected.replace(QStringLiteral("@HOME@"), QDir::homePath())
            .replace(QStringLiteral("@RES@"), get_env(QStringLiteral("APP_RESOURCES")));
        QCOMPARE(result, expected);
    }

    void variadicFormat()
    {
        QCOMPARE(f(QStringLiteral("/a/%@/%d"), "b", 3), QStringLiteral("/a/b/3"));
        QCOMPARE(u(QStringLiteral("http://host/%@"), "page").toString(), QStringLiteral("http://host/page"));
    }

    void urls_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("expected"); // "" for no URL

        QTest::newRow("resource becomes file URL")
            << QVariant("${APP_RESOURCES}/FinishUp.rtfd")
            << QUrl::fromLocalFile(get_env(QStringLiteral("APP_RESOURCES")) + "/FinishUp.rtfd").toString();
        QTest::newRow("scheme kept") << QVariant("http://localhost:8080/feed.rss?x=1")
                                     << "http://localhost:8080/feed.rss?x=1";
        QTest::newRow("mailto") << QVariant("mailto:reader@example.com") << "mailto:reader@example.com";
        QTest::newRow("path with spaces") << QVariant("/tmp/a b.pdf") << "file:///tmp/a b.pdf";
        QTest::newRow("URL object as is") << QVariant(QUrl("https://example.com/x")) << "https://example.com/x";
        QTest::newRow("nil") << QVariant() << "";
        QTest::newRow("empty") << QVariant(QString("")) << "";
        QTest::newRow("colon but no URL") << QVariant("a b:c d") << "";
    }

    void urls()
    {
        QFETCH(QVariant, value);
        QFETCH(QString, expected);
        const QUrl result = u(value);
        QCOMPARE(result.toString(), expected);
        if (expected.startsWith(QLatin1String("file:")))
            QVERIFY(result.isLocalFile());
    }

    void globalDictionaries()
    {
        QVERIFY(!get_global_env(QStringLiteral("CURRENT_DOCUMENT_ID")).isValid());
        set_global_env(QStringLiteral("CURRENT_DOCUMENT_ID"), QStringLiteral("doc-1"));
        set_global_cache(QStringLiteral("CURRENT_DOCUMENT_ID"), 5);
        QCOMPARE(get_global_env(QStringLiteral("CURRENT_DOCUMENT_ID")).toString(), QStringLiteral("doc-1"));
        QCOMPARE(get_global_cache(QStringLiteral("CURRENT_DOCUMENT_ID")).toInt(), 5);
        // Not consulted by expansion.
        QCOMPARE(expandStr(QStringLiteral("${CURRENT_DOCUMENT_ID}")), QString());
        set_global_env(QStringLiteral("CURRENT_DOCUMENT_ID"), QVariant());
        QVERIFY(!get_global_env(QStringLiteral("CURRENT_DOCUMENT_ID")).isValid());
        QCOMPARE(get_global_cache(QStringLiteral("CURRENT_DOCUMENT_ID")).toInt(), 5);
    }
};

QUIREPAD_REGISTER_TEST(PathVariablesTest);
#include "tst_pathvars.moc"
