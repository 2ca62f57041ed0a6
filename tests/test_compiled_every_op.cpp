// Every operation of the table, at awkward values (signed zeros,
// subnormals, infinities, NaNs with payloads, a signalling one, values past
// the 32-bit range, the edges of the refusals), evaluated three ways: by
// the tree, by the interpreter, and by the machine code Evaluate switches
// to. All three must agree bit for bit, refusals and NaN payloads included.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "compiled_expression_util.h"
#include "vexa/calc/expression_access.h"
#include "vexa/calc/operations.h"

namespace {

using form_test::Bits;
using form_test::Calc;
using form_test::Same;
using form_test::Show;
using vexa_calc::ExpressionAccess;

double FromBits(std::uint64_t bits)
{
    double v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
}

const std::vector<double> kValues = {
    0.0, -0.0, 1.0, -1.0, 0.5, -2.5, 1e-310, -1e-310, HUGE_VAL, -HUGE_VAL,
    FromBits(0x7FF8000000000000ULL),  // quiet NaN
    FromBits(0xFFF8000000000ABCULL),  // negative, with a payload
    FromBits(0x7FF4000000000001ULL),  // signalling
    1e300, 3e9, 0.9999999999999999,
};

// Arguments after x, y and z: parameters again, so that they vary.
const char* const kMore[] = {"0.5", "y*2", "-1.5", "z+1", "3", "0.25", "x-y", "7"};

struct Case {
    std::string text;
    const wchar_t* list;
    int derivative;  // -1: the expression itself, else d / d parameter
};

std::vector<Case> Cases()
{
    std::vector<Case> cases = {
        {"x+y", L"x,y,z", -1}, {"x-y", L"x,y,z", -1}, {"x*y", L"x,y,z", -1},
        {"x/y", L"x,y,z", -1}, {"x/4+z/0.1", L"x,y,z", -1}, {"x^y", L"x,y,z", -1},
        // A call of another calculator and central differences of a built-in.
        {"EVERYOP(x,y)+z", L"x,y,z", -1}, {"HAVSIN(x,y,z,2,1)", L"x,y,z", 0}, {"POLY(x,y,z,2,1)", L"x,y,z", 0},
    };
    for (int op = 0; op < vexa_ops::kOpCount; ++op) {
        const vexa_ops::Row& row = vexa_ops::kRows[op];
        if (!vexa_ops::IsBuiltin(static_cast<vexa_ops::Op>(op)))
            continue;
        const std::string name = row.text;
        if (name == "IMPACT" || name == "BISTOP") {
            // Distance and velocity are braced names, after x and y.
            std::string text = name + "({Z},{Z}*2,x,y,1.5,2,0.01" + (name == "BISTOP" ? ",3)" : ")");
            cases.push_back({text, L"x,y", -1});
            continue;
        }
        // The fewest arguments, and for a series some more.
        const int count = row.kind == vexa_ops::Kind::kSeries ? row.fewest + 3 : row.fewest;
        std::string text = name + "(";
        for (int k = 0; k < count; ++k)
            text += (k ? "," : "") + std::string(k < 3 ? std::string(1, "xyz"[k]) : kMore[(k - 3) % 8]);
        cases.push_back({text + ")", L"x,y,z", -1});
    }
    return cases;
}

Calc Make(const Case& c, bool compilable)
{
    Calc calc = form_test::Parse(c.text, c.list);
    if (calc && c.derivative >= 0)
        calc = Calc(calc->getDerivativeCalculator(c.derivative));
    return calc && !compilable ? form_test::TreeOnly(calc.get()) : std::move(calc);
}

TEST(CompiledEveryOp, TreeInterpreterAndMachineCodeAgreeBitForBit)
{
    form_test::Register(L"EVERYOP", "A*B-A", L"A,B");
    std::vector<std::vector<double>> points;
    const std::size_t n = kValues.size();
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < n; ++j)
            points.push_back({kValues[i], kValues[j], kValues[(3 * i + j) % n]});
    }
    const std::vector<double> warm = {0.25, 0.5, 0.75};
    for (const Case& c : Cases()) {
        const std::string what = c.text + (c.derivative >= 0 ? " (derivative)" : "");
        Calc tree = Make(c, false);
        Calc machine = Make(c, true);
        ASSERT_TRUE(tree && machine) << what;
        // Past the runs the interpreter serves: machine code where the
        // library makes it.
        form_test::Reference(machine.get(), warm);
        const auto interpreterPath = ExpressionAccess::FastPath(*static_cast<Expression*>(machine.get()));
        for (int i = 0; i < 70; ++i)
            form_test::Reference(machine.get(), warm);
        EXPECT_EQ(ExpressionAccess::FastPath(*static_cast<Expression*>(machine.get())) != interpreterPath,
                  form_test::MakesMachineCode())
            << what << ": machine code";
        // A fresh copy every few points keeps the interpreter running.
        Calc interpreted;
        int mismatches = 0;
        for (std::size_t p = 0; p < points.size() && mismatches < 3; ++p) {
            if (p % 50 == 0)
                interpreted = Make(c, true);
            const vexa::Outcome t = form_test::Reference(tree.get(), points[p]);
            const vexa::Outcome i = form_test::Reference(interpreted.get(), points[p]);
            const vexa::Outcome m = form_test::Reference(machine.get(), points[p]);
            const std::vector<double>& v = points[p];
            const std::string at = what + " at (" + std::to_string(v[0]) + ", " + std::to_string(v[1]) + ", " +
                                   std::to_string(v[2]) + ")";
            if (!Same(i, t) || !Same(m, t)) {
                ++mismatches;
                ADD_FAILURE() << at << ": tree " << Show(t) << " bits " << std::hex << Bits(t.value)
                              << ", interpreter " << Show(i) << " bits " << Bits(i.value) << ", machine code "
                              << Show(m) << " bits " << Bits(m.value);
            }
        }
    }
}

