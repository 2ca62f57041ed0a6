// The cases of tests/data/values.txt: value arithmetic, equality and text form.
#include <gtest/gtest.h>

#include "test_util.h"

using namespace testutil;

namespace {

// A value as the data file writes it. One object, one return: a copy of a
// kindless or shape-keeping null would be a plain null.
VEXA_Data ValueOf(const std::wstring& text) {
    const std::vector<std::wstring> w = Words(text);
    const bool kept = w[0] == L"kept", numbers = !kept && text != L"null" && text != L"copied";
    // Rows of numbers: the innermost brackets, or the whole text for a vector.
    std::vector<std::vector<double>> rows(1);
    for (std::size_t i = text[0] == L'[' ? 1 : 0; i < text.size() && numbers; ++i) {
        if (text[i] == L']' && i + 1 < text.size() && !rows.back().empty())
            rows.emplace_back();
        else if (text[i] == L'-' || text[i] == L'.' || (text[i] >= L'0' && text[i] <= L'9') || text[i] == L'n') {
            std::size_t used = 0;
            rows.back().push_back(std::stod(Narrow(text.substr(i)), &used));
            i += used - 1;
        }
    }
    if (rows.back().empty())
        rows.pop_back();
    const VEXA_Data null;
    VEXA_Data v = text == L"copied" ? VEXA_Data(null)
                  : kept            ? VEXA_Data(std::stoi(w[1]), std::stoi(w[2]))
                  : rows.empty()    ? VEXA_Data(0, 0)
                                    : VEXA_Data(static_cast<int>(rows.size()), static_cast<int>(rows[0].size()));
    if (kept)
        v = VEXA_Data();
    for (std::size_t r = 0; r < rows.size(); ++r)
        for (std::size_t c = 0; c < rows[r].size(); ++c)
            v.getValue()[r * rows[0].size() + c] = rows[r][c];
    return v;
}

VEXA_Data Apply(wchar_t op, const VEXA_Data& a, const VEXA_Data& b) {
    switch (op) {
    case L'*': return a * b;
    case L'-': return a - b;
    case L'+': return a + b;
    case L'/': return a / b;
    case L'%': return a % b;
    default: return a ^ b;
    }
}

TEST(CoreValues, CasesFromTheDataFile) {
    const std::vector<CaseLine> cases = ReadCases("values.txt");
    ASSERT_GT(cases.size(), 60u);
    for (const CaseLine& c : cases) {
        SCOPED_TRACE("values.txt:" + std::to_string(c.line));
        const VEXA_Data a = ValueOf(c.fields[0]);
        const std::wstring& op = c.fields[1];
        const std::wstring& want = c.fields[3];
        if (op == L"text") {
            EXPECT_EQ(static_cast<std::wstring>(a), want);
            continue;
        }
        const VEXA_Data b = ValueOf(c.fields[2]);
        if (op == L"==") {
            EXPECT_EQ(a == b, want == L"true");
            EXPECT_EQ(b == a, want == L"true");
            continue;
        }
        try {
            // A result reaches this point without a copy, which would turn a
            // kindless 3 x 1 value into a null one.
            const VEXA_Data r = Apply(op[0], a, b);
            ASSERT_NE(want, L"throws");
            if (want == L"nan") {
                EXPECT_TRUE(std::isnan(r.getValue()[0]));
            } else {
                EXPECT_TRUE(r.getType() == ValueOf(want).getType() && r == ValueOf(want)) << Narrow(vexa::ValueText(r));
                EXPECT_TRUE(want != L"null" || r.getValue() == nullptr);
            }
        } catch (int code) {
            EXPECT_EQ(want, L"throws");
            EXPECT_EQ(code, -10001);
        }
    }
}

TEST(CoreValues, ProductTooLargeToAddressHasNoStorage) {
    VEXA_Data tall(50000, 2), wide(2, 50000);
    for (int e = 0; e < 100000; ++e)
        tall.getValue()[e] = wide.getValue()[e] = 1.0;
    EXPECT_EQ((tall * wide).getValue(), nullptr);
}

}  // namespace
