#pragma once

#include <QString>

namespace quirepad {

// What a document holds, by its first bytes rather than its name.
enum class DocumentKind { Missing, Empty, Pdf, PostScript, Other };

// The first bytes of a document, enough to tell what it is; a null array
// when it cannot be read. From a path, or from an open descriptor (read
// at offset 0, the descriptor's position untouched).
QByteArray document_head(const QString& path);
QByteArray document_head(int fd);
DocumentKind document_kind(const QByteArray& head);
inline DocumentKind document_kind(const QString& path)
{
    return document_kind(document_head(path));
}

// The file name extension the content calls for: "pdf", "ps", else what
// the MIME database knows of it ("txt" for plain text); empty when nothing
// fits.
QString document_suffix(const QByteArray& head, DocumentKind kind);

// Converts PostScript to PDF with Ghostscript, into the private temporary
// area, under the same name with ".pdf". The new path; a null string when
// it failed (logged).
QString convert_to_pdf(const QString& path);

} // namespace quirepad
