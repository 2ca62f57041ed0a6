#ifndef VEXA_TOOLS_CHECK_H
#define VEXA_TOOLS_CHECK_H

#include <iosfwd>
#include <optional>
#include <string>

namespace vexa_cli {

struct CheckStats {
    int checked = 0;
    int failed = 0;
    int warned = 0;  // parsed, with warnings
};

// Parses every expression line of `in` (blank lines and lines starting with
// '#' are skipped) and reports each error and each warning of the library's
// review as "source:line: ...".
CheckStats CheckStream(std::istream& in, const std::string& source, const std::optional<std::wstring>& list,
                       bool verbose, std::ostream& out, std::ostream& err);

// A line is an expression unless it is blank or a comment.
bool IsExpressionLine(const std::string& line);

// Removes a trailing carriage return (files written on other systems).
std::string StripCr(std::string line);

}  // namespace vexa_cli

#endif
