#pragma once

#include <QString>

namespace quirepad {

// What a document holds, by its first bytes rather than its name.
enum class DocumentKind { Missing, Empty, Pdf, PostScript, Other };
DocumentKind document_kind(const QString& path);

// The file name extension its content calls for: "pdf", "ps", else what
// the MIME database knows of it ("txt" for plain text); empty when nothing
// fits.
QString document_suffix(const QString& path, DocumentKind kind);

// Converts PostScript to PDF with Ghostscript, into the private temporary
// area, under the same name with ".pdf". The new path; a null string when
// it failed (logged).
QString convert_to_pdf(const QString& path);

} // namespace quirepad