// Machine code is made for at most 256 parameters; more stay with the
// interpreter, with the same answers.
TEST(CompiledEveryOp, ParameterCountsBeyondTheLimitStayWithTheInterpreter)
{
    for (const int count : {256, 257}) {
        // Names are letters only: waa, wab, ...
        auto name = [](int k) { return std::string{'w', static_cast<char>('a' + k / 26), static_cast<char>('a' + k % 26)}; };
        std::wstring list;
        for (int k = 0; k < count; ++k) {
            const std::string n = name(k);
            list += (k ? L"," : L"") + std::wstring(n.begin(), n.end());
        }
        const Case c = {name(0) + "*2+" + name(count - 1) + "/" + name(1), list.c_str(), -1};
        Calc tree = Make(c, false);
        Calc calc = Make(c, true);
        ASSERT_TRUE(tree && calc) << count;
        std::vector<double> point(static_cast<std::size_t>(count));
        for (int k = 0; k < count; ++k)
            point[static_cast<std::size_t>(k)] = 0.5 * k - 3;
        form_test::Reference(calc.get(), point);
        const auto interpreterPath = ExpressionAccess::FastPath(*static_cast<Expression*>(calc.get()));
        for (int i = 0; i < 70; ++i) {
            point[1] = i - 35.0;  // through a zero divisor, which the tree refuses
            const vexa::Outcome t = form_test::Reference(tree.get(), point);
            const vexa::Outcome m = form_test::Reference(calc.get(), point);
            ASSERT_TRUE(Same(m, t)) << count << " parameters, run " << i << ": " << Show(m) << ", tree " << Show(t);
        }
        EXPECT_EQ(ExpressionAccess::FastPath(*static_cast<Expression*>(calc.get())) != interpreterPath,
                  form_test::MakesMachineCode() && count <= 256)
            << count << " parameters";
    }
}

}  // namespace
