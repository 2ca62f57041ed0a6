#include "tools/errors.h"

#include <vector>

#include "tools/call_forms.h"
#include "tools/syntax_locate.h"
#include "tools/wide.h"
#include "vexa/vexa.h"

namespace vexa_cli {

namespace {

const char* kPreNote =
    "(pre-processed: spaces removed, '**' folded to '^', unary '+'/'-' written as '!'/'@')";

std::string CaretBlock(const std::wstring& text, int position) {
    std::string line = "    " + ToUtf8(text) + "\n    ";
    // Count code points, not bytes, so the caret stands under its character.
    line += std::string(static_cast<std::size_t>(position < 0 ? 0 : position), ' ');
    line += "^";
    if (position >= static_cast<int>(text.size())) line += " (end of text)";
    return line;
}

std::string RefusedCallReason(const SyntaxLocation& loc) {
    const std::string name = ToUtf8(loc.call_name);
    const CallForm* f = FindCallForm(loc.call_name);
    if (loc.code == -1000) return name + " has no implementation in this library (code -1000)";
    if (loc.code != 100) return name + " failed with code " + std::to_string(loc.code) + " when tried with arguments 1.0";
    std::string args = std::to_string(loc.call_args) + (loc.call_args == 1 ? " argument" : " arguments");
    if (f && f->min_args < 0) return std::string(name) + " refuses every call here: " + f->summary;
    if (f && (loc.call_args < f->min_args || loc.call_args > f->max_args)) {
        std::string want = f->min_args == f->max_args
                               ? std::to_string(f->min_args)
                               : std::to_string(f->min_args) + " to " + std::to_string(f->max_args);
        return name + " takes " + want + " arguments but was given " + args + "; call form: " + f->form;
    }
    if (loc.call_name == L"IMPACT" || loc.call_name == L"BISTOP")
        return name + " needs exactly two arguments that each refer to a single braced result-object name, "
                      "such as {DIST} and {VEL}; call form: " + (f ? f->form : "");
    return name + " refused the call with " + args + " when tried with every argument set to 1.0" +
           (f ? std::string("; call form: ") + f->form : std::string());
}

}  // namespace

std::string DescribeSyntaxError(const std::wstring& text, const std::optional<std::wstring>& list, int code) {
    const SyntaxLocation loc = LocateSyntaxError(text, list, code);
    const std::string shown = text.size() > 100 ? ToUtf8(text.substr(0, 97)) + "..." : ToUtf8(text);
    std::string msg = "syntax error (code " + std::to_string(code) + ") in '" + shown + "'\n";
    if (!loc.agrees) {
        // The tool could not retrace the parser's steps; show what is certain.
        msg += "  ";
        if (code == 100) {
            msg += "a function call is refused by its function (code 100)\n";
        } else if (code == 0) {
            msg += "the text is malformed (code 0 carries no position)\n    " + ToUtf8(PreProcess(text)) + "\n";
        } else {
            msg += "position " + std::to_string(code) + " " + kPreNote +
                   "; if the error lies inside a function argument, the position counts in that "
                   "argument's own text:\n" + CaretBlock(PreProcess(text), code) + "\n";
        }
        return msg;
    }
    std::string where;
    for (const std::string& p : loc.path) where += (where.empty() ? "" : ", inside ") + p;
    if (loc.refused_call) {
        msg += "  the call " + ToUtf8(loc.call_text) + (where.empty() ? "" : " (in " + where + ")") +
               " is refused: " + RefusedCallReason(loc) + "\n";
        return msg;
    }
    if (!where.empty()) {
        std::vector<std::string> rev(loc.path.rbegin(), loc.path.rend());
        std::string inner;
        for (const std::string& p : rev) inner += (inner.empty() ? "" : ", inside ") + p;
        msg += "  the error is in " + inner + "; " +
               (loc.has_position ? "the position counts in that argument's own text"
                                 : "the argument's text") + "\n";
    }
    msg += "  " + loc.reason;
    if (loc.has_position) {
        msg += ", at position " + std::to_string(loc.position) + " " + kPreNote + ":\n" +
               CaretBlock(loc.level_text, loc.position) + "\n";
    } else {
        msg += " (code 0: no position)" + std::string(loc.level_text.empty() ? "" : ":\n    " + ToUtf8(loc.level_text)) + "\n";
    }
    return msg;
}

std::string DescribeListRejection(const std::wstring& list) {
    std::string msg = "the parameter-name list '" + ToUtf8(list) + "' is rejected: ";
    // Retrace the list syntax to point at the character that ends it.
    for (std::size_t i = 0; i < list.size(); ++i) {
        const wchar_t c = list[i];
        const bool ok = c == L' ' || c == L',' || c == L'{' || (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z');
        if (!ok) {
            std::string what = (c >= L'0' && c <= L'9') ? "a digit" : c == L'}' ? "'}'" : c == L'_' ? "an underscore"
                               : c == L'\t' ? "a tab" : "the character '" + ToUtf8(std::wstring(1, c)) + "'";
            return msg + what + " cannot appear in a listed name (names are ASCII letters and '{' only; "
                               "names with digits or braced names are picked up from the expression instead):\n" +
                   CaretBlock(list, static_cast<int>(i));
        }
    }
    if (!list.empty() && list.back() == L' ')
        return msg + "it ends in a space:\n" + CaretBlock(list, static_cast<int>(list.size() - 1));
    // Otherwise a name equals a registry key exactly.
    std::wstring cur;
    std::vector<std::wstring> names;
    for (wchar_t c : list) {
        if (c == L',') {
            names.push_back(cur);
            cur.clear();
        } else if (c != L' ') {
            cur += c;
        }
    }
    names.push_back(cur);
    for (const std::wstring& n : names) {
        VEXA_WString key(n.c_str());
        if (FunctionFactory::getInstance()->IsFunction(key))
            return msg + "'" + ToUtf8(n) + "' is the name of a function";
    }
    return msg + "the library does not accept it";
}

std::string DescribeThrownCode(int code) {
    switch (code) {
    case -10001:
        return "operands that cannot be combined (code -10001): the operator's operands have shapes it cannot "
               "work with, e.g. a scalar added to a vector, a unary sign before a vector, '%' on anything but "
               "two 1 x 3 vectors, or '^' on non-scalars";
    case -1000:
        return "a function without an implementation was called (code -1000), e.g. 'add'";
    case 123:
        return "a parameter was read that was given no value (code 123)";
    case 1000:
        return "a derivative rule met a call with the wrong number of arguments (code 1000)";
    default:
        return "the library stopped with the unexpected code " + std::to_string(code);
    }
}

std::string DescribeNullResult() {
    return "the expression has no value for these values (null result): a function refused its arguments, "
           "e.g. SQRT or LOG outside its domain, ASIN/ACOS of |x| > 1, or a vector or matrix where a scalar "
           "is needed";
}

}  // namespace vexa_cli
