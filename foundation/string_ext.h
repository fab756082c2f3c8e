#pragma once

#include "foundation/html_entities.h"

#include <QChar>
#include <QString>
#include <QStringList>

namespace quirepad {

// --- HTML ---------------------------------------------------------------

// Replaces every UTF-16 code unit that has an entry in table (sorted by code
// unit, as both built-in tables are) by its named reference. When escapingUnicode is set, any other unit above 127 becomes a
// decimal reference ("&#20013;"); a surrogate pair thus gives two of them.
QString stringByEscapingHTMLUsingTable(const QString& text, HTMLEscapeTable table, bool escapingUnicode);
// Markup characters and the Unicode table's typographic ones only.
QString stringByEscapingForHTML(const QString& text);
// Pure 7-bit output: every HTML 4.01 name, decimal references for the rest.
QString stringByEscapingForAsciiHTML(const QString& text);

// Replaces named (HTML 4.01 and "&apos;") and numeric references by the
// characters they stand for, one level deep: "&amp;lt;" gives "&lt;".
// Only references of 4 to 10 characters count, and numeric ones only for
// values 1 to 65534 (a single UTF-16 unit). Anything else stays as written.
QString stringByUnescapingFromHTML(const QString& text);

// --- URL and XML -----------------------------------------------------------

// Percent-encodes the UTF-8 form of text for use inside a URL query: every
// character that is never legal in a URL plus "?", "=", "&" and "+".
QString urlEncodedString(const QString& text);
QString stringURLEncoded(const QString& text);
// Replaces every percent escape; the decoded bytes are read as UTF-8.
QString decodeURL(const QString& text);

// Escapes the five XML special characters as &amp; &lt; &gt; &quot; &apos;.
QString xmlEncodedString(const QString& text);
QString stringXMLEncoded(const QString& text);
// Replaces the five predefined XML entities and decimal or hexadecimal
// character references, one level deep. Unknown or malformed ones stay.
QString decodeXML(const QString& text);

// MD5 of the UTF-8 form of text, up to its first NUL, as lower-case hex.
QString md5HexDigest(const QString& text);

// --- Small helpers ---------------------------------------------------------
// Index-returning helpers give -1 when nothing is found.

QString stringByReplacing(const QString& text, const QString& target, const QString& replacement);
// A fresh random UUID in upper-case canonical form, without braces.
QString stringByGeneratingUUID();

qsizetype indexOfCharacter(const QString& text, QChar ch);
bool containsCharacter(const QString& text, QChar ch);
qsizetype countOfCharacters(const QString& text, QChar ch);

qsizetype indexOfString(const QString& text, const QString& needle);
qsizetype indexOfString(const QString& text, const QString& needle, Qt::CaseSensitivity options);
qsizetype indexOfString(const QString& text, const QString& needle, qsizetype from);
qsizetype lastIndexOfString(const QString& text, const QString& needle);

// Splits at every occurrence of separator; empty pieces are kept.
QStringList split(const QString& text, const QString& separator);
// Splits into runs of characters not in separators (each character of
// separators is one separator); empty runs are dropped. With inclusive set,
// every separator character also appears as an element of its own, in place.
QStringList splitUsing(const QString& text, const QString& separators = QStringLiteral("\n\t "),
                       bool inclusive = false);

// The characters from start up to (not including) endExclusive, clamped to
// the text.
QString substring(const QString& text, qsizetype start, qsizetype endExclusive);

bool isNotEqualToString(const QString& text, const QString& other);
bool isEqualToStringIgnoringCase(const QString& text, const QString& other);
// False for an index outside the text.
bool isWhitespaceCharacterAtIndex(const QString& text, qsizetype index);
bool startsWith(const QString& text, const QString& prefix);
bool endsWith(const QString& text, const QString& suffix);

// Strips spaces, tabs, CR and LF from both ends, nothing else.
QString trim(const QString& text);
// CRLF and lone CR line ends become LF.
QString normalizeNL(const QString& text);
// The first character upper-cased, the rest unchanged.
QString capitalizedFirstChar(const QString& text);

// --- Regular expressions (Perl syntax) --------------------------------------
// An invalid pattern matches nothing.

// How many non-overlapping matches pattern has in text.
qsizetype matches(const QString& text, const QString& pattern);
// The text of the first match; a null string when there is none.
QString matchFirst(const QString& text, const QString& pattern);
// The text of every match in order.
QStringList matchAll(const QString& text, const QString& pattern);
// Replaces every match by replacementTemplate, where "$0" to "$99" insert
// captured groups (the longest group number that exists) and a backslash
// takes the next character literally ("\$"). An invalid pattern leaves the
// text as it is.
QString stringByReplacingRegExpPattern(const QString& text, const QString& pattern,
                                       const QString& replacementTemplate);

} // namespace quirepad
