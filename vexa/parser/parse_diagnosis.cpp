#include "vexa/parser/parse_diagnosis.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "vexa/calc/arity.h"
#include "vexa/calc/function_factory.h"
#include "vexa/core/platform.h"
#include "vexa/core/utf8.h"
#include "vexa/parser/parse_failure.h"
#include "vexa/parser/vexa_parser.h"

namespace vexa_parser {

struct ParserAccess {
    static const FailureRecord* Failure(const VexaParser& parser) { return parser.m_failure.get(); }
};

}  // namespace vexa_parser

namespace vexa {

namespace {

using vexa_parser::FailureRecord;
using vexa_parser::Piece;

std::string Quoted(const std::wstring& text)
{
    return "'" + ToUtf8(text) + "'";
}

std::string CharacterText(wchar_t c)
{
    if (c == L'\t')
        return "a tab";
    if (c > 0x20 && c < 0x7F)
        return Quoted(std::wstring(1, c));
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "the character U+%04X", static_cast<unsigned>(static_cast<std::uint32_t>(c)));
    return buffer;
}

// A piece of the host's text for a message, cut short when long.
std::string PieceText(const std::wstring& text, Piece piece)
{
    if (piece.position < 0 || piece.position >= static_cast<int>(text.size()))
        return "''";
    std::wstring part = text.substr(static_cast<std::size_t>(piece.position), static_cast<std::size_t>(piece.length));
    if (part.size() > 24)
        part = part.substr(0, 21) + L"...";
    return Quoted(part);
}

std::wstring Folded(const std::wstring& s)
{
    std::wstring out(s);
    for (wchar_t& c : out) {
        if (c >= L'a' && c <= L'z')
            c = static_cast<wchar_t>(c - L'a' + L'A');
    }
    return out;
}

// Edit distance counting a swap of two neighbours as one edit, which is the
// commonest slip in a typed name (STPE for STEP).
std::size_t Distance(const std::wstring& a, const std::wstring& b)
{
    std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i)
        d[i][0] = i;
    for (std::size_t j = 0; j <= b.size(); ++j)
        d[0][j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t change = a[i - 1] == b[j - 1] ? 0 : 1;
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + change});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    }
    return d[a.size()][b.size()];
}

// Up to three function names a text can call that lie nearest to name; also
// a name registered in another case, which the text can never reach.
std::vector<std::wstring> NearestFunctions(const std::wstring& name, std::wstring& unreachable)
{
    std::vector<std::wstring> all;
    FunctionFactory::getInstance()->GetAllFunctionBiFunctionName(all);
    const std::wstring wanted = Folded(name);
    const std::size_t limit = wanted.size() / 3;
    std::vector<std::pair<std::size_t, std::wstring>> near;
    for (const std::wstring& candidate : all) {
        const std::wstring folded = Folded(candidate);
        if (folded == wanted) {
            if (candidate != folded)
                unreachable = candidate;
            continue;
        }
        // Calls are looked up upper-cased, so only upper-case names are reachable.
        const std::size_t d = Distance(wanted, folded);
        if (candidate == folded && d <= limit)
            near.push_back({d, candidate});
    }
    std::sort(near.begin(), near.end());
    std::vector<std::wstring> names;
    for (std::size_t i = 0; i < near.size() && i < 3; ++i)
        names.push_back(near[i].second);
    return names;
}

std::string JoinNames(const std::vector<std::wstring>& names)
{
    std::string out;
    for (const std::wstring& n : names)
        out += (out.empty() ? "" : ", ") + ToUtf8(n);
    return out;
}

std::string Arguments(int count)
{
    return std::to_string(count) + (count == 1 ? " argument" : " arguments");
}

std::string NumberProblem(const std::wstring& what)
{
    if (what == L".")
        return "a number cannot have a second decimal point";
    if (what == L"E.")
        return "a number's exponent cannot have a decimal point";
    if (what == L"E")
        return "a number cannot have a second exponent 'E'";
    if (what == L"D")
        return "nothing may follow the degree mark 'D' of a number";
    return "a number cannot have a second radian mark 'R'";
}

