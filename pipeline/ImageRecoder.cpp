#include "pipeline/ImageRecoder.h"

#include <QBuffer>
#include <QImage>
#include <QImageReader>
#include <QImageWriter>

namespace quirepad {

namespace {

QImage decodeJpeg(const ImageRecoder::Input& input, QSize target)
{
    QByteArray data = input.data; // shared, not copied
    QBuffer buffer(&data);
    if (!buffer.open(QIODevice::ReadOnly))
        return {};
    QImageReader reader(&buffer, "jpeg");
    // PDF viewers ignore EXIF orientation: so must we.
    reader.setAutoTransform(false);
    if (reader.size() != input.pixels)
        return {};
    if (target != input.pixels)
        reader.setScaledSize(target);
    QImage image = reader.read();
    if (image.isNull())
        return {};
    const bool grey = image.format() == QImage::Format_Grayscale8;
    if (grey != (input.components == 1))
        return {};
    return image;
}

QImage wrapSamples(const ImageRecoder::Input& input)
{
    const qsizetype rowBytes = qsizetype(input.pixels.width()) * input.components;
    if (rowBytes <= 0 || input.data.size() < rowBytes * input.pixels.height())
        return {};
    const QImage::Format format = input.components == 1 ? QImage::Format_Grayscale8 : QImage::Format_RGB888;
    // Points into input.data, which outlives the image's use here.
    return QImage(reinterpret_cast<const uchar*>(input.data.constData()), input.pixels.width(), input.pixels.height(),
        rowBytes, format);
}

} // namespace

std::optional<QByteArray> ImageRecoder::recode(const Input& input, QSize target, int quality)
{
    if (input.components != 1 && input.components != 3)
        return std::nullopt;
    if (target.isEmpty() || target.width() > input.pixels.width() || target.height() > input.pixels.height())
        return std::nullopt;
    QImage image = input.source == Source::Jpeg ? decodeJpeg(input, target) : wrapSamples(input);
    if (image.isNull())
        return std::nullopt;
    if (image.size() != target)
        image = image.scaled(target, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    if (input.components == 1 && image.format() != QImage::Format_Grayscale8)
        image = image.convertToFormat(QImage::Format_Grayscale8);
    else if (input.components == 3 && image.format() != QImage::Format_RGB32)
        image = image.convertToFormat(QImage::Format_RGB32);
    if (image.isNull() || image.size() != target)
        return std::nullopt;

    QByteArray jpeg;
    QBuffer buffer(&jpeg);
    if (!buffer.open(QIODevice::WriteOnly))
        return std::nullopt;
    QImageWriter writer(&buffer, "jpeg");
    writer.setQuality(quality);
    writer.setOptimizedWrite(true);
    writer.setProgressiveScanWrite(true);
    if (!writer.write(image))
        return std::nullopt;
    return jpeg;
}

} // namespace quirepad
