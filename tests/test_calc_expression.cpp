#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "vexa/vexa.h"

// Array allocations can be made to fail on demand, to drive the out-of-memory
// paths of parameter copying; the library resolves operator new[] to these.
namespace {
int g_array_allocs_until_failure = -1;
}

void* operator new[](std::size_t size) {
    if (g_array_allocs_until_failure == 0) {
        g_array_allocs_until_failure = -1;
        throw std::bad_alloc();
    }
    if (g_array_allocs_until_failure > 0)
        --g_array_allocs_until_failure;
    if (void* p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}

void operator delete[](void* p) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

namespace {

// A node that counts its destruction and differentiates by a script.
class Probe : public INode {
public:
    explicit Probe(int* destroyed) : m_destroyed(destroyed) {}
    ~Probe() override { ++*m_destroyed; }
    VEXA_Data Calculate() override { return VEXA_Data(1.0); }
    INode* Copy(ICalculator*) override { return nullptr; }
    bool HasParam(int) override { return false; }
    INode* getDerivative(ICalculator* owner, int index) override { return m_derive(owner, index); }
    int getNodeType() override { return 2; }
    void getVariableParams(std::vector<VariableParam*>&) override {}

    int* m_destroyed;
    std::function<INode*(ICalculator*, int)> m_derive;
};

Expression* Var(int index) {
    Expression* e = new Expression();
    e->SetRoot(new VariableParam(e, index));
    return e;
}

double First(const VEXA_Data& v) {
    return v.getType() == DT_NULL ? -12345.0 : v.getValue()[0];
}

TEST(ICalculator, ReleaseDestroysOnTheReleaseAfterTheLastAddRef) {
    for (int refs = 0; refs < 3; ++refs) {
        int destroyed = 0;
        Expression* e = new Expression();
        e->SetRoot(new Probe(&destroyed));
        for (int i = 0; i < refs; ++i)
            EXPECT_TRUE(e->AddRef());
        for (int i = 0; i < refs; ++i)
            EXPECT_FALSE(e->Release());
        EXPECT_EQ(destroyed, 0);
        EXPECT_TRUE(e->Release());
        EXPECT_EQ(destroyed, 1) << refs;
    }
}

TEST(ICalculator, ParametersFollowEveryEvaluation) {
    // Counts go up, stay and go down: a reused array must never carry a
    // stale value into a later evaluation.
    Expression* e = Var(2);
    const struct {
        std::vector<double> params;
        bool ok;
    } steps[] = {
        {{1, 2, 3}, true}, {{4, 5, 6}, true}, {{7, 8}, false}, {{1, 2, 3, 9}, true}, {{}, false},
    };
    for (const auto& s : steps) {
        std::vector<VEXA_Data> in(s.params.begin(), s.params.end());
        const int n = static_cast<int>(in.size());
        VEXA_Data r;
        EXPECT_EQ(e->Evaluate(n, in.data(), r), s.ok);
        if (s.ok) {
            EXPECT_EQ(First(r), s.params[2]);
        }
        ASSERT_EQ(e->getParamCount(), n);
        ASSERT_NE(e->getParams(), nullptr);  // also for a count of 0
        for (int i = 0; i < n; ++i)
            EXPECT_TRUE(e->getParam(i) == in[i]);
        for (int bad : {-1, n}) {
            try {
                e->getParam(bad);
                ADD_FAILURE() << bad;
            } catch (int code) {
                EXPECT_EQ(code, 123);
            }
        }
    }
    e->Release();
}

TEST(ICalculator, HeldNullParameterReportsAFreshShape) {
    // Each evaluation copies into new null values, so a null passed where a
    // vector was held before reports 0 x 0, not the vector's old shape.
    Expression* e = Var(0);
    VEXA_Data vec(1, 3);
    for (int i = 0; i < 3; ++i)
        vec.getValue()[i] = i;
    VEXA_Data nulls[] = {VEXA_Data(), VEXA_Data(3, 1)};
    for (VEXA_Data& n : nulls) {
        VEXA_Data r;
        ASSERT_TRUE(e->Evaluate(1, &vec, r));
        EXPECT_FALSE(e->Evaluate(1, &n, r));
        int rows = -1, cols = -1;
        e->getParam(0).getDataInfo(rows, cols);
        EXPECT_EQ(rows, 0);
        EXPECT_EQ(cols, 0);
    }
    e->Release();
}

TEST(ICalculator, OwnHeldParametersServeAndUnreadableArraysAreRefused) {
    Expression* e = Var(0);
    VEXA_Data big(1, 12);
    for (int i = 0; i < 12; ++i)
        big.getValue()[i] = i;
    VEXA_Data params[] = {big, VEXA_Data(2.0)}, r;
    ASSERT_TRUE(e->Evaluate(2, params, r));
    ASSERT_TRUE(e->Evaluate(e->getParamCount(), e->getParams(), r));
    EXPECT_TRUE(r == big);
    VEXA_Data* held = e->getParams();
    r = VEXA_Data(-3.0);
    EXPECT_FALSE(e->Evaluate(-1, params, r));
    EXPECT_FALSE(e->Evaluate(1, nullptr, r));
    EXPECT_EQ(First(r), -3.0);
    EXPECT_EQ(e->getParams(), held);
    EXPECT_EQ(e->getParamCount(), 2);
    e->Release();
}

TEST(ICalculator, OutOfMemoryWhileCopyingParametersLeavesNone) {
#if defined(_WIN32)
    GTEST_SKIP() << "the library's DLL allocates through its own operator new, which a program cannot replace";
#endif
    VEXA_Data big(1, 12);  // heap storage: its copy allocates an array too
    for (int i = 0; i < 12; ++i)
        big.getValue()[i] = 1;
    // Which array allocation of the Evaluate fails: the parameter array when
    // the count changes, or the storage of a large value being copied.
    const struct {
        int held, passed, failing;
    } cases[] = {{2, 3, 0}, {2, 3, 1}, {2, 2, 0}, {0, 1, 0}};
    for (const auto& c : cases) {
        Expression* e = Var(0);
        std::vector<VEXA_Data> before(c.held, VEXA_Data(1.0)), after(c.passed, big);
        VEXA_Data r;
        e->Evaluate(c.held, before.data(), r);
        g_array_allocs_until_failure = c.failing;
        EXPECT_THROW(e->Evaluate(c.passed, after.data(), r), std::bad_alloc);
        g_array_allocs_until_failure = -1;
        EXPECT_EQ(e->getParamCount(), 0);
        EXPECT_EQ(e->getParams(), nullptr);
        EXPECT_TRUE(e->Evaluate(c.passed, after.data(), r));  // still usable
        e->Release();
    }
}

TEST(Expression, EmptyExpressionFailsQuietlyAndSetRootReplaces) {
    Expression* e = new Expression();
    VEXA_Data params[] = {VEXA_Data(1.0), VEXA_Data(2.0)};
    VEXA_Data r(9.0);
    EXPECT_FALSE(e->Evaluate(2, params, r));
    EXPECT_EQ(First(r), 9.0);
    EXPECT_EQ(e->getParamCount(), 2);
    EXPECT_EQ(e->Copy(), nullptr);
    EXPECT_EQ(e->getDerivativeCalculator(0), nullptr);
    std::vector<std::wstring> lines;
    e->Dump(lines);
    EXPECT_TRUE(lines.empty());

    // SetRoot owns the root and replaces it.
    int first = 0, second = 0;
    Probe* a = new Probe(&first);
    e->SetRoot(a);
    e->SetRoot(a);  // the current root handed in again: nothing happens
    EXPECT_EQ(first, 0);
    e->SetRoot(new Probe(&second));
    EXPECT_EQ(first, 1);
    e->SetRoot(nullptr);
    EXPECT_EQ(second, 1);
    e->Release();
}

TEST(Expression, CopyIsIndependentAndUnnamed) {
    Expression* e = Var(1);
    VEXA_WString name(L"SPEED");
    e->SetName(name);
    VEXA_Data params[] = {VEXA_Data(1.0), VEXA_Data(2.0)}, r;
    e->Evaluate(2, params, r);

    Expression* c = e->Copy();
    e->Release();
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(static_cast<std::wstring&>(c->getName()), L"NULL");
    EXPECT_EQ(c->getParamCount(), 0);
    VEXA_Data other[] = {VEXA_Data(0.0), VEXA_Data(8.0)};
    ASSERT_TRUE(c->Evaluate(2, other, r));
    EXPECT_EQ(First(r), 8.0);
    c->Release();
}

TEST(Expression, DerivativeIsBuiltForTheNewCalculator) {
    int destroyed = 0;
    Expression* e = new Expression();
    Probe* p = new Probe(&destroyed);
    ICalculator* seen = nullptr;
    p->m_derive = [&seen](ICalculator* owner, int index) -> INode* {
        seen = owner;
        return new VariableParam(owner, index);
    };
    e->SetRoot(p);
    VEXA_WString name(L"F");
    e->SetName(name);
    ICalculator* d = e->getDerivativeCalculator(1);
    e->Release();
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(seen, d);
    EXPECT_EQ(d->getName().getWChar_t(), nullptr);
    VEXA_Data params[] = {VEXA_Data(0.0), VEXA_Data(4.0)}, r;
    ASSERT_TRUE(d->Evaluate(2, params, r));
    EXPECT_EQ(First(r), 4.0);
    d->Release();
}

TEST(Expression, DerivativeFailuresLeaveNothingBehind) {
    int destroyed = 0;
    Expression* e = new Expression();
    Probe* p = new Probe(&destroyed);
    e->SetRoot(p);

    // Every node a derivative rule builds is charged; a rule that never
    // stops building is ended by the budget.
    p->m_derive = [](ICalculator* owner, int index) -> INode* {
        ConstantParam seed(VEXA_Data(1.0));
        for (;;)
            delete seed.getDerivative(owner, index);
    };
    EXPECT_EQ(e->getDerivativeCalculator(0), nullptr);

    p->m_derive = [](ICalculator*, int) -> INode* { throw 1000; };
    EXPECT_THROW(e->getDerivativeCalculator(0), int);
    p->m_derive = [](ICalculator*, int) -> INode* { throw std::bad_alloc(); };
    EXPECT_THROW(e->getDerivativeCalculator(0), std::bad_alloc);

    // The budget ended with its call.
    p->m_derive = [](ICalculator* owner, int) -> INode* {
        for (int i = 0; i < 10; ++i)
            delete ConstantParam(VEXA_Data(1.0)).Copy(owner);
        return new ConstantParam(VEXA_Data(2.0));
    };
    ICalculator* d = e->getDerivativeCalculator(0);
    ASSERT_NE(d, nullptr);
    d->Release();
    e->Release();
}

// A host may parse and evaluate while it is itself being loaded, before its
// main: the library's tree operations must be in place by then. Every
// operation an Expression hands to its tree is used once here, the compiled
// form included (a parsed tree runs compiled on its first evaluation).
// What each use gave: the value, the copy's, the derivative's at x = 3, and
// the dump's number of lines.
std::vector<double> UseAtLoad() {
    VexaParser parser;
    wchar_t names[] = L"x";
    ICalculator* calc = nullptr;
    if (!parser.parse(L"x*x+1", names, &calc) || !calc)
        return {};
    Expression* e = static_cast<Expression*>(calc);
    Expression* c = e->Copy();
    ICalculator* d = e->getDerivativeCalculator(0);
    std::vector<double> got;
    for (ICalculator* used : {calc, static_cast<ICalculator*>(c), d}) {
        VEXA_Data x[] = {VEXA_Data(3.0)}, r;
        got.push_back(used && used->Evaluate(1, x, r) ? First(r) : -1);
    }
    std::vector<std::wstring> dump;
    e->Dump(dump);
    got.push_back(static_cast<double>(dump.size()));
    for (ICalculator* owned : {static_cast<ICalculator*>(c), d, calc})
        if (owned)
            owned->Release();
    return got;
}

const std::vector<double> kAtLoad = UseAtLoad();

TEST(Expression, TreesWorkWhileTheHostIsBeingLoaded) {
    EXPECT_EQ(kAtLoad, (std::vector<double>{10, 10, 6, 5}));
}

}  // namespace
