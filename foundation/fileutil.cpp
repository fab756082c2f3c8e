#include "foundation/fileutil.h"

#include "foundation/InternalError.h"
#include "foundation/Log.h"
#include "foundation/UserDefaults.h"
#include "foundation/pathvars.h"
#include "foundation/TempArea.h"
#include "foundation/safefile.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTimeZone>

#include <filesystem>
#include <memory>
#include <system_error>

#include <cerrno>
#include <fcntl.h>
#include <glob.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quirepad {

namespace fs = std::filesystem;

namespace {

fs::path toFsPath(const QString& path)
{
    return fs::path(path.toStdString());
}

// The path with "~" expanded and "." / ".." / doubled slashes resolved.
QString standardized(const QString& path)
{
    return QDir::cleanPath(expandTilde(path));
}

bool lexists(const QString& path)
{
    struct stat st;
    const QByteArray native = QFile::encodeName(path);
    return ::lstat(native.constData(), &st) == 0;
}

// Splits the last path component at its extension dot; a leading dot (a
// hidden file's name) does not start an extension.
qsizetype extensionDot(const QString& name)
{
    const qsizetype dot = name.lastIndexOf(u'.');
    return dot > 0 ? dot : -1;
}

// Owns the result of one glob(3) call.
class GlobResult
{
public:
    GlobResult() = default;
    ~GlobResult() { globfree(&m_glob); }
    GlobResult(const GlobResult&) = delete;
    GlobResult& operator=(const GlobResult&) = delete;
    glob_t* get() { return &m_glob; }
    const glob_t* operator->() const { return &m_glob; }

private:
    glob_t m_glob{};
};

} // namespace

QString path_basename(const PathArg& arg)
{
    QString path = arg.path();
    while (path.size() > 1 && path.endsWith(u'/'))
        path.chop(1);
    if (path == QLatin1String("/"))
        return path;
    return path.mid(path.lastIndexOf(u'/') + 1);
}

QString path_dirname(const PathArg& arg)
{
    QString path = arg.path();
    while (path.size() > 1 && path.endsWith(u'/'))
        path.chop(1);
    const qsizetype slash = path.lastIndexOf(u'/');
    if (slash < 0)
        return QStringLiteral("");
    if (slash == 0)
        return QStringLiteral("/");
    return path.left(slash);
}

QString path_basename_noext(const PathArg& path)
{
    const QString name = path_basename(path);
    const qsizetype dot = extensionDot(name);
    return dot < 0 ? name : name.left(dot);
}

QString path_extension(const PathArg& path)
{
    const QString name = path_basename(path);
    const qsizetype dot = extensionDot(name);
    return dot < 0 ? QStringLiteral("") : name.mid(dot + 1);
}

QString path_displayname(const PathArg& path)
{
    // Linux file managers show the name as it is, extension included; an
    // item that does not exist has no display name of its own.
    if (!path.isNull() && lexists(path.path()))
        return path_basename(path);
    return path_basename_noext(path);
}

bool path_exists(const PathArg& path)
{
    return !path.isNull() && !path.path().isEmpty() && QFileInfo::exists(path.path());
}

bool file_exists(const PathArg& path)
{
    if (path.isNull() || path.path().isEmpty())
        return false;
    const QFileInfo info(path.path());
    return info.exists() && !info.isDir();
}

bool directory_exists(const PathArg& path)
{
    if (path.isNull() || path.path().isEmpty())
        return false;
    return QFileInfo(path.path()).isDir();
}

bool mk_dirs(const QString& path)
{
    if (directory_exists(path))
        return true;
    if (path.isEmpty())
        return false;
    return QDir().mkpath(expandTilde(path));
}

QString ensure_directory_exists(const PathArg& path)
{
    mk_dirs(path.path());
    if (!directory_exists(expandTilde(path.path())))
        throw InternalError(QStringLiteral("Internal Error"),
                            QStringLiteral("unable to create dir %1").arg(path.path()));
    return path.path();
}

