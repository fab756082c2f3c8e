// libqpdf without its transitional PointerHolder.
#define POINTERHOLDER_TRANSITION 4

#include "PdfFactory.h"

#include <QBuffer>
#include <QFile>
#include <QImage>
#include <QImageWriter>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QPdfWriter>
#include <QRadialGradient>
#include <QRandomGenerator>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <cmath>
#include <exception>
#include <functional>
#include <string>
#include <vector>

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

// An A4 page in points.
constexpr double kA4Width = 595.28;
constexpr double kA4Height = 841.89;

// One image drawn on a page of its own.
struct PagePicture {
    QByteArray data; // JPEG file, or samples row by row
    bool jpeg = true; // false: samples, written Flate-compressed
    QSize pixels;
    bool grey = false;
    QRectF placed; // in points, from the page's lower left corner
};

// Writes pages that each show one image, the way a scanner or a photo
// program does, with libqpdf.
bool writePicturePages(const QString& path, const std::vector<PagePicture>& pictures)
{
    try {
        QPDF pdf;
        pdf.emptyPDF();
        QPDFPageDocumentHelper document(pdf);
        for (const PagePicture& picture : pictures) {
            QPDFObjectHandle image = QPDFObjectHandle::newStream(&pdf);
            image.replaceStreamData(std::string(picture.data.constData(), size_t(picture.data.size())),
                picture.jpeg ? QPDFObjectHandle::newName("/DCTDecode") : QPDFObjectHandle::newNull(),
                QPDFObjectHandle::newNull());
            QPDFObjectHandle dict = image.getDict();
            dict.replaceKey("/Type", QPDFObjectHandle::newName("/XObject"));
            dict.replaceKey("/Subtype", QPDFObjectHandle::newName("/Image"));
            dict.replaceKey("/Width", QPDFObjectHandle::newInteger(picture.pixels.width()));
            dict.replaceKey("/Height", QPDFObjectHandle::newInteger(picture.pixels.height()));
            dict.replaceKey("/ColorSpace", QPDFObjectHandle::newName(picture.grey ? "/DeviceGray" : "/DeviceRGB"));
            dict.replaceKey("/BitsPerComponent", QPDFObjectHandle::newInteger(8));
            const QRectF& r = picture.placed;
            const std::string content = QStringLiteral("q %1 0 0 %2 %3 %4 cm /Im0 Do Q\n")
                                            .arg(r.width(), 0, 'f', 2)
                                            .arg(r.height(), 0, 'f', 2)
                                            .arg(r.x(), 0, 'f', 2)
                                            .arg(r.y(), 0, 'f', 2)
                                            .toStdString();
            QPDFObjectHandle xobjects = QPDFObjectHandle::newDictionary();
            xobjects.replaceKey("/Im0", image);
            QPDFObjectHandle resources = QPDFObjectHandle::newDictionary();
            resources.replaceKey("/XObject", xobjects);
            QPDFObjectHandle page = QPDFObjectHandle::newDictionary();
            page.replaceKey("/Type", QPDFObjectHandle::newName("/Page"));
            page.replaceKey(
                "/MediaBox", QPDFObjectHandle::newArray(QPDFObjectHandle::Rectangle(0, 0, kA4Width, kA4Height)));
            page.replaceKey("/Resources", resources);
            page.replaceKey("/Contents", QPDFObjectHandle::newStream(&pdf, content));
            document.addPage(QPDFPageObjectHelper(pdf.makeIndirectObject(page)), false);
        }
        const QByteArray name = QFile::encodeName(path);
        QPDFWriter writer(pdf, name.constData());
        writer.setDeterministicID(true);
        writer.write();
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

QByteArray jpegOf(const QImage& image, int quality)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "jpeg");
    writer.setQuality(quality);
    return writer.write(image) ? bytes : QByteArray();
}

QByteArray samplesOf(const QImage& image)
{
    const QImage packed
        = image.format() == QImage::Format_Grayscale8 ? image : image.convertToFormat(QImage::Format_RGB888);
    const int rowBytes = packed.width() * (packed.format() == QImage::Format_Grayscale8 ? 1 : 3);
    QByteArray bytes;
    bytes.reserve(qsizetype(rowBytes) * packed.height());
    for (int y = 0; y < packed.height(); ++y)
        bytes.append(reinterpret_cast<const char*>(packed.constScanLine(y)), rowBytes);
    return bytes;
}

