#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace quirepad {

// The Keywords entry of a PDF's document information, as a list: the text
// is split at commas and joined with ", " when written. Writing replaces
// the file atomically (qpdf writes a new file that is renamed into place).
class PdfKeywords
{
public:
    static std::optional<QStringList> read(const QString& path);
    static bool write(const QString& path, const QStringList& keywords);
};

} // namespace quirepad
