// Derivative trees are not reduced, so some legal texts have derivatives that
// grow exponentially (nested MAX/MIN repeat a derivative, products and powers
// copy whole subtrees). The library must answer those with a null derivative
// calculator once the node budget is spent, leave everything else intact, and
// keep the deepest trees a text can produce within the stack.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "vexa/vexa.h"

namespace {

// An expression parsed from a text with the single host parameter x.
class Parsed {
public:
    explicit Parsed(const std::wstring& text)
    {
        wchar_t list[] = L"x";
        try {
            m_parser.parse(text.c_str(), list, &m_calc);
        } catch (int code) {
            ADD_FAILURE() << "parse threw " << code;
            if (m_calc)
                m_calc->Release();
            m_calc = nullptr;
        }
    }
    ~Parsed()
    {
        if (m_calc)
            m_calc->Release();
    }
    Parsed(const Parsed&) = delete;
    Parsed& operator=(const Parsed&) = delete;

    ICalculator* get() const { return m_calc; }

private:
    VexaParser m_parser;
    ICalculator* m_calc = nullptr;
};

double At(ICalculator* c, double x)
{
    VEXA_Data p(x), r;
    if (!c || !c->Evaluate(1, &p, r) || r.getType() != DT_SCALAR)
        return NAN;
    return r.getValue()[0];
}

std::wstring Repeat(const std::wstring& s, int n)
{
    std::wstring out;
    for (int i = 0; i < n; ++i)
        out += s;
    return out;
}

// f wrapped depth times: f(f(...(x)...)) with f given as a prefix and suffix.
std::wstring Nest(const std::wstring& prefix, const std::wstring& suffix, int depth)
{
    return Repeat(prefix, depth) + L"x" + Repeat(suffix, depth);
}

bool Near(double got, double want, double rel)
{
    return std::fabs(got - want) <= rel * std::fmax(1.0, std::fabs(want));
}

// Releases a chain of derivative calculators, the last one made first: each
// may borrow function calculators from the one it was made from.
void ReleaseChain(std::vector<ICalculator*>& chain)
{
    for (auto it = chain.rbegin(); it != chain.rend(); ++it)
        (*it)->Release();
    chain.clear();
}

}  // namespace

TEST(Bounds, TenthDerivativeOfSinTimesExpMatchesClosedForm)
{
    // d^n/dx^n (sin x * e^x) = 2^(n/2) e^x sin(x + n*pi/4)
    Parsed f(L"SIN(X)*EXP(X)");
    ASSERT_TRUE(f.get());
    const double x = 0.7;
    std::vector<ICalculator*> chain;
    ICalculator* d = f.get();
    for (int n = 1; n <= 10; ++n) {
        d = d->getDerivativeCalculator(0);
        ASSERT_NE(d, nullptr) << "derivative " << n << " ran into the node budget";
        chain.push_back(d);
        double want = std::pow(2.0, n / 2.0) * std::exp(x) * std::sin(x + n * M_PI / 4);
        EXPECT_TRUE(Near(At(d, x), want, 1e-9)) << "derivative " << n << ": " << At(d, x) << " vs " << want;
    }
    ReleaseChain(chain);
}

TEST(Bounds, ExplodingDerivativesGiveNullAndLeaveTheExpressionIntact)
{
    struct Case {
        const char* what;
        std::wstring text;
    };
    const Case cases[] = {
        {"MAX nested in its first argument", Nest(L"MAX(", L",1)", 30)},
        {"MIN nested in its first argument", Nest(L"MIN(", L",2)", 30)},
        {"MAX and MIN alternating", Nest(L"MAX(MIN(", L",3),-3)", 15)},
        {"product of 2041 factors", L"x" + Repeat(L"*x", 2040)},
    };
    for (const Case& c : cases) {
        Parsed f(c.text);
        ASSERT_TRUE(f.get()) << c.what;
        double before = At(f.get(), 0.5);
        ICalculator* d = f.get()->getDerivativeCalculator(0);
        EXPECT_EQ(d, nullptr) << c.what;
        if (d)
            d->Release();
        // The half-built derivative is gone; the expression and its copies
        // work as before.
        EXPECT_EQ(At(f.get(), 0.5), before) << c.what;
        Expression* copy = static_cast<Expression*>(f.get())->Copy();
        ASSERT_NE(copy, nullptr) << c.what;
        EXPECT_EQ(At(copy, 0.5), before) << c.what;
        copy->Release();
    }
    // The budget belongs to one derivative: a small one right after works.
    Parsed small(L"SIN(x)");
    ICalculator* d = small.get()->getDerivativeCalculator(0);
    ASSERT_NE(d, nullptr);
    EXPECT_DOUBLE_EQ(At(d, 0.0), 1.0);
    d->Release();
}

