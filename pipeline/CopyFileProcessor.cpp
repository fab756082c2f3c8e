#include "pipeline/CopyFileProcessor.h"

#include "foundation/DialogService.h"
#include "foundation/InternalError.h"
#include "foundation/dialogs.h"
#include "foundation/fileutil.h"
#include "foundation/identifiers.h"
#include "foundation/pathvars.h"
#include "foundation/session.h"
#include "foundation/TempArea.h"
#include "pipeline/jobinfo.h"
#include "pipeline/filters.h"

#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QUrl>

#include <cerrno>
#include <fcntl.h>
#include <cstring>
#include <stdio.h>

namespace quirepad {

Q_LOGGING_CATEGORY(lcDelivery, "quirepad.delivery", QtInfoMsg)

namespace {

QString contextValue(const QVariantMap& context, const char* key, const QString& fallback)
{
    const QVariant value = context.value(QString::fromLatin1(key));
    return value.isValid() && !value.isNull() ? value.toString() : fallback;
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
    QString target = (folder.endsWith(u'/') ? folder : folder + QLatin1Char('/')) + sanitizeName(path_basename(path));
    QString working = path;
    if (do_compress) {
        // Compression rewrites its file: only a copy of our own in the
        // private temporary area, never the user's document or a spool job.
        if (!TempArea::instance().contains(path))
            working = make_temp_fl({path}).value(0);
        if (working.isEmpty()) {
            fail(QStringLiteral("%1 could not be copied for compression").arg(path));
            return false;
        }
        compress_pdf(working, true);
    }
    if (!tranform.isEmpty()) {
        working = execute_filter(working, tranform, context);
        const QString newExtension = path_extension(working);
        if (!newExtension.isEmpty() && newExtension != path_extension(target)) {
            const qsizetype dot = target.lastIndexOf(u'.');
            const qsizetype slash = target.lastIndexOf(u'/');
            target = (dot > slash ? target.left(dot) : target) + QLatin1Char('.') + newExtension;
        }
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
        try {
            ensure_dirname_exists(target);
        } catch (const InternalError& error) {
            fail(error.reason());
            return true;
        }
        chosen = (!path_exists(target) || do_overwrite) ? target : mk_unique_filename(target);
        if (!deliverCopy(source, chosen, do_overwrite))
            return true;
    }
    resultFile = chosen;
    if (isPlainFolderProcessor())
        notifySucessTitle(QStringLiteral("File Copied"), chosen);
    return true;
}

bool CopyFileProcessor::deliverCopy(const QString& source, QString& target, bool replace)
{
    QFile in(source);
    if (!in.open(QIODevice::ReadOnly)) {
        fail(QStringLiteral("%1 cannot be read: %2").arg(source, in.errorString()));
        return false;
    }
    // Written under a hidden name in the target's folder, renamed into place
    // when complete: nobody ever sees half a file under the real name. The
    // batch makes the folder durable once, before the job leaves the spool.
    const QString partial = path_dirname(target) + QStringLiteral("/.") + path_basename(target)
                            + QStringLiteral(".quirepad-") + generateUUID().left(8);
    QFile out(partial);
    if (!out.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
        fail(QStringLiteral("%1 cannot be written: %2").arg(target, out.errorString()));
        return false;
    }
    bool ok = true;
    while (ok && !in.atEnd()) {
        const QByteArray buffer = in.read(1 << 20);
        ok = !(buffer.isEmpty() && in.error() != QFile::NoError) && out.write(buffer) == buffer.size();
    }
    ok = ok && in.error() == QFile::NoError && out.flush();
    const QString reason = out.error() != QFileDevice::NoError ? out.errorString() : in.errorString();
    out.close();
    // Without overwriting, a name taken meanwhile is never replaced: the
    // next free one is used instead.
    for (int attempt = 0; ok; ++attempt) {
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
        fail(QStringLiteral("%1 could not be written: %2").arg(target, QString::fromLocal8Bit(std::strerror(errno))));
        QFile::remove(partial);
        return false;
    }
    if (!ok) {
        QFile::remove(partial);
        fail(QStringLiteral("%1 could not be written: %2").arg(target, reason));
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
    MYDisplayNotification(QStringLiteral("Quirepad"), text, path);
}

} // namespace quirepad
