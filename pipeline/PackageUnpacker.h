#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>

namespace quirepad {

// Unpacks an untrusted zip archive into an empty folder, in-process, with
// every entry's folders dropped (only the last name component is kept).
// The whole archive is refused when an entry has an absolute path, a ".."
// component, or is a link or another special file; when it holds too many
// entries; or when its contents, counted as they are written, grow past
// the size limit. Files are created anew (never through a link) with mode
// 0755 when the archive marks them executable, else 0644; a later entry of
// the same name replaces an earlier one. What a refused archive left in the
// folder is the caller's to remove.
class PackageUnpacker
{
public:
    static constexpr std::int64_t kMaxEntries = 10000;
    static constexpr std::int64_t kMaxUnpackedBytes = std::int64_t(256) * 1024 * 1024;

    explicit PackageUnpacker(QString archivePath);

    // Answers whether every entry was unpacked; otherwise error() says why.
    bool unpackInto(const QString& folder);

    QString error() const { return m_error; }
    // The bytes written so far (never more than kMaxUnpackedBytes).
    std::int64_t bytesWritten() const { return m_bytesWritten; }
    // The file names written, in archive order, without repeats.
    QStringList files() const { return m_files; }

    // The last component of an entry name, or a null string when the name
    // must be refused (absolute, "..", empty last component for a file).
    // Folder entries ("dir/") answer an empty string.
    static QString junkedName(const QString& entryName, QString* why);

private:
    bool fail(const QString& why);

    QString m_archive;
    QString m_error;
    std::int64_t m_bytesWritten = 0;
    QStringList m_files;
};

} // namespace quirepad
