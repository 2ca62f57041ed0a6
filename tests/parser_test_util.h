#ifndef VEXA_TESTS_PARSER_TEST_UTIL_H
#define VEXA_TESTS_PARSER_TEST_UTIL_H

// Helpers shared by the parser tests: parse a text and report the thrown
// code, the value, or the tree in a compact infix form rebuilt from the dump.

#include <climits>
#include <cmath>
#include <string>
#include <vector>

#include "vexa/vexa.h"

namespace parser_test {

const int kNoError = INT_MIN;

// Owns the calculator a parse hands out, whether or not the parse threw.
struct Parsed {
    VexaParser parser;
    ICalculator* calc = nullptr;
    bool accepted = false;
    int code = kNoError;

    explicit Parsed(const wchar_t* text, const wchar_t* list = L"")
    {
        std::wstring names = list ? list : L"";
        try {
            accepted = parser.parse(text, list ? &names[0] : nullptr, &calc);
        } catch (int c) {
            code = c;
        }
    }
    ~Parsed()
    {
        if (calc)
            calc->Release();
    }
    Parsed(const Parsed&) = delete;
    Parsed& operator=(const Parsed&) = delete;
    bool ok() const { return accepted && code == kNoError; }
};

// A host-registered expression, unregistered and released when done.
struct Registered {
    Parsed parsed;
    VEXA_WString name;
    bool ok;

    Registered(const wchar_t* n, const wchar_t* text, const wchar_t* list = L"a") : parsed(text, list), name(n)
    {
        ok = parsed.ok() && FunctionFactory::getInstance()->Register(name, parsed.calc);
    }
    ~Registered()
    {
        if (ok && FunctionFactory::getInstance()->UnRegister(name))
            parsed.calc->Release();
    }
    Registered(const Registered&) = delete;
    Registered& operator=(const Registered&) = delete;
};

inline int ErrorOf(const wchar_t* text, const wchar_t* list = L"")
{
    return Parsed(text, list).code;
}

// The scalar result, or NaN when the evaluation gives no scalar.
inline double EvaluateWith(ICalculator* calc, const std::vector<double>& params)
{
    std::vector<VEXA_Data> values(params.begin(), params.end());
    VEXA_Data result;
    if (!calc || !calc->Evaluate(static_cast<int>(values.size()), values.data(), result) ||
        result.getType() != DT_SCALAR)
        return NAN;
    return result.getValue()[0];
}

// The scalar result, or the int code the evaluation threw.
inline double OutcomeOf(ICalculator* calc, const std::vector<double>& params)
{
    try {
        return EvaluateWith(calc, params);
    } catch (int code) {
        return code;
    }
}

inline double ValueOf(const wchar_t* text, const std::vector<double>& params = {})
{
    Parsed p(text);
    return p.ok() ? EvaluateWith(p.calc, params) : NAN;
}

// Rebuilds one subtree from dump lines (level, text): a node at level L is a
// line at L, preceded by its children at L + 1; an operator line is followed
// by its right operand.
inline std::wstring Rebuild(const std::vector<std::pair<int, std::wstring>>& lines, std::size_t& i, int level)
{
    std::vector<std::wstring> children;
    while (i < lines.size() && lines[i].first > level)
        children.push_back(Rebuild(lines, i, level + 1));
    if (i >= lines.size())
        return L"<truncated>";
    const std::wstring self = lines[i++].second;
    if (self.size() == 1 && std::wstring(L"+-*/%^").find(self[0]) != std::wstring::npos &&
        children.size() == 1)
        return L"(" + children[0] + self + Rebuild(lines, i, level + 1) + L")";
    if (children.empty())
        return self;
    std::wstring out = self + L"(";
    for (std::size_t k = 0; k < children.size(); ++k)
        out += (k ? L"," : L"") + children[k];
    return out + L")";
}

inline std::wstring InfixOfDump(const std::vector<std::wstring>& raw)
{
    std::vector<std::pair<int, std::wstring>> lines;
    for (const std::wstring& s : raw) {
        const std::size_t blanks = s.find_first_not_of(L' ');
        lines.push_back({static_cast<int>(blanks / 10), s.substr(blanks)});
    }
    std::size_t i = 0;
    std::wstring tree = lines.empty() ? L"" : Rebuild(lines, i, 0);
    return i == lines.size() ? tree : L"<extra lines>";
}

inline std::wstring TreeOf(ICalculator* calc)
{
    std::vector<std::wstring> raw;
    static_cast<Expression*>(calc)->Dump(raw);
    return InfixOfDump(raw);
}

// The tree of a parsed text, or "error N".
inline std::wstring TreeOf(const wchar_t* text, const wchar_t* list = L"")
{
    Parsed p(text, list);
    return p.ok() ? TreeOf(p.calc) : L"error " + std::to_wstring(p.code);
}

inline std::wstring Repeat(const std::wstring& part, int times)
{
    std::wstring s;
    for (int i = 0; i < times; ++i)
        s += part;
    return s;
}

inline std::string Narrow(const std::wstring& s)
{
    return std::string(s.begin(), s.end());
}

}  // namespace parser_test

#endif
