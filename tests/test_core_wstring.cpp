#include <gtest/gtest.h>

#include <cwchar>

#include <string>
#include <vector>

#include "test_util.h"
#include "vexa/core/utf8.h"
#include "vexa/core/wstring.h"

namespace {

std::wstring& Convert(const VEXA_WString& s) {
    return s;
}

// The units of a text of hexadecimal words.
template <class Text>
Text Units(const std::string& hex) {
    Text units;
    for (const std::wstring& w : testutil::Words(vexa::FromUtf8(hex))) {
        unsigned long u = std::stoul(vexa::ToUtf8(w), nullptr, 16);
        // Characters above U+FFFF in 16-bit units: a surrogate pair.
        if (sizeof(typename Text::value_type) == 2 && u > 0xFFFF) {
            units += static_cast<typename Text::value_type>(0xD800 + ((u - 0x10000) >> 10));
            u = 0xDC00 + ((u - 0x10000) & 0x3FF);
        }
        units += static_cast<typename Text::value_type>(u);
    }
    return units;
}

// The cases of data/text_units.txt that belong to test.
std::vector<std::vector<std::string>> Cases(const char* test) {
    const auto cases = testutil::Section("text_units.txt", test);
    EXPECT_FALSE(cases.empty()) << test;
    return cases;
}

TEST(CoreWString, CopyAssignAppend) {
    VEXA_WString s(L"ab"), target(L"longer text");
    target = s;
    EXPECT_NE(target.getWChar_t(), s.getWChar_t());
    const VEXA_WString& alias = target;
    target = alias;
    EXPECT_STREQ(target.getWChar_t(), L"ab");

    s += L"cd";
    s += nullptr;
    EXPECT_STREQ(s.getWChar_t(), L"abcd");
    s += s.getWChar_t();
    EXPECT_STREQ(static_cast<const wchar_t*>(s), L"abcdabcd");
    VEXA_WString empty(L"");
    ASSERT_NE(empty.getWChar_t(), nullptr);
    EXPECT_EQ(empty.getWChar_t()[0], L'\0');
}

TEST(CoreWString, WithoutTextActsAsEmpty) {
    const VEXA_WString none, from_null(nullptr), copied(none);
    VEXA_WString assigned(L"x");
    assigned = none;
    const VEXA_WString* all[] = {&none, &from_null, &copied, &assigned};
    for (const VEXA_WString* s : all) {
        EXPECT_EQ(s->getWChar_t(), nullptr);
        EXPECT_EQ(Convert(*s), L"NULL");
        EXPECT_TRUE(*s == VEXA_WString(L""));
        EXPECT_TRUE(*s < VEXA_WString(L"a"));
        EXPECT_FALSE(VEXA_WString(L"a") < *s);
        EXPECT_TRUE(s->SameNoCase(VEXA_WString(L"")));
        EXPECT_FALSE(s->isTime() || s->isCycleAngle() || s->isResultObject());
    }
    VEXA_WString grow;
    grow += L"ab";
    EXPECT_STREQ(grow.getWChar_t(), L"ab");
    grow = none;
    grow += nullptr;
    EXPECT_EQ(grow.getWChar_t(), nullptr);
}

TEST(CoreWString, Ordering) {
    const struct {
        const wchar_t *a, *b;
        bool equal, less;
    } cases[] = {
        {L"ABC", L"abc", false, true}, {L"B", L"a", false, true},   {L"a", L"B", false, false},
        {L"abc", L"abc", true, false}, {L"ab", L"abc", false, true}, {L"abc", L"ab", false, false},
        {L"", L"a", false, true},
#if WCHAR_MAX > 0xFFFF
        // Units above 0x7FFFFFFF order as unsigned values.
        {L"a", L"\xFFFFFFFF", false, true}, {L"\x80000000", L"\x7FFFFFFF", false, false},
#else
        // 16-bit units order as unsigned values.
        {L"a", L"\xFFFF", false, true}, {L"\x8000", L"\x7FFF", false, false},
#endif
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "case " << (&c - cases));
        EXPECT_EQ(VEXA_WString(c.a) == VEXA_WString(c.b), c.equal);
        EXPECT_EQ(VEXA_WString(c.a) < VEXA_WString(c.b), c.less);
    }
}

