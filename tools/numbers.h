#ifndef VEXA_TOOLS_NUMBERS_H
#define VEXA_TOOLS_NUMBERS_H

#include <optional>
#include <string>
#include <string_view>

namespace vexa_cli {

// Decimal number as written on a command line ("1.5", "-2e-3", "+4", "inf",
// "nan"). Parsed with std::from_chars so a host locale with a decimal comma
// cannot change what "1.5" means. The whole text must be the number.
std::optional<double> ParseNumber(std::string_view text, bool* outOfRange = nullptr);

// A number as the expression language writes it, or a constant expression
// of it: 1.5, -2, 3E-4, 90D, PI/2, 2*RTOD (and, as on any command line, 3e-4).
std::optional<double> ParseLanguageNumber(std::string_view text, bool* outOfRange = nullptr);

// Shortest text that reads back as the same double, in numbers the
// expression language reads too (1E-05).
std::string FormatExact(double v);

// At most `digits` significant digits, for tables and axis labels; the
// exponent as the language writes it (1E-05).
std::string FormatShort(double v, int digits = 6);

}  // namespace vexa_cli

#endif