TEST(Bounds, RepeatedDerivativesOfGrowingTreesEndInNullNotAHang)
{
    struct Case {
        const char* what;
        std::wstring text;
        double d1, d2;  // first two derivatives at x = 0.7, closed form
        int steps;      // x^x reaches the node budget within ten
    };
    const double x = 0.7, lx = std::log(x), xx = std::pow(x, x);
    const Case cases[] = {
        {"x^x", L"x^x", xx * (lx + 1), xx * ((lx + 1) * (lx + 1) + 1 / x), 10},
        {"EXP(x)^2", L"EXP(x)^2", 2 * std::exp(2 * x), 4 * std::exp(2 * x), 6},
        {"x^3^2", L"x^3^2", 9 * std::pow(x, 8), 72 * std::pow(x, 7), 6},
        {"SQRT(x)*LOG(x)", L"SQRT(x)*LOG(x)", (lx + 2) / (2 * std::sqrt(x)), -lx / (4 * std::pow(x, 1.5)), 6},
    };
    for (const Case& c : cases) {
        Parsed f(c.text);
        ASSERT_TRUE(f.get()) << c.what;
        std::vector<ICalculator*> chain;
        ICalculator* d = f.get();
        for (int n = 1; n <= c.steps; ++n) {
            d = d->getDerivativeCalculator(0);
            if (!d)
                break;
            chain.push_back(d);
            double v = At(d, x);
            // Beyond the second derivative only finiteness is checked.
            double want = n == 1 ? c.d1 : n == 2 ? c.d2 : v;
            EXPECT_TRUE(Near(v, want, 1e-9)) << c.what << " derivative " << n << ": " << v << " vs " << want;
        }
        EXPECT_GE(chain.size(), 2u) << c.what;
        ReleaseChain(chain);
    }
}

TEST(Bounds, NestedCallChainsDifferentiateLikeTheirDifferenceQuotient)
{
    struct Case {
        const char* what;
        std::wstring text;
        double x;
    };
    const Case cases[] = {
        {"SIN/COS 50 deep", Nest(L"SIN(COS(", L"))", 25), 0.7},
        {"EXP/SIN 20 deep", Nest(L"EXP(SIN(", L"))", 10), 0.3},
        {"ATAN 100 deep", Nest(L"ATAN(", L")", 100), 0.9},
        {"SQRT of 1+ 60 deep", Nest(L"SQRT(1+", L")", 60), 2.0},
        // No symbolic rule: the numeric derivative nests inside the chain rule.
        {"STEP5 around SIN 20 deep", Nest(L"STEP5(SIN(", L"),-2,-1,2,1)", 20), 0.4},
    };
    for (const Case& c : cases) {
        Parsed f(c.text);
        ASSERT_TRUE(f.get()) << c.what;
        const double h = 1e-5;
        double quotient = (At(f.get(), c.x + h) - At(f.get(), c.x - h)) / (2 * h);
        ICalculator* d = f.get()->getDerivativeCalculator(0);
        ASSERT_NE(d, nullptr) << c.what;
        EXPECT_TRUE(Near(At(d, c.x), quotient, 1e-4)) << c.what << ": " << At(d, c.x) << " vs " << quotient;
        ICalculator* dd = d->getDerivativeCalculator(0);  // may or may not fit the budget
        if (dd) {
            EXPECT_FALSE(std::isnan(At(dd, c.x))) << c.what;
            dd->Release();
        }
        d->Release();
    }
}

// The deepest trees that a text below 4096 characters can give: operator
// chains and parentheses are reduced without recursion in the parser, but
// evaluation, copy, differentiation, dump and destruction walk the tree.
TEST(Bounds, DeepestOperatorTreesEvaluateCopyDifferentiateAndDump)
{
    struct Case {
        const char* what;
        std::wstring text;
        double value, slope;  // at x = 0.5
    };
    const Case cases[] = {
        {"sum of 2041 terms", L"x" + Repeat(L"+x", 2040), 2041 * 0.5, 2041},
        {"right-nested differences", Repeat(L"(x-", 1000) + L"x" + Repeat(L")", 1000), 0.5, 1},
        {"power tower of ones", L"x" + Repeat(L"^1", 2040), 0.5, 1},
        {"unary minus 2000 times", Repeat(L"-", 2000) + L"x", 0.5, 1},
    };
    for (const Case& c : cases) {
        ASSERT_LT(c.text.size(), 4096u) << c.what;
        Parsed f(c.text);
        ASSERT_TRUE(f.get()) << c.what;
        EXPECT_DOUBLE_EQ(At(f.get(), 0.5), c.value) << c.what;
        Expression* copy = static_cast<Expression*>(f.get())->Copy();
        EXPECT_DOUBLE_EQ(At(copy, 0.5), c.value) << c.what;
        // Indentation makes a dump grow with nodes times depth; one deep
        // case is enough to walk the whole depth.
        if (&c == &cases[1]) {
            std::vector<std::wstring> lines;
            copy->Dump(lines);
            EXPECT_EQ(lines.size(), 2001u) << c.what;
            // The innermost right operand, 1000 levels down.
            EXPECT_EQ(lines.back(), std::wstring(10000, L' ') + L"v:0");
        }
        copy->Release();
        ICalculator* d = f.get()->getDerivativeCalculator(0);
        ASSERT_NE(d, nullptr) << c.what;
        EXPECT_DOUBLE_EQ(At(d, 0.5), c.slope) << c.what;
        d->Release();
    }
}
