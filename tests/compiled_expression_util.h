#ifndef VEXA_TESTS_COMPILED_EXPRESSION_UTIL_H
#define VEXA_TESTS_COMPILED_EXPRESSION_UTIL_H

// Helpers of the tests of vexa::CompiledExpression: parsing, registering,
// the reference answer of Evaluate at a point, and generated expressions.

#include <cmath>
#include <cstdio>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "vexa/calc/expression_access.h"
#include "vexa/vexa.h"
#include "vexa/vexa_c.h"

namespace form_test {

struct Release {
    void operator()(ICalculator* c) const
    {
        if (c)
            c->Release();
    }
};
using Calc = std::unique_ptr<ICalculator, Release>;

// Whether the library makes machine code on this target; where it does not,
// every program stays with the interpreter.
inline bool MakesMachineCode()
{
    return std::strcmp(vexa_machine_code(), "none") != 0;
}

// Null where the text does not parse.
inline Calc Parse(const std::string& text, const wchar_t* list = L"x,y,z")
{
    return Calc(vexa::TryParse(std::wstring(text.begin(), text.end()).c_str(), list).calc.release());
}

// A copy of calc that only ever evaluates its tree: the reference every
// compiled path is held to.
inline Calc TreeOnly(ICalculator* calc)
{
    Expression* copy = static_cast<Expression*>(calc)->Copy();
    if (copy)
        vexa_calc::ExpressionAccess::SetCompilable(*copy, false);
    return Calc(copy);
}

// Registers text under name for the life of the test program.
inline void Register(const wchar_t* name, const std::string& text, const wchar_t* list)
{
    Calc calc = Parse(text, list);
    VEXA_WString key(name);
    if (calc && FunctionFactory::getInstance()->Register(key, calc.get()))
        calc.release()->Release();  // the registry keeps its own reference
}

// What Evaluate answers at the point, in the terms of the compiled form.
inline vexa::Outcome Reference(ICalculator* calc, const std::vector<double>& point)
{
    std::vector<VEXA_Data> values(point.begin(), point.end());
    VEXA_Data result;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    try {
        calc->Evaluate(static_cast<int>(values.size()), values.data(), result);
    } catch (int code) {
        return {nan, vexa::Failure::kThrown, code};
    }
    if (result.getType() == DT_NULL)
        return {nan, vexa::Failure::kNull, 0};
    if (result.getType() != DT_SCALAR)
        return {nan, vexa::Failure::kNotScalar, 0};
    return {result.getValue()[0], vexa::Failure::kNone, 0};
}

inline std::uint64_t Bits(double v)
{
    std::uint64_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

inline bool Same(const vexa::Outcome& a, const vexa::Outcome& b)
{
    return a.failure == b.failure && a.code == b.code && (a.ok() ? Bits(a.value) == Bits(b.value) : std::isnan(b.value));
}

inline std::string Show(const vexa::Outcome& o)
{
    char buf[96];
    std::snprintf(buf, sizeof buf, "%.17g (failure %d, code %d)", o.value, static_cast<int>(o.failure), o.code);
    return buf;
}

// A value as a host sees it, bit for bit: type, shape, each element's bits.
inline std::string Seen(const VEXA_Data& v)
{
    int rows = 0, cols = 0;
    v.getDataInfo(rows, cols);
    std::string s = std::to_string(v.getType()) + ":" + std::to_string(rows) + "x" + std::to_string(cols);
    for (int e = 0; v.getType() != DT_NULL && e < rows * cols; ++e) {
        char buf[24];
        std::snprintf(buf, sizeof buf, " %016llx", static_cast<unsigned long long>(Bits(v.getValue()[e])));
        s += buf;
    }
    return s;
}

// Everything a host sees of one evaluation: the answer or the thrown code,
// the result, and the parameters each of holders holds afterwards.
// start: the result's value before, null or one with a buffer of its own
// (which machine code writes in place).
inline std::string Evaluated(ICalculator* calc, std::vector<VEXA_Data>& params, int count,
                             const std::vector<ICalculator*>& holders, bool start = false)
{
    VEXA_Data result = start ? VEXA_Data(7.0) : VEXA_Data();
    std::string seen;
    try {
        seen = calc->Evaluate(count, params.data(), result) ? "true " : "false ";
    } catch (int code) {
        seen = "threw " + std::to_string(code) + " ";
    }
    seen += Seen(result);
    for (ICalculator* holder : holders) {
        for (int i = 0; i < holder->getParamCount(); ++i)
            seen += " | " + Seen(holder->getParam(i));
    }
    return seen;
}

// Random expressions in x, y, z over every computing built-in, the
// operators, and the registered functions the caller names.
class ComputingCaseGenerator {
public:
    ComputingCaseGenerator(unsigned seed, std::vector<std::string> registered, bool smooth)
        : m_rng(seed), m_registered(std::move(registered)), m_smooth(smooth)
    {
    }

    std::string Expression(int depth)
    {
        switch (Pick(0, depth <= 0 ? 2 : 10)) {
        case 0: return Constant();
        case 1:
        case 2: return Name();
        case 3:
        case 4: return "(" + Expression(depth - 1) + Operator() + Expression(depth - 1) + ")";
        case 5: return "-" + Expression(depth - 1);
        case 6: return "(" + Expression(depth - 1) + ")^" + (m_smooth ? Constant() : Expression(depth - 1));
        default: return Call(depth - 1);
        }
    }

    // A parameter value: ordinary numbers mostly, the awkward ones often.
    double Value()
    {
        static const double kSpecial[] = {0.0, -0.0, 1.0, -1.0, 0.5, 2.0, 1e300, -1e-300,
                                          std::numeric_limits<double>::infinity(),
                                          std::numeric_limits<double>::quiet_NaN()};
        if (!m_smooth && Pick(0, 3) == 0)
            return kSpecial[Pick(0, sizeof kSpecial / sizeof kSpecial[0] - 1)];
        return Ordinary();
    }

    // A number, never an awkward one.
    double Ordinary() { return std::uniform_real_distribution<double>(m_smooth ? 0.1 : -3.0, 3.0)(m_rng); }

    int Pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(m_rng); }

private:
    std::string Constant()
    {
        static const char* const kConstants[] = {"0.5", "2", "1.5", "3.25", "PI", "0.1", "1", "0"};
        return kConstants[Pick(0, m_smooth ? 6 : 7)];
    }

    std::string Name()
    {
        static const char* const kNames[] = {"x", "y", "z"};
        return kNames[Pick(0, 2)];
    }

    std::string Operator()
    {
        static const char* const kOps[] = {"+", "-", "*", "/", "%"};
        return kOps[Pick(0, m_smooth ? 3 : 4)];
    }

    std::string Call(int depth)
    {
        struct Form {
            const char* name;
            int fewest, most;
        };
        static const Form kForms[] = {
            {"SIN", 1, 1},    {"COS", 1, 1},   {"TAN", 1, 1},    {"ATAN", 1, 1},   {"SINH", 1, 1},  {"COSH", 1, 1},
            {"TANH", 1, 1},   {"EXP", 1, 1},   {"ABS", 1, 1},    {"AINT", 1, 1},   {"ANINT", 1, 1}, {"SQRT", 1, 1},
            {"LOG", 1, 1},    {"LOG10", 1, 1}, {"ASIN", 1, 1},   {"ACOS", 1, 1},   {"ATAN2", 2, 2}, {"MAX", 2, 2},
            {"MIN", 2, 2},    {"MOD", 2, 2},   {"SIGN", 2, 2},   {"IF", 4, 4},     {"STEP", 5, 5},  {"STEP5", 5, 5},
            {"HAVSIN", 5, 5}, {"SHF", 6, 6},   {"IMPACT", 7, 7}, {"BISTOP", 8, 8}, {"SWEEP", 7, 7}, {"POLY", 3, 8},
            {"CHEBY", 3, 8},  {"FORCOS", 4, 8}, {"FORSIN", 4, 8}, {"DX", 1, 3},
        };
        const int builtins = sizeof kForms / sizeof kForms[0];
        const int pick = Pick(0, builtins + static_cast<int>(m_registered.size()) - 1);
        std::string s;
        int n;
        if (pick < builtins) {
            s = kForms[pick].name;
            n = Pick(kForms[pick].fewest, kForms[pick].most);
        } else {
            s = m_registered[static_cast<std::size_t>(pick - builtins)];
            n = s.back() - '0';
            s.pop_back();
        }
        s += "(";
        for (int i = 0; i < n; ++i)
            s += (i ? "," : "") + (i < 2 ? Expression(depth) : Pick(0, 2) ? Constant() : Expression(depth - 1));
        return s + ")";
    }

    std::mt19937 m_rng;
    std::vector<std::string> m_registered;  // name followed by its argument count
    bool m_smooth;
};

}  // namespace form_test

#endif