// Smooth random relief: a coarse grid of random values blown up to the
// full size; values 0..255.
QImage relief(QSize size, int cellsAcross, QRandomGenerator& random)
{
    const int across = std::max(2, cellsAcross);
    const int down = std::max(2, cellsAcross * size.height() / std::max(1, size.width()) + 1);
    QImage grid(across, down, QImage::Format_Grayscale8);
    for (int y = 0; y < down; ++y)
        for (int x = 0; x < across; ++x)
            grid.scanLine(y)[x] = uchar(random.bounded(256));
    return grid.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

// Noise like a sensor's or paper's: roughly bell-shaped in -amplitude..amplitude.
int grain(QRandomGenerator& random, int amplitude)
{
    const quint32 bits = random.generate();
    const int a = int(bits & 0xff), b = int((bits >> 8) & 0xff);
    return (a + b - 255) * amplitude / 255;
}

const QStringList& vocabulary()
{
    static const QStringList words = QStringLiteral(
        "the of and to in a is that for it as was with be by on not he this are or his from at which but have an they "
        "you were her she there been one all we their has would when if so no what up out more time them some could "
        "into than then only other new these two may first any like now my such make over our even most after also "
        "made many before must through back years where much your way well down should because each just those people "
        "how too little state good very world still own see men work long here get both between life being under "
        "never day same another know while last might us great old year off come since against go came right used take "
        "three office budget quarter revenue forecast meeting customer supplier invoice delivery schedule contract "
        "project milestone review analysis growth margin region figures committee proposal council agreement policy "
        "measurement sample result method table appendix chapter section paragraph summary conclusion introduction")
                                         .split(u' ');
    return words;
}

QString prose(QRandomGenerator& random, int words)
{
    QString text;
    bool capital = true;
    for (int i = 0; i < words; ++i) {
        QString word = vocabulary().at(int(random.bounded(quint32(vocabulary().size()))));
        if (capital)
            word[0] = word[0].toUpper();
        text += word;
        capital = random.bounded(12) == 0 || i == words - 1;
        text += capital ? QStringLiteral(". ") : (random.bounded(15) == 0 ? QStringLiteral(", ") : QStringLiteral(" "));
    }
    return text.trimmed();
}

// A bar and line chart drawn with vector shapes into the rectangle.
void drawChart(QPainter& painter, const QRect& area, QRandomGenerator& random, const QFont& labels)
{
    painter.save();
    painter.setPen(QPen(Qt::black, 2));
    painter.drawLine(area.bottomLeft(), area.bottomRight());
    painter.drawLine(area.bottomLeft(), area.topLeft());
    painter.setFont(labels);
    const int bars = 12;
    const int slot = area.width() / bars;
    QPolygonF trend;
    for (int i = 0; i < bars; ++i) {
        const int value = 20 + int(random.bounded(quint32(area.height() - 40)));
        painter.fillRect(QRect(area.left() + i * slot + slot / 5, area.bottom() - value, slot * 3 / 5, value),
            QColor::fromHsv((i * 29) % 360, 160, 210));
        painter.drawText(QRect(area.left() + i * slot, area.bottom() + 4, slot, 30), Qt::AlignHCenter,
            QStringLiteral("Q%1").arg(i % 4 + 1));
        trend << QPointF(area.left() + i * slot + slot / 2.0, area.bottom() - value * 0.8 - 10);
    }
    painter.setPen(QPen(QColor(200, 40, 40), 3));
    painter.drawPolyline(trend);
    painter.restore();
}

} // namespace

