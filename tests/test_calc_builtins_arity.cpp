// Which argument counts and kinds every built-in name accepts. The parser
// test-evaluates each call with scalar 1.0 arguments, so these counts are the
// call forms of the language.
#include <gtest/gtest.h>

#include <cwchar>
#include <set>
#include <string>
#include <vector>

#include "builtin_call.h"

namespace {

struct Group {
    std::vector<const wchar_t*> names;
    int least;         // least > most: no call with scalars succeeds
    int most;
    bool placeholder;  // answers 12 whatever the arguments hold
};

const Group kGroups[] = {
    {{L"sin", L"cos", L"ABS", L"LOG10", L"ACOS", L"AINT", L"ANINT", L"ASIN", L"ATAN", L"SIN",
      L"SINH", L"COS", L"SQRT", L"COSH", L"TAN", L"EXP", L"TANH", L"LOG"}, 1, 1, false},
    {{L"MAX", L"MIN", L"MOD", L"SIGN", L"ATAN2"}, 2, 2, false},
    {{L"IF"}, 4, 4, false},
    {{L"STEP", L"STEP5", L"HAVSIN"}, 5, 5, false},
    {{L"SHF"}, 6, 6, false},
    {{L"IMPACT", L"SWEEP"}, 7, 7, false},
    {{L"BISTOP"}, 8, 8, false},
    {{L"POLY", L"CHEBY"}, 3, 33, false},
    {{L"FORCOS", L"FORSIN"}, 4, 34, false},
    {{L"AKISPL", L"CUBSPL", L"MAG"}, 1, 0, false},  // MAG wants a 1 x 3 vector
    {{L"UV"}, 1, 1, true},
    {{L"AX", L"AY", L"AZ", L"DM", L"PHI", L"PITCH", L"PSI", L"ROLL", L"THETA", L"YAW", L"WM",
      L"FM", L"TM", L"UVX", L"UVY", L"UVZ"}, 1, 2, true},
    {{L"DX", L"DXYZ", L"DY", L"DZ", L"INCANG", L"VM", L"VR", L"WX", L"WY", L"WZ", L"ACCM",
      L"WDTM", L"FX", L"FY", L"FZ", L"TX", L"TY", L"TZ", L"FXYZ", L"TXYZ", L"WXYZ"}, 1, 3, true},
    {{L"VX", L"VXYZ", L"VY", L"VZ", L"ACCX", L"ACCY", L"ACCZ", L"WDTX", L"WDTY", L"WDTZ",
      L"BUSH", L"GFORCE", L"SFORCE", L"SPDP", L"CVCV", L"JOINT", L"JPRIM", L"MOTION", L"PTCV",
      L"CURVE", L"INTERP", L"ACCXYZ", L"WDTXYZ"}, 1, 4, true},
};

std::string Narrow(const wchar_t* s) {
    return std::string(s, s + std::wcslen(s));
}

// Every kind but the scalar; the 3 x 1 shape has storage yet counts as null
// (and loses its storage when Evaluate copies it).
std::vector<VEXA_Data> NonScalars() {
    VEXA_Data matrix(2, 2);
    VEXA_Data column(3, 1);
    for (int i = 0; i < 4; ++i) matrix.getValue()[i] = 1.0;
    for (int i = 0; i < 3; ++i) column.getValue()[i] = 1.0;
    return {VEXA_Data(), RowVector({1.0, 1.0}), matrix, column};
}

TEST(BuiltinArity, GroupsCoverEveryRegistryName) {
    std::vector<std::wstring> names;
    FunctionFactory::getInstance()->GetAllFunctionName(names);
    std::set<std::wstring> table{L"add"};
    for (const Group& g : kGroups) table.insert(g.names.begin(), g.names.end());
    EXPECT_EQ(table.size(), 100u);
    EXPECT_EQ(std::set<std::wstring>(names.begin(), names.end()), table);
}

TEST(BuiltinArity, ScalarOnesAcceptedExactlyWithinRange) {
    for (const Group& g : kGroups) {
        for (const wchar_t* name : g.names) {
            for (int count = 0; count <= 36; ++count) {
                SCOPED_TRACE(Narrow(name) + " with " + std::to_string(count));
                VEXA_Data result = RowVector({7.0, 8.0});
                const bool accepted = count >= g.least && count <= g.most;
                EXPECT_EQ(CallFunction(name, Ones(count), result), accepted);
                EXPECT_EQ(result.getType(), accepted ? DT_SCALAR : DT_VECTOR);
                if (!accepted) {
                    EXPECT_TRUE(IsSentinel(result));
                }
            }
        }
    }
}

TEST(BuiltinArity, AddThrowsForEveryCount) {
    VEXA_WString name(L"add");
    for (int count = 0; count <= 3; ++count) {
        ICalculator* calc = FunctionFactory::getInstance()->CreateFunction(name);
        std::vector<VEXA_Data> args = Ones(count);
        VEXA_Data result;
        int thrown = 0;
        try {
            calc->Evaluate(count, args.data(), result);
        } catch (int code) {
            thrown = code;
        }
        EXPECT_EQ(thrown, -1000);
        calc->Release();
    }
}

// Placeholders ignore their arguments' kinds; computing functions refuse any
// non-scalar where they test for one (every position, or x and x0 of a
// series), and a series also refuses a coefficient without elements.
TEST(BuiltinArity, ArgumentKinds) {
    std::vector<VEXA_Data> kinds = NonScalars();
    for (const Group& g : kGroups) {
        if (g.least > g.most) continue;
        const bool series = g.most > g.least && !g.placeholder;
        for (const wchar_t* name : g.names) {
            for (int pos = 0; pos < g.most && pos < g.least + 1; ++pos) {
                for (std::size_t k = 0; k < kinds.size(); ++k) {
                    SCOPED_TRACE(Narrow(name) + " position " + std::to_string(pos) + " kind #" +
                                 std::to_string(k));
                    std::vector<VEXA_Data> args = Ones(series ? g.least + 1 : g.most);
                    args[static_cast<std::size_t>(pos)] = kinds[k];
                    const bool holds_elements = k == 1 || k == 2;
                    const bool accepted =
                        g.placeholder || (series && pos >= 2 && holds_elements);
                    VEXA_Data result = RowVector({7.0, 8.0});
                    EXPECT_EQ(CallFunction(name, args, result), accepted);
                    if (!accepted) {
                        EXPECT_TRUE(IsSentinel(result));
                    } else if (g.placeholder) {
                        EXPECT_EQ(result.getValue()[0], 12.0);
                    }
                }
            }
        }
    }
}

}  // namespace
