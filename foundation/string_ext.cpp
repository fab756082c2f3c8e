#include "foundation/string_ext.h"

#include "foundation/Log.h"
#include "foundation/data_ext.h"

#include <QRegularExpression>
#include <QUrl>
#include <QUuid>

#include <algorithm>
#include <optional>
#include <vector>

namespace quirepad {

namespace {

// HTML references shorter or longer than this are never decoded.
constexpr qsizetype kMinHTMLReferenceLength = 4; // "&lt;"
constexpr qsizetype kMaxHTMLReferenceLength = 10;
constexpr char32_t kMaxHTMLNumericReference = 65534;

// Strict unsigned parse: a non-empty run of digits of the base and nothing
// else (no sign, no blanks, no "0x"). nullopt when the value exceeds max.
std::optional<char32_t> parseDigits(QStringView digits, int base, char32_t max)
{
    if (digits.isEmpty())
        return std::nullopt;
    char32_t value = 0;
    for (const QChar ch : digits) {
        const char16_t c = ch.unicode();
        int digit;
        if (c >= u'0' && c <= u'9')
            digit = c - u'0';
        else if (base == 16 && c >= u'a' && c <= u'f')
            digit = c - u'a' + 10;
        else if (base == 16 && c >= u'A' && c <= u'F')
            digit = c - u'A' + 10;
        else
            return std::nullopt;
        value = value * char32_t(base) + char32_t(digit);
        if (value > max)
            return std::nullopt;
    }
    return value;
}

// The code unit an HTML reference ("&...;" with both delimiters) stands for.
std::optional<char16_t> htmlReferenceUnit(QStringView reference)
{
    if (reference.at(1) == u'#') {
        QStringView digits = reference.mid(2, reference.size() - 3);
        int base = 10;
        if (!digits.isEmpty() && (digits.front() == u'x' || digits.front() == u'X')) {
            base = 16;
            digits = digits.mid(1);
        }
        const auto value = parseDigits(digits, base, kMaxHTMLNumericReference);
        if (!value || *value == 0)
            return std::nullopt;
        return char16_t(*value);
    }
    for (const HTMLEscapeMap& entry : gAsciiHTMLEscapeMap) {
        if (reference == QLatin1String(entry.entity))
            return entry.value;
    }
    return std::nullopt;
}

// The code point an XML reference body (between "&" and ";") stands for.
std::optional<char32_t> xmlReferenceCodePoint(QStringView body)
{
    if (body == u"lt")
        return U'<';
    if (body == u"gt")
        return U'>';
    if (body == u"amp")
        return U'&';
    if (body == u"quot")
        return U'"';
    if (body == u"apos")
        return U'\'';
    if (!body.startsWith(u'#'))
        return std::nullopt;
    std::optional<char32_t> value;
    if (body.size() > 1 && body.at(1) == u'x')
        value = parseDigits(body.mid(2), 16, 0x10FFFF);
    else
        value = parseDigits(body.mid(1), 10, 0x10FFFF);
    if (!value || *value == 0 || QChar::isSurrogate(*value))
        return std::nullopt;
    return value;
}

bool isXMLReferenceCharacter(QChar ch)
{
    return ch == u'#' || (ch.unicode() < 128 && ch.isLetterOrNumber());
}

bool isTrimmedCharacter(QChar ch)
{
    return ch == u' ' || ch == u'\t' || ch == u'\n' || ch == u'\r';
}

QRegularExpression compiledPattern(const QString& pattern)
{
    QRegularExpression expression(pattern);
    if (!expression.isValid())
        qCWarning(lcFoundation).noquote() << "Invalid regular expression" << pattern << "-"
                                          << expression.errorString();
    return expression;
}

// Expands "$n" group references and backslash escapes of a replacement
// template against one match.
QString expandTemplate(const QRegularExpressionMatch& match, QStringView replacementTemplate, int groupCount)
{
    QString out;
    const qsizetype length = replacementTemplate.size();
    for (qsizetype i = 0; i < length; ++i) {
        const QChar ch = replacementTemplate.at(i);
        if (ch == u'\\' && i + 1 < length) {
            out += replacementTemplate.at(++i);
            continue;
        }
        const auto isDigitAt = [&](qsizetype at) {
            return at < length && replacementTemplate.at(at) >= u'0' && replacementTemplate.at(at) <= u'9';
        };
        if (ch != u'$' || !isDigitAt(i + 1)) {
            out += ch;
            continue;
        }
        int group = replacementTemplate.at(i + 1).digitValue();
        qsizetype next = i + 2;
        // Further digits belong to the number only while it still names a group.
        while (isDigitAt(next)) {
            const int longer = group * 10 + replacementTemplate.at(next).digitValue();
            if (longer > groupCount)
                break;
            group = longer;
            ++next;
        }
        out += match.captured(group);
        i = next - 1;
    }
    return out;
}

} // namespace

QString stringByEscapingHTMLUsingTable(const QString& text, HTMLEscapeTable table, bool escapingUnicode)
{
    QString out;
    out.reserve(text.size() + text.size() / 8);
    for (const QChar ch : text) {
        const char16_t unit = ch.unicode();
        if (const HTMLEscapeMap* entry = findHTMLEscape(table, unit)) {
            out += QLatin1String(entry->entity);
        } else if (escapingUnicode && unit > 127) {
            out += QLatin1String("&#");
            out += QString::number(unit);
            out += u';';
        } else {
            out += ch;
        }
    }
    return out;
}

QString stringByEscapingForHTML(const QString& text)
{
    return stringByEscapingHTMLUsingTable(text, gUnicodeHTMLEscapeMap, false);
}

QString stringByEscapingForAsciiHTML(const QString& text)
{
    return stringByEscapingHTMLUsingTable(text, gAsciiHTMLEscapeMap, true);
}

QString stringByUnescapingFromHTML(const QString& text)
{
    qsizetype ampersand = text.lastIndexOf(u'&');
    if (ampersand < 0)
        return text;

    // Walk the references backwards; each one ends before the next "&", so
    // none overlaps another and a replacement is never looked at again
    // (one level only). The result is then assembled front to back.
    struct Replacement {
        qsizetype position;
        qsizetype length;
        char16_t unit;
    };
    std::vector<Replacement> replacements;
    qsizetype nextAmpersand = text.size();
    while (ampersand >= 0) {
        const QStringView window =
            QStringView(text).mid(ampersand, std::min(kMaxHTMLReferenceLength, nextAmpersand - ampersand));
        const qsizetype length = window.indexOf(u';') + 1;
        if (length >= kMinHTMLReferenceLength) {
            if (const auto unit = htmlReferenceUnit(window.left(length)))
                replacements.push_back({ampersand, length, *unit});
        }
        nextAmpersand = ampersand;
        ampersand = ampersand > 0 ? text.lastIndexOf(u'&', ampersand - 1) : -1;
    }
    if (replacements.empty())
        return text;

    QString result;
    result.reserve(text.size());
    qsizetype copied = 0;
    for (auto it = replacements.crbegin(); it != replacements.crend(); ++it) {
        result += QStringView(text).mid(copied, it->position - copied);
        result += QChar(it->unit);
        copied = it->position + it->length;
    }
    result += QStringView(text).mid(copied);
    return result;
}

QString urlEncodedString(const QString& text)
{
    // Reserved characters that may stay as they are inside a query value;
    // letters, digits and "-._~" are never encoded.
    static const QByteArray kKeptAsIs = QByteArrayLiteral("!$'()*,/:;@");
    return QString::fromLatin1(QUrl::toPercentEncoding(text, kKeptAsIs));
}

QString stringURLEncoded(const QString& text)
{
    return urlEncodedString(text);
}

QString decodeURL(const QString& text)
{
    return QUrl::fromPercentEncoding(text.toUtf8());
}

QString xmlEncodedString(const QString& text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar ch : text) {
        switch (ch.unicode()) {
        case u'&':
            out += QLatin1String("&amp;");
            break;
        case u'<':
            out += QLatin1String("&lt;");
            break;
        case u'>':
            out += QLatin1String("&gt;");
            break;
        case u'"':
            out += QLatin1String("&quot;");
            break;
        case u'\'':
            out += QLatin1String("&apos;");
            break;
        default:
            out += ch;
        }
    }
    return out;
}

