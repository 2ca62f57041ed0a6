#include "tools/session.h"

#include "tools/wide.h"
#include "vexa/parser/host_input.h"

namespace vexa_cli {

Parsed ParseText(const std::wstring& text, const std::optional<std::wstring>& list) {
    // Tabs, line ends, no-break spaces and a byte-order mark read as spaces,
    // and the list is checked, as the C interface does it.
    vexa::ParseResult r = vexa::ParseChecked(text.c_str(), list ? list->c_str() : nullptr);
    Parsed p;
    // Kept as the parser read it, so that the review of the text and the
    // carets under it see the same characters (one for one, as typed).
    p.text = text;
    vexa::BlankWhiteSpace(p.text);
    p.list = list;
    if (p.list)
        vexa::BlankWhiteSpace(*p.list);
    p.calc = std::move(r.calc);
    p.params = std::move(r.names);
    p.can_plot = r.can_plot;
    p.diagnosis = std::move(r.diagnosis);
    switch (p.diagnosis.outcome) {
    case vexa::ParseOutcome::kParsed: p.status = ParseStatus::Ok; break;
    case vexa::ParseOutcome::kListRejected: p.status = ParseStatus::ListRejected; break;
    case vexa::ParseOutcome::kSyntaxError: p.status = ParseStatus::SyntaxError; break;
    }
    return p;
}

std::vector<vexa::TextWarning> Review(const Parsed& p) {
    std::vector<vexa::TextWarning> out;
    for (vexa::TextWarning& w : vexa::ReviewText(p.text.c_str(), p.list ? p.list->c_str() : nullptr))
        if (w.kind != vexa::TextWarningKind::kListJoinedName) out.push_back(std::move(w));
    return out;
}

EvalResult EvaluateAt(ICalculator* calc, std::vector<VEXA_Data>& values) {
    EvalResult r;
    // An empty vector may have no storage; Evaluate reads nothing for count 0
    // but gets a valid pointer all the same.
    VEXA_Data none;
    VEXA_Data* args = values.empty() ? &none : values.data();
    try {
        r.ok = calc->Evaluate(static_cast<int>(values.size()), args, r.value);
        if (r.value.getType() == DT_NULL) r.ok = false;
    } catch (int code) {
        r.ok = false;
        r.thrown = true;
        r.code = code;
    }
    return r;
}

vexa::CalcRef DerivativeOf(ICalculator* calc, int index, int& code) {
    code = 0;
    try {
        return vexa::CalcRef(calc->getDerivativeCalculator(index));
    } catch (int c) {
        code = c;
        return vexa::CalcRef();
    }
}

int FindParam(const std::vector<std::wstring>& params, const std::wstring& name) {
    for (std::size_t i = 0; i < params.size(); ++i)
        if (SameNoCase(params[i], name)) return static_cast<int>(i);
    return -1;
}

std::string JoinNames(const std::vector<std::wstring>& names) {
    std::string s;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (i) s += ", ";
        s += names[i].empty() ? std::string("(empty name)") : ToUtf8(names[i]);
    }
    return s.empty() ? std::string("(none)") : s;
}

bool BindValues(const std::vector<std::wstring>& params, const std::vector<Assignment>& given,
                std::vector<VEXA_Data>& values, std::string& error, std::vector<std::string>* unused) {
    values.assign(params.size(), VEXA_Data());
    std::vector<bool> set(params.size(), false);
    for (const Assignment& a : given) {
        bool used = false;
        // A name listed twice takes two positions; both get the value.
        for (std::size_t i = 0; i < params.size(); ++i) {
            if (SameNoCase(params[i], a.name)) {
                values[i] = a.value;
                set[i] = true;
                used = true;
            }
        }
        if (!used && unused) unused->push_back(ToUtf8(a.name));
    }
    std::vector<std::wstring> missing;
    for (std::size_t i = 0; i < params.size(); ++i)
        if (!set[i]) missing.push_back(params[i]);
    if (!missing.empty()) {
        error = "no value given for parameter" + std::string(missing.size() > 1 ? "s " : " ") +
                JoinNames(missing) + " (the expression's parameters, in order: " + JoinNames(params) +
                "); give each as NAME=VALUE";
        return false;
    }
    return true;
}

bool AllScalar(const std::vector<VEXA_Data>& values) {
    for (const VEXA_Data& v : values)
        if (v.getType() != DT_SCALAR) return false;
    return true;
}

}  // namespace vexa_cli
