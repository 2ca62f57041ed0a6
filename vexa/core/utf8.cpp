#include "vexa/core/utf8.h"

#include <cstdint>

namespace vexa {

namespace {

// The code point that starts at utf8[i] and the bytes it takes. An
// ill-formed sequence is one U+FFFD for its longest start that some
// well-formed sequence shares (at least one byte), so a decoder resumes where
// a reader of the text would: overlong forms, surrogates and values above
// U+10FFFF never become characters the tokenizer would act on.
std::size_t DecodeAt(const std::string& utf8, std::size_t i, char32_t& cp)
{
    const std::size_t n = utf8.size();
    const unsigned char c = static_cast<unsigned char>(utf8[i]);
    if (c < 0x80) {
        cp = c;
        return 1;
    }
    int extra = 0;
    // The range of the second byte; every later one is 80..BF.
    unsigned char low = 0x80, high = 0xBF;
    if (c >= 0xC2 && c <= 0xDF) {
        extra = 1;
        cp = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
        extra = 2;
        cp = c & 0x0F;
        if (c == 0xE0)
            low = 0xA0;  // below: overlong
        else if (c == 0xED)
            high = 0x9F;  // above: surrogates
    } else if (c >= 0xF0 && c <= 0xF4) {
        extra = 3;
        cp = c & 0x07;
        if (c == 0xF0)
            low = 0x90;  // below: overlong
        else if (c == 0xF4)
            high = 0x8F;  // above: beyond U+10FFFF
    } else {
        // C0, C1 (only overlong forms), F5..FF and a stray continuation byte.
        cp = 0xFFFD;
        return 1;
    }
    for (int k = 1; k <= extra; ++k) {
        const unsigned char b = i + k < n ? static_cast<unsigned char>(utf8[i + k]) : 0;
        const bool fits = i + k < n && (k == 1 ? b >= low && b <= high : (b & 0xC0) == 0x80);
        if (!fits) {
            cp = 0xFFFD;
            return static_cast<std::size_t>(k);
        }
        cp = (cp << 6) | (b & 0x3F);
    }
    return 1 + static_cast<std::size_t>(extra);
}

// Where wchar_t holds 16 bits (Windows), a wide text is UTF-16: a code point
// above U+FFFF takes two code units, a surrogate pair.
constexpr bool kUtf16 = sizeof(wchar_t) == 2;

bool IsHighSurrogate(std::uint32_t u) { return u >= 0xD800 && u <= 0xDBFF; }
bool IsLowSurrogate(std::uint32_t u) { return u >= 0xDC00 && u <= 0xDFFF; }

// Code units the code point takes in a wide text.
std::size_t WideUnits(char32_t cp) { return kUtf16 && cp > 0xFFFF ? 2 : 1; }

}  // namespace

std::wstring FromUtf8(const std::string& utf8)
{
    std::wstring out;
    out.reserve(utf8.size());
    char32_t cp = 0;
    std::size_t i = 0;
    while (i < utf8.size()) {
        i += DecodeAt(utf8, i, cp);
        if (WideUnits(cp) == 2) {
            const char32_t v = cp - 0x10000;
            out.push_back(static_cast<wchar_t>(0xD800 + (v >> 10)));
            out.push_back(static_cast<wchar_t>(0xDC00 + (v & 0x3FF)));
        } else {
            out.push_back(static_cast<wchar_t>(cp));
        }
    }
    return out;
}

std::size_t Utf8Offset(const std::string& utf8, std::size_t chars)
{
    // A position inside a surrogate pair (between its two units) is told as
    // the start of the character: no offset splits a character's bytes.
    std::size_t i = 0;
    std::size_t units = 0;
    char32_t cp = 0;
    while (units < chars && i < utf8.size()) {
        const std::size_t bytes = DecodeAt(utf8, i, cp);
        units += WideUnits(cp);
        if (units > chars)
            break;
        i += bytes;
    }
    return i;
}

std::string ToUtf8(const std::wstring& wide)
{
    std::string out;
    out.reserve(wide.size());
    for (std::size_t k = 0; k < wide.size(); ++k) {
        std::uint32_t cp = static_cast<std::uint32_t>(wide[k]);
        if (kUtf16) {
            cp &= 0xFFFF;
            if (IsHighSurrogate(cp) && k + 1 < wide.size() &&
                IsLowSurrogate(static_cast<std::uint32_t>(wide[k + 1]) & 0xFFFF)) {
                const std::uint32_t low = static_cast<std::uint32_t>(wide[++k]) & 0xFFFF;
                cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
            }
        }
        // Lone surrogates (and, with 32-bit units, any surrogate) are no
        // Unicode scalar values.
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