QString stringXMLEncoded(const QString& text)
{
    return xmlEncodedString(text);
}

QString decodeXML(const QString& text)
{
    if (!text.contains(u'&'))
        return text;

    QString out;
    out.reserve(text.size());
    const qsizetype length = text.size();
    qsizetype pos = 0;
    while (pos < length) {
        const qsizetype ampersand = text.indexOf(u'&', pos);
        if (ampersand < 0) {
            out += QStringView(text).mid(pos);
            break;
        }
        out += QStringView(text).mid(pos, ampersand - pos);
        qsizetype end = ampersand + 1;
        while (end < length && isXMLReferenceCharacter(text.at(end)))
            ++end;
        std::optional<char32_t> codePoint;
        if (end < length && text.at(end) == u';')
            codePoint = xmlReferenceCodePoint(QStringView(text).mid(ampersand + 1, end - ampersand - 1));
        if (codePoint) {
            const char32_t units[] = {*codePoint};
            out += QString::fromUcs4(units, 1);
            pos = end + 1;
        } else {
            out += u'&';
            pos = ampersand + 1;
        }
    }
    return out;
}

QString md5HexDigest(const QString& text)
{
    QByteArray bytes = text.toUtf8();
    const qsizetype nul = bytes.indexOf('\0');
    if (nul >= 0)
        bytes.truncate(nul);
    return md5HexDigest(bytes);
}

