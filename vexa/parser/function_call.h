#ifndef VEXA_PARSER_FUNCTION_CALL_H
#define VEXA_PARSER_FUNCTION_CALL_H

#include <string>
#include <vector>

// The text of a function call, as the parser takes it apart: the name, the
// argument text inside the outermost parentheses, and the arguments at its
// top-level commas. VexaParser's parseFunction and parseParams
// (function_call.cpp) build the call node from these. Internal to the parser.
namespace vexa_parser {

struct CallText {
    std::wstring name;      // as written: a letter, then letters, digits and '{'
    int open = -1;          // where '(' stands after the name and spaces; -1 when it does not
    std::wstring arguments;  // from after '(' up to the ')' that closes it, or to the end
    int close = 0;          // where that ')' stands, or the end of the text
};

CallText SplitCall(const wchar_t* call);

// One argument: where it starts in the argument text, and its text. Empty
// arguments (f(x,,y)) are kept; the parser skips them.
struct ArgumentText {
    int begin;
    std::wstring text;
};

std::vector<ArgumentText> SplitArguments(const wchar_t* arguments);

// IMPACT and BISTOP, whose calls need two lone result-object arguments.
bool IsContactFunction(const wchar_t* upperName);

}  // namespace vexa_parser

#endif
