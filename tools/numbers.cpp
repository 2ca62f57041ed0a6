#include "tools/numbers.h"

#include <charconv>
#include <cmath>

#include "vexa/vexa.h"

namespace vexa_cli {

std::optional<double> ParseNumber(std::string_view text, bool* outOfRange) {
    if (outOfRange) *outOfRange = false;
    std::size_t b = 0;
    std::size_t e = text.size();
    while (b < e && (text[b] == ' ' || text[b] == '\t')) ++b;
    while (e > b && (text[e - 1] == ' ' || text[e - 1] == '\t')) --e;
    text = text.substr(b, e - b);
    // from_chars refuses a leading '+', which people do write.
    if (!text.empty() && text[0] == '+') {
        text.remove_prefix(1);
        if (!text.empty() && (text[0] == '-' || text[0] == '+')) return std::nullopt;
    }
    if (text.empty()) return std::nullopt;
    double v = 0.0;
    auto res = std::from_chars(text.data(), text.data() + text.size(), v);
    if (res.ptr != text.data() + text.size()) return std::nullopt;
    if (res.ec == std::errc::result_out_of_range && outOfRange) *outOfRange = true;
    if (res.ec != std::errc()) return std::nullopt;
    return v;
}

std::optional<double> ParseLanguageNumber(std::string_view text, bool* outOfRange) {
    if (auto v = ParseNumber(text, outOfRange)) return v;
    if (outOfRange && *outOfRange) return std::nullopt;
    // The library reads the language's own numbers and constants: a text
    // without parameters whose value is a scalar.
    const std::wstring wide = vexa::FromUtf8(std::string(text));
    vexa::ParseResult r = vexa::TryParse(wide.c_str(), L"");
    if (!r.calc || !r.names.empty()) return std::nullopt;
    VEXA_Data none, value;
    try {
        if (!r.calc->Evaluate(0, &none, value) || value.getType() != DT_SCALAR) return std::nullopt;
    } catch (int) {
        return std::nullopt;
    }
    return value.getValue()[0];
}

static std::string Finish(const char* buf, const char* end, double v) {
    std::string s(buf, end);
    for (char& c : s)
        if (c == 'e') c = 'E';
    // "-0" carries no information for a reader and upsets column alignment.
    if (v == 0.0) return "0";
    return s;
}

std::string FormatExact(double v) {
    return vexa::ToUtf8(vexa::ValueText(VEXA_Data(v)));
}

std::string FormatShort(double v, int digits) {
    char buf[64];
    auto res = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::general, digits);
    return Finish(buf, res.ptr, v);
}

}  // namespace vexa_cli
