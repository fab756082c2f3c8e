#include "TestFiles.h"
#include "TestRegistry.h"

#include "foundation/DesktopEntry.h"
#include "foundation/Workspace.h"
#include "foundation/apps.h"

#include <QDir>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QImage>
#include <QLocale>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <optional>

using namespace quirepad;

namespace {

// Writes "[Desktop Entry]" and the lines (after any text before the group),
// making the folder.
bool writeEntry(const QString& path, const QStringList& lines, const QByteArray& before = {})
{
    return QDir().mkpath(QFileInfo(path).absolutePath())
        && test::writeFile(path, before + ("[Desktop Entry]\n" + lines.join(u'\n') + u'\n').toUtf8());
}

bool writeApp(const QString& path, const QString& name, const QString& exec, const QStringList& more = {})
{
    return writeEntry(path, QStringList { "Type=Application", "Name=" + name, "Exec=" + exec } + more);
}

QString readText(const QString& path)
{
    return QString::fromUtf8(test::readFile(path));
}

// One row of a table of strings.
template <typename... Strings> void row(const char* name, const Strings&... values)
{
    (QTest::newRow(name) << ... << QString(values));
}

bool savePng(const QString& path, Qt::GlobalColor colour)
{
    QImage image(16, 16, QImage::Format_ARGB32);
    image.fill(colour);
    return QDir().mkpath(QFileInfo(path).absolutePath()) && image.save(path, "PNG");
}

// An Exec line that writes its arguments, one per line, to output.
QString recordingExec(const QString& output, const QString& fileCode)
{
    return "/bin/sh -c 'printf \"%%s\\\\n\" " + QString(fileCode == u"%f" ? "\"$1\" >>" : "\"$@\" >") + " \"" + output
        + "\"' sh " + fileCode;
}

// A desktop that notes which URLs it was asked to open.
struct RecordingWorkspace final : Workspace {
    RecordingWorkspace(QList<QUrl>& opened, bool answer)
        : opened(opened)
        , answer(answer)
    {
    }
    bool openUrl(const QUrl& url) override { return opened.append(url), answer; }
    bool revealFile(const QString&) override { return false; }
    QList<QUrl>& opened;
    bool answer;
};

} // namespace

class ApplicationsTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;
    QList<std::pair<const char*, std::optional<QByteArray>>> m_saved; // environment as it was

    QString path(const QString& relative) const { return m_root.filePath(relative); }
    QString homeApps() const { return path("home-data/applications"); }
    QString systemAApps() const { return path("system-a/applications"); }
    QString systemBApps() const { return path("system-b/applications"); }
    QString iconPath() const { return path("icons/viewer.png"); }

    void setTestEnvironment()
    {
        qputenv("XDG_DATA_HOME", path("home-data").toUtf8());
        qputenv("XDG_DATA_DIRS", (path("system-a") + ":relative/ignored:" + path("system-b")).toUtf8());
        qputenv("XDG_CONFIG_HOME", path("home-config").toUtf8());
        qputenv("XDG_CONFIG_DIRS", path("system-config").toUtf8());
        qputenv("XDG_CURRENT_DESKTOP", "QuirepadTest:Other");
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        for (const char* name :
            { "XDG_DATA_HOME", "XDG_DATA_DIRS", "XDG_CONFIG_HOME", "XDG_CONFIG_DIRS", "XDG_CURRENT_DESKTOP" })
            m_saved.append({ name, qEnvironmentVariableIsSet(name) ? std::optional(qgetenv(name)) : std::nullopt });
        setTestEnvironment();

        QVERIFY(savePng(iconPath(), Qt::darkCyan));

        // The user's own entries.
        QVERIFY(writeEntry(homeApps() + "/org.example.Viewer.desktop",
            { "Type=Application", "Name=Viewer", "Name[de]=Betrachter", "Name[de_CH]=Betrachter (Schweiz)",
                "Name[sr]=Прегледач", "Name[sr@latin]=Pregledač", "Name[sr_RS@latin]=Pregledač (Srbija)",
                "Icon=" + iconPath(), "Exec=viewer --page 1 %f", "MimeType=image/png;application/x-quirepad-viewer;",
                "NoDisplay=true", "", "[Desktop Action window]", "Name=Not The Name", "Exec=other" },
            "# Written by hand\n"));
        QVERIFY(writeApp(homeApps() + "/gone.desktop", "Gone", "gone", { "Hidden=true" }));
        QVERIFY(writeApp(homeApps() + "/shadowed.desktop", "Home Copy", "shadowed"));
        QVERIFY(writeApp(homeApps() + "/recorder.desktop", "Recorder", recordingExec(path("recorder.out"), "%F")));
        QVERIFY(writeApp(homeApps() + "/per-file.desktop", "One At A Time", recordingExec(path("per-file.out"), "%f")));
        QVERIFY(writeApp(homeApps() + "/broken-program.desktop", "Broken", "/nonexistent/quirepad-program %f"));
        QVERIFY(writeApp(homeApps() + "/bad-icon.desktop", "Bad Icon", "bad", { "Icon=" + path("icons/missing.png") }));

        // Installed for everybody.
        QVERIFY(writeApp(systemAApps() + "/kde/reader.desktop", "KDE Reader", recordingExec(path("reader.out"), "%F"),
            { "MimeType=application/pdf;" }));
        QVERIFY(writeApp(systemAApps() + "/shadowed.desktop", "System Copy", "shadowed"));
        QVERIFY(writeApp(systemAApps() + "/order.desktop", "First Folder", "order"));
        QVERIFY(writeApp(systemAApps() + "/needs-tool.desktop", "Needs Tool", "tool %f",
            { "TryExec=/nonexistent/quirepad-tool", "MimeType=text/x-quirepad-scan;" }));
        QVERIFY(writeApp(systemAApps() + "/pngview.desktop", "PNG View", "pngview %f", { "MimeType=image/png;" }));
        QVERIFY(
            writeEntry(systemAApps() + "/link.desktop", { "Type=Link", "Name=A Link", "URL=https://example.org/" }));
        QVERIFY(test::writeFile(systemAApps() + "/mimeinfo.cache",
            "[MIME Cache]\nimage/png=org.example.Viewer.desktop;pngview.desktop;\n"
            "application/x-quirepad-viewer=org.example.Viewer.desktop;\n"));
        QVERIFY(writeApp(systemBApps() + "/gone.desktop", "Gone Elsewhere", "gone"));
        QVERIFY(writeApp(systemBApps() + "/order.desktop", "Second Folder", "order"));
        QVERIFY(writeApp(systemBApps() + "/scan-only.desktop", "Scan Only", "scan %F",
            { "MimeType=text/plain;text/x-quirepad-scan;" }));
        for (const QString name : { "blocked", "fallback", "desktop-pick" })
            QVERIFY(writeApp(systemBApps() + u'/' + name + ".desktop", name, name + " %f"));

        // Associations: the user's, the desktop's and the system's.
        QVERIFY(QDir().mkpath(path("home-config")) && QDir().mkpath(path("system-config")));
        QVERIFY(test::writeFile(path("home-config/mimeapps.list"),
            "[Default Applications]\n"
            "application/pdf=org.example.Missing.desktop;kde-reader.desktop;\n"
            "text/x-quirepad-hidden=gone.desktop;needs-tool.desktop;shadowed.desktop;\n"
            "text/x-quirepad-desktop=shadowed.desktop;\n"
            "[Removed Associations]\n"
            "image/png=org.example.Viewer.desktop;\n"
            "application/x-quirepad-blocked=blocked.desktop;\n"));
        QVERIFY(test::writeFile(path("home-config/quirepadtest-mimeapps.list"),
            "[Default Applications]\ntext/x-quirepad-desktop=desktop-pick.desktop;\n"
            "[Removed Associations]\ntext/x-quirepad-added=recorder.desktop;\n"));
        QVERIFY(test::writeFile(path("system-config/mimeapps.list"),
            "[Default Applications]\n"
            "application/pdf=org.example.Viewer.desktop;\n"
            "application/x-quirepad-blocked=blocked.desktop;fallback.desktop;\n"
            "[Added Associations]\n"
            "text/x-quirepad-added=recorder.desktop;\n"));
    }

    void cleanupTestCase()
    {
        for (const auto& [name, value] : m_saved)
            value ? qputenv(name, *value) : qunsetenv(name);
        Workspace::setCurrent(nullptr);
    }

    void cleanup() { Workspace::setCurrent(nullptr); }

    void parsesEntryGroup()
    {
        const std::optional<DesktopEntry> entry = DesktopEntry::fromData(
            "# comment\nName=Outside Any Group\n[Desktop Entry]\nType = Application\n  # indented comment\n"
            "Name=\\sLeading\\tTab\\nLine\\\\Backslash\nIcon=editor-icon\r\nExec=editor %U\n"
            "MimeType=text/plain;text/x-semi\\;colon;;\nNoDisplay=true\nUnknown-Key=kept\n"
            "[Desktop Action new-window]\nName=Action Name\nIcon=action-icon\n",
            "/nowhere/editor.desktop");
        QVERIFY(entry);
        QCOMPARE(entry->type(), QStringLiteral("Application"));
        QCOMPARE(entry->name("C"), QStringLiteral(" Leading\tTab\nLine\\Backslash"));
        QCOMPARE(entry->iconName(), QStringLiteral("editor-icon"));
        QCOMPARE(entry->exec(), QStringLiteral("editor %U"));
        QCOMPARE(entry->mimeTypes(), QStringList({ "text/plain", "text/x-semi;colon" }));
        QVERIFY(entry->noDisplay());
        QCOMPARE(entry->value("Unknown-Key"), QStringLiteral("kept"));
        QCOMPARE(entry->id(), QStringLiteral("editor.desktop"));
        QVERIFY(entry->handlesMimeType("TEXT/PLAIN"));
        QVERIFY(!entry->handlesMimeType("text/html"));

        QVERIFY(!DesktopEntry::fromData("[Desktop Action x]\nName=Only An Action\n"));
        QVERIFY(!DesktopEntry::fromData(QByteArray()));
        QVERIFY(!DesktopEntry::fromFile(path("no-such.desktop")));
    }

    void localizedName_data()
    {
        QTest::addColumn<QString>("locale");
        QTest::addColumn<QString>("expected");
        row("language", "de", "Betrachter");
        row("language with other country", "de_AT", "Betrachter");
        row("language and country", "de_CH.UTF-8", "Betrachter (Schweiz)");
        row("country and modifier", "sr_RS@latin", "Pregledač (Srbija)");
        row("modifier without that country", "sr_ME@latin", "Pregledač");
        row("without modifier", "sr_RS", "Прегледач");
        row("untranslated", "fr_FR", "Viewer");
        row("C locale", "C", "Viewer");
    }

    void localizedName()
    {
        QFETCH(QString, locale);
        QFETCH(QString, expected);
        const std::optional<DesktopEntry> entry = DesktopEntry::find("org.example.Viewer");
        QVERIFY(entry);
        QCOMPARE(entry->name(locale), expected);
    }

    void findsEntries_data()
    {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("expectedId");
        QTest::addColumn<QString>("expectedPath");
        const QString viewer = homeApps() + "/org.example.Viewer.desktop";
        row("full id", "org.example.Viewer.desktop", "org.example.Viewer.desktop", viewer);
        row("suffix added", "org.example.Viewer", "org.example.Viewer.desktop", viewer);
        row("subfolder by dash", "kde-reader.desktop", "kde-reader.desktop", systemAApps() + "/kde/reader.desktop");
        row("user entry shadows system one", "shadowed", "shadowed.desktop", homeApps() + "/shadowed.desktop");
        row("data dirs in order", "order", "order.desktop", systemAApps() + "/order.desktop");
        row("hidden deletes all copies", "gone", QString(), QString());
        row("not installed", "org.example.Missing", QString(), QString());
        row("subfolder spelled as a path", "kde/reader.desktop", QString(), QString());
        row("dash without such a folder", "kde-pngview", QString(), QString());
    }

    void findsEntries()
    {
        QFETCH(QString, id);
        QFETCH(QString, expectedId);
        QFETCH(QString, expectedPath);
        const std::optional<DesktopEntry> entry = DesktopEntry::find(id);
        QCOMPARE(entry ? entry->id() : QString(), expectedId);
        QCOMPARE(entry ? entry->path() : QString(), expectedPath);
    }

    void fromFileAndLaunchable()
    {
        const std::optional<DesktopEntry> nested = DesktopEntry::fromFile(systemAApps() + "/kde/reader.desktop");
        QVERIFY(nested && nested->isLaunchable());
        QCOMPARE(nested->id(), QStringLiteral("kde-reader.desktop"));
        const std::optional<DesktopEntry> hidden = DesktopEntry::fromFile(homeApps() + "/gone.desktop");
        QVERIFY(hidden && hidden->isHidden() && !hidden->isLaunchable());
        const auto withShell = DesktopEntry::fromData("[Desktop Entry]\nType=Application\nTryExec=sh\nExec=sh\n");
        QVERIFY(withShell && withShell->isLaunchable());
    }

    void commands_data()
    {
        QTest::addColumn<QString>("execLine");
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QList<QStringList>>("expected");
        const QString a = "/docs/a.pdf";
        const QString b = "/docs/it's a \"quote\" $HOME `x` \\.pdf";

        QTest::newRow("one command per file")
            << "viewer --page 1 %f" << QStringList { a, b }
            << QList<QStringList> { { "viewer", "--page", "1", a }, { "viewer", "--page", "1", b } };
        QTest::newRow("all files at once")
            << "viewer %F" << QStringList { a, b } << QList<QStringList> { { "viewer", a, b } };
        QTest::newRow("no files for %F") << "viewer %F" << QStringList {} << QList<QStringList> { { "viewer" } };
        QTest::newRow("no files for %f") << "viewer %f --x" << QStringList {}
                                         << QList<QStringList> { { "viewer", "--x" } };
        QTest::newRow("no file code appends each file")
            << "viewer --flag" << QStringList { a, b }
            << QList<QStringList> { { "viewer", "--flag", a }, { "viewer", "--flag", b } };
        QTest::newRow("quoted arguments with spaces")
            << "\"/opt/My App/bin/run\" --title \"Hello World\" %F" << QStringList { a }
            << QList<QStringList> { { "/opt/My App/bin/run", "--title", "Hello World", a } };
        QTest::newRow("escaped quote, dollar and backslash")
            << "tool \"say \\\\\"hi\\\\\"\" \"\\\\$HOME\" \"a\\\\\\\\b\" \"\\\\`x\\\\`\"" << QStringList {}
            << QList<QStringList> { { "tool", "say \"hi\"", "$HOME", "a\\b", "`x`" } };
        QTest::newRow("single quotes keep everything")
            << "sh -c 'echo \"$1\" \\\\ %%' sh %f" << QStringList { a }
            << QList<QStringList> { { "sh", "-c", "echo \"$1\" \\ %", "sh", a } };
        QTest::newRow("icon, name and location") << "viewer %i %c %k %f" << QStringList { a }
                                                 << QList<QStringList> { { "viewer", "--icon", "test-viewer",
                                                        "Test Viewer", "/apps/test-viewer.desktop", a } };
        QTest::newRow("deprecated codes vanish")
            << "viewer %d %D %n %N %v %m %f" << QStringList { a } << QList<QStringList> { { "viewer", a } };
        QTest::newRow("unclosed quote") << "viewer \"oops %f" << QStringList { a } << QList<QStringList> {};
        QTest::newRow("empty") << "" << QStringList { a } << QList<QStringList> {};
    }

    void commands()
    {
        QFETCH(QString, execLine);
        QFETCH(QStringList, files);
        QFETCH(QList<QStringList>, expected);
        const std::optional<DesktopEntry> entry = DesktopEntry::fromData(
            ("[Desktop Entry]\nType=Application\nName=Test Viewer\nIcon=test-viewer\nExec=" + execLine).toUtf8(),
            "/apps/test-viewer.desktop");
        QVERIFY(entry);
        QCOMPARE(entry->commandsFor(files), expected);
        // The single command: all files for %F, the first for %f.
        QCOMPARE(entry->commandFor(files), expected.value(0));
    }

    void defaultHandler_data()
    {
        QTest::addColumn<QString>("mimeType");
        QTest::addColumn<QString>("expectedId");
        row("first installed default", "application/pdf", "kde-reader.desktop");
        row("type in capitals", "Application/PDF", "kde-reader.desktop");
        row("hidden and unusable defaults skipped", "text/x-quirepad-hidden", "shadowed.desktop");
        row("list of the current desktop first", "text/x-quirepad-desktop", "desktop-pick.desktop");
        row("removal applies to later lists", "application/x-quirepad-blocked", "fallback.desktop");
        row("added association", "text/x-quirepad-added", "recorder.desktop");
        row("cache without removed entry", "image/png", "pngview.desktop");
        row("cache", "application/x-quirepad-viewer", "org.example.Viewer.desktop");
        row("declared by an entry only", "text/x-quirepad-scan", "scan-only.desktop");
        row("nobody", "application/x-quirepad-nobody", QString());
    }

    void defaultHandler()
    {
        QFETCH(QString, mimeType);
        QFETCH(QString, expectedId);
        const std::optional<DesktopEntry> entry = DesktopEntry::defaultFor(mimeType);
        QCOMPARE(entry ? entry->id() : QString(), expectedId);
    }

    void defaultHandlerWithoutDesktopName()
    {
        qunsetenv("XDG_CURRENT_DESKTOP");
        const std::optional<DesktopEntry> entry = DesktopEntry::defaultFor("text/x-quirepad-desktop");
        setTestEnvironment();
        QCOMPARE(entry ? entry->id() : QString(), QStringLiteral("shadowed.desktop"));
    }

    void resolvesAppIds_data()
    {
        QTest::addColumn<QString>("appid");
        QTest::addColumn<QString>("expected");
        row("Preview stands for the PDF viewer", "com.apple.Preview", "kde-reader.desktop");
        row("empty stands for the PDF viewer", "", "kde-reader.desktop");
        row("installed without suffix", "org.example.Viewer", "org.example.Viewer.desktop");
        row("hidden", "gone", QString());
        row("TryExec missing", "needs-tool", QString());
        row("not an application", "link", QString());
        row("unknown", "org.example.Nothing", QString());
    }

    void resolvesAppIds()
    {
        QFETCH(QString, appid);
        QFETCH(QString, expected);
        const QString resolved = resolveAppId(appid);
        QCOMPARE(resolved, expected);
        QCOMPARE(resolved.isNull(), expected.isNull());
    }

    void appNamesAndIcons()
    {
        const QLocale saved;
        QLocale::setDefault(QLocale(QStringLiteral("de_CH")));
        const QString swiss = app_name("org.example.Viewer");
        QLocale::setDefault(saved);
        QCOMPARE(swiss, QStringLiteral("Betrachter (Schweiz)"));
        QCOMPARE(app_name("com.apple.Preview"), QStringLiteral("KDE Reader"));
        QCOMPARE(app_name("shadowed.desktop"), QStringLiteral("Home Copy"));
        QVERIFY(app_name("gone").isNull());
        QVERIFY(app_name("org.example.Nothing").isNull());

        const QImage pixels = app_icon("org.example.Viewer").pixmap(16, 16).toImage();
        QCOMPARE(pixels.size(), QSize(16, 16));
        QCOMPARE(pixels.pixelColor(8, 8), QColor(Qt::darkCyan));
        QVERIFY(app_icon("bad-icon").isNull());
        QVERIFY(app_icon("shadowed").isNull());
        QVERIFY(app_icon("org.example.Nothing").isNull());
    }

    void themedAppIcon()
    {
        const QString theme = path("theme-icons/quirepadtest");
        QVERIFY(savePng(theme + "/16x16/apps/quirepad-themed.png", Qt::darkMagenta));
        QVERIFY(test::writeFile(theme + "/index.theme",
            "[Icon Theme]\nName=Quirepad Test\nDirectories=16x16/apps\n\n[16x16/apps]\nSize=16\nType=Fixed\n"));
        QVERIFY(writeApp(homeApps() + "/themed.desktop", "Themed", "themed", { "Icon=quirepad-themed" }));

        const QStringList savedPaths = QIcon::themeSearchPaths();
        const QString savedTheme = QIcon::themeName();
        QIcon::setThemeSearchPaths({ path("theme-icons") });
        QIcon::setThemeName("quirepadtest");
        // Theme icons are looked up again when the theme changes: take the
        // pixels before the settings are put back.
        const QImage pixels = app_icon("themed").pixmap(16, 16).toImage();
        QIcon::setThemeSearchPaths(savedPaths);
        QIcon::setThemeName(savedTheme);
        QFile::remove(homeApps() + "/themed.desktop");
        QCOMPARE(pixels.size(), QSize(16, 16));
        QCOMPARE(pixels.pixelColor(8, 8), QColor(Qt::darkMagenta));
    }

    void fileIcons()
    {
        QVERIFY(!file_icon(path("icons")).isNull());
        const QImage png = file_icon(iconPath()).pixmap(32, 32).toImage();
        QVERIFY(!png.isNull());
        // A missing file shows the folder icon.
        QIcon folder = QIcon::fromTheme("folder");
        if (folder.isNull())
            folder = QFileIconProvider().icon(QFileIconProvider::Folder);
        const QImage missing = file_icon(path("not-there/at-all.pdf")).pixmap(32, 32).toImage();
        QVERIFY(!missing.isNull());
        QCOMPARE(missing, folder.pixmap(32, 32).toImage());
        QVERIFY(missing != png);
    }

    // %F: one process for all files; %f: one per file.
    void startsTheApplication()
    {
        const QStringList all { path("first.pdf"), path("with space.pdf"), path("it's \"quoted\" $HOME.pdf") };
        QVERIFY(open_with_app("recorder.desktop", all));
        QStringList each { path("one.pdf"), path("two words.pdf"), path("three \"3\".pdf") };
        QVERIFY(open_with_app("per-file", each));
        QTRY_COMPARE(readText(path("recorder.out")), all.join(u'\n') + u'\n');
        each.sort();
        const auto recorded = [&] {
            QStringList lines = readText(path("per-file.out")).split(u'\n', Qt::SkipEmptyParts);
            lines.sort();
            return lines;
        };
        QTRY_COMPARE(recorded(), each);
    }

    void defaultHandlersWhenNoApplication()
    {
        QList<QUrl> opened;
        Workspace::setCurrent(std::make_unique<RecordingWorkspace>(opened, true));
        QVERIFY(!open_with_app("broken-program", { path("x.pdf") })); // cannot start: no fallback
        QVERIFY(opened.isEmpty());
        QVERIFY(!open_with_app("gone", {})); // nothing to open
        QVERIFY(opened.isEmpty());

        const QStringList files { path("a.pdf"), path("b c.pdf") };
        QVERIFY(open_with_app("org.example.Nothing", files));
        QCOMPARE(opened, QList<QUrl>({ QUrl::fromLocalFile(files.at(0)), QUrl::fromLocalFile(files.at(1)) }));
        Workspace::setCurrent(std::make_unique<RecordingWorkspace>(opened, false));
        QVERIFY(!open_with_app("org.example.Nothing", files));
        QCOMPARE(opened.size(), 4);
    }
};

QUIREPAD_REGISTER_TEST(ApplicationsTest);
#include "tst_apps.moc"
