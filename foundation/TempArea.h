#pragma once

#include <QString>
#include <QStringList>

#include <memory>

class QLockFile;
class QTemporaryDir;

namespace quirepad {

// The program's private room for temporary files: ${APP_CACHES}/tmp, mode
// 0700, never a shared folder. Each process works in a folder of its own
// there ("run-XXXXXX", held by a lock file) that goes when the process
// ends; what a crashed process left is removed when the next one starts.
// While a JobScope is open, new temporary folders go into the job's folder
// and are removed with it.
class TempArea
{
public:
    static TempArea& instance();
    ~TempArea();
    TempArea(const TempArea&) = delete;
    TempArea& operator=(const TempArea&) = delete;

    // Makes the process's folder, removing what crashed runs left first.
    // Called at start; every other call does it as well when needed.
    bool prepare() { return ensureProcessDir(); }
    // The folder new temporary files go to now (the job's, else the
    // process's); a null string when no private folder can be had.
    QString currentDir();
    // A new, empty folder inside currentDir() with an unpredictable name.
    QString makeDir(const QString& prefix = QStringLiteral("tmp"));
    // A new folder for files that must outlive the job (a copy handed to a
    // viewer): ${APP_CACHES}/opened/XXXXXX, removed a day later.
    QString makeLastingDir();
    // Whether a path lies in the private area (files there are ours to
    // rewrite).
    bool contains(const QString& path) const;
    QString root() const { return m_root; }

    // Everything made in the area while it lives is removed when it ends.
    // Its folder is made on first use only (most jobs need none).
    class JobScope
    {
    public:
        JobScope();
        ~JobScope();
        JobScope(const JobScope&) = delete;
        JobScope& operator=(const JobScope&) = delete;
        QString dir() const;

    private:
        mutable QString m_dir;
    };

private:
    TempArea();
    static QString makeDirIn(const QString& base, const QString& prefix);
    bool ensureProcessDir();
    void removeLeftovers();

    QString m_root;
    QString m_lastingRoot;
    std::unique_ptr<QTemporaryDir> m_processDir;
    std::unique_ptr<QLockFile> m_lock;
    QList<const JobScope*> m_scopes;
    bool m_failed = false;
};

} // namespace quirepad
