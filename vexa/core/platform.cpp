#include "vexa/core/platform.h"

#include <charconv>
#include <chrono>
#include <cmath>
#include <limits>
#include <string>

namespace vexa_platform {

std::uint32_t TickCount() {
    using namespace std::chrono;
    const auto ms = duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
    // Keeping only the low 32 bits gives the same wrap-around as the
    // operating system's tick counter, which callers subtract modulo 2^32.
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(ms));
}

namespace {

std::uint32_t FoldAsciiUpper(wchar_t c) {
    std::uint32_t u = static_cast<std::uint32_t>(c);
    if (u >= 'A' && u <= 'Z') u += 'a' - 'A';
    return u;
}

bool IsDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }

}  // namespace

int WcsICmp(const wchar_t* a, const wchar_t* b) {
    static const wchar_t kEmpty[] = L"";
    if (!a) a = kEmpty;
    if (!b) b = kEmpty;
    for (;; ++a, ++b) {
        const std::uint32_t x = FoldAsciiUpper(*a);
        const std::uint32_t y = FoldAsciiUpper(*b);
        if (x != y) return x < y ? -1 : 1;
        if (x == 0) return 0;
    }
}

double WToF(const wchar_t* text) {
    if (!text) return 0.0;
    const wchar_t* p = text;
    while (IsWSpace(*p)) ++p;

    bool negative = false;
    if (*p == L'+' || *p == L'-') {
        negative = (*p == L'-');
        ++p;
    }

    // Collect the number as ASCII so the conversion below never consults
    // LC_NUMERIC: a host that switched the locale must not change our values.
    std::string digits;
    long long int_digits = 0;       // significant digits before the point
    long long leading_frac_zeros = 0;  // zeros after the point before the first non-zero digit
    bool seen_nonzero = false;
    bool any_digit = false;
    for (; IsDigit(*p); ++p) {
        any_digit = true;
        if (*p != L'0') seen_nonzero = true;
        if (seen_nonzero) ++int_digits;
        digits.push_back(static_cast<char>(*p));
    }
    if (*p == L'.') {
        const wchar_t* q = p + 1;
        std::string frac;
        for (; IsDigit(*q); ++q) {
            if (!seen_nonzero) {
                if (*q == L'0') ++leading_frac_zeros;
                else seen_nonzero = true;
            }
            frac.push_back(static_cast<char>(*q));
        }
        if (any_digit || !frac.empty()) {
            any_digit = true;
            digits.push_back('.');
            digits += frac;
            p = q;
        }
    }
    if (!any_digit) return 0.0;

    long long exp_value = 0;
    if (*p == L'e' || *p == L'E') {
        const wchar_t* q = p + 1;
        bool exp_negative = false;
        if (*q == L'+' || *q == L'-') {
            exp_negative = (*q == L'-');
            ++q;
        }
        if (IsDigit(*q)) {
            std::string exp_text = exp_negative ? "e-" : "e";
            for (; IsDigit(*q); ++q) {
                exp_text.push_back(static_cast<char>(*q));
                if (exp_value < 1000000000LL) exp_value = exp_value * 10 + (*q - L'0');
            }
            if (exp_negative) exp_value = -exp_value;
            digits += exp_text;
        }
    }

    double value = 0.0;
    const auto res = std::from_chars(digits.data(), digits.data() + digits.size(), value,
                                     std::chars_format::general);
    if (res.ec == std::errc::result_out_of_range) {
        // Out of range either way: decide by the decimal magnitude of the
        // first significant digit, as the C conversion would (inf or zero).
        if (!seen_nonzero) {
            value = 0.0;
        } else {
            const long long magnitude =
                exp_value + (int_digits > 0 ? int_digits : -leading_frac_zeros);
            value = magnitude > 0 ? std::numeric_limits<double>::infinity() : 0.0;
        }
    } else if (res.ec != std::errc()) {
        value = 0.0;
    }
    return negative ? -value : value;
}

std::wstring FormatInt(std::int32_t v) {
    wchar_t buf[16];
    wchar_t* end = buf + 16;
    wchar_t* p = end;
    // Work on the magnitude as unsigned so that -2147483648 needs no special case.
    std::uint32_t mag = v < 0 ? 0u - static_cast<std::uint32_t>(v) : static_cast<std::uint32_t>(v);
    do {
        *--p = static_cast<wchar_t>(L'0' + mag % 10);
        mag /= 10;
    } while (mag != 0);
    if (v < 0) *--p = L'-';
    return std::wstring(p, end);
}

std::int32_t Trunc32(double v) {
    // The comparisons are false for NaN, which therefore lands in the
    // out-of-range answer too.
    if (v > -2147483649.0 && v < 2147483648.0) return static_cast<std::int32_t>(v);
    return std::numeric_limits<std::int32_t>::min();
}

bool IsWSpace(wchar_t c) {
    return c == L' ' || (c >= L'\t' && c <= L'\r');
}

std::size_t WLen(const wchar_t* s) {
    if (!s) return 0;
    const wchar_t* p = s;
    while (*p) ++p;
    return static_cast<std::size_t>(p - s);
}

}  // namespace vexa_platform
