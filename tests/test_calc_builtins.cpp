// The built-in functions, called the way a host calls them: values and
// accepted argument counts from tests/data, argument kinds, and what only code
// can say (bit-exact steps, vector arguments).
#include <gtest/gtest.h>

#include <set>

#include "test_util.h"

using namespace testutil;

namespace {

// Calls a function the way a host does: a calculator from the registry,
// Evaluate, Release.
inline bool CallFunction(const wchar_t* name, std::vector<VEXA_Data> args, VEXA_Data& result) {
    VEXA_WString key(name);
    vexa::CalcRef calc(FunctionFactory::getInstance()->CreateFunction(key));
    if (!calc) {
        ADD_FAILURE() << "no calculator for a known name";
        return false;
    }
    return calc->Evaluate(static_cast<int>(args.size()), args.data(), result);
}

// The scalar 1.0 repeated count times, as the parser's test evaluation passes.
inline std::vector<VEXA_Data> Ones(int count) {
    return std::vector<VEXA_Data>(static_cast<std::size_t>(count), VEXA_Data(1.0));
}

// What results start as, to show a refusing call left them alone.
const VEXA_Data kSentinel = RowVector({7.0, 8.0});

struct Group {
    std::vector<std::wstring> names;
    int least, most;   // least > most: no call with scalars succeeds
    bool placeholder;  // answers 12 whatever the arguments hold
};

std::vector<Group> Groups() {
    std::vector<Group> groups;
    for (const CaseLine& c : ReadCases("builtin_counts.txt")) {
        const std::vector<std::wstring> counts = Words(c.fields[1]);
        groups.push_back({Words(c.fields[0]), std::stoi(counts[0]), std::stoi(counts[1]), c.fields.size() > 2});
    }
    return groups;
}

TEST(Builtins, ValuesFromTheDataFile) {
    const std::vector<CaseLine> cases = ReadCases("builtins.txt");
    ASSERT_GT(cases.size(), 60u);
    for (const CaseLine& c : cases) {
        SCOPED_TRACE("builtins.txt:" + std::to_string(c.line));
        std::vector<VEXA_Data> args;
        for (const std::wstring& w : Words(c.fields[1]))
            args.push_back(VEXA_Data(Number(w)));
        VEXA_Data result = kSentinel;
        const bool ok = CallFunction(c.fields[0].c_str(), args, result);
        if (c.fields[2] == L"refused") {
            EXPECT_FALSE(ok);
            EXPECT_TRUE(result == kSentinel);
            continue;
        }
        ASSERT_TRUE(ok);
        ASSERT_EQ(result.getType(), DT_SCALAR);
        const double want = Number(c.fields[2]);
        if (c.fields.size() > 3)
            EXPECT_NEAR(result.getValue()[0], want, Number(c.fields[3]));
        else
            EXPECT_EQ(result.getValue()[0], want);
    }
}

// The curves are part of the solver's contract to the last bit, so the
// grouping of their arithmetic is fixed; these inputs are not binary fractions
// and would expose a regrouped formula.
TEST(Builtins, StepsKeepTheirOrderOfOperations) {
    const double x0 = 0.05, h0 = 0.3, x1 = 1.3, h1 = 2.7;
    for (double x : {0.1, 0.3, 0.7, 0.9}) {
        const double a = (x - x0) / (x1 - x0);
        const double cubic = (3 - (a + a)) * (h1 - h0) * (a * a) + h0;
        const double quintic = ((6 * a) * a + (10 - 15 * a)) * (h1 - h0) * a * (a * a) + h0;
        VEXA_Data r;
        ASSERT_TRUE(CallFunction(L"STEP", {x, x0, h0, x1, h1}, r));
        EXPECT_EQ(r.getValue()[0], cubic) << x;
        ASSERT_TRUE(CallFunction(L"STEP5", {x, x0, h0, x1, h1}, r));
        EXPECT_EQ(r.getValue()[0], quintic) << x;
    }
}

TEST(Builtins, VectorArguments) {
    // A series takes the first element of a coefficient that is a vector or matrix.
    VEXA_Data matrix(2, 2);
    matrix.getValue()[0] = 3.0;
    matrix.getValue()[1] = matrix.getValue()[2] = matrix.getValue()[3] = 100.0;
    VEXA_Data result;
    ASSERT_TRUE(CallFunction(L"POLY", {2.0, 1.0, RowVector({1, 99}), 2.0, matrix}, result));
    EXPECT_EQ(result.getValue()[0], 6.0);
    // MAG wants exactly one 1 x 3 vector.
    ASSERT_TRUE(CallFunction(L"MAG", {RowVector({3, 4, 12})}, result));
    EXPECT_EQ(result.getValue()[0], 13.0);
    VEXA_Data stale = RowVector({3, 4, 12});
    stale = VEXA_Data();  // reports 1 x 3 but holds nothing
    const std::vector<std::vector<VEXA_Data>> refused = {
        {13.0}, {RowVector({3, 4})}, {RowVector({3, 4, 12, 1})}, {stale}, {RowVector({3, 4, 12}), 1.0}, {}};
    for (const std::vector<VEXA_Data>& args : refused) {
        VEXA_Data untouched = kSentinel;
        EXPECT_FALSE(CallFunction(L"MAG", args, untouched)) << args.size();
        EXPECT_TRUE(untouched == kSentinel);
    }
}

TEST(Builtins, CountsCoverEveryNameAndScalarOnesAreAcceptedExactlyWithinThem) {
    std::vector<std::wstring> names;
    FunctionFactory::getInstance()->GetAllFunctionName(names);
    std::set<std::wstring> table{L"add"};
    for (const Group& g : Groups()) {
        table.insert(g.names.begin(), g.names.end());
        for (const std::wstring& name : g.names) {
            for (int count = 0; count <= 36; ++count) {
                VEXA_Data result = kSentinel;
                const bool accepted = count >= g.least && count <= g.most;
                EXPECT_EQ(CallFunction(name.c_str(), Ones(count), result), accepted) << Narrow(name) << count;
                EXPECT_EQ(result.getType(), accepted ? DT_SCALAR : DT_VECTOR);
            }
        }
    }
    EXPECT_EQ(table.size(), 100u);
    EXPECT_EQ(std::set<std::wstring>(names.begin(), names.end()), table);
    // The one name without an implementation throws for every count.
    for (int count = 0; count <= 3; ++count) {
        VEXA_Data result;
        try {
            CallFunction(L"add", Ones(count), result);
            ADD_FAILURE() << count;
        } catch (int code) {
            EXPECT_EQ(code, -1000);
        }
    }
}

// Placeholders ignore their arguments' kinds; computing functions refuse any
// non-scalar where they test for one (every position, or x and x0 of a
// series), and a series also refuses a coefficient without elements. The
// 3 x 1 shape has storage yet counts as null.
TEST(Builtins, ArgumentKinds) {
    VEXA_Data matrix(2, 2), column(3, 1);
    for (int i = 0; i < 4; ++i)
        matrix.getValue()[i] = 1.0;
    const VEXA_Data kinds[] = {VEXA_Data(), RowVector({1.0, 1.0}), matrix, column};
    for (const Group& g : Groups()) {
        if (g.least > g.most)
            continue;
        const bool series = g.most > g.least && !g.placeholder;
        for (const std::wstring& name : g.names) {
            for (int pos = 0; pos < g.most && pos < g.least + 1; ++pos) {
                for (int k = 0; k < 4; ++k) {
                    std::vector<VEXA_Data> args = Ones(series ? g.least + 1 : g.most);
                    args[static_cast<std::size_t>(pos)] = kinds[k];
                    const bool accepted = g.placeholder || (series && pos >= 2 && (k == 1 || k == 2));
                    VEXA_Data result = kSentinel;
                    EXPECT_EQ(CallFunction(name.c_str(), args, result), accepted)
                        << Narrow(name) << " position " << pos << " kind " << k;
                    EXPECT_TRUE(accepted ? !g.placeholder || result.getValue()[0] == 12.0 : result == kSentinel);
                }
            }
        }
    }
}

}  // namespace
