#pragma once

#include <QString>
#include <QStringList>

namespace quirepad::test {

// Makes real PDF files for tests and benchmarks with QPdfWriter.
class PdfFactory
{
public:
    // One page per text, each written large in black on white.
    static bool textPdf(const QString& path, const QStringList& pages);
    // Pages of colourful, noisy photographs (incompressible detail).
    static bool photoPdf(const QString& path, int pages, int pixelsWide = 1600);
    // Pages that look scanned: gray paper with printed lines and noise.
    static bool scannedPdf(const QString& path, int pages);
    // A report: text pages with a coloured chart every tenth page.
    static bool reportPdf(const QString& path, int pages);
    // A page with coloured vector shapes, coloured text and a colour image.
    static bool colourPdf(const QString& path);
};

} // namespace quirepad::test
