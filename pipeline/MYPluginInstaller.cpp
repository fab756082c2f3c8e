#include "pipeline/MYPluginInstaller.h"

#include "foundation/pathvars.h"

#include "foundation/PlistReader.h"
#include "foundation/dialogs.h"
#include "foundation/fileutil.h"
#include "foundation/safefile.h"
#include "pipeline/PackageUnpacker.h"

#include <QFile>
#include <QLoggingCategory>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quirepad {

Q_LOGGING_CATEGORY(lcPackages, "quirepad.packages", QtInfoMsg)

namespace {

// Removes a temporary folder with everything in it when it goes (links in
// it are removed, never followed).
class RemovedFolder
{
public:
    explicit RemovedFolder(QString path) : m_path(std::move(path)) {}
    ~RemovedFolder()
    {
        if (m_path.isEmpty())
            return;
        std::error_code ec;
        std::filesystem::remove_all(std::filesystem::path(QFile::encodeName(m_path).toStdString()), ec);
    }
    RemovedFolder(const RemovedFolder&) = delete;
    RemovedFolder& operator=(const RemovedFolder&) = delete;
    const QString& path() const { return m_path; }

private:
    QString m_path;
};

QString errnoText()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

bool copyData(int from, int to)
{
    std::vector<char> buffer(64 * 1024);
    for (;;) {
        const ssize_t got = ::read(from, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return false;
        if (got == 0)
            return true;
        for (ssize_t done = 0; done < got;) {
            const ssize_t written = ::write(to, buffer.data() + done, size_t(got - done));
            if (written < 0 && errno == EINTR)
                continue;
            if (written <= 0)
                return false;
            done += written;
        }
    }
}

} // namespace

QString MYPluginInstaller::pluginDirectory() const
{
    return expandStr(m_pluginDirectory.isEmpty() ? QStringLiteral("${APP_SUPPORT_PLUGINS}") : m_pluginDirectory);
}

QStringList MYPluginInstaller::pluginFileTypes() const
{
    return {m_pluginExtension.isEmpty() ? QStringLiteral("zip") : m_pluginExtension};
}

MYPluginInstaller::Result MYPluginInstaller::refuse(Result result, const QString& why) const
{
    result.outcome = Outcome::Refused;
    result.error = why;
    qCWarning(lcPackages).noquote() << "plugin archive refused:" << why;
    if (m_interactive)
        MYDisplayAlert(why);
    return result;
}

MYPluginInstaller::Result MYPluginInstaller::installPluginFile(const QString& packagePath)
{
    Result result;
    const QStringList types = pluginFileTypes();
    bool accepted = false;
    for (const QString& type : types)
        accepted = accepted || packagePath.endsWith(u'.' + type);
    if (!accepted)
        return refuse(result, QStringLiteral("%1 is not a plugin package\nPlugin packages end in .%2.")
                                  .arg(path_basename(packagePath), types.join(QStringLiteral(" or ."))));
    result.targetFolder = pluginDirectory();

    const RemovedFolder unpacked(mk_temp_dir());
    result.unpackFolder = unpacked.path();
    if (unpacked.path().isEmpty())
        return refuse(result, QStringLiteral("The plugin archive cannot be unpacked\nNo private temporary folder could be made."));
    PackageUnpacker unpacker(packagePath);
    const bool complete = unpacker.unpackInto(unpacked.path());
    result.unpackedBytes = unpacker.bytesWritten();
    if (!complete)
        return refuse(result, QStringLiteral("The plugin archive %1 cannot be installed\n%2")
                                  .arg(path_basename(packagePath), unpacker.error()));

    // The first property list (in name order) describes the package.
    QStringList names = unpacker.files();
    names.sort();
    QVariantMap metadata;
    for (const QString& name : names) {
        if (name.endsWith(QLatin1String(".plist"))) {
            metadata = PlistReader::dictionaryFromFile(unpacked.path() + u'/' + name);
            break;
        }
    }
    result.name = metadata.value(QStringLiteral("name")).toString();
    result.description = metadata.value(QStringLiteral("description")).toString();
    if (result.name.isEmpty())
        return refuse(result, QString::fromLatin1(kMissingMetadata));

    if (m_interactive
        && !MYDisplayQuestion(QStringLiteral("Installing Plugin %1\n%2").arg(result.name, result.description),
                              QStringLiteral("Yes - install"), QStringLiteral("No"))) {
        result.outcome = Outcome::Declined;
        return result;
    }

    processFiles(unpacked.path(), unpacker.files(), result);
    result.outcome = result.error.isEmpty() ? Outcome::Installed : Outcome::Failed;
    qCInfo(lcPackages).noquote() << "installed" << result.name << "into" << result.targetFolder << "files"
                                 << result.installed << "kept" << result.kept;
    finishedInstalling();
    return result;
}

void MYPluginInstaller::processFiles(const QString& from, const QStringList& names, Result& result) const
{
    if (!mk_dirs(result.targetFolder)) {
        result.error = QStringLiteral("cannot create the folder %1").arg(result.targetFolder);
        return;
    }
    const UniqueFd source(::open(QFile::encodeName(from).constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const UniqueFd target(::open(QFile::encodeName(result.targetFolder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!source || !target) {
        result.error = QStringLiteral("cannot open the folder %1: %2").arg(source ? result.targetFolder : from, errnoText());
        return;
    }
    for (const QString& name : names) {
        const QByteArray native = QFile::encodeName(name);
        const QString targetPath = result.targetFolder + u'/' + name;
        const UniqueFd in(::openat(source.get(), native.constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        struct stat st {};
        if (!in || ::fstat(in.get(), &st) != 0 || !S_ISREG(st.st_mode)) {
            result.error = QStringLiteral("%1 was not unpacked").arg(name);
            continue;
        }
        const UniqueFd out(::openat(target.get(), native.constData(),
                                    O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, st.st_mode & 0755));
        if (!out && errno == EEXIST) {
            result.kept << targetPath; // the user's copy is never replaced
            continue;
        }
        if (!out) {
            result.error = QStringLiteral("cannot write %1: %2").arg(targetPath, errnoText());
            continue;
        }
        if (!copyData(in.get(), out.get())) {
            result.error = QStringLiteral("cannot write %1: %2").arg(targetPath, errnoText());
            ::unlinkat(target.get(), native.constData(), 0);
            continue;
        }
        result.installed << targetPath;
    }
}

} // namespace quirepad
