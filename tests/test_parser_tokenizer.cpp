#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "parser_test_util.h"

using namespace parser_test;

// Reaches the parser's private steps (the parser befriends this class).
class VexaParserTestAccess {
public:
    static std::wstring PreParse(const wchar_t* text)
    {
        VexaParser parser;
        std::unique_ptr<wchar_t[]> out(new wchar_t[VexaParser::kWorkLength]);
        parser.PreParse(text, out.get());
        parser.lengthAfterTrimmingTailWhite(out.get(), true);
        return out.get();
    }

    // parseFunction on a call text, as if its name had left the registry
    // after the tokenizer accepted it.
    static int CallError(const wchar_t* call)
    {
        VexaParser parser;
        Expression* owner = new Expression();
        std::wstring text = call;
        int code = kNoError;
        try {
            delete parser.parseFunction(owner, &text[0]);
        } catch (int c) {
            code = c;
        }
        owner->Release();
        return code;
    }
};

namespace {

TEST(ParserTokenizer, PreProcessing)
{
    struct Case {
        const wchar_t* text;
        const wchar_t* out;
    };
    const Case cases[] = {
        {L"1 + 2", L"1+2"},           {L"2 * * 3", L"2^3"},   {L"2**-3", L"2^@3"},
        {L"-x", L"@x"},               {L"(+x)", L"(!x)"},     {L"f(a,-b)", L"f(a,@b)"},
        {L"(x)-y", L"(x)-y"},         {L"1E-5", L"1E-5"},     {L"{a}-b", L"{a}-b"},
        {L"2^-+-3", L"2^@!@3"},       {L"x \t\r\n ", L"x"},    {L"x\ty", L"x\ty"},
        {L"{p q-r} - 1", L"{p q-r}-1"}, {L"{a ** -b", L"{a ** -b"}, {L"   ", L""},
    };
    for (const Case& c : cases)
        EXPECT_EQ(VexaParserTestAccess::PreParse(c.text), c.out) << Narrow(c.text);
}

TEST(ParserTokenizer, CallOfAnUnknownNameIsRefusedWith100)
{
    EXPECT_EQ(VexaParserTestAccess::CallError(L"NOSUCH(1)"), 100);
    EXPECT_EQ(VexaParserTestAccess::CallError(L"nosuch(1,2)"), 100);
    EXPECT_EQ(VexaParserTestAccess::CallError(L"SIN}(1)"), 3);
    EXPECT_EQ(VexaParserTestAccess::CallError(L"sin(1)"), kNoError);
}

}  // namespace