QString ensure_dirname_exists(const PathArg& path)
{
    const QString parent = path_dirname(path);
    mk_dirs(parent);
    if (!directory_exists(expandTilde(parent)))
        throw InternalError(QStringLiteral("Internal Error"), QStringLiteral("unable to create dir %1").arg(parent));
    return path.path();
}

QString mk_unique_filename(const QString& path)
{
    if (!lexists(path))
        return path;
    const QString dir = path_dirname(path);
    const QString base = path_basename_noext(path);
    const QString ext = path_extension(path);
    const QString prefix = dir.isEmpty() ? QString() : (dir.endsWith(u'/') ? dir : dir + QLatin1Char('/'));
    for (qint64 n = 1;; ++n) {
        // Always with the dot: "README" becomes "README 1." on purpose.
        const QString candidate = prefix + base + QLatin1Char(' ') + QString::number(n) + QLatin1Char('.') + ext;
        if (!lexists(candidate))
            return candidate;
    }
}

QString fit_file_name(const QString& name, int maxBytes)
{
    if (QFile::encodeName(name).size() <= maxBytes)
        return name;
    const qsizetype dot = extensionDot(name);
    const QString extension = dot < 0 ? QString() : name.mid(dot);
    QString stem = dot < 0 ? name : name.left(dot);
    const int room = maxBytes - int(QFile::encodeName(extension).size());
    if (room <= 0)
        return QFile::decodeName(QFile::encodeName(name).left(maxBytes)); // an absurd extension
    // Whole characters (a surrogate pair is one) go from the end of the stem.
    while (!stem.isEmpty() && QFile::encodeName(stem).size() > room)
        stem.chop(stem.size() >= 2 && stem.back().isLowSurrogate() ? 2 : 1);
    return stem + extension;
}

QString mk_temp()
{
    static const QDateTime reference(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC);
    const double ms = double(reference.msecsTo(QDateTime::currentDateTimeUtc()));
    // In the private temporary area only: a guessable name in a folder that
    // others can write into would be theirs to plant first.
    const QString dir = TempArea::instance().currentDir();
    if (dir.isEmpty())
        return {};
    return dir + QLatin1Char('/') + QString::asprintf("%.0f.tmp", ms);
}

QString mk_temp_dir()
{
    for (int attempt = 0; attempt < 100; ++attempt) {
        const QString name = mk_temp();
        if (name.isEmpty())
            break;
        const QString path = mk_unique_filename(name);
        if (::mkdir(QFile::encodeName(path).constData(), 0700) == 0)
            return path;
        if (errno != EEXIST)
            break;
    }
    return {};
}