QImage PdfFactory::cameraPhoto(QSize size, quint32 seed)
{
    QRandomGenerator random(seed);
    const int w = size.width(), h = size.height();
    const QImage broad = relief(size, 5, random);
    const QImage middle = relief(size, 60, random);
    const QImage fine = relief(size, 400, random);
    const int horizon = h * (40 + int(random.bounded(20))) / 100;
    QImage image(size, QImage::Format_RGB32);
    for (int y = 0; y < h; ++y) {
        auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        const uchar* b = broad.constScanLine(y);
        const uchar* m = middle.constScanLine(y);
        const uchar* f = fine.constScanLine(y);
        for (int x = 0; x < w; ++x) {
            int r, g, bl;
            if (y < horizon) { // sky with clouds
                const double t = double(y) / horizon;
                const int cloud = std::max(0, b[x] + m[x] / 3 - 170);
                r = int(70 + 120 * t) + cloud;
                g = int(120 + 90 * t) + cloud;
                bl = int(200 + 35 * t) + cloud / 2;
            } else { // ground: fields, trees and grass
                const double light = 0.55 + 0.25 * b[x] / 255.0 + 0.2 * m[x] / 255.0;
                const double texture = 0.7 + 0.3 * f[x] / 255.0;
                r = int((60 + m[x] / 3) * light * texture);
                g = int((110 + b[x] / 4) * light * texture);
                bl = int(45 * light * texture);
            }
            const int noise = grain(random, 10);
            line[x] = qRgb(qBound(0, r + noise + grain(random, 4), 255), qBound(0, g + noise, 255),
                qBound(0, bl + noise + grain(random, 4), 255));
        }
    }
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    for (int i = 0; i < 6; ++i) { // things standing in the light
        const QPointF centre(random.bounded(w), horizon + random.bounded(std::max(1, h - horizon)));
        const double radius = w / 30.0 + random.bounded(w / 10);
        QRadialGradient light(centre - QPointF(radius / 3, radius / 3), radius * 1.2);
        const QColor colour
            = QColor::fromHsv(int(random.bounded(360)), 90 + int(random.bounded(120)), 120 + int(random.bounded(120)));
        light.setColorAt(0, colour.lighter(150));
        light.setColorAt(1, colour.darker(200));
        painter.setPen(Qt::NoPen);
        painter.setBrush(light);
        painter.setOpacity(0.85);
        painter.drawEllipse(centre, radius, radius * (0.6 + random.bounded(0.8)));
    }
    painter.end();
    return image;
}

bool PdfFactory::cameraPhotoPdf(const QString& path, int pages, QSize pixels, int quality)
{
    std::vector<PagePicture> pictures;
    for (int i = 0; i < pages; ++i) {
        const bool upright = i % 3 == 2;
        const QSize size = upright ? pixels.transposed() : pixels;
        PagePicture picture;
        picture.data = jpegOf(cameraPhoto(size, quint32(4000 + i)), quality);
        if (picture.data.isEmpty())
            return false;
        picture.pixels = size;
        const double width = (upright ? 120.0 : 180.0) / 25.4 * 72; // mm -> points
        const double height = width * size.height() / size.width();
        picture.placed = QRectF((kA4Width - width) / 2, (kA4Height - height) / 2, width, height);
        pictures.push_back(std::move(picture));
    }
    return writePicturePages(path, pictures);
}