std::string UnknownCharacter(wchar_t c)
{
    std::string why = CharacterText(c) + " cannot start a token here";
    if (c == L',')
        why += " (a comma only separates the arguments of a call)";
    else if (c == L':')
        why += " (a colon only follows the condition of IF)";
    return why;
}

std::string MissingOperand(const FailureRecord& r)
{
    const wchar_t op = r.detail.empty() ? L'?' : r.detail[0];
    if (op == L'!' || op == L'@')
        return std::string("the sign '") + (op == L'!' ? '+' : '-') + "' is missing its operand";
    return "the operator " + Quoted(r.detail) + " is missing an operand on its " + (r.missingRight ? "right" : "left");
}

// "; STEP takes 5 arguments" when the call's count is not one the function
// takes, so that the message names the fix.
std::string CountHint(const FailureRecord& r)
{
    int least = 0;
    int most = 0;
    bool builtIn = false;
    if (!AcceptedCounts(r.detail, least, most, builtIn) || (r.count >= least && r.count <= most))
        return std::string();
    return "; " + TakesArguments(r.detail);
}

std::string CallFailed(const FailureRecord& r)
{
    const std::string name = ToUtf8(r.detail);
    if (r.code == -1000)
        return name + " has no implementation in this library (code -1000)";
    std::string why = name + " failed with code " + std::to_string(r.code) + " when tried with " +
                      Arguments(r.count) + " set to 1.0";
    if (r.code == -10001)
        why += ": operands it cannot combine";
    return why;
}

std::string Message(const FailureRecord& r, const ParseDiagnosis& d, const std::wstring& unreachable)
{
    using P = ParseProblem;
    const std::string name = ToUtf8(r.detail);
    switch (r.problem) {
    case P::kTextTooLong:
        return "the text is " + std::to_string(r.at.position + r.at.length) +
               " characters long; at most 4095 are allowed";
    case P::kEmptyText: return "the text is empty (nothing but white space)";
    case P::kUnknownCharacter: return UnknownCharacter(r.detail.empty() ? L'?' : r.detail[0]);
    case P::kUnclosedBrace: return "the braced name has no closing '}'";
    case P::kMalformedNumber: return NumberProblem(r.detail);
    case P::kLowerCaseExponent:
        return "a lower-case 'e' does not start an exponent: write " + name + " (the exponent letter is E)";
    case P::kTokenTooLong: return "a number, name or call longer than the 2047 characters a token may hold";
    case P::kMissingOperand: return MissingOperand(r);
    case P::kUnclosedParenthesis: return "a '(' is never closed";
    case P::kMissingOperator:
        return "an operator is missing between " + PieceText(r.text, r.other) + " and " + PieceText(r.text, r.at);
    case P::kNoOperand: return "there is no operand at all";
    case P::kUnknownFunction:
        if (!unreachable.empty())
            return "unknown function " + name + ": a function is registered as " + Quoted(unreachable) +
                   ", but texts reach only names registered in upper case";
        if (!d.suggestions.empty())
            return "unknown function " + name + "; nearest known names: " + JoinNames(d.suggestions);
        return "unknown function " + name + " (to multiply by a parenthesised group, write '*' before the '(')";
    case P::kFunctionWithoutArguments:
        return name + " is a function and must be followed by '(' and its arguments";
    case P::kUnclosedCall:
        return "the parentheses of the call of " + name + " are not closed before the end of the text";
    case P::kRefusedCall:
        return name + " refused the call with " + Arguments(r.count) + " (tried with every argument set to 1.0)" +
               CountHint(r);
    case P::kContactArguments:
        return name + " needs exactly two arguments that each refer to a single braced result-object name, "
                      "such as {DIST} and {VEL}";
    case P::kCallFailed: return CallFailed(r) + CountHint(r);
    case P::kCallsTooDeep: return "function calls are nested more than 100 deep";
    case P::kTreeTooDeep: return "the expression is nested more than 2100 levels deep";
    case P::kEvaluationTooDeep:
        return (name.empty() ? std::string("the expression") : "the call of " + name) +
               ", with the registered functions it calls, is nested too deeply to evaluate within the "
               "stack the library allows itself";
    case P::kFunctionInUse:
        return name + " is being evaluated at the same time elsewhere (on another thread, or through a call of "
                      "itself): calls of one registered function must not overlap";
    case P::kListCharacter: {
        const wchar_t c = r.detail.empty() ? L'?' : r.detail[0];
        const std::string what = (c >= L'0' && c <= L'9') ? "a digit" : c == L'_' ? "an underscore" : CharacterText(c);
        return what + " cannot appear in a listed name (names are ASCII letters and '{' only; names with "
                      "digits or braced names are picked up from the expression instead)";
    }
    case P::kListTrailingSpace: return "the list ends in a space";
    case P::kListNameTooLong: return "a listed name is longer than 255 characters";
    case P::kListFunctionName: return Quoted(r.detail) + " is the name of a function";
    default: return "the parser stopped with code " + std::to_string(r.code);
    }
}

