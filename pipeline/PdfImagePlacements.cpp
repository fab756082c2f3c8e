// libqpdf without its transitional PointerHolder.
#define POINTERHOLDER_TRANSITION 4

#include "pipeline/PdfImagePlacements.h"

#include <qpdf/Buffer.hh>
#include <qpdf/Pl_Buffer.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace quirepad {

namespace {

constexpr int kMaxFormDepth = 12;

// A PDF transformation [a b c d e f].
struct Matrix {
    double a = 1, b = 0, c = 0, d = 1, e = 0, f = 0;

    // this × other, the order in which "cm" and form matrices apply.
    Matrix times(const Matrix& o) const
    {
        return { a * o.a + b * o.c, a * o.b + b * o.d, c * o.a + d * o.c, c * o.b + d * o.d, e * o.a + f * o.c + o.e,
            e * o.b + f * o.d + o.f };
    }

    static bool fromArray(QPDFObjectHandle array, Matrix& out)
    {
        if (!array.isArray() || array.getArrayNItems() != 6)
            return false;
        double v[6];
        for (int i = 0; i < 6; ++i) {
            QPDFObjectHandle item = array.getArrayItem(i);
            if (!item.isNumber())
                return false;
            v[i] = item.getNumericValue();
        }
        out = { v[0], v[1], v[2], v[3], v[4], v[5] };
        return true;
    }
};

bool isXObjectOfSubtype(QPDFObjectHandle object, const char* subtype)
{
    return object.isStream() && object.getDict().getKey("/Subtype").isNameAndEquals(subtype);
}

// Whether drawing from these resources can show an image at all.
bool reachesImages(QPDFObjectHandle resources, int depth, std::set<QPDFObjGen>& seen)
{
    if (!resources.isDictionary() || depth > kMaxFormDepth)
        return false;
    QPDFObjectHandle xobjects = resources.getKey("/XObject");
    if (!xobjects.isDictionary())
        return false;
    for (auto [name, xobject] : xobjects.getDictAsMap()) {
        if (isXObjectOfSubtype(xobject, "/Image"))
            return true;
        if (isXObjectOfSubtype(xobject, "/Form") && seen.insert(xobject.getObjGen()).second
            && reachesImages(xobject.getDict().getKey("/Resources"), depth + 1, seen))
            return true;
    }
    return false;
}

bool isWhite(char c)
{
    return c == ' ' || c == '\n' || c == '\r' || c == '\t' || c == '\f' || c == '\0';
}

bool isDelimiter(char c)
{
    return c == '(' || c == ')' || c == '<' || c == '>' || c == '[' || c == ']' || c == '{' || c == '}' || c == '/'
        || c == '%';
}

// "/A#20B" -> "/A B"
std::string decodeName(std::string_view token)
{
    std::string name;
    name.reserve(token.size());
    for (size_t i = 0; i < token.size(); ++i) {
        if (token[i] == '#' && i + 2 < token.size() && std::isxdigit(uchar(token[i + 1]))
            && std::isxdigit(uchar(token[i + 2]))) {
            name += char(std::stoi(std::string(token.substr(i + 1, 2)), nullptr, 16));
            i += 2;
        } else {
            name += token[i];
        }
    }
    return name;
}

bool parseNumber(std::string_view token, double& value)
{
    if (!token.empty() && token.front() == '+')
        token.remove_prefix(1);
    if (token.empty())
        return false;
    const auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), value);
    return error == std::errc() && end == token.data() + token.size();
}

// Follows the graphics state through one content stream (a page's or a
// form's) and notes where images are drawn. Only q, Q, cm and Do matter;
// the stream is scanned by a small lexer of its own, and handed to
// libqpdf's parser when it holds inline images, whose ends only a careful
// parser finds.
class ContentWalker
{
public:
    ContentWalker(PdfImagePlacements::Sizes& sizes, QPDFObjectHandle resources, const Matrix& ctm, double unit,
        int depth, std::set<QPDFObjGen>& open)
        : m_sizes(sizes)
        , m_resources(resources)
        , m_start(ctm)
        , m_ctm(ctm)
        , m_unit(unit)
        , m_depth(depth)
        , m_open(open)
    {
    }

