#include "TestRegistry.h"

#include "foundation/DesktopEntry.h"
#include "foundation/Workspace.h"
#include "foundation/apps.h"

#include <QDir>
#include <QFile>
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

bool writeFile(const QString& path, const QByteArray& contents)
{
    if (!QDir().mkpath(QFileInfo(path).absolutePath()))
        return false;
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size();
}

QByteArray entryText(const QStringList& lines)
{
    return (QStringLiteral("[Desktop Entry]\n") + lines.join(u'\n') + u'\n').toUtf8();
}

QString readText(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

QStringList sortedLines(const QString& path)
{
    QStringList lines = readText(path).split(u'\n', Qt::SkipEmptyParts);
    lines.sort();
    return lines;
}

// An environment variable as it was, put back by restore().
class SavedVariable
{
public:
    explicit SavedVariable(const char* name)
        : m_name(name)
        , m_wasSet(qEnvironmentVariableIsSet(name))
        , m_value(qgetenv(name))
    {
    }

    void restore() const
    {
        if (m_wasSet)
            qputenv(m_name, m_value);
        else
            qunsetenv(m_name);
    }

private:
    const char* m_name;
    bool m_wasSet;
    QByteArray m_value;
};

// A desktop that notes which URLs it was asked to open.
class RecordingWorkspace final : public Workspace
{
public:
    RecordingWorkspace(QList<QUrl>& opened, bool answer)
        : m_opened(opened)
        , m_answer(answer)
    {
    }

    bool openUrl(const QUrl& url) override
    {
        m_opened.append(url);
        return m_answer;
    }
    bool revealFile(const QString&) override { return false; }

private:
    QList<QUrl>& m_opened;
    bool m_answer;
};

// An Exec line that writes its arguments, one per line, to output.
QString recordingExec(const QString& output, const QString& fileCode)
{
    const QString arguments = fileCode == u"%f" ? QStringLiteral("\"$1\" >>") : QStringLiteral("\"$@\" >");
    return QStringLiteral("Exec=/bin/sh -c 'printf \"%%s\\\\n\" ") + arguments + QStringLiteral(" \"") + output
        + QStringLiteral("\"' sh ") + fileCode;
}

} // namespace

class ApplicationsTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;
    std::vector<SavedVariable> m_saved;

    QString path(const QString& relative) const { return m_root.filePath(relative); }
    QString dataHomeApps() const { return path(QStringLiteral("home-data/applications")); }
    QString systemAApps() const { return path(QStringLiteral("system-a/applications")); }
    QString systemBApps() const { return path(QStringLiteral("system-b/applications")); }
    QString iconPath() const { return path(QStringLiteral("icons/viewer.png")); }

    void setTestEnvironment()
    {
        qputenv("XDG_DATA_HOME", path(QStringLiteral("home-data")).toUtf8());
        qputenv("XDG_DATA_DIRS",
            (path(QStringLiteral("system-a")) + QStringLiteral(":relative/ignored:") + path(QStringLiteral("system-b")))
                .toUtf8());
        qputenv("XDG_CONFIG_HOME", path(QStringLiteral("home-config")).toUtf8());
        qputenv("XDG_CONFIG_DIRS", path(QStringLiteral("system-config")).toUtf8());
        qputenv("XDG_CURRENT_DESKTOP", "QuirepadTest:Other");
    }

    static std::optional<DesktopEntry> entryWithExec(const QString& execLine)
    {
        return DesktopEntry::fromData(
            entryText({ QStringLiteral("Type=Application"), QStringLiteral("Name=Test Viewer"),
                QStringLiteral("Icon=test-viewer"), QStringLiteral("Exec=") + execLine }),
            QStringLiteral("/apps/test-viewer.desktop"));
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        for (const char* name :
            { "XDG_DATA_HOME", "XDG_DATA_DIRS", "XDG_CONFIG_HOME", "XDG_CONFIG_DIRS", "XDG_CURRENT_DESKTOP" })
            m_saved.emplace_back(name);
        setTestEnvironment();

        QImage image(16, 16, QImage::Format_ARGB32);
        image.fill(Qt::darkCyan);
        QVERIFY(QDir().mkpath(QFileInfo(iconPath()).absolutePath()));
        QVERIFY(image.save(iconPath(), "PNG"));

        // The user's own entries.
        QVERIFY(writeFile(dataHomeApps() + QStringLiteral("/org.example.Viewer.desktop"),
            QByteArray("# Written by hand\n")
                + entryText({ QStringLiteral("Type=Application"), QStringLiteral("Name=Viewer"),
                    QStringLiteral("Name[de]=Betrachter"), QStringLiteral("Name[de_CH]=Betrachter (Schweiz)"),
                    QStringLiteral("Name[sr]=Прегледач"), QStringLiteral("Name[sr@latin]=Pregledač"),
                    QStringLiteral("Name[sr_RS@latin]=Pregledač (Srbija)"), QStringLiteral("Icon=") + iconPath(),
                    QStringLiteral("Exec=viewer --page 1 %f"),
                    QStringLiteral("MimeType=image/png;application/x-quirepad-viewer;"),
                    QStringLiteral("NoDisplay=true"), QString(), QStringLiteral("[Desktop Action window]"),
                    QStringLiteral("Name=Not The Name"), QStringLiteral("Exec=other") })));
        QVERIFY(writeFile(dataHomeApps() + QStringLiteral("/gone.desktop"),
            entryText({ QStringLiteral("Type=Application"), QStringLiteral("Name=Gone"), QStringLiteral("Exec=gone"),
                QStringLiteral("Hidden=true") })));
        QVERIFY(writeFile(dataHomeApps() + QStringLiteral("/shadowed.desktop"),
            entryText({ QStringLiteral("Type=Application"), QStringLiteral("Name=Home Copy"),
                QStringLiteral("Exec=shadowed") })));
        QVERIFY(writeFile(dataHomeApps() + QStringLiteral("/recorder.desktop"),
            entryText({ QStringLiteral("Type=Application"), QStringLiteral("Name=Recorder"),
                recordingExec(path(QStringLiteral("recorder.out")), QStringLiteral("%F")) })));
        QVERIFY(writeFile(dataHomeApps() + QStringLiteral("/per-file.desktop"),
            entryText({ QStringLiteral("Type=Application"), QStringLiteral("Name=One At A Time"),
                recordingExec(path(QStringLiteral("per-file.out")), QStringLiteral("%f")) })));
        QVERIFY(writeFile(dataHomeApps() + QStringLiteral("/in-folder.desktop"),
            entryText({ QStringLiteral("Type=Application"), QStringLiteral("Name=In Folder"),
                QStringLiteral("Path=") + path(QStringLiteral("workdir")),
                QStringLiteral("Exec=/bin/sh -c 'pwd > \"") + path(QStringLiteral("in-folder.out"))
                    + QStringLiteral("\"'") })));
        QVERIFY(QDir().mkpath(path(QStringLiteral("workdir"))));
        QVERIFY(writeFile(dataHomeApps() + QStringLiteral("/broken-program.desktop"),
            entryText({ QStringLiteral("Type=Application"), QStringLiteral("Name=Broken"),
                QStringLiteral("Exec=/nonexistent/quirepad-program %f") })));
        QVERIFY(writeFile(dataHomeApps() + QStringLiteral("/bad-icon.desktop"),
            entryText({ QStringLiteral("Type=Application"), QStringLiteral("Name=Bad Icon"),
                QStringLiteral("Icon=") + path(QStringLiteral("icons/missing.png")), QStringLiteral("Exec=bad") })));

        // Installed for everybody.
        QVERIFY(writeFile(systemAApps() + QStringLiteral("/kde/reader.desktop"),
            entryText({ QStringLiteral("Type=Application"), QStringLiteral("Name=KDE Reader"),
                QStringLiteral("MimeType=application/pdf;"),
                recordingExec(path(QStringLiteral("reader.out")), QStringLiteral("%F")) })));
        QVERIFY(writeFile(systemAApps() + QStringLiteral("/shadowed.desktop"),
            entryText({ QStringLiteral("Type=Application"), QStringLiteral("Name=System Copy"),
                QStringLiteral("Exec=shadowed") })));
        QVERIFY(writeFile(systemAApps() + QStringLiteral("/order.desktop"),
            entryText({ QStringLiteral("Type=Application"), QStringLiteral("Name=First Folder"),
                QStringLiteral("Exec=order") })));
        QVERIFY(writeFile(systemAApps() + QStringLiteral("/needs-tool.desktop"),
            entryText({ QStringLiteral("Type=Application"), QStringLiteral("Name=Needs Tool"),
                QStringLiteral("TryExec=/nonexistent/quirepad-tool"), QStringLiteral("Exec=tool %f"),
                QStringLiteral("MimeType=text/x-quirepad-scan;") })));
        QVERIFY(writeFile(systemAApps() + QStringLiteral("/pngview.desktop"),
            entryText({ QStringLiteral("Type=Application"), QStringLiteral("Name=PNG View"),
                QStringLiteral("Exec=pngview %f"), QStringLiteral("MimeType=image/png;") })));
        QVERIFY(writeFile(systemAApps() + QStringLiteral("/link.desktop"),
            entryText({ QStringLiteral("Type=Link"), QStringLiteral("Name=A Link"),
                QStringLiteral("URL=https://example.org/") })));
        QVERIFY(writeFile(systemAApps() + QStringLiteral("/mimeinfo.cache"),
            QByteArray("[MIME Cache]\n"
                       "image/png=org.example.Viewer.desktop;pngview.desktop;\n"
                       "application/x-quirepad-viewer=org.example.Viewer.desktop;\n")));
        QVERIFY(writeFile(systemBApps() + QStringLiteral("/gone.desktop"),
            entryText({ QStringLiteral("Type=Application"), QStringLiteral("Name=Gone Elsewhere"),
                QStringLiteral("Exec=gone") })));
        QVERIFY(writeFile(systemBApps() + QStringLiteral("/order.desktop"),
            entryText({ QStringLiteral("Type=Application"), QStringLiteral("Name=Second Folder"),
                QStringLiteral("Exec=order") })));
        QVERIFY(writeFile(systemBApps() + QStringLiteral("/scan-only.desktop"),
            entryText({ QStringLiteral("Type=Application"), QStringLiteral("Name=Scan Only"),
                QStringLiteral("Exec=scan %F"), QStringLiteral("MimeType=text/plain;text/x-quirepad-scan;") })));
        for (const char* name : { "blocked", "fallback", "desktop-pick" }) {
            QVERIFY(writeFile(systemBApps() + u'/' + QLatin1String(name) + QStringLiteral(".desktop"),
                entryText({ QStringLiteral("Type=Application"), QStringLiteral("Name=") + QLatin1String(name),
                    QStringLiteral("Exec=") + QLatin1String(name) + QStringLiteral(" %f") })));
        }

        // Associations: the user's, the desktop's and the system's.
        QVERIFY(writeFile(path(QStringLiteral("home-config/mimeapps.list")),
            QByteArray("[Default Applications]\n"
                       "application/pdf=org.example.Missing.desktop;kde-reader.desktop;\n"
                       "text/x-quirepad-hidden=gone.desktop;needs-tool.desktop;shadowed.desktop;\n"
                       "text/x-quirepad-desktop=shadowed.desktop;\n"
                       "\n"
                       "[Removed Associations]\n"
                       "image/png=org.example.Viewer.desktop;\n"
                       "application/x-quirepad-blocked=blocked.desktop;\n")));
        QVERIFY(writeFile(path(QStringLiteral("home-config/quirepadtest-mimeapps.list")),
            QByteArray("[Default Applications]\ntext/x-quirepad-desktop=desktop-pick.desktop;\n"
                       "[Removed Associations]\ntext/x-quirepad-added=recorder.desktop;\n")));
        QVERIFY(writeFile(path(QStringLiteral("system-config/mimeapps.list")),
            QByteArray("[Default Applications]\n"
                       "application/pdf=org.example.Viewer.desktop;\n"
                       "application/x-quirepad-blocked=blocked.desktop;fallback.desktop;\n"
                       "[Added Associations]\n"
                       "text/x-quirepad-added=recorder.desktop;\n")));
    }

    void cleanupTestCase()
    {
        for (const SavedVariable& variable : m_saved)
            variable.restore();
        Workspace::setCurrent(nullptr);
    }

    void cleanup() { Workspace::setCurrent(nullptr); }

    void parsesEntryGroup()
    {
        const QByteArray contents = "# comment before the group\n"
                                    "Name=Outside Any Group\n"
                                    "[Desktop Entry]\n"
                                    "Type = Application\n"
                                    "  # an indented comment\n"
                                    "Name=\\sLeading\\tTab\\nLine\\rReturn\\\\Backslash\n"
                                    "Icon=accessories-text-editor\r\n"
                                    "Exec=editor %U\n"
                                    "TryExec=editor\n"
                                    "MimeType=text/plain;text/x-semi\\;colon;;application/x-back\\\\slash;\n"
                                    "NoDisplay=true\n"
                                    "Hidden=false\n"
                                    "Unknown-Key=kept\n"
                                    "\n"
                                    "[Desktop Action new-window]\n"
                                    "Name=Action Name\n"
                                    "Icon=action-icon\n";
        const std::optional<DesktopEntry> entry
            = DesktopEntry::fromData(contents, QStringLiteral("/nowhere/editor.desktop"));
        QVERIFY(entry);
        QCOMPARE(entry->type(), QStringLiteral("Application"));
        QCOMPARE(entry->name(QStringLiteral("C")), QStringLiteral(" Leading\tTab\nLine\rReturn\\Backslash"));
        QCOMPARE(entry->iconName(), QStringLiteral("accessories-text-editor"));
        QCOMPARE(entry->exec(), QStringLiteral("editor %U"));
        QCOMPARE(entry->tryExec(), QStringLiteral("editor"));
        QCOMPARE(entry->mimeTypes(),
            QStringList({ QStringLiteral("text/plain"), QStringLiteral("text/x-semi;colon"),
                QStringLiteral("application/x-back\\slash") }));
        QVERIFY(entry->noDisplay());
        QVERIFY(!entry->isHidden());
        QCOMPARE(entry->value(QStringLiteral("Unknown-Key")), QStringLiteral("kept"));
        QVERIFY(entry->value(QStringLiteral("URL")).isNull());
        QCOMPARE(entry->path(), QStringLiteral("/nowhere/editor.desktop"));
        QCOMPARE(entry->id(), QStringLiteral("editor.desktop"));
        QVERIFY(entry->handlesMimeType(QStringLiteral("TEXT/PLAIN")));
        QVERIFY(!entry->handlesMimeType(QStringLiteral("text/html")));

        QVERIFY(!DesktopEntry::fromData("[Desktop Action x]\nName=Only An Action\n"));
        QVERIFY(!DesktopEntry::fromData(QByteArray()));
        QVERIFY(!DesktopEntry::fromFile(path(QStringLiteral("no-such.desktop"))));
    }

    void localizedName_data()
    {
        QTest::addColumn<QString>("locale");
        QTest::addColumn<QString>("expected");
        QTest::newRow("language") << "de"
                                  << "Betrachter";
        QTest::newRow("language with other country") << "de_AT"
                                                     << "Betrachter";
        QTest::newRow("language and country") << "de_CH"
                                              << "Betrachter (Schweiz)";
        QTest::newRow("encoding is ignored") << "de_CH.UTF-8"
                                             << "Betrachter (Schweiz)";
        QTest::newRow("BCP 47 spelling") << "de-CH"
                                         << "Betrachter (Schweiz)";
        QTest::newRow("country and modifier") << "sr_RS@latin"
                                              << "Pregledač (Srbija)";
        QTest::newRow("modifier without that country") << "sr_ME@latin"
                                                       << "Pregledač";
        QTest::newRow("without modifier") << "sr_RS"
                                          << "Прегледач";
        QTest::newRow("untranslated") << "fr_FR"
                                      << "Viewer";
        QTest::newRow("C locale") << "C"
                                  << "Viewer";
        QTest::newRow("empty") << ""
                               << "Viewer";
    }

    void localizedName()
    {
        QFETCH(QString, locale);
        QFETCH(QString, expected);
        const std::optional<DesktopEntry> entry = DesktopEntry::find(QStringLiteral("org.example.Viewer"));
        QVERIFY(entry);
        QCOMPARE(entry->name(locale), expected);
    }

    void nameFollowsCurrentLocale()
    {
        const std::optional<DesktopEntry> entry = DesktopEntry::find(QStringLiteral("org.example.Viewer"));
        QVERIFY(entry);
        const QLocale saved;
        QLocale::setDefault(QLocale(QStringLiteral("de_CH")));
        const QString swiss = entry->name();
        const QString swissApp = app_name(QStringLiteral("org.example.Viewer"));
        QLocale::setDefault(QLocale(QStringLiteral("fr_FR")));
        const QString french = entry->name();
        QLocale::setDefault(saved);
        QCOMPARE(swiss, QStringLiteral("Betrachter (Schweiz)"));
        QCOMPARE(swissApp, QStringLiteral("Betrachter (Schweiz)"));
        QCOMPARE(french, QStringLiteral("Viewer"));
    }

    void applicationDirsFollowEnvironment()
    {
        QCOMPARE(DesktopEntry::applicationDirs(), QStringList({ dataHomeApps(), systemAApps(), systemBApps() }));

        qunsetenv("XDG_DATA_HOME");
        qputenv("XDG_DATA_DIRS", "");
        const QStringList defaults = DesktopEntry::applicationDirs();
        setTestEnvironment();
        QCOMPARE(defaults,
            QStringList({ QDir::homePath() + QStringLiteral("/.local/share/applications"),
                QStringLiteral("/usr/local/share/applications"), QStringLiteral("/usr/share/applications") }));
    }

    void findsEntries_data()
    {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("expectedId");
        QTest::addColumn<QString>("expectedPath");
        QTest::addColumn<QString>("expectedName");
        const QString viewer = dataHomeApps() + QStringLiteral("/org.example.Viewer.desktop");
        QTest::newRow("full id") << "org.example.Viewer.desktop"
                                 << "org.example.Viewer.desktop" << viewer << "Viewer";
        QTest::newRow("suffix added") << "org.example.Viewer"
                                      << "org.example.Viewer.desktop" << viewer << "Viewer";
        QTest::newRow("subfolder by dash")
            << "kde-reader.desktop"
            << "kde-reader.desktop" << systemAApps() + QStringLiteral("/kde/reader.desktop") << "KDE Reader";
        QTest::newRow("user entry shadows system one")
            << "shadowed"
            << "shadowed.desktop" << dataHomeApps() + QStringLiteral("/shadowed.desktop") << "Home Copy";
        QTest::newRow("data dirs in order")
            << "order"
            << "order.desktop" << systemAApps() + QStringLiteral("/order.desktop") << "First Folder";
        QTest::newRow("hidden deletes all copies") << "gone" << QString() << QString() << QString();
        QTest::newRow("not installed") << "org.example.Missing" << QString() << QString() << QString();
        QTest::newRow("subfolder spelled as a path") << "kde/reader.desktop" << QString() << QString() << QString();
        QTest::newRow("dash without such a folder") << "kde-pngview" << QString() << QString() << QString();
        QTest::newRow("empty") << "" << QString() << QString() << QString();
        QTest::newRow("suffix only") << ".desktop" << QString() << QString() << QString();
    }

    void findsEntries()
    {
        QFETCH(QString, id);
        QFETCH(QString, expectedId);
        QFETCH(QString, expectedPath);
        QFETCH(QString, expectedName);
        const std::optional<DesktopEntry> entry = DesktopEntry::find(id);
        QCOMPARE(entry.has_value(), !expectedId.isNull());
        if (!entry)
            return;
        QCOMPARE(entry->id(), expectedId);
        QCOMPARE(entry->path(), expectedPath);
        QCOMPARE(entry->name(QStringLiteral("C")), expectedName);
    }

    void fromFileDerivesId()
    {
        const std::optional<DesktopEntry> nested = DesktopEntry::fromFile(systemAApps() + "/kde/reader.desktop");
        QVERIFY(nested);
        QCOMPARE(nested->id(), QStringLiteral("kde-reader.desktop"));

        const std::optional<DesktopEntry> hidden = DesktopEntry::fromFile(dataHomeApps() + "/gone.desktop");
        QVERIFY(hidden);
        QVERIFY(hidden->isHidden());
        QVERIFY(!hidden->isLaunchable());

        const QString outside = path(QStringLiteral("elsewhere/tool.desktop"));
        QVERIFY(writeFile(outside, entryText({ QStringLiteral("Type=Application"), QStringLiteral("Exec=tool") })));
        const std::optional<DesktopEntry> loose = DesktopEntry::fromFile(outside);
        QVERIFY(loose);
        QCOMPARE(loose->id(), QStringLiteral("tool.desktop"));
        QVERIFY(loose->isLaunchable());
    }

    void launchable()
    {
        QVERIFY(DesktopEntry::find(QStringLiteral("pngview"))->isLaunchable());
        // TryExec names a program that is not there.
        const std::optional<DesktopEntry> needsTool = DesktopEntry::find(QStringLiteral("needs-tool"));
        QVERIFY(needsTool);
        QVERIFY(!needsTool->isLaunchable());
        const std::optional<DesktopEntry> link = DesktopEntry::find(QStringLiteral("link"));
        QVERIFY(link);
        QVERIFY(!link->isLaunchable());
        const std::optional<DesktopEntry> withShell = DesktopEntry::fromData(
            entryText({ QStringLiteral("Type=Application"), QStringLiteral("TryExec=sh"), QStringLiteral("Exec=sh") }));
        QVERIFY(withShell);
        QVERIFY(withShell->isLaunchable());
    }

    void commands_data()
    {
        QTest::addColumn<QString>("execLine");
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QList<QStringList>>("expected");

        const QString a = QStringLiteral("/docs/a.pdf");
        const QString b = QStringLiteral("/docs/b.pdf");
        const QString spaced = QStringLiteral("/docs/my report.pdf");
        const QString quoted = QStringLiteral("/docs/it's a \"quote\" $HOME `x` \\.pdf");
        const QString path = QStringLiteral("/apps/test-viewer.desktop");

        QTest::newRow("single file") << "viewer --page 1 %f" << QStringList { a }
                                     << QList<QStringList> { { "viewer", "--page", "1", a } };
        QTest::newRow("quoted arguments with spaces")
            << "\"/opt/My App/bin/run\" --title \"Hello World\" %F" << QStringList { a, b }
            << QList<QStringList> { { "/opt/My App/bin/run", "--title", "Hello World", a, b } };
        QTest::newRow("escaped quote, dollar and backslash")
            << "tool \"say \\\\\"hi\\\\\"\" \"\\\\$HOME\" \"a\\\\\\\\b\" \"\\\\`x\\\\`\"" << QStringList {}
            << QList<QStringList> { { "tool", "say \"hi\"", "$HOME", "a\\b", "`x`" } };
        QTest::newRow("escaped quote written once")
            << "tool \"say \\\"hi\\\"\"" << QStringList {} << QList<QStringList> { { "tool", "say \"hi\"" } };
        QTest::newRow("other backslash in quotes stays")
            << "tool \"a\\\\qb\"" << QStringList {} << QList<QStringList> { { "tool", "a\\qb" } };
        QTest::newRow("percent sign") << "printf 100%% %f" << QStringList { a }
                                      << QList<QStringList> { { "printf", "100%", a } };
        QTest::newRow("all files at once") << "viewer %F" << QStringList { a, spaced, quoted }
                                           << QList<QStringList> { { "viewer", a, spaced, quoted } };
        QTest::newRow("one command per file") << "viewer --new %f" << QStringList { a, spaced, quoted }
                                              << QList<QStringList> { { "viewer", "--new", a },
                                                     { "viewer", "--new", spaced }, { "viewer", "--new", quoted } };
        QTest::newRow("one url per command")
            << "viewer %u" << QStringList { a, b } << QList<QStringList> { { "viewer", a }, { "viewer", b } };
        QTest::newRow("all urls at once")
            << "viewer %U" << QStringList { a, b } << QList<QStringList> { { "viewer", a, b } };
        QTest::newRow("no files for %F") << "viewer %F" << QStringList {} << QList<QStringList> { { "viewer" } };
        QTest::newRow("no files for %f") << "viewer %f --x" << QStringList {}
                                         << QList<QStringList> { { "viewer", "--x" } };
        QTest::newRow("no file code appends each file")
            << "viewer --flag" << QStringList { a, b }
            << QList<QStringList> { { "viewer", "--flag", a }, { "viewer", "--flag", b } };
        QTest::newRow("icon, name and location")
            << "viewer %i %c %k %f" << QStringList { a }
            << QList<QStringList> { { "viewer", "--icon", "test-viewer", "Test Viewer", path, a } };
        QTest::newRow("deprecated codes vanish")
            << "viewer %d %D %n %N %v %m %f" << QStringList { a } << QList<QStringList> { { "viewer", a } };
        QTest::newRow("file code inside an argument")
            << "viewer --file=%f" << QStringList { a, b }
            << QList<QStringList> { { "viewer", "--file=" + a }, { "viewer", "--file=" + b } };
        QTest::newRow("single quotes keep everything")
            << "sh -c 'echo \"$1\" \\\\ %%' sh %f" << QStringList { a }
            << QList<QStringList> { { "sh", "-c", "echo \"$1\" \\ %", "sh", a } };
        QTest::newRow("escape sequences of the file")
            << "viewer\\sfirst\\tsecond \"with\\sspace\"" << QStringList {}
            << QList<QStringList> { { "viewer", "first", "second", "with space" } };
        QTest::newRow("backslash outside quotes")
            << "viewer a\\\\ b" << QStringList {} << QList<QStringList> { { "viewer", "a b" } };
        QTest::newRow("adjacent quoted parts")
            << "viewer \"a\"'b'c" << QStringList {} << QList<QStringList> { { "viewer", "abc" } };
        QTest::newRow("empty quoted argument")
            << "viewer \"\" %f" << QStringList { a } << QList<QStringList> { { "viewer", "", a } };
        QTest::newRow("extra blanks") << "  viewer    %F  " << QStringList { a }
                                      << QList<QStringList> { { "viewer", a } };
        QTest::newRow("unclosed quote") << "viewer \"oops %f" << QStringList { a } << QList<QStringList> {};
        QTest::newRow("unclosed single quote") << "viewer 'oops" << QStringList {} << QList<QStringList> {};
        QTest::newRow("empty") << "" << QStringList { a } << QList<QStringList> {};
    }

    void commands()
    {
        QFETCH(QString, execLine);
        QFETCH(QStringList, files);
        QFETCH(QList<QStringList>, expected);
        const std::optional<DesktopEntry> entry = entryWithExec(execLine);
        QVERIFY(entry);
        const QList<QStringList> actual = entry->commandsFor(files);
        QCOMPARE(actual.size(), expected.size());
        for (qsizetype i = 0; i < actual.size(); ++i)
            QCOMPARE(actual.at(i), expected.at(i));
    }

    void singleCommand_data()
    {
        QTest::addColumn<QString>("execLine");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("all files") << "viewer %F" << QStringList { "viewer", "/a", "/b c" };
        QTest::newRow("first file only") << "viewer %f" << QStringList { "viewer", "/a" };
        QTest::newRow("appended first file") << "viewer" << QStringList { "viewer", "/a" };
        QTest::newRow("broken quoting") << "viewer 'x" << QStringList {};
    }

    void singleCommand()
    {
        QFETCH(QString, execLine);
        QFETCH(QStringList, expected);
        const std::optional<DesktopEntry> entry = entryWithExec(execLine);
        QVERIFY(entry);
        QCOMPARE(entry->commandFor({ QStringLiteral("/a"), QStringLiteral("/b c") }), expected);
    }

    void defaultHandler_data()
    {
        QTest::addColumn<QString>("mimeType");
        QTest::addColumn<QString>("expectedId");
        QTest::newRow("first installed default") << "application/pdf"
                                                 << "kde-reader.desktop";
        QTest::newRow("type in capitals") << "Application/PDF"
                                          << "kde-reader.desktop";
        QTest::newRow("hidden and unusable defaults skipped") << "text/x-quirepad-hidden"
                                                              << "shadowed.desktop";
        QTest::newRow("list of the current desktop first") << "text/x-quirepad-desktop"
                                                           << "desktop-pick.desktop";
        QTest::newRow("removal applies to later lists") << "application/x-quirepad-blocked"
                                                        << "fallback.desktop";
        QTest::newRow("added association") << "text/x-quirepad-added"
                                           << "recorder.desktop";
        QTest::newRow("cache without removed entry") << "image/png"
                                                     << "pngview.desktop";
        QTest::newRow("cache") << "application/x-quirepad-viewer"
                               << "org.example.Viewer.desktop";
        QTest::newRow("declared by an entry only") << "text/x-quirepad-scan"
                                                   << "scan-only.desktop";
        QTest::newRow("nobody") << "application/x-quirepad-nobody" << QString();
        QTest::newRow("empty") << "" << QString();
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
        const std::optional<DesktopEntry> entry = DesktopEntry::defaultFor(QStringLiteral("text/x-quirepad-desktop"));
        setTestEnvironment();
        QVERIFY(entry);
        QCOMPARE(entry->id(), QStringLiteral("shadowed.desktop"));
    }

    void resolvesAppIds_data()
    {
        QTest::addColumn<QString>("appid");
        QTest::addColumn<QString>("expected");
        QTest::newRow("Preview stands for the PDF viewer") << "com.apple.Preview"
                                                           << "kde-reader.desktop";
        QTest::newRow("empty stands for the PDF viewer") << ""
                                                         << "kde-reader.desktop";
        QTest::newRow("installed without suffix") << "org.example.Viewer"
                                                  << "org.example.Viewer.desktop";
        QTest::newRow("installed with suffix") << "pngview.desktop"
                                               << "pngview.desktop";
        QTest::newRow("installed in a subfolder") << "kde-reader"
                                                  << "kde-reader.desktop";
        QTest::newRow("hidden") << "gone" << QString();
        QTest::newRow("TryExec missing") << "needs-tool" << QString();
        QTest::newRow("not an application") << "link" << QString();
        QTest::newRow("unknown") << "org.example.Nothing" << QString();
    }

    void resolvesAppIds()
    {
        QFETCH(QString, appid);
        QFETCH(QString, expected);
        const QString resolved = resolveAppId(appid);
        QCOMPARE(resolved, expected);
        QCOMPARE(resolved.isNull(), expected.isNull());
    }

    void previewWithoutPdfViewer()
    {
        qputenv("XDG_CONFIG_HOME", path(QStringLiteral("no-config")).toUtf8());
        qputenv("XDG_CONFIG_DIRS", path(QStringLiteral("no-config")).toUtf8());
        qputenv("XDG_DATA_DIRS", path(QStringLiteral("system-b")).toUtf8());
        const QString resolved = resolveAppId(QStringLiteral("com.apple.Preview"));
        setTestEnvironment();
        QVERIFY2(resolved.isNull(), qPrintable(resolved));
    }

    void appNames()
    {
        QCOMPARE(app_name(QStringLiteral("kde-reader")), QStringLiteral("KDE Reader"));
        QCOMPARE(app_name(QStringLiteral("com.apple.Preview")), QStringLiteral("KDE Reader"));
        QCOMPARE(app_name(QStringLiteral("shadowed.desktop")), QStringLiteral("Home Copy"));
        QVERIFY(app_name(QStringLiteral("gone")).isNull());
        QVERIFY(app_name(QStringLiteral("org.example.Nothing")).isNull());
    }

    void appIcons()
    {
        const QIcon fromFile = app_icon(QStringLiteral("org.example.Viewer"));
        QVERIFY(!fromFile.isNull());
        const QImage pixels = fromFile.pixmap(16, 16).toImage().convertToFormat(QImage::Format_ARGB32);
        QCOMPARE(pixels.size(), QSize(16, 16));
        QCOMPARE(pixels.pixelColor(8, 8), QColor(Qt::darkCyan));

        QVERIFY(app_icon(QStringLiteral("bad-icon")).isNull());
        QVERIFY(app_icon(QStringLiteral("shadowed")).isNull());
        QVERIFY(app_icon(QStringLiteral("org.example.Nothing")).isNull());
    }

    void themedAppIcon()
    {
        const QString themeDir = path(QStringLiteral("theme-icons"));
        QVERIFY(writeFile(themeDir + QStringLiteral("/quirepadtest/index.theme"),
            QByteArray("[Icon Theme]\nName=Quirepad Test\nDirectories=16x16/apps\n\n"
                       "[16x16/apps]\nSize=16\nType=Fixed\n")));
        QVERIFY(QDir().mkpath(themeDir + QStringLiteral("/quirepadtest/16x16/apps")));
        QImage image(16, 16, QImage::Format_ARGB32);
        image.fill(Qt::darkMagenta);
        QVERIFY(image.save(themeDir + QStringLiteral("/quirepadtest/16x16/apps/quirepad-themed.png"), "PNG"));
        QVERIFY(writeFile(dataHomeApps() + QStringLiteral("/themed.desktop"),
            entryText({ QStringLiteral("Type=Application"), QStringLiteral("Name=Themed"),
                QStringLiteral("Icon=quirepad-themed"), QStringLiteral("Exec=themed") })));

        const QStringList savedPaths = QIcon::themeSearchPaths();
        const QString savedTheme = QIcon::themeName();
        QIcon::setThemeSearchPaths({ themeDir });
        QIcon::setThemeName(QStringLiteral("quirepadtest"));
        // Theme icons are looked up again whenever the theme changes, so
        // everything is taken before the settings are put back.
        const QIcon icon = app_icon(QStringLiteral("themed"));
        const bool found = !icon.isNull();
        const QImage pixels = icon.pixmap(16, 16).toImage().convertToFormat(QImage::Format_ARGB32);
        QIcon::setThemeSearchPaths(savedPaths);
        QIcon::setThemeName(savedTheme);
        QFile::remove(dataHomeApps() + QStringLiteral("/themed.desktop"));

        QVERIFY(found);
        QCOMPARE(pixels.pixelColor(8, 8), QColor(Qt::darkMagenta));
    }

    void fileIcons()
    {
        QVERIFY(!file_icon(path(QStringLiteral("workdir"))).isNull());
        QVERIFY(!file_icon(iconPath()).isNull());

        const QIcon missing = file_icon(path(QStringLiteral("not-there/at-all.pdf")));
        QVERIFY(!missing.isNull());
        QIcon folder = QIcon::fromTheme(QStringLiteral("folder"));
        if (folder.isNull())
            folder = QFileIconProvider().icon(QFileIconProvider::Folder);
        const QImage missingImage = missing.pixmap(32, 32).toImage();
        QCOMPARE(missingImage, folder.pixmap(32, 32).toImage());
        QVERIFY(missingImage != file_icon(iconPath()).pixmap(32, 32).toImage());
    }

    void startsAllFilesInOneProcess()
    {
        const QString output = path(QStringLiteral("recorder.out"));
        const QStringList files { path(QStringLiteral("first.pdf")), path(QStringLiteral("with space.pdf")),
            path(QStringLiteral("it's \"quoted\" $HOME.pdf")) };
        QVERIFY(open_with_app(QStringLiteral("recorder.desktop"), files));
        QTRY_COMPARE(readText(output), files.join(u'\n') + u'\n');
    }

    void startsOneProcessPerFile()
    {
        const QString output = path(QStringLiteral("per-file.out"));
        QStringList files { path(QStringLiteral("one.pdf")), path(QStringLiteral("two words.pdf")),
            path(QStringLiteral("three \"3\".pdf")) };
        QVERIFY(open_with_app(QStringLiteral("per-file"), files));
        files.sort();
        QTRY_COMPARE(sortedLines(output), files);
    }

    void previewStartsDefaultPdfViewer()
    {
        const QString output = path(QStringLiteral("reader.out"));
        const QStringList files { path(QStringLiteral("document one.pdf")) };
        QVERIFY(open_with_app(QStringLiteral("com.apple.Preview"), files));
        QTRY_COMPARE(readText(output), files.constFirst() + u'\n');
    }

    void startsInEntryFolder()
    {
        const QString output = path(QStringLiteral("in-folder.out"));
        QVERIFY(open_with_app(QStringLiteral("in-folder"), {}));
        QTRY_COMPARE(QFileInfo(readText(output).trimmed()).canonicalFilePath(),
            QFileInfo(path(QStringLiteral("workdir"))).canonicalFilePath());
    }

    void reportsProgramThatCannotStart()
    {
        QList<QUrl> opened;
        Workspace::setCurrent(std::make_unique<RecordingWorkspace>(opened, true));
        QVERIFY(!open_with_app(QStringLiteral("broken-program"), { path(QStringLiteral("x.pdf")) }));
        QVERIFY(opened.isEmpty());
    }

    void unknownAppOpensWithDefaultHandlers()
    {
        QList<QUrl> opened;
        Workspace::setCurrent(std::make_unique<RecordingWorkspace>(opened, true));
        const QStringList files { path(QStringLiteral("a.pdf")), path(QStringLiteral("b c.pdf")) };
        QVERIFY(open_with_app(QStringLiteral("org.example.Nothing"), files));
        QCOMPARE(opened, QList<QUrl>({ QUrl::fromLocalFile(files.at(0)), QUrl::fromLocalFile(files.at(1)) }));

        opened.clear();
        QVERIFY(!open_with_app(QStringLiteral("gone"), {}));
        QVERIFY(opened.isEmpty());

        Workspace::setCurrent(std::make_unique<RecordingWorkspace>(opened, false));
        QVERIFY(!open_with_app(QStringLiteral("org.example.Nothing"), files));
        QCOMPARE(opened.size(), 2);
    }
};

QUIREPAD_REGISTER_TEST(ApplicationsTest);
#include "tst_apps.moc"
