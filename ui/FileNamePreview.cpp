#include "ui/FileNamePreview.h"

#include "foundation/fileutil.h"
#include "foundation/session.h"
#include "pipeline/CopyFileProcessor.h"

#include <QSysInfo>

namespace quirepad {

QString FileNamePreview::sampleTitle()
{
    return QStringLiteral("Quarterly plan");
}

QString FileNamePreview::fileName(const QString& pattern)
{
    CopyFileProcessor processor;
    processor.name_pattern = pattern;
    processor.setContext({ { QStringLiteral("TITLE"), sampleTitle() }, { QStringLiteral("USER"), user_name() },
        { QStringLiteral("HOST"), QSysInfo::machineHostName() } });
    // As the spool names a printed job; delivery fits the name into 240
    // bytes the same way.
    const QString spoolName = user_name() + QStringLiteral("-D3F2UG-") + sampleTitle() + QStringLiteral(".pdf");
    return fit_file_name(processor.sanitizeName(spoolName), 240);
}

} // namespace quirepad