    void walkPage(QPDFPageObjectHelper& page)
    {
        Pl_Buffer buffer("page contents");
        page.pipeContents(&buffer);
        if (!scan(buffer.getBufferSharedPointer())) {
            restart();
            Callbacks callbacks(*this);
            page.parseContents(&callbacks);
        }
    }

    void walkForm(QPDFObjectHandle form)
    {
        if (!scan(form.getStreamData(qpdf_dl_generalized))) {
            restart();
            Callbacks callbacks(*this);
            form.parseAsContents(&callbacks);
        }
    }

private:
    // libqpdf's parser feeding the same operators.
    class Callbacks : public QPDFObjectHandle::ParserCallbacks
    {
    public:
        explicit Callbacks(ContentWalker& walker)
            : m_walker(walker)
        {
        }

        void handleObject(QPDFObjectHandle object) override
        {
            if (!object.isOperator()) {
                m_operands.push_back(object);
                return;
            }
            const std::string op = object.getOperatorValue();
            if (op == "cm") {
                Matrix m;
                if (m_operands.size() == 6 && Matrix::fromArray(QPDFObjectHandle::newArray(m_operands), m))
                    m_walker.concat(m);
            } else if (op == "Do") {
                if (m_operands.size() == 1 && m_operands.front().isName())
                    m_walker.draw(m_operands.front().getName());
            } else {
                m_walker.other(op);
            }
            m_operands.clear();
        }

        void handleEOF() override { }

    private:
        ContentWalker& m_walker;
        std::vector<QPDFObjectHandle> m_operands;
    };

    void restart()
    {
        m_ctm = m_start;
        m_saved.clear();
    }

    void concat(const Matrix& m) { m_ctm = m.times(m_ctm); }

    void other(std::string_view op)
    {
        if (op == "q") {
            m_saved.push_back(m_ctm);
        } else if (op == "Q" && !m_saved.empty()) {
            m_ctm = m_saved.back();
            m_saved.pop_back();
        }
    }

    // False when the stream holds an inline image.
    bool scan(const std::shared_ptr<Buffer>& data)
    {
        if (!data || data->getSize() == 0)
            return true;
        const char* p = reinterpret_cast<const char*>(data->getBuffer());
        const char* const end = p + data->getSize();
        double numbers[6] = {};
        int operands = 0; // since the last operator
        int numeric = 0; // of which numbers, in a row at the end
        bool lastIsName = false;
        std::string name;
        int nesting = 0; // inside an array or a dictionary
        const auto operand = [&](bool isNumber, double value = 0) {
            ++operands;
            numeric = isNumber ? numeric + 1 : 0;
            if (isNumber) {
                std::move(numbers + 1, numbers + 6, numbers);
                numbers[5] = value;
            }
            lastIsName = false;
        };
        while (p < end) {
            const char c = *p;
            if (isWhite(c)) {
                ++p;
            } else if (c == '%') {
                while (p < end && *p != '\n' && *p != '\r')
                    ++p;
            } else if (c == '(') {
                int depth = 1;
                for (++p; p < end && depth > 0; ++p) {
                    if (*p == '\\')
                        ++p;
                    else if (*p == '(')
                        ++depth;
                    else if (*p == ')')
                        --depth;
                }
                p = std::min(p, end);
                if (!nesting)
                    operand(false);
            } else if (c == '<' && p + 1 < end && p[1] == '<') {
                ++nesting;
                p += 2;
            } else if (c == '>' && p + 1 < end && p[1] == '>') {
                p += 2;
                if (nesting > 0 && --nesting == 0)
                    operand(false);
            } else if (c == '<') {
                while (p < end && *p != '>')
                    ++p;
                p = std::min(p + 1, end);
                if (!nesting)
                    operand(false);
            } else if (c == '[') {
                ++nesting;
                ++p;
            } else if (c == ']') {
                ++p;
                if (nesting > 0 && --nesting == 0)
                    operand(false);
            } else if (c == ')' || c == '>' || c == '{' || c == '}') {
                ++p;
            } else {
                const char* start = p++;
                while (p < end && !isWhite(*p) && !isDelimiter(*p))
                    ++p;
                const std::string_view token(start, size_t(p - start));
                if (nesting)
                    continue;
                double value = 0;
                if (c == '/') {
                    operand(false);
                    name = decodeName(token);
                    lastIsName = true;
                } else if ((std::isdigit(uchar(c)) || c == '-' || c == '+' || c == '.')) {
                    const bool ok = parseNumber(token, value);
                    operand(ok, value);
                } else if (token == "true" || token == "false" || token == "null") {
                    operand(false);
                } else {
                    if (token == "BI")
                        return false;
                    if (token == "cm") {
                        if (operands == 6 && numeric == 6)
                            concat({ numbers[0], numbers[1], numbers[2], numbers[3], numbers[4], numbers[5] });
                    } else if (token == "Do") {
                        if (operands == 1 && lastIsName)
                            draw(name);
                    } else {
                        other(token);
                    }
                    operands = numeric = 0;
                    lastIsName = false;
                }
            }
        }
        return true;
    }