QString stringByReplacing(const QString& text, const QString& target, const QString& replacement)
{
    return QString(text).replace(target, replacement);
}

QString stringByGeneratingUUID()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

qsizetype indexOfCharacter(const QString& text, QChar ch)
{
    return text.indexOf(ch);
}

bool containsCharacter(const QString& text, QChar ch)
{
    return text.contains(ch);
}

qsizetype countOfCharacters(const QString& text, QChar ch)
{
    return text.count(ch);
}

qsizetype indexOfString(const QString& text, const QString& needle)
{
    return text.indexOf(needle);
}

qsizetype indexOfString(const QString& text, const QString& needle, Qt::CaseSensitivity options)
{
    return text.indexOf(needle, 0, options);
}

qsizetype indexOfString(const QString& text, const QString& needle, qsizetype from)
{
    return text.indexOf(needle, from);
}

qsizetype lastIndexOfString(const QString& text, const QString& needle)
{
    return text.lastIndexOf(needle);
}

QStringList split(const QString& text, const QString& separator)
{
    return text.split(separator);
}

QStringList splitUsing(const QString& text, const QString& separators, bool inclusive)
{
    QStringList parts;
    qsizetype runStart = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (!separators.contains(text.at(i)))
            continue;
        if (i > runStart)
            parts << text.mid(runStart, i - runStart);
        if (inclusive)
            parts << QString(text.at(i));
        runStart = i + 1;
    }
    if (text.size() > runStart)
        parts << text.mid(runStart);
    return parts;
}

QString substring(const QString& text, qsizetype start, qsizetype endExclusive)
{
    start = std::clamp<qsizetype>(start, 0, text.size());
    endExclusive = std::clamp<qsizetype>(endExclusive, start, text.size());
    return text.mid(start, endExclusive - start);
}

bool isNotEqualToString(const QString& text, const QString& other)
{
    return text != other;
}

bool isEqualToStringIgnoringCase(const QString& text, const QString& other)
{
    return text.compare(other, Qt::CaseInsensitive) == 0;
}

bool isWhitespaceCharacterAtIndex(const QString& text, qsizetype index)
{
    return index >= 0 && index < text.size() && text.at(index).isSpace();
}

bool startsWith(const QString& text, const QString& prefix)
{
    return text.startsWith(prefix);
}

bool endsWith(const QString& text, const QString& suffix)
{
    return text.endsWith(suffix);
}

QString trim(const QString& text)
{
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && isTrimmedCharacter(text.at(begin)))
        ++begin;
    while (end > begin && isTrimmedCharacter(text.at(end - 1)))
        --end;
    return text.mid(begin, end - begin);
}

QString normalizeNL(const QString& text)
{
    return QString(text).replace(QLatin1String("\r\n"), QLatin1String("\n")).replace(u'\r', u'\n');
}

QString capitalizedFirstChar(const QString& text)
{
    if (text.isEmpty())
        return text;
    const qsizetype firstLength = text.at(0).isHighSurrogate() && text.size() > 1 ? 2 : 1;
    return text.left(firstLength).toUpper() + text.mid(firstLength);
}

qsizetype matches(const QString& text, const QString& pattern)
{
    const QRegularExpression expression = compiledPattern(pattern);
    if (!expression.isValid())
        return 0;
    qsizetype count = 0;
    for (auto it = expression.globalMatch(text); it.hasNext(); it.next())
        ++count;
    return count;
}

QString matchFirst(const QString& text, const QString& pattern)
{
    const QRegularExpression expression = compiledPattern(pattern);
    if (!expression.isValid())
        return {};
    return expression.match(text).captured(0);
}

QStringList matchAll(const QString& text, const QString& pattern)
{
    const QRegularExpression expression = compiledPattern(pattern);
    QStringList found;
    if (!expression.isValid())
        return found;
    for (auto it = expression.globalMatch(text); it.hasNext();)
        found << it.next().captured(0);
    return found;
}

QString stringByReplacingRegExpPattern(const QString& text, const QString& pattern,
                                       const QString& replacementTemplate)
{
    const QRegularExpression expression = compiledPattern(pattern);
    if (!expression.isValid())
        return text;
    QString out;
    qsizetype copied = 0;
    for (auto it = expression.globalMatch(text); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        out += QStringView(text).mid(copied, match.capturedStart() - copied);
        out += expandTemplate(match, replacementTemplate, expression.captureCount());
        copied = match.capturedEnd();
    }
    out += QStringView(text).mid(copied);
    return out;
}

} // namespace quirepad
