#include <gtest/gtest.h>

#include <cwchar>

#include <string>
#include <vector>

#include "vexa/core/utf8.h"
#include "vexa/core/wstring.h"

namespace {

std::wstring& Convert(const VEXA_WString& s) {
    return s;
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
    const struct {
        const wchar_t* text;
        bool time, cycle, result;
    } cases[] = {
        {L"TIME", true, false, false},  {L"time", true, false, false},       {L"Time", true, false, false},
        {L"TIMES", false, false, false}, {L"TIME ", false, false, false},     {L"cycleangle", false, true, false},
        {L"CycleAngle", false, true, false}, {L"{}", false, false, true},    {L"{FX}", false, false, true},
        {L"{", false, false, false},    {L"}", false, false, false},         {L"a}", false, false, false},
        {L"", false, false, false},
    };
    for (const auto& c : cases) {
        VEXA_WString s(c.text);
        EXPECT_EQ(s.isTime(), c.time) << "'" << c.text << "'";
        EXPECT_EQ(s.isCycleAngle(), c.cycle) << "'" << c.text << "'";
        EXPECT_EQ(s.isResultObject(), c.result) << "'" << c.text << "'";
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

// Every ill-formed sequence becomes U+FFFD, one for each maximal start of a
// well-formed sequence (else one per byte); the byte after it is read anew.
TEST(CoreUtf8, IllFormedSequencesBecomeReplacementCharacters) {
    const wchar_t R = 0xFFFD;
    struct Case {
        const char* kind;
        std::string bytes;
        std::wstring chars;
    };
    const Case cases[] = {
        {"edges of each length", "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
         L"\x7F\x80\u07FF\u0800\uD7FF\uE000\U00010000\U0010FFFF"},
        {"overlong plus", "X\xC0\xAB" "1", {L'X', R, R, L'1'}},
        {"overlong letter", "\xC1\x81", {R, R}},
        {"overlong three bytes", "\xE0\x80\xAF", {R, R, R}},
        {"overlong four bytes", "\xF0\x8F\xBF\xBF", {R, R, R, R}},
        {"surrogate low edge", "\xED\xA0\x80", {R, R, R}},
        {"surrogate high edge", "\xED\xBF\xBF", {R, R, R}},
        {"above U+10FFFF", "\xF4\x90\x80\x80", {R, R, R, R}},
        {"F5 lead", "\xF5\x80\x80\x80", {R, R, R, R}},
        {"FF and FE", "\xFF\xFE" "A", {R, R, L'A'}},
        {"stray continuation", "A\x80\xBF" "B", {L'A', R, R, L'B'}},
        {"truncated two at end", "A\xC3", {L'A', R}},
        {"truncated three", "\xE2\x82" "B", {R, L'B'}},
        {"truncated three at end", "a\xFF\xE2\x82", {L'a', R, R}},
        {"truncated four", "\xF0\x9F\x98" "B", {R, L'B'}},
        {"truncated four by a lead", "\xF1\x80\xC3\xA9", {R, 0xE9}},
        {"Unicode's example", "\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
         {L'a', R, R, R, L'b', R, L'c', R, R, L'd'}},
    };
    for (const Case& c : cases) {
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
    const std::string bad = "\xEF\xBF\xBD";       // U+FFFD
    struct Case {
        const char* kind;
        std::wstring wide;
        std::string utf16_bytes;
        std::string utf32_bytes;
    };
    const Case cases[] = {
        {"pair", {0xD83D, 0xDE00}, grin, bad + bad},
        {"pair between letters", {L'a', 0xD83D, 0xDE00, L'b'}, "a" + grin + "b", "a" + bad + bad + "b"},
        {"lowest and highest", {0xD800, 0xDC00, 0xDBFF, 0xDFFF}, "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
         bad + bad + bad + bad},
        {"lone high", {0xD83D, L'x'}, bad + "x", bad + "x"},
        {"lone high at end", {L'x', 0xD83D}, "x" + bad, "x" + bad},
        {"lone low", {0xDE00, L'x'}, bad + "x", bad + "x"},
        {"low before high", {0xDE00, 0xD83D}, bad + bad, bad + bad},
        {"two highs then low", {0xD83D, 0xD83D, 0xDE00}, bad + grin, bad + bad + bad},
    };
    for (const Case& c : cases) {
        const std::string& want = utf16 ? c.utf16_bytes : c.utf32_bytes;
        EXPECT_EQ(vexa::ToUtf8(c.wide), want) << c.kind;
    }

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
