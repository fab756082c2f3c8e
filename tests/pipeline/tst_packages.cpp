#include "TestFiles.h"
#include "TestRegistry.h"

#include "foundation/ScriptedDialogService.h"
#include "foundation/TempArea.h"
#include "foundation/fileutil.h"
#include "foundation/pathvars.h"
#include "pipeline/PackageUnpacker.h"
#include "pipeline/PluginInstaller.h"
#include "pipeline/UserWorkflows.h"
#include "pipeline/WorkflowLibrary.h"
#include "pipeline/WorkflowRunner.h"

#include <QDir>
#include <QDirIterator>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <zip.h>

#include <cstring>
#include <memory>

#include <sys/stat.h>

using namespace quirepad;
using namespace quirepad::test;
using Outcome = PluginInstaller::Outcome;

namespace {

constexpr std::int64_t kBombSize = PackageUnpacker::kMaxUnpackedBytes + 1024 * 1024;

// A libzip source that yields `size` zero bytes without holding them.
zip_int64_t zeroSource(void* userdata, void* data, zip_uint64_t length, zip_source_cmd_t command)
{
    auto* state = static_cast<std::pair<std::int64_t, std::int64_t>*>(userdata); // size, position
    switch (command) {
    case ZIP_SOURCE_OPEN:
        state->second = 0;
        return 0;
    case ZIP_SOURCE_READ: {
        const std::int64_t n = std::min<std::int64_t>(std::int64_t(length), state->first - state->second);
        std::memset(data, 0, size_t(n));
        state->second += n;
        return n;
    }
    case ZIP_SOURCE_CLOSE:
        return 0;
    case ZIP_SOURCE_STAT: {
        auto* st = static_cast<zip_stat_t*>(data);
        zip_stat_init(st);
        st->size = zip_uint64_t(state->first);
        st->valid |= ZIP_STAT_SIZE;
        return sizeof(zip_stat_t);
    }
    case ZIP_SOURCE_ERROR:
        return 2 * sizeof(int);
    case ZIP_SOURCE_FREE:
        delete state;
        return 0;
    case ZIP_SOURCE_SUPPORTS:
        return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE, ZIP_SOURCE_STAT,
                                              ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, -1);
    default:
        return -1;
    }
}

// Writes a zip archive entry by entry; close() finishes the file.
class ZipWriter
{
public:
    explicit ZipWriter(const QString& path)
    {
        int error = 0;
        m_zip = zip_open(QFile::encodeName(path).constData(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    }
    ~ZipWriter()
    {
        if (m_zip)
            zip_discard(m_zip);
    }
    ZipWriter(const ZipWriter&) = delete;
    ZipWriter& operator=(const ZipWriter&) = delete;

    // mode: the Unix type and permissions stored in the external attributes.
    bool add(const QByteArray& name, const QByteArray& data, mode_t mode = S_IFREG | 0644)
    {
        // The buffer source copies nothing: the bytes stay alive until close().
        m_keep.append(data);
        return addSource(name, zip_source_buffer(m_zip, m_keep.last().constData(), zip_uint64_t(m_keep.last().size()), 0), mode);
    }
    bool addZeros(const QByteArray& name, std::int64_t size)
    {
        auto* state = new std::pair<std::int64_t, std::int64_t>(size, 0); // owned by the source
        zip_source_t* source = zip_source_function(m_zip, zeroSource, state);
        if (!source)
            delete state;
        return addSource(name, source, S_IFREG | 0644);
    }
    bool close()
    {
        const bool ok = m_zip && zip_close(m_zip) == 0;
        if (ok)
            m_zip = nullptr;
        return ok;
    }

private:
    bool addSource(const QByteArray& name, zip_source_t* source, mode_t mode)
    {
        if (!m_zip || !source)
            return false;
        const zip_int64_t index = zip_file_add(m_zip, name.constData(), source, ZIP_FL_ENC_UTF_8);
        if (index < 0) {
            zip_source_free(source);
            return false;
        }
        return zip_file_set_external_attributes(m_zip, zip_uint64_t(index), 0, ZIP_OPSYS_UNIX, zip_uint32_t(mode) << 16)
               == 0;
    }

    zip_t* m_zip = nullptr;
    QList<QByteArray> m_keep;
};

QByteArray metadata(const QByteArray& name, const QByteArray& description)
{
    QByteArray dict;
    if (!name.isNull())
        dict += "<key>name</key><string>" + name + "</string>";
    dict += "<key>description</key><string>" + description + "</string>";
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + dict + "</dict></plist>\n";
}

const QByteArray kScript = "#!/bin/sh\necho \"$1\"\n";

// Writes a 32-bit little-endian value at offset.
void putLe32(QByteArray& bytes, qsizetype offset, quint32 value)
{
    for (int i = 0; i < 4; ++i)
        bytes[offset + i] = char((value >> (8 * i)) & 0xff);
}
quint32 getLe32(const QByteArray& bytes, qsizetype offset)
{
    quint32 value = 0;
    for (int i = 0; i < 4; ++i)
        value |= quint32(quint8(bytes[offset + i])) << (8 * i);
    return value;
}

// Every file and folder below the roots (links not followed).
QSet<QString> snapshot(const QStringList& roots)
{
    QSet<QString> paths;
    for (const QString& root : roots) {
        QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
        while (it.hasNext())
            paths.insert(it.next());
    }
    return paths;
}

} // namespace

class PackagesTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;     // home, data and caches of the program
    QTemporaryDir m_packages; // the archives, outside of those
    ScriptedDialogService* m_dialogs = nullptr;

