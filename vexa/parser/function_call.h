#ifndef VEXA_PARSER_FUNCTION_CALL_H
#define VEXA_PARSER_FUNCTION_CALL_H

#include <string>
#include <vector>

#include "vexa/core/wstring.h"
#include "vexa/parser/parse_failure.h"

class ICalculator;
class INode;

// The text of a function call, as the parser takes it apart: the name, the
// argument text inside the outermost parentheses, and the arguments at its
// top-level commas; and the call node built from them. Internal to the
// parser.
namespace vexa_parser {

class Level;

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

// What building a call node needs of the parser that met the call. The
// arguments are expressions again: parseArguments hands them back to that
// parser, which parses each non-empty one into a node appended to args and
// leaves the deepest argument's tree depth in resultDepth.
struct CallSite {
    Level& level;  // the expression the call stands in
    FailureSlot& failure;
    int& callDepth;    // calls enclosing the arguments being parsed
    int& resultDepth;  // tree depth of the node made last
    bool& canPlot;
    const std::vector<VEXA_WString>& names;  // the parameter list so far
    void* parser;
    void (*parseArguments)(void* parser, ICalculator* owner, const wchar_t* arguments, std::vector<INode*>& args);
};

// The FunctionNode of one call token, bound to owner; throws an int error
// code, with the failure recorded, where the call cannot be made. The token
// is changed in place for IF.
INode* ParseCall(const CallSite& site, ICalculator* owner, wchar_t* call);

}  // namespace vexa_parser

#endif