    void draw(const std::string& name)
    {
        if (!m_resources.isDictionary())
            return;
        QPDFObjectHandle xobjects = m_resources.getKey("/XObject");
        if (!xobjects.isDictionary())
            return;
        QPDFObjectHandle xobject = xobjects.getKey(name);
        if (isXObjectOfSubtype(xobject, "/Image")) {
            const double width = std::hypot(m_ctm.a, m_ctm.b) * m_unit;
            const double height = std::hypot(m_ctm.c, m_ctm.d) * m_unit;
            QSizeF& size = m_sizes[xobject.getObjGen()];
            size = QSizeF(std::max(size.width(), width), std::max(size.height(), height));
        } else if (isXObjectOfSubtype(xobject, "/Form") && m_depth < kMaxFormDepth
            && m_open.insert(xobject.getObjGen()).second) {
            QPDFObjectHandle dict = xobject.getDict();
            Matrix matrix;
            Matrix::fromArray(dict.getKey("/Matrix"), matrix);
            // A form without resources of its own uses those of the page
            // (as old files do).
            QPDFObjectHandle resources = dict.getKey("/Resources");
            ContentWalker inner(m_sizes, resources.isDictionary() ? resources : m_resources, matrix.times(m_ctm),
                m_unit, m_depth + 1, m_open);
            inner.walkForm(xobject);
            m_open.erase(xobject.getObjGen());
        }
    }

    PdfImagePlacements::Sizes& m_sizes;
    QPDFObjectHandle m_resources;
    Matrix m_start;
    Matrix m_ctm;
    double m_unit;
    int m_depth;
    std::set<QPDFObjGen>& m_open;
    std::vector<Matrix> m_saved;
};

} // namespace

PdfImagePlacements::Sizes PdfImagePlacements::measure(QPDF& pdf, const std::atomic<bool>* stop)
{
    Sizes sizes;
    for (QPDFPageObjectHelper& page : QPDFPageDocumentHelper(pdf).getAllPages()) {
        if (stop && stop->load())
            break;
        QPDFObjectHandle resources = page.getAttribute("/Resources", false);
        std::set<QPDFObjGen> seen;
        if (!reachesImages(resources, 0, seen))
            continue;
        QPDFObjectHandle userUnit = page.getObjectHandle().getKey("/UserUnit");
        const double unit = userUnit.isNumber() && userUnit.getNumericValue() > 0 ? userUnit.getNumericValue() : 1.0;
        std::set<QPDFObjGen> open;
        ContentWalker walker(sizes, resources, Matrix {}, unit, 0, open);
        walker.walkPage(page);
    }
    return sizes;
}

} // namespace quirepad
