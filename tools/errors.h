#ifndef VEXA_TOOLS_ERRORS_H
#define VEXA_TOOLS_ERRORS_H

#include <optional>
#include <string>

namespace vexa_cli {

// Exit status of the program; documented in --help.
enum ExitCode {
    kExitOk = 0,
    kExitCheckFailed = 1,  // check: at least one line has an error; demo: an entry failed
    kExitUsage = 2,        // bad command line, bad NAME=VALUE, missing value
    kExitSyntax = 3,       // the expression does not parse
    kExitList = 4,         // the parameter-name list is rejected
    kExitEval = 5,         // the expression has no value for the given values
    kExitIo = 6,           // a file cannot be read or written
};

// Multi-line explanation of a syntax error thrown by parse: what is wrong and
// where, with a caret under the pre-processed text the position counts in.
std::string DescribeSyntaxError(const std::wstring& text, const std::optional<std::wstring>& list, int code);

// Why the library refused a parameter-name list, with a caret.
std::string DescribeListRejection(const std::wstring& list);

// Meaning of an int thrown while evaluating or differentiating.
std::string DescribeThrownCode(int code);

// Why Evaluate gave a null result.
std::string DescribeNullResult();

}  // namespace vexa_cli

#endif
