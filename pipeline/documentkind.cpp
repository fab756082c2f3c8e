#include "pipeline/documentkind.h"

#include "foundation/ProcessRunner.h"
#include "foundation/TempArea.h"
#include "foundation/fileutil.h"

#include <QFile>
#include <QLoggingCategory>
#include <QMimeDatabase>

#include <unistd.h>

namespace quirepad {

Q_LOGGING_CATEGORY(lcDocument, "quirepad.delivery", QtInfoMsg)

namespace {
// A PDF may carry some bytes before its header (the format allows up to
// 1024); the MIME database looks a little further.
constexpr qint64 kHeadBytes = 4096;
} // namespace

QByteArray document_head(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QByteArray head = file.read(kHeadBytes);
    return head.isNull() ? QByteArray("") : head;
}

QByteArray document_head(int fd)
{
    QByteArray head(kHeadBytes, Qt::Uninitialized);
    const ssize_t got = ::pread(fd, head.data(), size_t(head.size()), 0);
    if (got < 0)
        return {};
    head.truncate(got);
    return head.isNull() ? QByteArray("") : head;
}

DocumentKind document_kind(const QByteArray& head)
{
    if (head.isNull())
        return DocumentKind::Missing;
    if (head.isEmpty())
        return DocumentKind::Empty;
    if (head.left(1024).contains("%PDF-"))
        return DocumentKind::Pdf;
    if (head.startsWith("%!") || head.startsWith("\x04%!") || head.startsWith("\xc5\xd0\xd3\xc6"))
        return DocumentKind::PostScript;
    return DocumentKind::Other;
}

QString document_suffix(const QByteArray& head, DocumentKind kind)
{
    switch (kind) {
    case DocumentKind::Pdf:
        return QStringLiteral("pdf");
    case DocumentKind::PostScript:
        return QStringLiteral("ps");
    case DocumentKind::Other:
        return QMimeDatabase().mimeTypeForData(head).preferredSuffix();
    case DocumentKind::Missing:
    case DocumentKind::Empty:
        break;
    }
    return {};
}

QString convert_to_pdf(const QString& path)
{
    const QString folder = TempArea::instance().makeDir(QStringLiteral("convert"));
    if (folder.isEmpty())
        return {};
    const QString target = folder + QLatin1Char('/') + path_basename_noext(path) + QStringLiteral(".pdf");
    // "%" in Ghostscript's output name would make one file per page.
    const QString output = folder + QStringLiteral("/converted.pdf");
    const ProcessRunner::Result run =
        ProcessRunner(QStringLiteral("gs"), {QStringLiteral("-dSAFER"), QStringLiteral("-dBATCH"), QStringLiteral("-dNOPAUSE"),
                                             QStringLiteral("-dQUIET"), QStringLiteral("-sDEVICE=pdfwrite"),
                                             QStringLiteral("-sOutputFile=") + output, QStringLiteral("-f"), path})
            .setTimeout(std::chrono::minutes(5))
            .setErrorOutput(ProcessRunner::ErrorOutput::Captured)
            .setForwardInput(false)
            .run();
    if (!run.succeeded() || document_kind(document_head(output)) != DocumentKind::Pdf || !mv_file(output, target)) {
        qCWarning(lcDocument).noquote() << "Ghostscript could not convert" << path << "to PDF:"
                                        << QString::fromUtf8(run.standardError).trimmed();
        return {};
    }
    return target;
}

} // namespace quirepad
