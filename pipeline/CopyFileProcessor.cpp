#include "pipeline/CopyFileProcessor.h"

#include "foundation/DialogService.h"
#include "foundation/InternalError.h"
#include "foundation/dialogs.h"
#include "foundation/fileutil.h"
#include "foundation/identifiers.h"
#include "foundation/pathvars.h"
#include "foundation/safefile.h"
#include "foundation/session.h"
#include "foundation/Shutdown.h"
#include "foundation/TempArea.h"
#include "pipeline/jobinfo.h"
#include "pipeline/documentkind.h"
#include "pipeline/filters.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QUrl>

#include <cerrno>
#include <fcntl.h>
#include <cstring>
#include <stdio.h>
#include <unistd.h>

namespace quirepad {

Q_LOGGING_CATEGORY(lcDelivery, "quirepad.delivery", QtInfoMsg)

namespace {

QString contextValue(const QVariantMap& context, const char* key, const QString& fallback)
{
    const QVariant value = context.value(QString::fromLatin1(key));
    return value.isValid() && !value.isNull() ? value.toString() : fallback;
}

// NAME_MAX less room for the " 999" of a unique name.
constexpr int kMaxDeliveredNameBytes = 240;

// The path with its extension replaced (or added); the same path for an
// empty extension.
QString withExtension(const QString& path, const QString& extension)
{
    if (extension.isEmpty() || path_extension(path) == extension)
        return path;
    const qsizetype dot = path.lastIndexOf(u'.');
    const qsizetype slash = path.lastIndexOf(u'/');
    return (dot > slash + 1 ? path.left(dot) : path) + QLatin1Char('.') + extension;
}

} // namespace

QStringList CopyFileProcessor::temporaryPlaces()
{
    return {TempArea::instance().root(), QStringLiteral("/tmp"), QStringLiteral("/var/tmp"), QDir::tempPath(),
            QDir::cleanPath(SpoolLocations::sharedDirectory())};
}

bool CopyFileProcessor::isInTemporaryPlace(const QString& path)
{
    for (const QString& place : temporaryPlaces())
        if (path == place || path.startsWith(place + QLatin1Char('/')))
            return true;
    return false;
}

CopyFileProcessor::CopyFileProcessor() = default;
CopyFileProcessor::~CopyFileProcessor() = default;

QString CopyFileProcessor::outputDir()
{
    const QString text = config.value(QStringLiteral("output_dir")).toString();
    const QUrl url(text, QUrl::StrictMode);
    if (url.isValid() && !url.path().isEmpty())
        return url.path(QUrl::FullyDecoded);
    return f(QStringLiteral("~/Desktop"));
}

QString CopyFileProcessor::sanitizeName(const QString& name) const
{
    static const QString marker = QStringLiteral("-D3F2UG-");
    QString shortened = name;
    const qsizetype at = name.indexOf(marker);
    if (at >= 0)
        shortened = name.mid(at + marker.size());
    else if (name_pattern.isEmpty())
        return name; // neither an owner prefix nor a pattern: left exactly as it is

    const QString extension = path_extension(shortened);
    QString result = shortened;
    if (!name_pattern.isEmpty()) {
        result = name_pattern;
        result.replace(QStringLiteral("%t"), contextValue(context, "TITLE", QStringLiteral("Unknown")));
        result.replace(QStringLiteral("%u"), contextValue(context, "USER", user_name()));
        result.replace(QStringLiteral("%h"), contextValue(context, "HOST", QStringLiteral("localhost")));
        if (path_extension(result).isEmpty())
            result += QLatin1Char('.') + extension;
    }
    static const std::pair<const char*, const char*> replacements[] = {
        {"/", ";"}, {"?", "."}, {"<", "("}, {">", ")"}, {"\\", ";"}, {":", ";"}, {"*", "#"}, {"|", ";"}, {"\"", "'"},
    };
    for (const auto& [from, to] : replacements)
        result.replace(QLatin1String(from), QLatin1String(to));
    return result;
}

bool CopyFileProcessor::processFile(const QString& path)
{
    m_failure.clear();
    const QString folder = outputDir();
    if (folder.isEmpty()) {
        if (m_failure.isEmpty())
            m_failure = QStringLiteral("the destination has no folder to deliver into");
        return false;
    }
    // The name never outgrows the file system, with room left for " 2",
    // " 3" ... beside a taken one.
    const QString title = contextValue(context, "TITLE", path_basename_noext(path));
    QString target = (folder.endsWith(u'/') ? folder : folder + QLatin1Char('/'))
                     + fit_file_name(sanitizeName(path_basename(path)), kMaxDeliveredNameBytes);
    const QByteArray head = m_sourceFd >= 0 ? document_head(m_sourceFd) : document_head(path);
    DocumentKind kind = document_kind(head);
    if (kind == DocumentKind::Missing || kind == DocumentKind::Empty) {
        fail(kind == DocumentKind::Empty ? QStringLiteral("“%1” is empty (0 bytes): there is nothing to deliver.").arg(title)
                                         : QStringLiteral("“%1” cannot be read.").arg(title));
        return false;
    }
    QString working = path;
    const bool wantsPdf = do_compress || !tranform.isEmpty();
    if (kind == DocumentKind::PostScript && wantsPdf) {
        // Compression and filters work on PDF: PostScript is converted first.
        working = convert_to_pdf(path);
        if (working.isEmpty()) {
            fail(QStringLiteral("“%1” is PostScript and could not be converted to PDF.").arg(title));
            return false;
        }
        kind = DocumentKind::Pdf;
    } else if (kind == DocumentKind::Other && wantsPdf) {
        qCWarning(lcDelivery).noquote() << path << "is not a PDF: delivered without compression or filter";
    }
    // The extension follows the content: PostScript is delivered as ".ps",
    // a text as ".txt", whatever the pattern says.
    target = withExtension(target, document_suffix(working == path ? head : document_head(working), kind));
    if (do_compress && kind == DocumentKind::Pdf) {
        // Compression rewrites its file: only a copy of our own in the
        // private temporary area, never the user's document or a spool job.
        if (!TempArea::instance().contains(working))
            working = make_temp_fl({working}).value(0);
        if (working.isEmpty()) {
            fail(QStringLiteral("%1 could not be copied for compression").arg(path));
            return false;
        }
        compress_pdf(working, true);
    }
    if (!tranform.isEmpty() && kind == DocumentKind::Pdf) {
        working = execute_filter(working, tranform, context);
        target = withExtension(target, path_extension(working));
    }
    // Compression or a filter cut short by quitting: the job waits for the
    // next run rather than going out half done.
    if (Shutdown::isRequested()) {
        fail(QStringLiteral("Quirepad quit before “%1” was delivered").arg(title), false);
        return false;
    }
    copyTempFile(working, target);
    return !failed();
}

bool CopyFileProcessor::copyTempFile(const QString& source, const QString& target)
{
    QString chosen;
    if (config.value(QStringLiteral("ask_to_confim")).toBool()) {
        chosen = DialogService::current().chooseSaveFile(target);
        if (chosen.isEmpty())
            return false;
        if (!deliverCopy(source, chosen))
            return true;
    } else {
        // A name taken already is never replaced (unless overwriting): the
        // next free one is used instead.
        chosen = target;
        if (!deliverCopy(source, chosen, do_overwrite))
            return true;
    }
    resultFile = chosen;
    if (isPlainFolderProcessor())
        notifySucessTitle(QStringLiteral("File Copied"), chosen);
    return true;
}

QString CopyFileProcessor::partialFilePrefix()
{
    return QStringLiteral(".quirepad-");
}

QString CopyFileProcessor::writeFailure(const QString& target, int error)
{
    QString why;
    switch (error) {
    case ENOSPC:
    case EDQUOT:
        why = QStringLiteral("the disk is full");
        break;
    case EACCES:
    case EPERM:
        why = QStringLiteral("you may not write into that folder");
        break;
    case EROFS:
        why = QStringLiteral("the disk is read-only");
        break;
    default:
        why = QString::fromLocal8Bit(std::strerror(error));
    }
    return QStringLiteral("%1 could not be written: %2.").arg(target, why);
}

bool CopyFileProcessor::readsSourceOnly() const
{
    return isPlainFolderProcessor() && !do_compress && tranform.isEmpty()
           && !config.value(QStringLiteral("ask_to_confim")).toBool();
}

bool CopyFileProcessor::makeFolderFor(const QString& target)
{
    try {
        ensure_dirname_exists(target);
        return true;
    } catch (const InternalError& error) {
        fail(error.reason());
        return false;
    }
}

bool CopyFileProcessor::deliverCopy(const QString& source, QString& target, bool replace)
{
    // The source descriptor stands for the path it was given with.
    const bool fromDescriptor = m_sourceFd >= 0 && source == m_sourcePath;
    UniqueFd opened(fromDescriptor ? -1 : ::open(QFile::encodeName(source).constData(), O_RDONLY | O_CLOEXEC));
    const int in = fromDescriptor ? m_sourceFd : opened.get();
    if (in < 0) {
        fail(QStringLiteral("%1 cannot be read: %2.").arg(source, QString::fromLocal8Bit(std::strerror(errno))));
        return false;
    }
    int error = 0;
    if (fromDescriptor && m_mover) {
        // A job the spool gives up anyway is moved when the folder is on the
        // same file system: no data copied, and at no moment in two places.
        for (int attempt = 0;; ++attempt) {
            error = m_mover(QFile::encodeName(target), replace);
            if ((error == ENOENT || error == ENOTDIR) && attempt == 0) {
                if (!makeFolderFor(target))
                    return false;
                continue;
            }
            if (error != EEXIST || replace || attempt >= 100)
                break;
            target = mk_unique_filename(target);
        }
        if (error == 0) {
            m_sourceMoved = true;
            qCInfo(lcDelivery).noquote() << "delivered" << target;
            return true;
        }
        if (error != EXDEV) {
            fail(writeFailure(target, error));
            return false;
        }
    }
    if (!replace) {
        // Written without a name in the target's folder and named when
        // complete: nobody ever sees half a file, and a killed run leaves
        // nothing behind. Linking never replaces a name that exists.
        const QByteArray folder = QFile::encodeName(path_dirname(target));
        UniqueFd unnamed = safefile::copyToUnnamedFile(in, folder, &error);
        if (!unnamed && (error == ENOENT || error == ENOTDIR)) {
            if (!makeFolderFor(target))
                return false;
            unnamed = safefile::copyToUnnamedFile(in, folder, &error);
        }
        if (unnamed) {
            for (int attempt = 0;; ++attempt) {
                error = safefile::linkUnnamedFile(unnamed.get(), QFile::encodeName(target));
                if (error != EEXIST || attempt >= 100)
                    break;
                target = mk_unique_filename(target);
            }
            if (error == 0) {
                qCInfo(lcDelivery).noquote() << "delivered" << target;
                return true;
            }
            if (error != ENOENT) { // ENOENT: no /proc to name it through
                fail(writeFailure(target, error));
                return false;
            }
        } else if (error != EOPNOTSUPP && error != EISDIR && error != EINVAL) {
            fail(writeFailure(target, error));
            return false;
        }
    }
    // Where unnamed files cannot be made, and when replacing: written under
    // a short hidden name of ours in the target's folder (whatever the
    // target's length) and renamed into place when complete. The process
    // id in it tells the next start which partial files a killed run left.
    if (!path_exists(path_dirname(target)) && !makeFolderFor(target))
        return false;
    const QString partial = path_dirname(target) + QLatin1Char('/') + partialFilePrefix()
                            + QStringLiteral("%1-%2.part").arg(QCoreApplication::applicationPid()).arg(generateUUID().left(8));
    if (!safefile::copyToNewFile(in, partial, nullptr, &error)) {
        ::unlink(QFile::encodeName(partial).constData());
        fail(writeFailure(target, error));
        return false;
    }
    for (int attempt = 0;; ++attempt) {
        const QByteArray from = QFile::encodeName(partial);
        const QByteArray to = QFile::encodeName(target);
        const int renamed = replace ? ::rename(from.constData(), to.constData())
                                    : ::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE);
        if (renamed == 0)
            break;
        if (!replace && errno == EEXIST && attempt < 100) {
            target = mk_unique_filename(target);
            continue;
        }
        error = errno;
        ::unlink(from.constData());
        fail(writeFailure(target, error));
        return false;
    }
    qCInfo(lcDelivery).noquote() << "delivered" << target;
    return true;
}

void CopyFileProcessor::fail(const QString& reason, bool tellUser)
{
    m_failure = reason;
    qCWarning(lcDelivery).noquote() << "delivery failed:" << reason;
    if (tellUser)
        MYDisplayError(Error{QStringLiteral("quirepad.delivery"), 1, QStringLiteral("The document could not be delivered."),
                         reason, QStringLiteral("The print job stays in the queue; use Retry once the problem is solved.")});
}

void CopyFileProcessor::notifySucessTitle(const QString& text, const QString& path)
{
    if (!notifies)
        return;
    const QString title = contextValue(context, "TITLE", QString());
    Notification notification;
    if (title.isEmpty())
        notification.title = destinationLabel.isEmpty() ? QStringLiteral("Quirepad") : destinationLabel;
    else
        notification.title = destinationLabel.isEmpty() ? title : QStringLiteral("%1 \u2192 %2").arg(title, destinationLabel);
    notification.text = text;
    notification.revealPath = path;
    if (!path.isEmpty() && QFileInfo(path).isFile())
        notification.openPath = path;
    MYDisplayNotification(notification);
}

} // namespace quirepad
