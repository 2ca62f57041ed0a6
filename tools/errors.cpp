#include "tools/errors.h"

#include <algorithm>

#include "tools/call_forms.h"
#include "tools/wide.h"

namespace vexa_cli {

std::string CaretBlock(const std::wstring& text, int position, int length) {
    const std::size_t at = static_cast<std::size_t>(std::max(position, 0));
    const std::size_t from = text.size() > 100 && at > 50 ? at - 40 : 0;
    std::string shown = (from ? "..." : "") + ToUtf8(text.substr(from, 80));
    if (from + 80 < text.size()) shown += "...";
    std::string caret = from ? "   " : "";
    // Tabs stay tabs so that the caret lines up under them.
    for (std::size_t i = from; i < at && i < text.size(); ++i) caret += text[i] == L'\t' ? '\t' : ' ';
    caret += '^';
    if (length > 1) caret += std::string(static_cast<std::size_t>(std::min(length, 80)) - 1, '~');
    if (at >= text.size()) caret += " (end of text)";
    return "    " + shown + "\n    " + caret;
}

namespace {

// What the command knows beyond the library about the function concerned.
std::string CallFormHint(const vexa::ParseDiagnosis& d) {
    using P = vexa::ParseProblem;
    if (d.problem == P::kUnknownFunction) {
        std::string hint;
        for (const std::wstring& name : d.suggestions) {
            if (const vexa::CallForm* f = vexa::FindCallForm(name))
                hint += std::string(hint.empty() ? "" : "\n  ") + f->form + ": " + f->summary;
        }
        return hint;
    }
    const vexa::CallForm* f = d.function.empty() ? nullptr : vexa::FindCallForm(d.function);
    if (!f) return std::string();
    const std::string name = ToUtf8(d.function);
    if (d.problem == P::kRefusedCall && f->min_args < 0) return name + " refuses every call here: " + f->summary;
    if (d.problem == P::kRefusedCall && (d.argument_count < f->min_args || d.argument_count > f->max_args)) {
        const std::string want = f->min_args == f->max_args
                                     ? std::to_string(f->min_args)
                                     : std::to_string(f->min_args) + " to " + std::to_string(f->max_args);
        return name + " takes " + want + " arguments but was given " + std::to_string(d.argument_count) +
               "; call form: " + f->form;
    }
    return std::string("call form: ") + f->form;
}

}  // namespace

std::string DescribeParseFailure(const Parsed& p) {
    const vexa::ParseDiagnosis& d = p.diagnosis;
    std::string msg;
    const std::wstring& text = p.status == ParseStatus::ListRejected && p.list ? *p.list : p.text;
    if (p.status == ParseStatus::ListRejected) {
        msg = "the parameter-name list '" + ToUtf8(text) + "' is rejected: " + d.message;
    } else {
        const std::string shown = text.size() > 100 ? ToUtf8(text.substr(0, 97)) + "..." : ToUtf8(text);
        msg = "syntax error (code " + std::to_string(d.code) + ") in '" + shown + "'\n  " + d.message;
    }
    if (d.position >= 0)
        msg += ", at position " + std::to_string(d.position) + ":\n" + CaretBlock(text, d.position, d.length);
    msg += '\n';
    const std::string hint = CallFormHint(d);
    if (!hint.empty()) msg += "  " + hint + '\n';
    // What pre-processing did to the text often explains the failure (MAX(1 2) has one argument).
    if (p.status == ParseStatus::SyntaxError)
        for (const vexa::TextWarning& w : vexa::ReviewText(p.text.c_str()))
            msg += "  note: " + DescribeWarning(w, p.text, p.list);
    return msg;
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
    case vexa::kFunctionInUse:
        return "a registered function was called while a call of it was still running (code -1001): its one "
               "calculator holds the arguments of one call at a time, so calls of it must not overlap (another "
               "thread, or a loop through its own tree)";
    case vexa::kCallsTooDeep:
        return "the evaluation would nest deeper than the library's stack limit (code -1002), counting the "
               "trees of the registered functions it calls";
    default:
        return "the library stopped with the unexpected code " + std::to_string(code);
    }
}

std::string DescribeNullResult() {
    return "the expression has no value for these values (null result): a function refused its arguments, "
           "e.g. SQRT or LOG outside its domain, ASIN/ACOS of |x| > 1, or a vector or matrix where a scalar "
           "is needed";
}

std::string DescribeWarning(const vexa::TextWarning& w, const std::wstring& text,
                            const std::optional<std::wstring>& list) {
    std::string s = w.message + '\n';
    if (w.position >= 0) s += CaretBlock(w.in_list && list ? *list : text, w.position, w.length) + '\n';
    return s;
}

}  // namespace vexa_cli