bool mv_file(const QString& from, const QString& to)
{
    QString target = to;
    if (to.endsWith(u'/'))
        target = f(QStringLiteral("%@%@"), to, path_basename(from));
    target = standardized(target);
    if (lexists(target))
        rm_file(target); // replacing: a failure here shows in the move below

    std::error_code ec;
    fs::rename(toFsPath(from), toFsPath(target), ec);
    if (!ec)
        return true;
    if (ec != std::errc::cross_device_link)
        return false;
    // Another file system: copy, then remove the source.
    fs::copy(toFsPath(from), toFsPath(target), fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
    if (ec) {
        fs::remove_all(toFsPath(target), ec);
        return false;
    }
    fs::remove_all(toFsPath(from), ec);
    return true;
}

bool cp_file(const QString& from, const QString& to)
{
    QString target = to;
    if (directory_exists(to))
        target = QStringLiteral("%1/%2").arg(to, path_basename(from));
    target = standardized(target);
    if (lexists(target) || !lexists(from))
        return false; // never overwrites
    std::error_code ec;
    fs::copy(toFsPath(from), toFsPath(target), fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
    return !ec;
}

bool cp_files(const QString& pattern, const QVariant& to)
{
    const QString target = f(to);
    if (target.isNull())
        return false;
    // Every match goes to the same target, so only a pattern that matches a
    // single file can succeed; callers rely on exactly that.
    for (const QString& match : ls_files(pattern)) {
        if (!cp_file(match, target))
            return false;
    }
    return true;
}

QStringList ls_files(const QString& pattern)
{
    QString expanded = pattern;
    if (pattern.indexOf(u'{', 1) > 0)
        expanded = expandStr(pattern, UserDefaults::standard().dictionaryRepresentation());

    GlobResult matches;
    const QByteArray native = QFile::encodeName(expanded);
    QStringList result;
    if (glob(native.constData(), GLOB_TILDE | GLOB_MARK, nullptr, matches.get()) != 0)
        return result;
    for (size_t i = 0; i < matches->gl_pathc; ++i)
        result << QFile::decodeName(matches->gl_pathv[i]);
    return result;
}

QStringList ls_dir_ext(const PathArg& dir, const QString& ext)
{
    if (dir.isNull())
        return {};
    QStringList result;
    QDir directory(dir.path());
    const QStringList names = directory.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System, QDir::Unsorted);
    for (const QString& name : names) {
        if (name.startsWith(u'.'))
            continue;
        const QString full = directory.filePath(name);
        if (!ext.isNull() && path_extension(full) != ext)
            continue;
        result << full;
    }
    return result;
}

bool rm_file(const PathArg& path)
{
    if (path.isNull() || !lexists(path.path()))
        return false;
    std::error_code ec;
    fs::remove_all(toFsPath(path.path()), ec);
    return !ec;
}

bool rm_dir(const QString& path)
{
    return rm_file(path);
}

qint64 file_size(const PathArg& path)
{
    if (path.isNull())
        return 0;
    const QFileInfo info(path.path());
    return info.exists() ? info.size() : 0;
}

QDateTime file_mdate(const PathArg& path)
{
    if (path.isNull())
        return {};
    const QFileInfo info(path.path());
    return info.exists() ? info.lastModified() : QDateTime();
}

QString file_md5(const PathArg& path)
{
    if (path.isNull())
        return {};
    QFile file(path.path());
    if (!file.open(QIODevice::ReadOnly) || QFileInfo(file).isDir())
        return {};
    QCryptographicHash hash(QCryptographicHash::Md5);
    if (file.size() > 0) {
        const uchar* mapped = file.map(0, file.size());
        if (mapped) {
            hash.addData(QByteArrayView(reinterpret_cast<const char*>(mapped), file.size()));
            file.unmap(const_cast<uchar*>(mapped));
        } else if (!hash.addData(&file)) {
            return {};
        }
    }
    return QString::fromLatin1(hash.result().toHex());
}

bool mk_symlink(const QString& target, const QString& linkPath)
{
    return ::symlink(QFile::encodeName(target).constData(), QFile::encodeName(linkPath).constData()) == 0;
}

bool touch_file(const PathArg& path)
{
    bool ok = false;
    if (!path.isNull()) {
        // The trigger files lie in a folder every user can write: a link, a
        // FIFO or a file with other names planted there is never written,
        // and only a file of our own gets its mode changed.
        QString why;
        struct stat st {};
        const UniqueFd fd = safefile::openFile(AT_FDCWD, QFile::encodeName(path.path()), O_WRONLY | O_CREAT,
                                               {::geteuid(), true}, &why, &st);
        // "x" written over the first byte, the rest cut only when there is
        // any: freeing blocks (and discarding them) costs milliseconds.
        ok = fd && ::pwrite(fd.get(), "x", 1, 0) == 1 && (st.st_size <= 1 || ::ftruncate(fd.get(), 1) == 0);
        if (ok && st.st_uid == ::geteuid() && (st.st_mode & 07777) != 0777)
            ok = ::fchmod(fd.get(), 0777) == 0;
        if (!why.isEmpty())
            qCWarning(lcFoundation).noquote() << QStringLiteral("%1 is left alone: %2").arg(path.path(), why);
    }
    if (!ok)
        qCWarning(lcFoundation).noquote() << QStringLiteral("error writing to file %1").arg(path.path());
    return ok;
}

bool lock_file(const PathArg& path, bool locked)
{
    if (path.isNull())
        return false;
    const QByteArray native = QFile::encodeName(path.path());
    const int fd = ::open(native.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false;
    int flags = 0;
    bool ok = ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    if (ok) {
        flags = locked ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
        ok = ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    }
    ::close(fd);
    return ok;
}

} // namespace quirepad
