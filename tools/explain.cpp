#include "tools/explain.h"

#include "tools/call_forms.h"
#include "tools/session.h"
#include "tools/syntax_locate.h"
#include "tools/wide.h"

namespace vexa_cli {

namespace {

// Evaluates a piece of the expression on its own with the user's values.
bool PieceValue(const std::wstring& text, const std::optional<std::wstring>& list,
                const std::vector<Assignment>& given, EvalResult& out) {
    Parsed p = ParseText(text, list);
    if (p.status != ParseStatus::Ok) return false;
    std::vector<VEXA_Data> values;
    std::string ignored;
    if (!BindValues(p.params, given, values, ignored, nullptr)) return false;
    out = EvaluateAt(p.calc.get(), values);
    return true;
}

std::string Search(const std::wstring& text, const std::optional<std::wstring>& list,
                   const std::vector<Assignment>& given, int depth) {
    if (depth > 64) return std::string();
    for (const CallPiece& call : CallsIn(text)) {
        EvalResult r;
        if (!PieceValue(call.text, list, given, r) || r.ok || r.thrown) continue;
        std::vector<std::string> argValues;
        bool argsOk = true;
        for (const std::wstring& arg : call.args) {
            const std::string inner = Search(arg, list, given, depth + 1);
            if (!inner.empty()) return inner;
            EvalResult a;
            if (!PieceValue(arg, list, given, a) || !a.ok) {
                argsOk = false;
                break;
            }
            argValues.push_back(FormatValue(a.value));
        }
        if (!argsOk) continue;
        std::string list_;
        for (const std::string& v : argValues) list_ += (list_.empty() ? "" : ", ") + v;
        const CallForm* f = FindCallForm(call.name);
        return ToUtf8(call.text) + " has no value: " + ToUtf8(call.name) + " refused the argument" +
               (argValues.size() == 1 ? " " : "s ") + "(" + list_ + ")" +
               (f ? std::string(" [") + f->form + ": " + f->summary + "]" : std::string());
    }
    return std::string();
}

}  // namespace

std::string FindRefusedCall(const std::wstring& text, const std::optional<std::wstring>& list,
                            const std::vector<Assignment>& given) {
    return Search(text, list, given, 0);
}

}  // namespace vexa_cli
