#include "LogCapture.h"
#include "TestFiles.h"
#include "TestRegistry.h"

#include "foundation/GlobalEnv.h"
#include "foundation/pathvars.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

using namespace quirepad;
using namespace quirepad::test;

static const QString kUnclosed = QStringLiteral("has no closing brace. Opening brace at position");
static const QString kName = QStringLiteral("<key>CFBundleName</key><string>Quirepad</string>");

class PathVariablesTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    // An application folder whose Info.plist holds the keys (replacing the last one's).
    QString makeApp(const QString& keys)
    {
        const QString app = m_dir.filePath("share/quirepad");
        const QByteArray plist = "<plist version=\"1.0\"><dict>" + keys.toUtf8() + "</dict></plist>\n";
        return QDir().mkpath(app) && writeFile(app + "/Info.plist", plist) ? app : QString();
    }

private slots:
    void tableOverrides_data()
    {
        QTest::addColumn<QString>("setting"); // "NAME=value" in Info.plist's MYGlobalEnv
        QTest::addColumn<QString>("variable");
        QTest::addColumn<QString>("expected"); // "@APP@" and "@HOME@" are substituted
        QTest::newRow("plain resources") << "" << "APP_RESOURCES" << "@APP@/Resources";
        QTest::newRow("contents is the app folder") << "" << "APP_CONTENTS" << "@APP@";
        QTest::newRow("name from Info.plist") << "" << "APP_NAME" << "Quirepad";
        QTest::newRow("support under XDG data") << "" << "APP_SUPPORT" << "@HOME@/.local/share/Quirepad";
        QTest::newRow("plugins under support") << "" << "APP_SUPPORT_PLUGINS" << "@HOME@/.local/share/Quirepad/PlugIns";
        QTest::newRow("metadata") << "" << "APP_METADATA" << "@HOME@/.cache/Metadata/Quirepad";
        QTest::newRow("coredata") << "" << "APP_COREDATA" << "@HOME@/.cache/Metadata/CoreData/Quirepad";
        QTest::newRow("replaces resources") << "APP_RESOURCES=/custom/res" << "APP_RESOURCES" << "/custom/res";
        QTest::newRow("cannot replace caches") << "APP_CACHES=/bogus" << "APP_CACHES" << "@HOME@/.cache/Quirepad";
        QTest::newRow("cannot replace plugins") << "APP_PLUGINS=/bogus" << "APP_PLUGINS" << "@APP@/PlugIns";
        QTest::newRow("new name, same folders") << "APP_NAME=Other" << "APP_SUPPORT" << "@HOME@/.local/share/Quirepad";
        QTest::newRow("may replace the name itself") << "APP_NAME=Other" << "APP_NAME" << "Other";
        QTest::newRow("adds new variables") << "SPOOL=/var/x" << "SPOOL" << "/var/x";
    }

    void tableOverrides()
    {
        QFETCH(QString, setting);
        QFETCH(QString, variable);
        QFETCH(QString, expected);
        QProcessEnvironment env;
        env.insert("HOME", "/home/tester");
        QString keys = kName;
        if (!setting.isEmpty())
            keys += QStringLiteral("<key>MYGlobalEnv</key><dict><key>%1</key><string>%2</string></dict>")
                        .arg(setting.section('=', 0, 0), setting.section('=', 1));
        const QString app = makeApp(keys);
        QCOMPARE(GlobalEnv::build(app, env).value(variable).toString(),
                 expected.replace("@APP@", app).replace("@HOME@", "/home/tester"));
    }

    void xdgAndMissingHome()
    {
        const QString app = makeApp(kName);
        QProcessEnvironment env;
        env.insert("HOME", "/home/tester");
        env.insert("XDG_DATA_HOME", "/data");
        env.insert("XDG_CACHE_HOME", "relative/ignored");
        QVariantMap table = GlobalEnv::build(app, env);
        QCOMPARE(table.value("APP_SUPPORT").toString(), QStringLiteral("/data/Quirepad"));
        QCOMPARE(table.value("APP_CACHES").toString(), QStringLiteral("/home/tester/.cache/Quirepad"));
        QVERIFY(!table.contains(QStringLiteral("HOME"))); // the environment's, looked up when expanding

        table = GlobalEnv::build(app, QProcessEnvironment());
        QCOMPARE(table.value("APP_SUPPORT").toString(), QStringLiteral("(null)/.local/share/Quirepad"));
        // Without a bundle name, the folders show "(null)" for it.
        table = GlobalEnv::build(makeApp(QString()), env);
        QCOMPARE(table.value("APP_CACHES").toString(), QStringLiteral("/home/tester/.cache/(null)"));
    }

    void stagedApplicationFolder()
    {
        // Tests run from the build tree's bin/, beside the staged folder.
        const QVariantMap& table = GlobalEnv::instance();
        const QString app = table.value("APP_PATH").toString();
        QVERIFY2(app.endsWith(QLatin1String("/share/quirepad")), qPrintable(app));
        QVERIFY(QFile::exists(table.value("APP_RESOURCES").toString() + QStringLiteral("/Defaults.plist")));
        QCOMPARE(table.value("APP_NAME").toString(), QStringLiteral("Quirepad"));
    }

    void expansion_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected"); // "@RES@" and "@HOME@" substituted

        QTest::newRow("resource path") << "${APP_RESOURCES}/FinishUp.rtfd" << "@RES@/FinishUp.rtfd";
        QTest::newRow("HOME via environment") << "${HOME}/Library/PDF Services" << "@HOME@/Library/PDF Services";
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
        expected.replace("@RES@", get_env("APP_RESOURCES")).replace("@HOME@", qEnvironmentVariable("HOME"));
        const QVariantMap dictionary{{"APP_NAME", 42}, {"NESTED", "${APP_NAME}"}, {"FLAG", true}};
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
        test::LogCapture log; // of the unclosed one
        for (const QString& text : {QStringLiteral("/no/placeholders/here $ { }"), QStringLiteral("/x/${open")})
            QCOMPARE(expandStr(text).constData(), text.constData());
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
        QTest::newRow("URL object") << QVariant(QUrl::fromLocalFile("/t/${HOME}")) << QVariantList() << "/t/${HOME}";
        QTest::newRow("file URL text decoded") << QVariant("file:///a%20b/${HOME}") << QVariantList() << "/a b/${HOME}";
        QTest::newRow("localhost URL text") << QVariant("file://localhost/tmp/x.pdf") << QVariantList() << "/tmp/x.pdf";
        QTest::newRow("tilde") << QVariant("~/Documents") << QVariantList() << "@HOME@/Documents";
        QTest::newRow("number") << QVariant(42) << QVariantList() << "42";
        QTest::newRow("format, expand, tilde") << QVariant("~/%@/${APP_NAME}.%ld") << QVariantList{"dir", 7}
                                               << "@HOME@/dir/Quirepad.7";
        QTest::newRow("argument expanded") << QVariant("%@/x") << QVariantList{"${APP_RESOURCES}"} << "@RES@/x";
        QTest::newRow("nil first argument: no formatting") << QVariant("/x/%@") << QVariantList{QVariant()} << "/x/%@";
    }

    void filePaths()
    {
        QFETCH(QVariant, value);
        QFETCH(QVariantList, arguments);
        QFETCH(QString, expected);
        const QString result = f(value, arguments);
        QCOMPARE(result.isNull() ? QString("<null>") : result,
                 expected.replace("@HOME@", QDir::homePath()).replace("@RES@", get_env("APP_RESOURCES")));
    }

    void variadicFormat()
    {
        QCOMPARE(f(QStringLiteral("/a/%@/%d"), "b", 3), QStringLiteral("/a/b/3"));
        QCOMPARE(u(QStringLiteral("http://host/%@"), "page").toString(), QStringLiteral("http://host/page"));
    }

    void urls_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("expected"); // "" for no URL; "@RES@" substituted

        QTest::newRow("resource") << QVariant("${APP_RESOURCES}/FinishUp.rtfd") << "file://@RES@/FinishUp.rtfd";
        QTest::newRow("scheme") << QVariant("http://localhost:8080/feed?x=1") << "http://localhost:8080/feed?x=1";
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
        QCOMPARE(result.toString(), expected.replace("@RES@", get_env("APP_RESOURCES")));
        QCOMPARE(result.isLocalFile(), expected.startsWith("file:"));
    }

    void globalDictionaries()
    {
        QVERIFY(!get_global_env(QStringLiteral("CURRENT_DOCUMENT_ID")).isValid());
        set_global_env(QStringLiteral("CURRENT_DOCUMENT_ID"), QStringLiteral("doc-1"));
        set_global_cache(QStringLiteral("CURRENT_DOCUMENT_ID"), 5);
        QCOMPARE(get_global_env(QStringLiteral("CURRENT_DOCUMENT_ID")).toString(), QStringLiteral("doc-1"));
        QCOMPARE(get_global_cache(QStringLiteral("CURRENT_DOCUMENT_ID")).toInt(), 5);
        QCOMPARE(expandStr(QStringLiteral("${CURRENT_DOCUMENT_ID}")), QString()); // not consulted by expansion
        set_global_env(QStringLiteral("CURRENT_DOCUMENT_ID"), QVariant());
        QVERIFY(!get_global_env(QStringLiteral("CURRENT_DOCUMENT_ID")).isValid());
        QCOMPARE(get_global_cache(QStringLiteral("CURRENT_DOCUMENT_ID")).toInt(), 5);
    }
};

QUIREPAD_REGISTER_TEST(PathVariablesTest);
#include "tst_pathvars.moc"
