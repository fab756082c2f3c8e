#pragma once

#include <QByteArray>
#include <QSize>

#include <optional>

namespace quirepad {

// Turns the data of one 8-bit grey or RGB image into a JPEG of the given
// size: a JPEG file is decoded (libjpeg reducing it by powers of two while
// decoding when it can) or raw samples are taken row by row, the picture is
// reduced to the target with area averaging and encoded again (optimised
// Huffman tables, progressive). Touches no shared state: callable from any
// thread.
class ImageRecoder
{
public:
    enum class Source { Jpeg, Samples };

    struct Input {
        QByteArray data;
        Source source = Source::Jpeg;
        QSize pixels; // as the PDF states them
        int components = 3; // 1 (grey) or 3 (RGB)
    };

    // The new JPEG, or nothing when the data does not decode to what the
    // input says (size, components) or cannot be encoded.
    static std::optional<QByteArray> recode(const Input& input, QSize target, int quality);
};

} // namespace quirepad