    QString dataHome() const { return m_root.filePath("data"); }

    // Builds the archive a row names; an empty string when libzip failed.
    QString build(const QString& kind, const QString& fileName)
    {
        const QString path = m_packages.filePath(fileName);
        ZipWriter zip(path);
        bool ok = true;
        if (kind == "plugin" || kind == "declined") {
            ok = zip.add("Hello/Hello.plist", metadata("Hello", "Says hello")) && zip.add("Hello/Hello.workflow", kScript, S_IFREG | 0755);
        } else if (kind == "filter") {
            ok = zip.add("Gray.plist", metadata("Gray", "Grays pages")) && zip.add("Gray.workflow", kScript, S_IFREG | 0755);
        } else if (kind == "no name") {
            ok = zip.add("Meta.plist", metadata(QByteArray(), "Nameless")) && zip.add("Nameless.workflow", kScript, S_IFREG | 0755);
        } else if (kind == "zip slip") {
            ok = zip.add("Slip.plist", metadata("Slip", "")) && zip.add("../x", "escaped");
        } else if (kind == "absolute") {
            ok = zip.add("Abs.plist", metadata("Abs", "")) && zip.add(QFile::encodeName(dataHome() + "/abs-escape"), "escaped");
        } else if (kind == "symlink") {
            ok = zip.add("Link.plist", metadata("Link", "")) && zip.add("Link.workflow", "/etc/passwd", S_IFLNK | 0777);
        } else if (kind == "many entries") {
            ok = zip.add("Many.plist", metadata("Many", ""));
            for (int i = 0; ok && i < 20000; ++i)
                ok = zip.add("f" + QByteArray::number(i), QByteArray());
        } else if (kind == "bomb" || kind == "understated bomb") {
            ok = zip.add("Bomb.plist", metadata("Bomb", "")) && zip.addZeros("zeros", kBombSize);
        } else if (kind == "corrupt") {
            ok = zip.add("Bad.plist", metadata("Bad", "")) && zip.add("Bad.workflow", kScript, S_IFREG | 0755);
        }
        if (!ok || !zip.close())
            return {};
        QByteArray bytes = readFile(path);
        if (kind == "understated bomb") {
            // The zeros' entry claims 1 KiB in its local and central headers.
            const qsizetype local = bytes.indexOf(QByteArray("PK\x03\x04", 4), bytes.indexOf("zeros") - 40);
            const qsizetype central = bytes.indexOf(QByteArray("PK\x01\x02", 4), local + 4);
            const qsizetype central2 = bytes.indexOf(QByteArray("PK\x01\x02", 4), central + 4);
            if (local < 0 || central2 < 0 || getLe32(bytes, local + 22) != quint32(kBombSize)
                || getLe32(bytes, central2 + 24) != quint32(kBombSize))
                return {};
            putLe32(bytes, local + 22, 1024);
            putLe32(bytes, central2 + 24, 1024);
            writeFile(path, bytes);
        } else if (kind == "corrupt") {
            // The middle of the archive overwritten with garbage.
            for (qsizetype i = bytes.size() / 4; i < bytes.size() * 3 / 4; ++i)
                bytes[i] = char(0xA5);
            writeFile(path, bytes);
        }
        return path;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_root.isValid() && m_packages.isValid());
        const char* const places[][2] = { { "HOME", "home" }, { "XDG_DATA_HOME", "data" }, { "XDG_CACHE_HOME", "cache" },
                                          { "XDG_CONFIG_HOME", "config" } };
        for (const auto& place : places)
            qputenv(place[0], m_root.filePath(place[1]).toUtf8());
        QVERIFY(QDir().mkpath(m_root.filePath("home")));
        QVERIFY(TempArea::instance().prepare());
    }

    void init()
    {
        auto dialogs = std::make_unique<ScriptedDialogService>();
        m_dialogs = dialogs.get();
        DialogService::setCurrent(std::move(dialogs));
    }

    void install_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("fileName");
        QTest::addColumn<int>("outcome");
        QTest::addColumn<QString>("detail"); // installed: the workflow; refused: part of the reason

        const auto row = [](const char* name, const char* file, Outcome outcome, const char* detail = "") {
            QTest::newRow(name) << QString(name) << QString(file) << int(outcome) << QString(detail);
        };
        row("plugin", "Hello.qpdplugin", Outcome::Installed, "Hello.workflow");
        row("filter", "Gray.qpdfilter", Outcome::Installed, "Gray.workflow");
        row("declined", "Declined.qpdplugin", Outcome::Declined);
        row("no name", "NoName.qpdplugin", Outcome::Refused, PluginInstaller::kMissingMetadata);
        row("zip slip", "Slip.qpdplugin", Outcome::Refused, "leads out of its folder");
        row("absolute", "Abs.qpdplugin", Outcome::Refused, "has an absolute path");
        row("symlink", "Link.qpdplugin", Outcome::Refused, "is a symbolic link");
        row("many entries", "Many.qpdplugin", Outcome::Refused, "more than the 10000 allowed");
        row("bomb", "Bomb.qpdfilter", Outcome::Refused, "more than 256 MiB");
        row("understated bomb", "Understated.qpdfilter", Outcome::Refused, "more than 256 MiB");
        row("corrupt", "Bad.qpdplugin", Outcome::Refused, "not a readable zip archive");
    }

    void install()
    {
        QFETCH(QString, kind);
        QFETCH(QString, fileName);
        QFETCH(int, outcome);
        QFETCH(QString, detail);

        const QString package = build(kind, fileName);
        QVERIFY2(!package.isEmpty(), "libzip could not write the archive");
        const WorkflowKind workflowKind = *PluginInstaller::kindOf(package);
        const QString target = UserWorkflows(workflowKind).folder();
        const QStringList roots { m_root.path(), path_dirname(path_dirname(target)), TempArea::instance().root() };
        const QSet<QString> before = snapshot(roots);

        if (outcome != int(Outcome::Refused))
            m_dialogs->enqueueAnswer(kind != "declined");
        WorkflowLibrary library;
        PluginInstaller installer(&library);
        const PluginInstaller::Result result = installer.install(package);
        QCOMPARE(int(result.outcome), outcome);

        // The unpacking happened in a private temporary folder that is gone.
        QVERIFY(!result.unpackFolder.isEmpty());
        QVERIFY(TempArea::instance().contains(result.unpackFolder));
        QVERIFY(!QFileInfo::exists(result.unpackFolder));
        QVERIFY(result.unpackedBytes <= PackageUnpacker::kMaxUnpackedBytes);

        // Nothing new anywhere but the target folder, and there only when installed.
        const QSet<QString> added = snapshot(roots) - before;
        for (const QString& path : added)
            QVERIFY2(path.startsWith(target + "/") || target.startsWith(path), qPrintable("written outside: " + path));
        if (outcome != int(Outcome::Installed))
            QVERIFY2(added.isEmpty(), qPrintable(QStringList(added.values()).join(", ")));

        const QList<ScriptedDialogService::Interaction>& asked = m_dialogs->interactions();
        if (outcome == int(Outcome::Refused)) {
            QVERIFY2(result.error.contains(detail), qPrintable(result.error));
            QCOMPARE(asked.size(), 1);
            QCOMPARE(asked.first().kind, ScriptedDialogService::Kind::Alert);
            if (kind == "bomb") // refused on what it declares, before writing
                QCOMPARE(result.unpackedBytes, std::int64_t(0));
            if (kind == "understated bomb") // refused on what was written
                QVERIFY(result.unpackedBytes > PackageUnpacker::kMaxUnpackedBytes - 1024 * 1024);
            return;
        }

        // Asked first, with the package's name and description.
        QCOMPARE(asked.size(), 1);
        QCOMPARE(asked.first().kind, ScriptedDialogService::Kind::Question);
        QCOMPARE(asked.first().message, "Installing Plugin " + result.name);
        QCOMPARE(asked.first().informative, result.description);
        QVERIFY(!result.description.isEmpty());
        QCOMPARE(asked.first().alternateButton, QString("Yes - install"));
        QCOMPARE(asked.first().defaultButton, QString("No"));
        if (outcome == int(Outcome::Declined))
            return;

        // Flat in the target folder, listed, and runnable.
        const QString installed = target + "/" + detail;
        QCOMPARE(result.installed.size(), 2);
        QVERIFY(result.installed.contains(installed));
        QVERIFY(QFileInfo::exists(target + "/" + result.name + ".plist"));
        const QString name = path_basename_noext(installed);
        QStringList listed;
        for (const UserWorkflows::Entry& entry : UserWorkflows(workflowKind).list())
            listed << entry.name;
        QVERIFY2(listed.contains(name), qPrintable(listed.join(", ")));
        QVERIFY((workflowKind == WorkflowKind::Plugin ? library.allPluginFiles() : library.allFilterFiles()).contains(name));
        const WorkflowRunner::Result run = WorkflowRunner(installed).run("/some/input.pdf");
        QCOMPARE(run.status, WorkflowRunner::Status::Succeeded);
        QCOMPARE(run.outputs, QStringList { "/some/input.pdf" });
    }

    // Installing the same package again keeps the user's files as they are.
    void reinstallKeepsFiles()
    {
        const QString package = build("plugin", "Again.qpdplugin");
        QVERIFY(!package.isEmpty());
        const QString target = UserWorkflows(WorkflowKind::Plugin).folder();
        QVERIFY(QDir().mkpath(target));
        QVERIFY(writeFile(target + "/Hello.workflow", "#!/bin/sh\n# mine\n", kExecutable));
        m_dialogs->enqueueAnswer(true);
        PluginInstaller installer;
        const PluginInstaller::Result result = installer.install(package);
        QCOMPARE(int(result.outcome), int(Outcome::Installed));
        QVERIFY(result.kept.contains(target + "/Hello.workflow"));
        QCOMPARE(readFile(target + "/Hello.workflow"), QByteArray("#!/bin/sh\n# mine\n"));
    }

    // Folders are dropped from entry names; unsafe names answer null.
    // The general installer: archives of its own extension into its own
    // folder (path variables expanded); others refused.
    void generalInstallerUsesItsFolder()
    {
        const QString package = build("plugin", "Extras.zip");
        QVERIFY(!package.isEmpty());
        MYPluginInstaller installer;
        installer.setInteractive(false);
        installer.setPluginDirectory("${APP_SUPPORT}/Extras");
        const MYPluginInstaller::Result result = installer.installPluginFile(package);
        QCOMPARE(int(result.outcome), int(Outcome::Installed));
        QCOMPARE(result.targetFolder, expandStr("${APP_SUPPORT}/Extras"));
        QVERIFY(QFile::exists(result.targetFolder + "/Hello.workflow"));
        QCOMPARE(int(installer.installPluginFile(build("plugin", "Other.qpdplugin")).outcome), int(Outcome::Refused));
    }

    void junkedNames()
    {
        QString why;
        QCOMPARE(PackageUnpacker::junkedName("a/b/c.workflow", &why), QString("c.workflow"));
        QCOMPARE(PackageUnpacker::junkedName("dir/", &why), QString(""));
        QVERIFY(PackageUnpacker::junkedName("a/../b", &why).isNull());
        QVERIFY(PackageUnpacker::junkedName("a\\..\\b", &why).isNull());
        QVERIFY(PackageUnpacker::junkedName("/etc/x", &why).isNull());
        QVERIFY(!why.isEmpty());
    }
};

QUIREPAD_REGISTER_TEST(PackagesTest);

#include "tst_packages.moc"
