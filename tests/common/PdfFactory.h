#pragma once

#include <QImage>
#include <QSize>
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

    // Documents like the ones people print, for measuring compression.
    //
    // A picture like a camera's: sky, textured ground, shapes in the
    // light, sensor noise.
    static QImage cameraPhoto(QSize size, quint32 seed);
    // One camera picture per A4 page, stored as the camera wrote it (JPEG
    // of the given quality, passed through) and drawn 180 mm wide; every
    // third picture stands upright.
    static bool cameraPhotoPdf(const QString& path, int pages, QSize pixels = { 3000, 2000 }, int quality = 92);
    // A4 pages scanned at the given resolution: paper texture, uneven light,
    // typeset lines; grey and colour pages in turn, JPEG at quality 85, and
    // every third page stored losslessly (Flate) as some scanners do.
    static bool scanPdf(const QString& path, int pages, int dpi = 300);
    // An article typeset in DejaVu (TrueType, embedded): headings and
    // paragraphs of varied words.
    static bool articlePdf(const QString& path, int pages);
    // A long report: a header logo, headings, paragraphs, a table now and
    // then and a vector chart every fifth page.
    static bool longReportPdf(const QString& path, int pages);
    // One page holding a vector line chart of several thousand points.
    static bool vectorChartPdf(const QString& path);
};

} // namespace quirepad::test
