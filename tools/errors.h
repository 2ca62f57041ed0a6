#ifndef VEXA_TOOLS_ERRORS_H
#define VEXA_TOOLS_ERRORS_H

#include <optional>
#include <string>

#include "tools/session.h"

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

// Why a parse failed (a syntax error or a rejected name list), from the
// library's diagnosis: what is wrong, in which call, with a caret under the
// text as typed, and the call form of the function concerned. Ends in a
// line break.
std::string DescribeParseFailure(const Parsed& p);

// Meaning of an int thrown while evaluating or differentiating.
std::string DescribeThrownCode(int code);

// Why Evaluate gave a null result.
std::string DescribeNullResult();

// The text with a caret line under a piece of it, each line indented four
// blanks; of a long text only the part around the piece.
std::string CaretBlock(const std::wstring& text, int position, int length);

// One warning of the library's review of a text (or of its name list), with
// the piece it concerns marked. Ends in a line break.
std::string DescribeWarning(const vexa::TextWarning& w, const std::wstring& text,
                            const std::optional<std::wstring>& list);

}  // namespace vexa_cli

#endif
