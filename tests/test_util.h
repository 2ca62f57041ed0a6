#ifndef VEXA_TESTS_TEST_UTIL_H
#define VEXA_TESTS_TEST_UTIL_H

// Helpers shared by the tests: evaluating a calculator, building trees by
// hand, and reading the case files under tests/data.

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <string>
#include <thread>
#include <vector>

#include "vexa/vexa.h"

namespace testutil {

inline std::string Narrow(const std::wstring& s) {
    return vexa::ToUtf8(s);
}

inline std::wstring Repeat(const std::wstring& part, int times) {
    std::wstring s;
    for (int i = 0; i < times; ++i)
        s += part;
    return s;
}

// The scalar result, or NaN when the evaluation gives no scalar.
inline double Eval(ICalculator* calc, const std::vector<double>& params) {
    std::vector<VEXA_Data> values(params.begin(), params.end());
    VEXA_Data none, result;
    if (!calc || !calc->Evaluate(static_cast<int>(values.size()), values.empty() ? &none : values.data(), result) ||
        result.getType() != DT_SCALAR)
        return NAN;
    return result.getValue()[0];
}

inline vexa::ParseResult Parse(const std::wstring& text, const wchar_t* list = nullptr) {
    return vexa::TryParse(text.c_str(), list);
}

// The code a parse throws (0 when it does not).
inline int CodeOf(const std::wstring& text, const wchar_t* list = nullptr) {
    const vexa::ParseResult p = Parse(text, list);
    return p.calc ? 0 : p.diagnosis.code;
}

// The scalar result, or the int code the evaluation threw.
inline double OutcomeOf(ICalculator* calc, const std::vector<double>& params) {
    try {
        return Eval(calc, params);
    } catch (int code) {
        return code;
    }
}

// A host-registered expression, unregistered and released when done.
struct Registered {
    vexa::ParseResult parsed;
    VEXA_WString name;
    bool ok;

