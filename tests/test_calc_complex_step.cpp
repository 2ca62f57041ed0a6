#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "vexa/vexa.h"

namespace {

// A calculator computing a scripted function of its first parameter,
// recording the first element of every parameter it was evaluated with.
class FnCalc : public ICalculator {
public:
    using Fn = std::function<bool(double, VEXA_Data&)>;

    explicit FnCalc(Fn fn) : m_fn(std::move(fn)) {}
    FnCalc(Fn fn, VEXA_WString name) : ICalculator(name), m_fn(std::move(fn)) {}
    ICalculator* getDerivativeCalculator(int) override { return nullptr; }

    std::vector<std::vector<double>> m_calls;

protected:
    bool Calculate(VEXA_Data& result) override
    {
        std::vector<double> call;
        for (int i = 0; i < getParamCount(); ++i)
            call.push_back(getParam(i).getType() == DT_SCALAR ? getParam(i).getValue()[0] : NAN);
        m_calls.push_back(call);
        return m_fn(call.empty() ? NAN : call[0], result);
    }

private:
    Fn m_fn;
};

FnCalc::Fn Of(double (*f)(double))
{
    return [f](double x, VEXA_Data& r) {
        r = VEXA_Data(f(x));
        return true;
    };
}

double Square(double x) { return x * x; }
double Cube(double x) { return x * x * x; }
double Sine(double x) { return std::sin(x); }

double Derive(ICalculator* c, double x)
{
    VEXA_Data in[] = {VEXA_Data(x)}, r;
    EXPECT_TRUE(c->Evaluate(1, in, r));
    return r.getType() == DT_SCALAR ? r.getValue()[0] : NAN;
}

TEST(ComplexStepCalculator, CentralDifferenceWithStepOneThousandth)
{
    const struct {
        double (*f)(double);
        double x, expected;
    } cases[] = {
        {Square, 3.0, 5.999999999999339}, {Sine, 0.0, 0.9999998333333416}, {Cube, 1.0, 3.000001},
    };
    for (const auto& c : cases) {
        FnCalc* f = new FnCalc(Of(c.f));
        ICalculator* d = new ComplexStepCalculator(f, 0);
        EXPECT_NEAR(Derive(d, c.x), c.expected, 1e-12) << c.x;
        EXPECT_EQ(f->m_calls, (std::vector<std::vector<double>>{{c.x + 0.001}, {c.x - 0.001}}));
        EXPECT_TRUE(d->Release());
        EXPECT_TRUE(f->Release());  // borrowed, so still alive and uncounted
    }
}

TEST(ComplexStepCalculator, PerturbsOnlyItsParameterAndLeavesItShifted)
{
    FnCalc* f = new FnCalc(Of(Square));
    ICalculator* d = new ComplexStepCalculator(f, 1);
    VEXA_Data in[] = {VEXA_Data(2.0), VEXA_Data(3.0), VEXA_Data(5.0)}, r;
    ASSERT_TRUE(d->Evaluate(3, in, r));
    EXPECT_EQ(f->m_calls, (std::vector<std::vector<double>>{{2.0, 3.0 + 0.001, 5.0},
                                                             {2.0, 3.0 - 0.001, 5.0}}));
    EXPECT_NEAR(r.getValue()[0], 0.0, 1e-12);
    EXPECT_EQ(d->getParam(1).getValue()[0], 3.0 - 0.001);
    EXPECT_EQ(in[1].getValue()[0], 3.0);
    d->Release();
    f->Release();
}

TEST(ComplexStepCalculator, RefusesWithoutAParameterToShift)
{
    const struct {
        int index, count;
        bool null_calculator;
    } cases[] = {{-1, 2, false}, {2, 2, false}, {0, 0, false}, {0, 1, true}};
    for (const auto& c : cases) {
        FnCalc* f = new FnCalc(Of(Square));
        ICalculator* d = new ComplexStepCalculator(c.null_calculator ? nullptr : f, c.index);
        std::vector<VEXA_Data> in(c.count, VEXA_Data(1.0));
        VEXA_Data r(42.0);
        EXPECT_FALSE(d->Evaluate(c.count, in.data(), r)) << c.index << " " << c.count;
        EXPECT_EQ(r.getValue()[0], 42.0);
        EXPECT_TRUE(f->m_calls.empty());
        d->Release();
        f->Release();
    }
}

TEST(ComplexStepCalculator, NamesItselfAfterTheWrappedCalculator)
{
    FnCalc* sin = new FnCalc(Of(Sine), VEXA_WString(L"SIN"));
    FnCalc* anon = new FnCalc(Of(Sine));
    ICalculator* a = new ComplexStepCalculator(sin, 0);
    ICalculator* aa = a->getDerivativeCalculator(0);
    ICalculator* b = new ComplexStepCalculator(anon, 0);
    ICalculator* c = new ComplexStepCalculator(nullptr, 0);
    EXPECT_STREQ(a->getName().getWChar_t(), L"wrap:SIN");
    EXPECT_STREQ(aa->getName().getWChar_t(), L"wrap:wrap:SIN");
    EXPECT_STREQ(b->getName().getWChar_t(), L"wrap:NULL");
    EXPECT_EQ(c->getName().getWChar_t(), nullptr);
    for (ICalculator* x : std::vector<ICalculator*>{aa, a, b, c, sin, anon})
        x->Release();
}

TEST(ComplexStepCalculator, NestingGivesHigherDerivatives)
{
    FnCalc* f = new FnCalc(Of(Cube));
    ICalculator* d1 = new ComplexStepCalculator(f, 0);
    ICalculator* d2 = d1->getDerivativeCalculator(0);
    ICalculator* d3 = d2->getDerivativeCalculator(0);
    EXPECT_NEAR(Derive(d2, 2.0), 12.0, 1e-6);
    EXPECT_EQ(f->m_calls.size(), 4u);
    EXPECT_NEAR(Derive(d3, 2.0), 6.0, 1e-3);
    EXPECT_EQ(f->m_calls.size(), 12u);
    for (ICalculator* x : {d3, d2, d1, static_cast<ICalculator*>(f)})
        x->Release();
}

TEST(ComplexStepCalculator, FailuresOfTheWrappedCalculator)
{
    // Fails (false, null result) outside [-1, 1], throws -1000 below -10.
    FnCalc* f = new FnCalc([](double x, VEXA_Data& r) {
        if (x < -10)
            throw -1000;
        if (x < -1 || x > 1)
            return false;
        r = VEXA_Data(x);
        return true;
    });
    ICalculator* d = new ComplexStepCalculator(f, 0);
    const struct {
        VEXA_Data x;
        int thrown;         // 0: no exception
        double held_after;  // first element of the held parameter afterwards
    } cases[] = {
        {VEXA_Data(1.0), 0, 0.999},        // only f(x0 + h) fails: null result
        {VEXA_Data(5.0), 0, 4.999},        // both fail: null result
        {VEXA_Data(-1.0), -10001, -1.001},  // only f(x0 - h) fails: shapes differ
        {VEXA_Data(-20.0), -1000, -19.999},  // inner errors pass through
    };
    for (const auto& c : cases) {
        VEXA_Data in[] = {c.x}, r(7.0);
        int thrown = 0;
        try {
            EXPECT_TRUE(d->Evaluate(1, in, r));
            EXPECT_EQ(r.getType(), DT_NULL);
        } catch (int code) {
            thrown = code;
        }
        EXPECT_EQ(thrown, c.thrown);
        EXPECT_DOUBLE_EQ(d->getParam(0).getValue()[0], c.held_after);
    }
    d->Release();
    f->Release();
}

TEST(ComplexStepCalculator, NonScalarParameterFailsAndStaysUnchanged)
{
    FnCalc* f = new FnCalc(Of(Square));
    ICalculator* d = new ComplexStepCalculator(f, 0);
    VEXA_Data vec(1, 2);
    vec.getValue()[0] = 1;
    vec.getValue()[1] = 2;
    VEXA_Data in[] = {vec}, r;
    EXPECT_THROW(d->Evaluate(1, in, r), int);
    EXPECT_TRUE(d->getParam(0) == vec);
    EXPECT_TRUE(f->m_calls.empty());
    d->Release();
    f->Release();
}

}  // namespace