bool PdfFactory::scanPdf(const QString& path, int pages, int dpi)
{
    const QSize size(int(std::lround(210 / 25.4 * dpi)), int(std::lround(297 / 25.4 * dpi)));
    QRandomGenerator random(quint32(300 + dpi));
    std::vector<PagePicture> pictures;
    for (int i = 0; i < pages; ++i) {
        const bool colour = i % 2 == 1;
        QImage page(size, QImage::Format_RGB32);
        page.fill(colour ? QColor(244, 240, 229) : QColor(238, 238, 238));
        {
            QPainter painter(&page);
            painter.setRenderHint(QPainter::Antialiasing);
            painter.setRenderHint(QPainter::TextAntialiasing);
            const int margin = dpi; // an inch
            QFont title(QStringLiteral("DejaVu Sans"));
            title.setPixelSize(dpi * 18 / 72);
            title.setBold(true);
            QFont body(QStringLiteral("DejaVu Serif"));
            body.setPixelSize(dpi * 10 / 72);
            painter.setPen(QColor(30, 30, 35));
            painter.setFont(title);
            painter.drawText(QRect(margin, margin, size.width() - 2 * margin, dpi / 2), Qt::AlignLeft,
                QStringLiteral("Letter %1").arg(i + 1));
            painter.setFont(body);
            int top = margin + dpi * 3 / 4;
            if (colour) {
                QLinearGradient logo(margin, top, margin + dpi * 2, top + dpi);
                logo.setColorAt(0, QColor(20, 90, 170));
                logo.setColorAt(1, QColor(230, 120, 30));
                painter.fillRect(QRect(size.width() - margin - dpi * 2, margin, dpi * 2, dpi / 2), logo);
                painter.drawImage(
                    QRect(margin, top, dpi * 3, dpi * 2), cameraPhoto(QSize(dpi * 3 / 2, dpi), quint32(i)));
                top += dpi * 2 + dpi / 4;
            }
            while (top < size.height() - 2 * margin) {
                const QRect block(margin, top, size.width() - 2 * margin, size.height() - margin - top);
                const QString text = prose(random, 60 + int(random.bounded(60)));
                const QRect used = painter.boundingRect(block, Qt::TextWordWrap, text);
                painter.drawText(block, Qt::TextWordWrap, text);
                top = used.bottom() + dpi / 6;
            }
            if (colour) { // a stamp
                painter.setPen(QPen(QColor(40, 60, 200, 180), dpi / 30));
                painter.drawEllipse(
                    QPoint(size.width() - 2 * margin, size.height() - margin - dpi / 2), dpi * 3 / 4, dpi / 2);
            }
        }
        // Uneven light and the grain of paper and sensor.
        const QImage shade = relief(size, 4, random);
        for (int y = 0; y < size.height(); ++y) {
            auto* line = reinterpret_cast<QRgb*>(page.scanLine(y));
            const uchar* s = shade.constScanLine(y);
            for (int x = 0; x < size.width(); ++x) {
                const int delta = (s[x] - 128) / 12 + grain(random, 14);
                const QRgb p = line[x];
                line[x] = qRgb(qBound(0, qRed(p) + delta, 255), qBound(0, qGreen(p) + delta, 255),
                    qBound(0, qBlue(p) + delta, 255));
            }
        }
        PagePicture picture;
        picture.grey = !colour;
        const QImage stored = colour ? page : page.convertToFormat(QImage::Format_Grayscale8);
        picture.jpeg = i % 3 != 2;
        picture.data = picture.jpeg ? jpegOf(stored, 85) : samplesOf(stored);
        if (picture.data.isEmpty())
            return false;
        picture.pixels = size;
        picture.placed = QRectF(0, 0, kA4Width, kA4Height);
        pictures.push_back(std::move(picture));
    }
    return writePicturePages(path, pictures);
}

bool PdfFactory::articlePdf(const QString& path, int pages)
{
    QRandomGenerator random(2024);
    return paintPages(path, pages, [&](QPainter& painter, int i) {
        int top = 100;
        if (i % 2 == 0) {
            painter.setFont(font("DejaVu Sans", 16));
            painter.drawText(QRect(110, top, 1020, 60), Qt::AlignLeft, prose(random, 6).chopped(1));
            top += 80;
        }
        painter.setFont(font("DejaVu Serif", 11));
        while (top < 1560) {
            const QRect block(110, top, 1020, 1640 - top);
            const QString text = prose(random, 50 + int(random.bounded(70)));
            const QRect used = painter.boundingRect(block, Qt::TextWordWrap, text);
            if (used.bottom() > 1640)
                break;
            painter.drawText(block, Qt::TextWordWrap, text);
            top = used.bottom() + 18;
        }
        painter.setFont(font("DejaVu Sans", 8));
        painter.drawText(QRect(110, 1680, 1020, 30), Qt::AlignHCenter, QString::number(i + 1));
    });
}

