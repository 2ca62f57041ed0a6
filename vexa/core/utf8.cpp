#include "vexa/core/utf8.h"

#include <cstdint>

namespace vexa {

namespace {

// The code point that starts at utf8[i] and the bytes it takes; a malformed
// sequence is U+FFFD of one byte.
std::size_t DecodeAt(const std::string& utf8, std::size_t i, char32_t& cp)
{
    const std::size_t n = utf8.size();
    const unsigned char c = static_cast<unsigned char>(utf8[i]);
    int extra = 0;
    if (c < 0x80) {
        cp = c;
    } else if ((c & 0xE0) == 0xC0) {
        extra = 1;
        cp = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
        extra = 2;
        cp = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
        extra = 3;
        cp = c & 0x07;
    } else {
        cp = 0xFFFD;
        return 1;
    }
    for (int k = 1; k <= extra; ++k) {
        if (i + k >= n || (static_cast<unsigned char>(utf8[i + k]) & 0xC0) != 0x80) {
            cp = 0xFFFD;
            return 1;
        }
        cp = (cp << 6) | (static_cast<unsigned char>(utf8[i + k]) & 0x3F);
    }
    return 1 + static_cast<std::size_t>(extra);
}

}  // namespace

std::wstring FromUtf8(const std::string& utf8)
{
    std::wstring out;
    out.reserve(utf8.size());
    char32_t cp = 0;
    std::size_t i = 0;
    while (i < utf8.size()) {
        i += DecodeAt(utf8, i, cp);
        out.push_back(static_cast<wchar_t>(cp));
    }
    return out;
}

std::size_t Utf8Offset(const std::string& utf8, std::size_t chars)
{
    std::size_t i = 0;
    char32_t cp = 0;
    for (std::size_t k = 0; k < chars && i < utf8.size(); ++k)
        i += DecodeAt(utf8, i, cp);
    return i;
}

std::string ToUtf8(const std::wstring& wide)
{
    std::string out;
    out.reserve(wide.size());
    for (wchar_t wc : wide) {
        std::uint32_t cp = static_cast<std::uint32_t>(wc);
        if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) cp = 0xFFFD;
        if (cp < 0x80) {
            out.push_back(static_cast<char>(cp));
        } else if (cp < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else if (cp < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        }
    }
    return out;
}

}  // namespace vexa
