#include "foundation/TempArea.h"

#include "foundation/GlobalEnv.h"
#include "foundation/Log.h"
#include "foundation/safefile.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QTemporaryDir>

#include <filesystem>
#include <system_error>

#include <cstdlib>

namespace quirepad {

namespace {

const QString kLockName = QStringLiteral(".lock");
constexpr qint64 kLastingSeconds = 24 * 60 * 60;
// A process folder without its lock file yet may be one being set up.
constexpr qint64 kUnlockedGraceSeconds = 10 * 60;

// Removes a tree inside the private area; links in it are removed, never
// followed.
void removeTree(const QString& path)
{
    std::error_code ec;
    std::filesystem::remove_all(std::filesystem::path(QFile::encodeName(path).toStdString()), ec);
    if (ec)
        qCWarning(lcFoundation).noquote() << "cannot remove" << path << ":" << QString::fromStdString(ec.message());
}

QString cacheRoot()
{
    return QDir::cleanPath(GlobalEnv::instance().value(QStringLiteral("APP_CACHES")).toString());
}

qint64 ageSeconds(const QFileInfo& info)
{
    return info.lastModified().secsTo(QDateTime::currentDateTime());
}

} // namespace

TempArea& TempArea::instance()
{
    static TempArea area;
    return area;
}

TempArea::TempArea()
    : m_root(cacheRoot() + QStringLiteral("/tmp"))
    , m_lastingRoot(cacheRoot() + QStringLiteral("/opened"))
{
}

TempArea::~TempArea()
{
    m_lock.reset();
    m_processDir.reset(); // removes the process folder
}

bool TempArea::ensureProcessDir()
{
    if (m_processDir)
        return true;
    if (m_failed)
        return false;
    QString reason;
    if (!ensure_private_dir(m_root, &reason)) {
        qCWarning(lcFoundation).noquote() << "no private folder for temporary files:" << reason;
        m_failed = true;
        return false;
    }
    removeLeftovers();
    auto dir = std::make_unique<QTemporaryDir>(m_root + QStringLiteral("/run-XXXXXX"));
    if (!dir->isValid()) {
        qCWarning(lcFoundation).noquote() << "cannot create a temporary folder in" << m_root << ":" << dir->errorString();
        m_failed = true;
        return false;
    }
    auto lock = std::make_unique<QLockFile>(dir->filePath(kLockName));
    lock->setStaleLockTime(0);
    lock->tryLock(0);
    m_processDir = std::move(dir);
    m_lock = std::move(lock);
    return true;
}

void TempArea::removeLeftovers()
{
    const QFileInfoList runs = QDir(m_root).entryInfoList({QStringLiteral("run-*")}, QDir::Dirs | QDir::NoSymLinks | QDir::Hidden);
    for (const QFileInfo& run : runs) {
        const QString lockPath = run.filePath() + QLatin1Char('/') + kLockName;
        if (QFileInfo::exists(lockPath)) {
            QLockFile lock(lockPath);
            lock.setStaleLockTime(0);
            if (!lock.tryLock(0))
                continue; // a live process works there
            lock.unlock();
        } else if (ageSeconds(run) < kUnlockedGraceSeconds) {
            continue;
        }
        qCInfo(lcFoundation).noquote() << "removing temporary files left by an earlier run:" << run.filePath();
        removeTree(run.filePath());
    }
    const QFileInfoList lasting = QDir(m_lastingRoot).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden);
    for (const QFileInfo& dir : lasting)
        if (ageSeconds(dir) > kLastingSeconds)
            removeTree(dir.filePath());
}

QString TempArea::currentDir()
{
    if (!m_scopes.isEmpty())
        return m_scopes.last()->dir();
    return ensureProcessDir() ? m_processDir->path() : QString();
}

QString TempArea::makeDir(const QString& prefix)
{
    return makeDirIn(currentDir(), prefix);
}

QString TempArea::makeDirIn(const QString& base, const QString& prefix)
{
    if (base.isEmpty())
        return {};
    QByteArray pattern = QFile::encodeName(base + QLatin1Char('/') + prefix + QStringLiteral("-XXXXXX"));
    if (!::mkdtemp(pattern.data())) {
        qCWarning(lcFoundation).noquote() << "cannot create a temporary folder in" << base;
        return {};
    }
    return QFile::decodeName(pattern);
}

QString TempArea::makeLastingDir()
{
    QString reason;
    if (!ensureProcessDir() || !ensure_private_dir(m_lastingRoot, &reason)) {
        if (!reason.isEmpty())
            qCWarning(lcFoundation).noquote() << reason;
        return {};
    }
    QByteArray pattern = QFile::encodeName(m_lastingRoot + QStringLiteral("/XXXXXX"));
    return ::mkdtemp(pattern.data()) ? QFile::decodeName(pattern) : QString();
}

bool TempArea::contains(const QString& path) const
{
    const QString clean = QDir::cleanPath(path);
    for (const QString& root : {m_root, m_lastingRoot})
        if (clean.startsWith(root + QLatin1Char('/')))
            return true;
    return false;
}

TempArea::JobScope::JobScope()
{
    TempArea::instance().m_scopes.append(this);
}

QString TempArea::JobScope::dir() const
{
    if (m_dir.isEmpty()) {
        // Made in the folder of the scope around this one, or the process's.
        TempArea& area = TempArea::instance();
        const qsizetype at = area.m_scopes.indexOf(this);
        const QString base = at > 0 ? area.m_scopes.at(at - 1)->dir()
                                    : (area.ensureProcessDir() ? area.m_processDir->path() : QString());
        m_dir = makeDirIn(base, QStringLiteral("job"));
    }
    return m_dir;
}

TempArea::JobScope::~JobScope()
{
    TempArea::instance().m_scopes.removeAll(this);
    if (!m_dir.isEmpty())
        removeTree(m_dir);
}

} // namespace quirepad