bool PdfFactory::longReportPdf(const QString& path, int pages)
{
    QRandomGenerator random(77);
    QImage logo(240, 80, QImage::Format_RGB32); // drawn 1.6 x 0.53 in: 150 dpi
    {
        QPainter painter(&logo);
        QLinearGradient gradient(0, 0, 240, 80);
        gradient.setColorAt(0, QColor(10, 70, 140));
        gradient.setColorAt(1, QColor(90, 180, 220));
        painter.fillRect(logo.rect(), gradient);
        painter.setPen(Qt::white);
        painter.setFont(font("DejaVu Sans", 20));
        painter.drawText(logo.rect(), Qt::AlignCenter, QStringLiteral("ACME"));
    }
    return paintPages(path, pages, [&](QPainter& painter, int i) {
        painter.drawImage(QRect(100, 50, 240, 80), logo);
        painter.setFont(font("DejaVu Sans", 9));
        painter.drawText(QRect(360, 80, 770, 40), Qt::AlignRight, QStringLiteral("Annual report - page %1").arg(i + 1));
        painter.drawLine(100, 140, 1140, 140);
        int top = 170;
        if (i % 4 == 0) {
            painter.setFont(font("DejaVu Sans", 15));
            painter.drawText(QRect(100, top, 1040, 60), Qt::AlignLeft,
                QStringLiteral("%1 %2").arg(i / 4 + 1).arg(prose(random, 4).chopped(1)));
            top += 70;
        }
        if (i % 5 == 2) {
            drawChart(painter, QRect(160, top + 20, 900, 420), random, font("DejaVu Sans", 8));
            top += 500;
        } else if (i % 7 == 3) {
            painter.setFont(font("DejaVu Sans", 9));
            for (int row = 0; row < 12; ++row)
                for (int col = 0; col < 5; ++col) {
                    const QRect cell(100 + col * 208, top + row * 34, 208, 34);
                    painter.drawRect(cell);
                    painter.drawText(cell.adjusted(6, 0, -6, 0),
                        Qt::AlignVCenter | (col ? Qt::AlignRight : Qt::AlignLeft),
                        col ? QString::number(random.bounded(100000) / 100.0, 'f', 2)
                            : vocabulary().at(int(random.bounded(quint32(vocabulary().size())))));
                }
            top += 12 * 34 + 30;
        }
        painter.setFont(font("DejaVu Serif", 10));
        while (top < 1600) {
            const QRect block(100, top, 1040, 1660 - top);
            const QString text = prose(random, 40 + int(random.bounded(80)));
            const QRect used = painter.boundingRect(block, Qt::TextWordWrap, text);
            if (used.bottom() > 1660)
                break;
            painter.drawText(block, Qt::TextWordWrap, text);
            top = used.bottom() + 16;
        }
    });
}

bool PdfFactory::vectorChartPdf(const QString& path)
{
    QRandomGenerator random(9);
    return paintPages(path, 1, [&](QPainter& painter, int) {
        painter.setFont(font("DejaVu Sans", 16));
        painter.drawText(QRect(100, 60, 1040, 60), Qt::AlignLeft, QStringLiteral("Sensor readings, five stations"));
        const QRect plot(160, 180, 960, 1100);
        painter.setPen(QPen(QColor(210, 210, 210), 1));
        for (int g = 0; g <= 10; ++g) {
            painter.drawLine(
                plot.left(), plot.top() + g * plot.height() / 10, plot.right(), plot.top() + g * plot.height() / 10);
            painter.drawLine(
                plot.left() + g * plot.width() / 10, plot.top(), plot.left() + g * plot.width() / 10, plot.bottom());
        }
        painter.setFont(font("DejaVu Sans", 8));
        painter.setPen(Qt::black);
        for (int g = 0; g <= 10; ++g) {
            painter.drawText(QRect(60, plot.top() + g * plot.height() / 10 - 15, 90, 30),
                Qt::AlignRight | Qt::AlignVCenter, QString::number(100 - g * 10));
            painter.drawText(QRect(plot.left() + g * plot.width() / 10 - 45, plot.bottom() + 8, 90, 30),
                Qt::AlignHCenter, QStringLiteral("day %1").arg(g * 3));
        }
        const int points = 2000;
        for (int series = 0; series < 5; ++series) {
            QPolygonF line;
            double value = 30 + series * 10;
            for (int p = 0; p < points; ++p) {
                value = qBound(2.0, value + (random.bounded(2.0) - 1.0) * 1.5, 98.0);
                line << QPointF(
                    plot.left() + double(p) * plot.width() / (points - 1), plot.bottom() - value * plot.height() / 100);
            }
            const QColor colour = QColor::fromHsv(series * 70, 220, 200);
            painter.setPen(QPen(colour, 1.5));
            painter.drawPolyline(line);
            painter.fillRect(QRect(200 + series * 190, 1340, 30, 20), colour);
            painter.setPen(Qt::black);
            painter.drawText(QRect(240 + series * 190, 1330, 140, 40), Qt::AlignVCenter,
                QStringLiteral("station %1").arg(series + 1));
        }
    });
}

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
