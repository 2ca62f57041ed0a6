#include "tools/session.h"

#include "tools/wide.h"

namespace vexa_cli {

Parsed ParseText(const std::wstring& text, const std::optional<std::wstring>& list) {
    Parsed p;
    p.text = text;
    p.list = list;
    // parse() wants a writable list.
    std::vector<wchar_t> listBuf;
    if (list) {
        listBuf.assign(list->begin(), list->end());
        listBuf.push_back(L'\0');
    }
    VexaParser parser;
    ICalculator* calc = nullptr;
    try {
        if (!parser.parse(text.c_str(), list ? listBuf.data() : nullptr, &calc)) {
            p.status = ParseStatus::ListRejected;
            return p;
        }
        p.status = ParseStatus::Ok;
    } catch (int code) {
        p.status = ParseStatus::SyntaxError;
        p.code = code;
    }
    // After a thrown error the root-less expression is still ours to release.
    p.calc = CalcHandle(calc);
    for (int i = 0; i < parser.getParamsNum(); ++i) {
        const wchar_t* s = parser.getParam(i);
        p.params.push_back(s ? std::wstring(s) : std::wstring());
    }
    p.can_plot = parser.canPlot();
    if (p.status != ParseStatus::Ok) p.calc.Reset();
    return p;
}

bool ParsesAlone(const std::wstring& text, const std::optional<std::wstring>& list, int* code) {
    Parsed p = ParseText(text, list);
    if (code) *code = p.code;
    return p.status == ParseStatus::Ok;
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

CalcHandle DerivativeOf(ICalculator* calc, int index, int& code) {
    code = 0;
    try {
        return CalcHandle(calc->getDerivativeCalculator(index));
    } catch (int c) {
        code = c;
        return CalcHandle();
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

}  // namespace vexa_cli
