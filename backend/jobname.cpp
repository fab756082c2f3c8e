#include "jobname.h"

#include <algorithm>
#include <cctype>

namespace quirepad::backend {

namespace {

// Length of the well-formed UTF-8 character at text[pos] (1 to 4), or 0 when
// the bytes there are not one (stray continuation byte, overlong form,
// surrogate, beyond U+10FFFF, cut short). The code point goes to *cp.
std::size_t utf8_char(std::string_view text, std::size_t pos, char32_t* cp)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[pos + i]); };
    const std::size_t left = text.size() - pos;
    const unsigned char b0 = byte(0);
    if (b0 < 0x80) {
        *cp = b0;
        return 1;
    }
    std::size_t len;
    unsigned char lo = 0x80, hi = 0xBF;
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        len = 2;
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
        len = 3;
        if (b0 == 0xE0)
            lo = 0xA0; // overlong
        if (b0 == 0xED)
            hi = 0x9F; // surrogates
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
        len = 4;
        if (b0 == 0xF0)
            lo = 0x90; // overlong
        if (b0 == 0xF4)
            hi = 0x8F; // beyond U+10FFFF
    } else {
        return 0;
    }
    if (left < len)
        return 0;
    if (byte(1) < lo || byte(1) > hi)
        return 0;
    for (std::size_t i = 2; i < len; ++i)
        if (byte(i) < 0x80 || byte(i) > 0xBF)
            return 0;
    char32_t value = b0 & (len == 2 ? 0x1F : len == 3 ? 0x0F : 0x07);
    for (std::size_t i = 1; i < len; ++i)
        value = (value << 6) | (byte(i) & 0x3F);
    *cp = value;
    return len;
}

std::string lower(std::string_view text)
{
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return out;
}

} // namespace

std::string utf8_truncate(std::string_view text, std::size_t maxBytes)
{
    if (text.size() <= maxBytes)
        return std::string(text);
    // When the byte after the cut continues a character, that character
    // does not fit: step back to where it starts.
    std::size_t end = maxBytes;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    return std::string(text.substr(0, end));
}

std::string filename_safe(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t pos = 0; pos < text.size();) {
        char32_t cp = 0;
        const std::size_t len = utf8_char(text, pos, &cp);
        if (len == 0) {
            out += '_';
            ++pos;
            continue;
        }
        if (cp == U'/' || cp < 0x20 || (cp >= 0x7F && cp <= 0x9F))
            out += '_';
        else
            out.append(text.substr(pos, len));
        pos += len;
    }
    return out;
}

std::string safe_title(std::string_view title, std::size_t maxBytes)
{
    std::string safe = filename_safe(title);
    safe.erase(0, std::min(safe.find_first_not_of('.'), safe.size()));
    safe = utf8_truncate(safe, maxBytes);
    if (safe.empty())
        safe = "Untitled";
    return safe;
}

std::string one_line(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x20 || byte == 0x7F) {
            out += ' ';
        } else if (byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) >= 0x80
            && static_cast<unsigned char>(text[i + 1]) <= 0x9F) {
            out += ' '; // a C1 control (U+0080 to U+009F)
            ++i;
        } else {
            out += text[i];
        }
    }
    return out;
}

bool is_local_host(std::string_view host, std::string_view ownHostName)
{
    const std::string h = lower(host);
    if (h.empty() || h == "localhost" || h == "localhost.localdomain" || h == "127.0.0.1" || h == "::1" || h == "[::1]")
        return true;
    const std::string own = lower(ownHostName);
    if (own.empty())
        return false;
    const std::string ownShort = own.substr(0, own.find('.'));
    return h == own || h == ownShort || h == own + ".local" || h == ownShort + ".local";
}

std::string job_base_name(std::string_view user, std::string_view title, std::string_view remoteHost)
{
    // User and host names are short in practice; the caps only keep a
    // hostile or broken one from leaving no room for the title.
    std::string prefix;
    if (remoteHost.empty()) {
        prefix = utf8_truncate(filename_safe(user), 64);
    } else {
        prefix
            = "remote:" + utf8_truncate(filename_safe(user), 64) + "@" + utf8_truncate(filename_safe(remoteHost), 64);
    }
    prefix += kJobMarker;
    // Room for the longest numbered candidate's suffix and ".info".
    constexpr std::size_t suffixRoom = std::string_view(" 999999.pdf.info").size();
    const std::size_t room = kMaxFileNameBytes - suffixRoom - prefix.size();
    return prefix + safe_title(title, std::min<std::size_t>(200, room));
}

std::string candidate_name(const std::string& base, unsigned n)
{
    if (n == 0)
        return base + ".pdf";
    return base + " " + std::to_string(n) + ".pdf";
}

} // namespace quirepad::backend