    Registered(const wchar_t* n, const std::wstring& text, const wchar_t* list = L"a")
        : parsed(vexa::TryParse(text.c_str(), list)), name(n) {
        ok = parsed.calc && FunctionFactory::getInstance()->Register(name, parsed.calc.get());
    }
    ~Registered() {
        // UnRegister hands the registry's reference back.
        if (ok && FunctionFactory::getInstance()->UnRegister(name))
            parsed.calc->Release();
    }
    Registered(const Registered&) = delete;
    Registered& operator=(const Registered&) = delete;
};

// Runs body(t) on threads t = 0 .. count-1 at once and waits for them all.
template <class Body>
void OnThreads(int count, Body body) {
    std::vector<std::thread> threads;
    for (int t = 0; t < count; ++t)
        threads.emplace_back(body, t);
    for (std::thread& th : threads)
        th.join();
}

// A 1 x n row vector (n >= 2) holding the given elements.
inline VEXA_Data RowVector(std::initializer_list<double> elements) {
    VEXA_Data v(1, static_cast<int>(elements.size()));
    double* out = v.getValue();
    for (double e : elements)
        *out++ = e;
    return v;
}

// Trees built by hand, for what the parser never builds.
inline INode* X(ICalculator* owner, int index) { return new VariableParam(owner, index); }
inline INode* C(double v) { return new ConstantParam(VEXA_Data(v)); }
inline INode* Vec3(double a, double b, double c) { return new ConstantParam(RowVector({a, b, c})); }
inline INode* Bin(int kind, INode* l, INode* r) { return new OperaterNode(kind, l, r); }
inline ICalculator* Builtin(const wchar_t* name) {
    VEXA_WString key(name);
    return FunctionFactory::getInstance()->CreateFunction(key);
}
inline INode* FnOver(ICalculator* fn, std::initializer_list<INode*> args) {
    INode** a = new INode*[args.size()];
    int n = 0;
    for (INode* arg : args)
        a[n++] = arg;
    return new FunctionNode(fn, a, n);
}
inline INode* Fn(const wchar_t* name, std::initializer_list<INode*> args) { return FnOver(Builtin(name), args); }

// An expression whose tree make(e) builds, e being the new expression.
template <class Make>
vexa::CalcRef MakeExpr(Make make) {
    Expression* e = new Expression();
    e->SetRoot(make(static_cast<ICalculator*>(e)));
    return vexa::CalcRef(e);
}

inline std::wstring Text(INode* node) { return vexa::TreeText(node); }
inline std::wstring Text(ICalculator* calc) { return vexa::TreeText(calc); }

inline std::vector<std::wstring> DumpOf(INode* node, int level = 0) {
    std::vector<std::wstring> lines;
    node->Dump(lines, level);
    return lines;
}

inline std::vector<std::wstring> DumpOf(ICalculator* calc) {
    std::vector<std::wstring> lines;
    if (Expression* e = dynamic_cast<Expression*>(calc))
        e->Dump(lines);
    return lines;
}

// One case file of tests/data: the fields of every line that is neither
// blank nor a comment. Fields are separated by '|' with one blank on either
// side; in them \t, \r, \n and \uXXXX stand for characters a file would not
// show.
struct CaseLine {
    int line;
    std::vector<std::wstring> fields;
};

inline std::wstring Unescape(const std::wstring& s) {
    std::wstring out;
    for (std::size_t i = 0; i < s.size(); ++i) {
        const wchar_t c = i + 1 < s.size() && s[i] == L'\\' ? s[++i] : 0;
        if (!c)
            out += s[i];
        else if (c == L'u' && i + 4 < s.size()) {
            out += static_cast<wchar_t>(std::stoul(vexa::ToUtf8(s.substr(i + 1, 4)), nullptr, 16));
            i += 4;
        } else
            out += c == L't' ? L'\t' : c == L'r' ? L'\r' : c == L'n' ? L'\n' : c;
    }
    return out;
}

inline std::vector<CaseLine> ReadCases(const char* name) {
    std::vector<CaseLine> cases;
    std::ifstream in(std::string(VEXA_TEST_DATA_DIR) + "/" + name);
    std::string raw;
    for (int number = 1; std::getline(in, raw); ++number) {
        const std::wstring line = vexa::FromUtf8(raw);
        if (line.find_first_not_of(L' ') == std::wstring::npos || line[0] == L'#')
            continue;
        CaseLine c{number, {}};
        for (std::size_t from = 0;;) {
            const std::size_t bar = line.find(L'|', from);
            std::wstring field = line.substr(from, bar == std::wstring::npos ? bar : bar - from);
            if (from > 0 && !field.empty() && field[0] == L' ')
                field.erase(0, 1);
            if (bar != std::wstring::npos && !field.empty() && field.back() == L' ')
                field.pop_back();
            c.fields.push_back(Unescape(field));
            if (bar == std::wstring::npos)
                break;
            from = bar + 1;
        }
        cases.push_back(c);
    }
    return cases;
}

// The cases of a file whose first field names the test they belong to, as
// UTF-8 texts without that field.
inline std::vector<std::vector<std::string>> Section(const char* file, const char* test) {
    std::vector<std::vector<std::string>> cases;
    for (const CaseLine& c : ReadCases(file)) {
        if (vexa::ToUtf8(c.fields[0]) != test)
            continue;
        cases.emplace_back();
        for (std::size_t k = 1; k < c.fields.size(); ++k)
            cases.back().push_back(vexa::ToUtf8(c.fields[k]));
    }
    return cases;
}

// The host list of a case whose second field is one: "-" for a null list.
inline const wchar_t* ListOf(const CaseLine& c) {
    return c.fields.size() < 2 ? L"" : c.fields[1] == L"-" ? nullptr : c.fields[1].c_str();
}

// Whitespace-separated words.
inline std::vector<std::wstring> Words(const std::wstring& s) {
    std::vector<std::wstring> words;
    std::size_t i = 0;
    while ((i = s.find_first_not_of(L' ', i)) != std::wstring::npos) {
        const std::size_t end = s.find(L' ', i);
        words.push_back(s.substr(i, end == std::wstring::npos ? end : end - i));
        i = end;
    }
    return words;
}

// A text of a case file with each [PART*N] written out: PART N times.
inline std::wstring Expand(const std::string& utf8) {
    const std::wstring s = vexa::FromUtf8(utf8);
    std::wstring out;
    for (std::size_t i = 0; i < s.size(); ++i) {
        const std::size_t close = s[i] == L'[' ? s.find(L']', i) : std::wstring::npos;
        if (close == std::wstring::npos) {
            out += s[i];
            continue;
        }
        const std::size_t star = s.rfind(L'*', close);
        out += Repeat(s.substr(i + 1, star - i - 1), std::stoi(Narrow(s.substr(star + 1, close - star - 1))));
        i = close;
    }
    return out;
}

// strtod, not stod: out-of-range texts give infinities and zeros.
inline double Number(const std::wstring& s) {
    return std::strtod(vexa::ToUtf8(s).c_str(), nullptr);
}

// The numbers of a UTF-8 text of whitespace-separated words.
inline std::vector<double> Numbers(const std::string& s) {
    std::vector<double> numbers;
    for (const std::wstring& w : Words(vexa::FromUtf8(s)))
        numbers.push_back(Number(w));
    return numbers;
}

}  // namespace testutil

#endif
