#ifndef VEXA_PARSER_PARSE_DIAGNOSIS_H
#define VEXA_PARSER_PARSE_DIAGNOSIS_H

#include <string>
#include <vector>

#include "vexa/calc/calc_ref.h"
#include "vexa/core/export.h"

class VexaParser;

namespace vexa {

enum class ParseOutcome { kParsed, kListRejected, kSyntaxError };

// What went wrong, for hosts that word their own messages.
enum class ParseProblem {
    kNone,
    kTextTooLong,          // 4096 characters or more
    kEmptyText,            // nothing but white space
    kUnknownCharacter,     // a character that begins no token
    kUnclosedBrace,        // a braced name without its '}'
    kMalformedNumber,      // a second point, exponent or unit mark
    kLowerCaseExponent,    // 1e5: the number 1 followed by the name e5
    kTokenTooLong,         // a number, name or call of 2048 characters or more
    kMissingOperand,       // an operator or sign without its operand
    kUnclosedParenthesis,  // a '(' never closed
    kMissingOperator,      // two operands in a row, as in 2(3)
    kNoOperand,            // nothing to compute, as in ()
    kUnknownFunction,      // a name followed by '(' that no function has
    kFunctionWithoutArguments,  // a function name without '('
    kUnclosedCall,         // a call whose parentheses the text leaves open
    kRefusedCall,          // the function refused the call when tried with ones
    kContactArguments,     // IMPACT/BISTOP without two lone braced names
    kCallFailed,           // the function threw a code when tried with ones
    kCallsTooDeep,         // calls nested more than 100 deep
    kTreeTooDeep,          // a tree deeper than 2100 nodes
    kEvaluationTooDeep,    // too deep to evaluate with the registered functions it calls
    kFunctionInUse,        // a registered function being evaluated at the same time elsewhere
    kListCharacter,        // the name list holds a character names cannot have
    kListTrailingSpace,    // the name list ends in a space
    kListNameTooLong,      // a listed name of 256 characters or more
    kListFunctionName,     // a listed name is a function name
    kOther,
    // Refused only by ParseChecked (vexa/parser/host_input.h); the parser
    // itself reads these lists in its own way.
    kListEmptyName,        // "x,", "x,,y" or ",x"
    kListSpaceInName,      // "x y": the parser would join it into xy
    kListRepeatedName,     // a name given twice (names match without regard to case)
    kListNotAName,         // a name no text can contain, such as 1X or X_1
    kListNamedConstant,    // PI, RTOD or DTOR: a text reads these as numbers
};

// A function call that encloses the problem.
struct EnclosingCall {
    std::wstring function;  // upper-cased, as the registry is asked
    int argument = 0;       // 1-based number of the argument the problem is in
    int position = 0;       // where the call starts in the host's text
    int length = 0;         // the whole call, name to closing parenthesis
};

// Why a parse failed. Positions count characters of the text as the host
// passed it (before spaces were removed, "**" folded or signs marked), through
// every level of function arguments; for a rejected list they count in the
// list.
struct ParseDiagnosis {
    ParseOutcome outcome = ParseOutcome::kParsed;
    ParseProblem problem = ParseProblem::kNone;
    int code = 0;        // the int parse threw, unchanged
    int position = -1;   // the offending piece; -1 when there is none
    int length = 0;
    std::vector<EnclosingCall> calls;  // outermost first
    std::wstring function;             // the function or name concerned, if any
    int argument_count = -1;           // of a refused call
    std::vector<std::wstring> suggestions;  // known function names near an unknown one
    // Plain English, UTF-8, one line, enclosing calls included; under 256
    // bytes unless names in it are very long.
    std::string message;
};

// The diagnosis of the parser's latest parse: kParsed when it succeeded (or
// none happened yet), otherwise what parse recorded as it failed.
VEXA_API ParseDiagnosis DiagnoseLastParse(const VexaParser& parser);

// parse without thrown codes: the calculator (null unless it parsed), the
// final parameter order and the diagnosis.
struct ParseResult {
    CalcRef calc;
    std::vector<std::wstring> names;
    bool can_plot = false;
    ParseDiagnosis diagnosis;
};

VEXA_API ParseResult TryParse(const wchar_t* text, const wchar_t* paramNames);

// Where a function call stands in a text as typed: its name to its closing
// parenthesis (or the end of the text).
struct CallSpan {
    std::wstring function;  // upper-cased
    int position = 0;
    int length = 0;
};

// Every call of a text, in the order of the text, which is the order in
// which WalkTree visits the call nodes of the text's tree. A text that does
// not parse gives the calls found before the fault.
VEXA_API std::vector<CallSpan> LocateCalls(const wchar_t* text);

// What a text, or its name list, says that its writer probably did not mean.
// The parser reads these texts without complaint.
enum class TextWarningKind {
    kJoinedNumber,       // "1 5": spaces are removed, so this is the number 15
    kJoinedName,         // "T IME" is the name TIME
    kSpacedStars,        // "2 * * x" is 2 ** x, the power
    kSignMarker,         // '!' or '@' typed: the parser's own marks of unary signs; "5@" is -5
    kIgnoredAfterRadian, // "1R5" is 1R: what follows the radian mark is ignored
    kListJoinedName,     // the name list "TIME AMP" holds the one name TIMEAMP
    kNoValue,            // constants a function refuses, as SQRT(-1), or 1/0: no value whatever the parameters
    kPlaceholder,        // DX, FX, JOINT, ...: the library answers 12 whatever the arguments
    kArgumentCount,      // a registered function called with another count than its parameters
    kStrayParenthesis,   // "2*x+1)/2": a ')' without its '(' ends the text there
    kCaseOnlyNames,      // "m*g + M*a": names are matched without regard to case, so m is M
};

struct TextWarning {
    TextWarningKind kind = TextWarningKind::kJoinedNumber;
    bool in_list = false;   // the position counts in the name list
    int position = -1;      // in the text as typed; -1 when no piece can be shown
    int length = 0;
    std::wstring function;  // the call concerned (kNoValue, kPlaceholder)
    std::string message;    // plain English, UTF-8, one line
};

// The warnings of a text and its name list, in the order of the text; those
// that need the tree (kNoValue, kPlaceholder) only when the text parses.
// Calls of constants are evaluated once to find the ones without a value.
VEXA_API std::vector<TextWarning> ReviewText(const wchar_t* text, const wchar_t* paramNames = nullptr);

}  // namespace vexa

#endif
