#ifndef VEXA_TOOLS_SYNTAX_LOCATE_H
#define VEXA_TOOLS_SYNTAX_LOCATE_H

#include <optional>
#include <string>
#include <vector>

namespace vexa_cli {

// The parser reports a syntax error as a bare int: a position in the
// pre-processed text of whichever nesting level failed (the whole expression
// or one function argument), 0 when there is no position, 100 for a call its
// function refuses. To show the user where that is, the tool redoes the
// parser's pre-processing and scanning on its own, asking the library only
// whether a given call or argument parses, and so finds the failing level.

// The parser's pre-processing: spaces removed outside braces, "**" folded to
// '^', unary '+'/'-' written as '!'/'@', trailing white space cut.
std::wstring PreProcess(const std::wstring& text);

struct SyntaxLocation {
    // Outermost first: "argument 2 of STEP" and so on; empty for the top level.
    std::vector<std::string> path;
    std::wstring level_text;  // pre-processed text the position counts in
    int code = 0;             // the code as this tool worked it out
    bool has_position = false;
    int position = 0;
    std::string reason;
    // Set when the failing piece is a whole call that its function refused.
    bool refused_call = false;
    std::wstring call_name;  // upper-cased
    std::wstring call_text;
    int call_args = 0;
    bool agrees = false;  // the tool's code equals the library's
};

// A function call found in an expression text, split into its arguments the
// way the parser splits them (top-level commas; ':' in IF acts as a comma).
struct CallPiece {
    std::wstring text;
    std::wstring name;  // upper-cased
    std::vector<std::wstring> args;
};

// The outermost calls of a text that parses, left to right.
std::vector<CallPiece> CallsIn(const std::wstring& text);

SyntaxLocation LocateSyntaxError(const std::wstring& text, const std::optional<std::wstring>& list,
                                 int libraryCode);

}  // namespace vexa_cli

#endif
