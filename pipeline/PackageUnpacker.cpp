#include "pipeline/PackageUnpacker.h"

#include "foundation/safefile.h"

#include <QFile>

#include <zip.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quirepad {

namespace {

struct ZipDiscard {
    void operator()(zip_t* archive) const { zip_discard(archive); }
};
struct ZipFileClose {
    void operator()(zip_file_t* file) const { zip_fclose(file); }
};
using ZipArchive = std::unique_ptr<zip_t, ZipDiscard>;
using ZipEntry = std::unique_ptr<zip_file_t, ZipFileClose>;

QString zipErrorText(int code)
{
    zip_error_t error;
    zip_error_init_with_code(&error, code);
    const QString text = QString::fromUtf8(zip_error_strerror(&error));
    zip_error_fini(&error);
    return text;
}

bool writeAll(int fd, const char* data, size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        data += written;
        size -= size_t(written);
    }
    return true;
}

// The Unix file type and permissions an entry carries, or 0 when the
// archive was made elsewhere.
mode_t unixModeOf(zip_t* archive, zip_uint64_t index)
{
    zip_uint8_t system = 0;
    zip_uint32_t attributes = 0;
    if (zip_file_get_external_attributes(archive, index, 0, &system, &attributes) != 0 || system != ZIP_OPSYS_UNIX)
        return 0;
    return mode_t(attributes >> 16);
}

} // namespace

PackageUnpacker::PackageUnpacker(QString archivePath)
    : m_archive(std::move(archivePath))
{
}

bool PackageUnpacker::fail(const QString& why)
{
    m_error = why;
    return false;
}

QString PackageUnpacker::junkedName(const QString& entryName, QString* why)
{
    auto refuse = [why](const QString& reason) {
        if (why)
            *why = reason;
        return QString();
    };
    if (entryName.isEmpty())
        return refuse(QStringLiteral("an entry has no name"));
    if (entryName.startsWith(u'/') || entryName.startsWith(u'\\'))
        return refuse(QStringLiteral("the entry \"%1\" has an absolute path").arg(entryName));
    // Backslashes count as separators too: some archivers write them.
    QString normalized = entryName;
    normalized.replace(u'\\', u'/');
    const QStringList parts = normalized.split(u'/');
    for (const QString& part : parts)
        if (part == QLatin1String(".."))
            return refuse(QStringLiteral("the entry \"%1\" leads out of its folder").arg(entryName));
    const QString last = parts.last();
    if (last == QLatin1String("."))
        return refuse(QStringLiteral("the entry \"%1\" has no file name").arg(entryName));
    return last.isEmpty() ? QStringLiteral("") : last;
}

bool PackageUnpacker::unpackInto(const QString& folder)
{
    int openError = 0;
    const ZipArchive archive(zip_open(QFile::encodeName(m_archive).constData(), ZIP_RDONLY | ZIP_CHECKCONS, &openError));
    if (!archive)
        return fail(QStringLiteral("not a readable zip archive (%1)").arg(zipErrorText(openError)));

    const zip_int64_t count = zip_get_num_entries(archive.get(), 0);
    if (count < 0)
        return fail(QStringLiteral("not a readable zip archive"));
    if (count > kMaxEntries)
        return fail(QStringLiteral("the archive holds %1 entries, more than the %2 allowed").arg(count).arg(kMaxEntries));

    // Every name and type is checked before anything is written; the sizes
    // the archive declares refuse an obvious bomb early, and the bytes
    // actually written are counted below whatever it declares.
    std::int64_t declared = 0;
    for (zip_int64_t i = 0; i < count; ++i) {
        zip_stat_t st;
        zip_stat_init(&st);
        if (zip_stat_index(archive.get(), zip_uint64_t(i), 0, &st) != 0 || !(st.valid & ZIP_STAT_NAME))
            return fail(QStringLiteral("entry %1 of the archive cannot be read").arg(i));
        QString why;
        const QString name = junkedName(QString::fromUtf8(st.name), &why);
        if (name.isNull())
            return fail(why);
        const mode_t mode = unixModeOf(archive.get(), zip_uint64_t(i));
        const mode_t type = mode & S_IFMT;
        if (type == S_IFLNK)
            return fail(QStringLiteral("the entry \"%1\" is a symbolic link").arg(QString::fromUtf8(st.name)));
        if (type != 0 && type != S_IFREG && type != S_IFDIR)
            return fail(QStringLiteral("the entry \"%1\" is not a regular file").arg(QString::fromUtf8(st.name)));
        if (name.isEmpty() || type == S_IFDIR)
            continue;
        if ((st.valid & ZIP_STAT_SIZE)) {
            if (st.size > zip_uint64_t(kMaxUnpackedBytes) || declared + std::int64_t(st.size) > kMaxUnpackedBytes)
                return fail(QStringLiteral("the archive unpacks to more than %1 MiB").arg(kMaxUnpackedBytes >> 20));
            declared += std::int64_t(st.size);
        }
    }

    const UniqueFd dir(::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!dir)
        return fail(QStringLiteral("cannot open the folder %1: %2").arg(folder, QString::fromLocal8Bit(std::strerror(errno))));

    std::vector<char> buffer(64 * 1024);
    for (zip_int64_t i = 0; i < count; ++i) {
        const char* rawName = zip_get_name(archive.get(), zip_uint64_t(i), 0);
        const QString name = junkedName(QString::fromUtf8(rawName ? rawName : ""), nullptr);
        const mode_t mode = unixModeOf(archive.get(), zip_uint64_t(i));
        if (name.isEmpty() || (mode & S_IFMT) == S_IFDIR)
            continue; // a folder: paths are dropped
        const QByteArray nativeName = QFile::encodeName(name);
        // A later entry of the same name replaces the earlier one (the
        // folder is private and ours).
        if (m_files.contains(name))
            ::unlinkat(dir.get(), nativeName.constData(), 0);
        else
            m_files << name;

        const ZipEntry entry(zip_fopen_index(archive.get(), zip_uint64_t(i), 0));
        if (!entry)
            return fail(QStringLiteral("the entry \"%1\" cannot be read: %2").arg(name, QString::fromUtf8(zip_strerror(archive.get()))));
        const mode_t permissions = (mode & 0111) ? 0755 : 0644;
        const UniqueFd out(::openat(dir.get(), nativeName.constData(),
                                    O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, permissions));
        if (!out)
            return fail(QStringLiteral("cannot write %1: %2").arg(name, QString::fromLocal8Bit(std::strerror(errno))));
        for (;;) {
            const zip_int64_t read = zip_fread(entry.get(), buffer.data(), buffer.size());
            if (read < 0)
                return fail(QStringLiteral("the entry \"%1\" is damaged: %2").arg(name, QString::fromUtf8(zip_file_strerror(entry.get()))));
            if (read == 0)
                break;
            if (m_bytesWritten + read > kMaxUnpackedBytes)
                return fail(QStringLiteral("the archive unpacks to more than %1 MiB").arg(kMaxUnpackedBytes >> 20));
            if (!writeAll(out.get(), buffer.data(), size_t(read)))
                return fail(QStringLiteral("cannot write %1: %2").arg(name, QString::fromLocal8Bit(std::strerror(errno))));
            m_bytesWritten += read;
        }
    }
    return true;
}

} // namespace quirepad
