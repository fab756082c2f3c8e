#include "PdfFactory.h"

#include <QImage>
#include <QPainter>
#include <QPdfWriter>
#include <QRandomGenerator>

#include <cmath>
#include <functional>

namespace quirepad::test {

namespace {

// Writes an A4 document at 150 dpi, drawing each page with the painter;
// false when the file cannot be written.
bool paintPages(const QString& path, int pages, const std::function<void(QPainter&, int)>& paintPage)
{
    QPdfWriter writer(path);
    writer.setPageSize(QPageSize(QPageSize::A4));
    writer.setResolution(150);
    writer.setTitle(QStringLiteral("Test document"));
    QPainter painter;
    if (!painter.begin(&writer))
        return false;
    for (int i = 0; i < pages; ++i) {
        if (i > 0)
            writer.newPage();
        paintPage(painter, i);
    }
    return painter.end();
}

QFont font(const char* family, int pointSize)
{
    QFont chosen(QString::fromLatin1(family));
    chosen.setPointSize(pointSize);
    return chosen;
}

QImage photo(int width, quint32 seed)
{
    QRandomGenerator random(seed);
    QImage image(width, width * 3 / 4, QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y) {
        auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            const int noise = int(random.bounded(60)) - 30;
            line[x] = qRgb(qBound(0, (x * 255 / image.width()) + noise, 255),
                           qBound(0, (y * 255 / image.height()) + noise, 255),
                           qBound(0, 128 + int(40 * std::sin(x / 23.0 + y / 17.0)) + noise, 255));
        }
    }
    return image;
}

} // namespace

bool PdfFactory::textPdf(const QString& path, const QStringList& pages)
{
    return paintPages(path, int(pages.size()), [&](QPainter& painter, int i) {
        painter.setFont(font("DejaVu Sans", 20));
        painter.drawText(QRect(100, 100, 1000, 1400), Qt::TextWordWrap, pages.at(i));
    });
}

bool PdfFactory::photoPdf(const QString& path, int pages, int pixelsWide)
{
    return paintPages(path, pages, [&](QPainter& painter, int i) {
        painter.drawImage(QRect(50, 50, 1140, 855), photo(pixelsWide, quint32(1000 + i)));
    });
}

bool PdfFactory::scannedPdf(const QString& path, int pages)
{
    return paintPages(path, pages, [](QPainter& painter, int i) {
        QImage scan(1240, 1754, QImage::Format_Grayscale8);
        QRandomGenerator random(quint32(77 + i));
        for (int y = 0; y < scan.height(); ++y) {
            uchar* line = scan.scanLine(y);
            const bool printed = (y / 12) % 3 == 0 && y > 150 && y < 1600;
            for (int x = 0; x < scan.width(); ++x) {
                int value = 225 + int(random.bounded(30)) - 15;
                if (printed && x > 120 && x < 1120 && (x / 9) % 4 != 3)
                    value = 40 + int(random.bounded(40));
                line[x] = uchar(qBound(0, value, 255));
            }
        }
        painter.drawImage(QRect(0, 0, 1240, 1754), scan);
    });
}

bool PdfFactory::reportPdf(const QString& path, int pages)
{
    const QString paragraph = QStringLiteral(
        "Quarterly figures rose in every region while costs stayed flat; the appendix lists each office. ");
    return paintPages(path, pages, [&](QPainter& painter, int i) {
        painter.setFont(font("DejaVu Serif", 10));
        painter.drawText(QRect(100, 60, 1000, 60), Qt::AlignLeft, QStringLiteral("Report page %1").arg(i + 1));
        painter.drawText(QRect(100, 140, 1000, 1400), Qt::TextWordWrap, paragraph.repeated(20));
        if (i % 10 == 0) {
            for (int bar = 0; bar < 8; ++bar)
                painter.fillRect(QRect(150 + bar * 110, 1500 - bar * 30, 80, 100 + bar * 30),
                                 QColor::fromHsv(bar * 40, 200, 220));
        }
    });
}

bool PdfFactory::colourPdf(const QString& path)
{
    return paintPages(path, 1, [](QPainter& painter, int) {
        painter.fillRect(QRect(100, 100, 400, 300), QColor(220, 30, 30));
        painter.fillRect(QRect(600, 100, 400, 300), QColor(30, 160, 40));
        painter.setPen(QColor(20, 40, 220));
        painter.setFont(font("DejaVu Sans", 28));
        painter.drawText(QRect(100, 500, 1000, 200), Qt::AlignLeft, QStringLiteral("Colourful words"));
        painter.drawImage(QRect(100, 800, 800, 600), photo(400, 5));
    });
}

} // namespace quirepad::test