// "in argument 5 of STEP, inside argument 2 of MAX", innermost first.
std::string CallChain(const FailureRecord& r)
{
    std::string chain;
    for (const vexa_parser::CallFrame& frame : r.calls) {
        chain += chain.empty() ? "in " : ", inside ";
        chain += "argument " + std::to_string(frame.argument + 1) + " of " + ToUtf8(frame.function);
    }
    return chain;
}

}  // namespace

ParseDiagnosis DiagnoseLastParse(const VexaParser& parser)
{
    ParseDiagnosis d;
    const FailureRecord* r = vexa_parser::ParserAccess::Failure(parser);
    if (!r)
        return d;
    d.outcome = r->list ? ParseOutcome::kListRejected : ParseOutcome::kSyntaxError;
    d.problem = r->problem;
    d.code = r->list ? 0 : r->code;
    d.position = r->at.position;
    d.length = r->at.length;
    for (auto it = r->calls.rbegin(); it != r->calls.rend(); ++it)
        d.calls.push_back({it->function, it->argument + 1, it->call.position, it->call.length});
    d.argument_count = r->count;
    std::wstring unreachable;
    switch (r->problem) {
    case ParseProblem::kUnknownFunction:
        d.suggestions = NearestFunctions(r->detail, unreachable);
        d.function = r->detail;
        break;
    case ParseProblem::kFunctionWithoutArguments:
    case ParseProblem::kUnclosedCall:
    case ParseProblem::kRefusedCall:
    case ParseProblem::kContactArguments:
    case ParseProblem::kCallFailed:
    case ParseProblem::kEvaluationTooDeep:
    case ParseProblem::kFunctionInUse:
        d.function = r->detail;
        break;
    default:
        break;
    }
    d.message = Message(*r, d, unreachable);
    const std::string chain = CallChain(*r);
    if (!chain.empty())
        d.message += " (" + chain + ")";
    return d;
}

ParseResult TryParse(const wchar_t* text, const wchar_t* paramNames)
{
    ParseResult result;
    // parse takes a writable list, though it only reads it.
    std::vector<wchar_t> list;
    if (paramNames)
        list.assign(paramNames, paramNames + vexa_platform::WLen(paramNames) + 1);
    VexaParser parser;
    try {
        parser.parse(text, paramNames ? list.data() : nullptr, result.calc.receive());
    } catch (int) {
        // The diagnosis below says why.
    }
    result.diagnosis = DiagnoseLastParse(parser);
    if (result.diagnosis.outcome != ParseOutcome::kParsed)
        result.calc.reset();
    for (int i = 0; i < parser.getParamsNum(); ++i) {
        const wchar_t* name = parser.getParam(i).getWChar_t();
        result.names.push_back(name ? name : L"");
    }
    result.can_plot = parser.canPlot();
    return result;
}

}  // namespace vexa
