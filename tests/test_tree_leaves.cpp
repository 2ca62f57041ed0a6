#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "vexa/vexa.h"

namespace {

VEXA_Data Row(std::initializer_list<double> xs)
{
    VEXA_Data v(1, static_cast<int>(xs.size()));
    int i = 0;
    for (double x : xs)
        v.getValue()[i++] = x;
    return v;
}

double Scalar(INode* n)
{
    VEXA_Data v = n->Calculate();
    EXPECT_EQ(v.getType(), DT_SCALAR);
    return v.getType() == DT_SCALAR ? v.getValue()[0] : -12345.0;
}

TEST(ConstantParam, ZeroAndOneUseStrictToleranceOnScalarsOnly)
{
    const struct {
        VEXA_Data value;
        bool zero, one;
    } cases[] = {
        {VEXA_Data(0.0), true, false},       {VEXA_Data(9.9e-8), true, false},
        {VEXA_Data(-9.9e-8), true, false},   {VEXA_Data(1e-7), false, false},
        {VEXA_Data(1.00000009), false, true}, {VEXA_Data(0.99999991), false, true},
        {VEXA_Data(1.0000001), false, false}, {Row({0, 0, 0}), false, false},
        {Row({1, 1, 1}), false, false},       {VEXA_Data(), false, false},
    };
    for (std::size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
        ConstantParam p(cases[i].value);
        EXPECT_EQ(p.IsZero(), cases[i].zero) << "case " << i;
        EXPECT_EQ(p.IsOne(), cases[i].one) << "case " << i;
    }
}

TEST(ConstantParam, VectorValueCopiesAndDifferentiatesToScalarZero)
{
    ConstantParam p(Row({1, 2, 3}));
    EXPECT_TRUE(p.Calculate() == Row({1, 2, 3}));
    p.Calculate().getValue()[0] = 99;  // results are copies
    INode* c = p.Copy(nullptr);
    INode* d = p.getDerivative(nullptr, 0);
    EXPECT_TRUE(c->Calculate() == Row({1, 2, 3}));
    EXPECT_EQ(Scalar(d), 0.0);
    EXPECT_EQ(d->getNodeType(), 2);
    std::vector<VariableParam*> vars;
    p.getVariableParams(vars);
    EXPECT_TRUE(vars.empty());
    delete c;
    delete d;
}

TEST(LeafDump, AppendsOneIndentedLine)
{
    const std::wstring ten(10, L' ');
    struct {
        INode* node;
        int level;
        std::wstring line;
    } cases[] = {
        {new ConstantParam(VEXA_Data(2.5)), 1, ten + L"2"},
        {new ConstantParam(VEXA_Data(-2.75)), 0, L"-2"},
        {new ConstantParam(Row({1, 2})), 0, L"vector"},
        {new VariableParam(nullptr, 0), 0, L"v:0"},
        {new VariableParam(nullptr, 12), 2, ten + ten + L"v:12"},
        {new VariableParam(nullptr, -1), 0, L"v:-1"},
        {new VariableParam(nullptr, 3), -4, L"v:3"},
    };
    for (auto& c : cases) {
        std::vector<std::wstring> lines{L"kept"};
        c.node->Dump(lines, c.level);
        EXPECT_EQ(lines, (std::vector<std::wstring>{L"kept", c.line}));
        delete c.node;
    }
}

TEST(VariableParam, ReadsOnlyParametersThatWerePassed)
{
    Expression* e = new Expression();
    VariableParam* leaf = new VariableParam(e, 2);
    e->SetRoot(leaf);
    EXPECT_EQ(leaf->Calculate().getType(), DT_NULL);  // nothing evaluated yet

    VEXA_Data r(7.0);
    VEXA_Data three[] = {VEXA_Data(1.0), VEXA_Data(2.0), Row({5, 6, 7})};
    EXPECT_FALSE(e->Evaluate(2, three, r));
    EXPECT_EQ(r.getType(), DT_NULL);
    EXPECT_TRUE(e->Evaluate(3, three, r));
    EXPECT_TRUE(r == Row({5, 6, 7}));

    VariableParam negative(e, -1), unbound(nullptr, 0);
    EXPECT_EQ(negative.Calculate().getType(), DT_NULL);
    EXPECT_EQ(unbound.Calculate().getType(), DT_NULL);
    e->Release();
}

TEST(VariableParam, DerivativeIsScalarOneOnlyForItsOwnIndex)
{
    VariableParam v(nullptr, 1);
    const struct {
        int index;
        double expected;
    } cases[] = {{1, 1.0}, {0, 0.0}, {2, 0.0}, {-1, 0.0}};
    for (const auto& c : cases) {
        EXPECT_EQ(v.HasParam(c.index), c.expected == 1.0);
        INode* d = v.getDerivative(nullptr, c.index);
        EXPECT_EQ(Scalar(d), c.expected) << c.index;
        delete d;
    }
    std::vector<VariableParam*> out;
    v.getVariableParams(out);
    EXPECT_EQ(out, std::vector<VariableParam*>{&v});
}

TEST(VariableParam, CopyReadsTheNewOwner)
{
    Expression* e1 = new Expression();
    Expression* e2 = new Expression();
    VariableParam* leaf = new VariableParam(e1, 0);
    e1->SetRoot(leaf);
    INode* copy = leaf->Copy(e2);
    e2->SetRoot(copy);
    VEXA_Data a[] = {VEXA_Data(1.0)}, b[] = {VEXA_Data(2.0)}, r;
    e1->Evaluate(1, a, r);
    e2->Evaluate(1, b, r);
    e1->Release();  // the copy must not depend on the original
    EXPECT_EQ(Scalar(copy), 2.0);
    e2->Release();
}

}  // namespace
