#pragma once

#include <array>
#include <cstddef>
#include <span>

namespace quirepad {

// One named character reference: the full reference text ("&amp;") and the
// UTF-16 code unit it stands for.
struct HTMLEscapeMap {
    const char* entity;
    char16_t value;
};

using HTMLEscapeTable = std::span<const HTMLEscapeMap>;

inline constexpr std::size_t kUnicodeHTMLEscapeCount = 33;
inline constexpr std::size_t kAsciiHTMLEscapeCount = 253;

// The references an HTML escape needs even when the document itself is
// Unicode: markup characters plus the few typographic ones outside Latin-1.
// Sorted by ascending code unit, no code unit twice.
extern const std::array<HTMLEscapeMap, kUnicodeHTMLEscapeCount> gUnicodeHTMLEscapeMap;

// Every named character reference of HTML 4.01 plus "&apos;", for output
// that must stay 7-bit. Sorted by ascending code unit, no code unit twice.
extern const std::array<HTMLEscapeMap, kAsciiHTMLEscapeCount> gAsciiHTMLEscapeMap;

// Three-way comparison of a searched code unit with a table entry:
// 1 when the unit sorts after the entry, -1 before it, 0 on a match.
int EscapeMapCompare(char16_t unit, const HTMLEscapeMap& entry);

// Binary search of a sorted table; nullptr when the unit has no entry.
const HTMLEscapeMap* findHTMLEscape(HTMLEscapeTable table, char16_t unit);

} // namespace quirepad
