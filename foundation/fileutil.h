#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QUrl>

namespace quirepad {

// A path argument: a string, or a file URL that stands for its path.
class PathArg
{
public:
    PathArg(const QString& path) : m_path(path) {}
    PathArg(const char* path) : m_path(QString::fromUtf8(path)) {}
    PathArg(const QUrl& url) : m_path(url.isEmpty() ? QString() : url.path(QUrl::FullyDecoded)) {}

    const QString& path() const { return m_path; }
    bool isNull() const { return m_path.isNull(); }

private:
    QString m_path;
};

// Path names (no file-system access except path_displayname).
QString path_basename(const PathArg& path);
QString path_dirname(const PathArg& path);
QString path_basename_noext(const PathArg& path);
QString path_extension(const PathArg& path);
QString path_displayname(const PathArg& path);

// Existence tests; a null path answers false.
bool path_exists(const PathArg& path);
bool file_exists(const PathArg& path);
bool directory_exists(const PathArg& path);

// Directories. mk_dirs answers whether the folder exists afterwards; the
// ensure_* forms throw InternalError("Internal Error", "unable to create dir
// <path>") instead and return the path they were given.
bool mk_dirs(const QString& path);
QString ensure_directory_exists(const PathArg& path);
QString ensure_dirname_exists(const PathArg& path);

// Files.
QString mk_unique_filename(const QString& path);
// The file name (no folder) cut to at most maxBytes bytes of the file
// system's encoding: the part before the extension loses whole characters
// from its end; the extension stays.
QString fit_file_name(const QString& name, int maxBytes);
QString mk_temp();
// A new, empty folder named like mk_temp() (made unique when two are asked
// for within one millisecond); a null string when it cannot be made.
QString mk_temp_dir();
bool mv_file(const QString& from, const QString& to);
bool cp_file(const QString& from, const QString& to);
bool cp_files(const QString& pattern, const QVariant& to);
QStringList ls_files(const QString& pattern);
QStringList ls_dir_ext(const PathArg& dir, const QString& ext = QString());
bool rm_file(const PathArg& path);
bool rm_dir(const QString& path);
qint64 file_size(const PathArg& path);
QDateTime file_mdate(const PathArg& path);
QString file_md5(const PathArg& path);
bool mk_symlink(const QString& target, const QString& linkPath);
bool touch_file(const PathArg& path);
bool lock_file(const PathArg& path, bool locked);

} // namespace quirepad