TEST(CoreWString, CaseAndKeywords) {
    for (const auto& c : Cases("keywords")) {
        const VEXA_WString s(vexa::FromUtf8(c[0]).c_str());
        EXPECT_EQ(s.isTime(), c[1] == "time") << "'" << c[0] << "'";
        EXPECT_EQ(s.isCycleAngle(), c[1] == "cycle") << "'" << c[0] << "'";
        EXPECT_EQ(s.isResultObject(), c[1] == "result") << "'" << c[0] << "'";
    }
    EXPECT_TRUE(VEXA_WString(L"ABC").SameNoCase(VEXA_WString(L"abc")));
    EXPECT_FALSE(VEXA_WString(L"\x00C4").SameNoCase(VEXA_WString(L"\x00E4")));  // only A-Z fold
}

// One conversion string (per thread: test_threads.cpp), overwritten by the next.
TEST(CoreWString, SharedConversionIsOverwritten) {
    VEXA_WString first(L"first"), second(L"second");
    std::wstring& kept = Convert(first);
    EXPECT_EQ(&Convert(second), &kept);
    EXPECT_EQ(kept, L"second");
}

TEST(CoreUtf8, RoundTripAndReplacement) {
    const std::string s = "x \xC2\xB0 \xE2\x82\xAC \xF0\x9F\x98\x80";
    EXPECT_EQ(vexa::ToUtf8(vexa::FromUtf8(s)), s);
    EXPECT_EQ(vexa::ToUtf8(std::wstring(1, static_cast<wchar_t>(0xD800))), "\xEF\xBF\xBD");
}

// Ill-formed sequences become replacement characters as the cases say.
TEST(CoreUtf8, IllFormedSequencesBecomeReplacementCharacters) {
    for (const auto& row : Cases("decode")) {
        const struct {
            const std::string& kind;
            std::string bytes;
            std::wstring chars;
        } c = {row[0], Units<std::string>(row[1]), Units<std::wstring>(row[2])};
        EXPECT_EQ(vexa::FromUtf8(c.bytes), c.chars) << c.kind;
        // Offsets walk the same sequences: the last character ends the text.
        EXPECT_EQ(vexa::Utf8Offset(c.bytes, c.chars.size()), c.bytes.size()) << c.kind;
        if (!c.chars.empty()) {
            EXPECT_LT(vexa::Utf8Offset(c.bytes, c.chars.size() - 1), c.bytes.size()) << c.kind;
        }
    }
}

// Where wchar_t has 16 bits, characters above U+FFFF are surrogate pairs in
// wide texts, and positions count code units; where it has 32, the same
// texts hold one unit per character and surrogates are never characters.
TEST(CoreUtf8, CharactersAboveTheBasicPlane) {
    const bool utf16 = sizeof(wchar_t) == 2;
    const std::string grin = "\xF0\x9F\x98\x80";  // U+1F600
    for (const auto& c : Cases("encode"))
        EXPECT_EQ(vexa::ToUtf8(Units<std::wstring>(c[1])), Units<std::string>(utf16 ? c[2] : c[3])) << c[0];

    // Decoding gives the pair back; offsets inside a pair name the start of
    // its character.
    const std::string text = "a" + grin + "b";
    const std::wstring wide = vexa::FromUtf8(text);
    EXPECT_EQ(wide, L"a\U0001F600b");
    EXPECT_EQ(wide.size(), utf16 ? 4u : 3u);
    EXPECT_EQ(vexa::ToUtf8(wide), text);
    const std::size_t after_grin = utf16 ? 3 : 2;
    EXPECT_EQ(vexa::Utf8Offset(text, 1), 1u);
    EXPECT_EQ(vexa::Utf8Offset(text, after_grin), 5u);
    EXPECT_EQ(vexa::Utf8Offset(text, after_grin + 1), 6u);
    if (utf16) {
        EXPECT_EQ(vexa::Utf8Offset(text, 2), 1u);
    }
}

}  // namespace
