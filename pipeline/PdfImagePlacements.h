#pragma once

#include <qpdf/QPDFObjGen.hh>

#include <QSizeF>

#include <atomic>
#include <map>

class QPDF;

namespace quirepad {

// How large each image XObject is drawn: the page contents (and the forms
// they draw, however deep) are read with their transformations, and every
// image keeps the largest width and height at which it appears, in points
// (1/72 inch, the page's user unit applied). Images drawn only from places
// not read here (patterns, annotations, Type 3 glyphs) are not listed.
class PdfImagePlacements
{
public:
    using Sizes = std::map<QPDFObjGen, QSizeF>;

    // Throws what libqpdf throws on contents it cannot read. Pages without
    // any image among their resources are not parsed at all. `stop`, when
    // given, is polled between pages.
    static Sizes measure(QPDF& pdf, const std::atomic<bool>* stop = nullptr);
};

} // namespace quirepad
