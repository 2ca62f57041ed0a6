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
    bool Calculate(VEXA_Data& result) override {
        std::vector<double> call;
        for (int i = 0; i < getParamCount(); ++i)
            call.push_back(getParam(i).getType() == DT_SCALAR ? getParam(i).getValue()[0] : NAN);
        m_calls.push_back(call);
        return m_fn(call.empty() ? NAN : call[0], result);
    }

private:
    Fn m_fn;
};

FnCalc::Fn Of(double (*f)(double)) {
    return [f](double x, VEXA_Data& r) {
        r = VEXA_Data(f(x));
        return true;
    };
}

double Cube(double x) { return x * x * x; }

// The wrapped calculator is borrowed: it outlives the wrapper here, and each
// Release must find a count of 0.
struct Wrapped {
    FnCalc* f;
    ICalculator* d;
    Wrapped(FnCalc::Fn fn, int index) : f(new FnCalc(std::move(fn))), d(new ComplexStepCalculator(f, index)) {}
    ~Wrapped() {
        EXPECT_TRUE(d->Release());
        EXPECT_TRUE(f->Release());
    }
};

TEST(ComplexStepCalculator, CentralDifferenceInItsParameterOnly) {
    Wrapped w(Of([](double x) { return x * x; }), 1);
    VEXA_Data in[] = {VEXA_Data(2.0), VEXA_Data(3.0), VEXA_Data(5.0)}, r;
    ASSERT_TRUE(w.d->Evaluate(3, in, r));
    EXPECT_EQ(w.f->m_calls, (std::vector<std::vector<double>>{{2.0, 3.001, 5.0}, {2.0, 2.999, 5.0}}));
    EXPECT_NEAR(r.getValue()[0], 0.0, 1e-12);
    // The step stays in the held copy, never in the caller's values.
    EXPECT_EQ(w.d->getParam(1).getValue()[0], 3.0 - 0.001);
    EXPECT_EQ(in[1].getValue()[0], 3.0);
    Wrapped s(Of(std::sin), 0);
    VEXA_Data zero(0.0);
    ASSERT_TRUE(s.d->Evaluate(1, &zero, r));
    EXPECT_NEAR(r.getValue()[0], 0.9999998333333416, 1e-12);
}

TEST(ComplexStepCalculator, RefusesWithoutAParameterToShift) {
    const struct {
        int index, count;
        bool null_calculator;
    } cases[] = {{-1, 2, false}, {2, 2, false}, {0, 0, false}, {0, 1, true}};
    for (const auto& c : cases) {
        FnCalc* f = new FnCalc(Of(Cube));
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

TEST(ComplexStepCalculator, NamesFollowTheWrappedCalculator) {
    FnCalc* sin = new FnCalc(Of(std::sin), VEXA_WString(L"SIN"));
    FnCalc* anon = new FnCalc(Of(std::sin));
    ICalculator* a = new ComplexStepCalculator(sin, 0);
    ICalculator* aa = a->getDerivativeCalculator(0);
    ICalculator* b = new ComplexStepCalculator(anon, 0);
    ICalculator* c = new ComplexStepCalculator(nullptr, 0);
    EXPECT_STREQ(a->getName().getWChar_t(), L"wrap:SIN");
    EXPECT_STREQ(aa->getName().getWChar_t(), L"wrap:wrap:SIN");
    EXPECT_STREQ(b->getName().getWChar_t(), L"wrap:NULL");
    EXPECT_EQ(c->getName().getWChar_t(), nullptr);
    // A wrapper of a wrapper is a second derivative: 6x for x^3.
    FnCalc* f = new FnCalc(Of(Cube));
    ICalculator* d1 = new ComplexStepCalculator(f, 0);
    ICalculator* d2 = d1->getDerivativeCalculator(0);
    VEXA_Data one(1.0), r;
    ASSERT_TRUE(d2->Evaluate(1, &one, r));
    EXPECT_NEAR(r.getValue()[0], 6.0, 1e-5);
    for (ICalculator* x : std::vector<ICalculator*>{aa, a, b, c, sin, anon, d2, d1, f})
        x->Release();
}

TEST(ComplexStepCalculator, FailuresOfTheWrappedCalculator) {
    // Fails (false, null result) outside [-1, 1], throws -1000 below -10.
    Wrapped w(
        [](double x, VEXA_Data& r) {
            if (x < -10)
                throw -1000;
            if (x < -1 || x > 1)
                return false;
            r = VEXA_Data(x);
            return true;
        },
        0);
    VEXA_Data vec(1, 2);
    vec.getValue()[0] = 1;
    vec.getValue()[1] = 2;
    const struct {
        VEXA_Data x;
        int thrown;         // 0: no exception
        double held_after;  // first element of the held parameter afterwards
    } cases[] = {
        {VEXA_Data(1.0), 0, 0.999},          // only f(x0 + h) fails: null result
        {VEXA_Data(5.0), 0, 4.999},          // both fail: null result
        {VEXA_Data(-1.0), -10001, -1.001},   // only f(x0 - h) fails: shapes differ
        {VEXA_Data(-20.0), -1000, -19.999},  // inner errors pass through
        {vec, -10001, 1},                    // a vector cannot be stepped; it stays as it is
    };
    for (const auto& c : cases) {
        VEXA_Data in[] = {c.x}, r(7.0);
        int thrown = 0;
        try {
            EXPECT_TRUE(w.d->Evaluate(1, in, r));
            EXPECT_EQ(r.getType(), DT_NULL);
        } catch (int code) {
            thrown = code;
        }
        EXPECT_EQ(thrown, c.thrown);
        EXPECT_DOUBLE_EQ(w.d->getParam(0).getValue()[0], c.held_after);
    }
}

}  // namespace
