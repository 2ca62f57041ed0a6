#include "vexa/parser/tokenizer.h"

#include <memory>

#include "vexa/calc/function_factory.h"
#include "vexa/core/platform.h"
#include "vexa/parser/parse_limits.h"

using vexa::ParseProblem;

namespace {

bool IsAsciiLetter(wchar_t c)
{
    return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z');
}

// A '+' or '-' after one of these (or at the start) is a sign, not an operator.
bool IsUnaryContext(wchar_t previous)
{
    switch (previous) {
    case L'!': case L'%': case L'(': case L'*': case L'+':
    case L',': case L'-': case L'/': case L'@': case L'^':
        return true;
    default:
        return false;
    }
}

// The name at the head of a call token, upper-cased, for a message.
std::wstring UpperName(const wchar_t* token, int length)
{
    const std::wstring name(token, static_cast<std::size_t>(length));
    int ignored = 0;
    std::unique_ptr<wchar_t[]> upper(vexa_parser::Tokenizer::convertToUpper(name.c_str(), ignored));
    return upper.get();
}

}  // namespace

namespace vexa_parser {

// Refuses tokens that would not fit the token buffer; the error code is the
// position where the token started.
void Tokenizer::Append(wchar_t* token, int& length, wchar_t c, int tokenStart)
{
    if (length >= vexa_parser::kTokenLength - 1)
        Fail(m_failure, tokenStart, ParseProblem::kTokenTooLong, tokenStart, length);
    token[length++] = c;
}

void Tokenizer::PreParse(const wchar_t* text, wchar_t* out, int* rawIndex)
{
    if (!text[0]) {
        out[0] = 0;
        return;
    }
    bool inBraces = false;
    wchar_t previous = L'(';
    int in = 0;
    int count = 0;
    for (;;) {
        bool folded = false;
        if (inBraces) {
            out[count] = text[in];
            if (text[in] == L'}')
                inBraces = false;
        } else {
            SkipSpace(in, text);
            const wchar_t ch = text[in];
            if (ch == L'{') {
                out[count] = ch;
                inBraces = true;
            } else if (ch == L'*' && previous == L'*') {
                --count;
                out[count] = L'^';
                folded = true;  // the '^' keeps the raw index of the first star
            } else if ((ch == L'+' || ch == L'-') && IsUnaryContext(previous)) {
                out[count] = (ch == L'+') ? L'!' : L'@';
            } else {
                out[count] = ch;
            }
        }
        if (rawIndex && !folded)
            rawIndex[count] = in;
        // The input character, never the rewritten one, decides what follows.
        previous = text[in];
        if (!previous)
            break;
        ++in;
        ++count;
    }
    out[count] = 0;
}

std::uint64_t Tokenizer::lengthAfterTrimmingTailWhite(wchar_t* text, bool cut)
{
    std::size_t length = vexa_platform::WLen(text);
    while (length > 0 && vexa_platform::IsWSpace(text[length - 1]))
        --length;
    if (cut && text)
        text[length] = 0;
    return length;
}

void Tokenizer::SkipSpace(int& position, const wchar_t* text)
{
    while (text[position] == L' ')
        ++position;
}

TokenKind Tokenizer::getNextToken(int& position, wchar_t* text, wchar_t* token)
{
    SkipSpace(position, text);
    const int start = position;
    const wchar_t ch = text[position];
    int length = 0;

    if (IsDigit(ch) || ch == L'.') {
        getNextDigit(position, text, token);
        return TokenKind::kNumber;
    }
    if (ch == L'{') {
        Append(token, length, ch, start);
        ++position;
        while (text[position] && text[position] != L'}')
            Append(token, length, text[position++], start);
        if (!text[position]) {
            token[length] = 0;
            return TokenKind::kInvalid;
        }
        Append(token, length, L'}', start);
        ++position;
        token[length] = 0;
        return TokenKind::kName;
    }
    if (IsAsciiLetter(ch)) {
        Append(token, length, ch, start);
        ++position;
        while (IsChar(text[position]) || IsDigit(text[position]))
            Append(token, length, text[position++], start);
        if (text[position] == L'}')
            Append(token, length, text[position++], start);
        token[length] = 0;
        if (IsFunction(token)) {
            getWholeFunction(position, text, length, token);
            return TokenKind::kCall;
        }
        return TokenKind::kName;
    }
    if (IsOp(ch)) {
        token[0] = ch;
        token[1] = 0;
        ++position;
        return TokenKind::kOperator;
    }
    token[0] = 0;
    return TokenKind::kInvalid;
}

void Tokenizer::getNextDigit(int& position, wchar_t* text, wchar_t* token)
{
    const int start = position;
    int length = 0;
    const wchar_t first = text[position];
    Append(token, length, first, start);
    ++position;
    int points = (first == L'.') ? 1 : 0;
    int exponents = 0;
    int degrees = 0;
    int radians = 0;
    wchar_t previous = first;
    for (;;) {
        const wchar_t c = text[position];
        const bool continues = IsDigit(c) || c == L'.' || c == L'E' || c == L'D' || c == L'd' ||
                               c == L'R' || c == L'r' ||
                               ((c == L'+' || c == L'-') && previous == L'E');
        if (!continues)
            break;
        if (degrees > 0)
            Fail(m_failure, position, ParseProblem::kMalformedNumber, position, 1, L"D");
        if (c == L'.') {
            if (points > 0 || exponents > 0)
                Fail(m_failure, position, ParseProblem::kMalformedNumber, position, 1, exponents ? L"E." : L".");
            ++points;
        } else if (c == L'E') {
            if (exponents > 0)
                Fail(m_failure, position, ParseProblem::kMalformedNumber, position, 1, L"E");
            ++exponents;
        } else if (c == L'D' || c == L'd') {
            ++degrees;
        } else if (c == L'R' || c == L'r') {
            ++radians;
        }
        Append(token, length, c, start);
        ++position;
        previous = c;
    }
    if (points > 1 || exponents > 1 || degrees > 1 || radians > 1)
        Fail(m_failure, start, ParseProblem::kMalformedNumber, start, position - start, L"R");
    token[length] = 0;
}

wchar_t* Tokenizer::convertToUpper(const wchar_t* text, int& length)
{
    const std::size_t n = vexa_platform::WLen(text);
    wchar_t* upper = new wchar_t[n + 1];
    for (std::size_t i = 0; i < n; ++i) {
        const wchar_t c = text[i];
        upper[i] = (c >= L'a' && c <= L'z') ? static_cast<wchar_t>(c - L'a' + L'A') : c;
    }
    upper[n] = 0;
    length = static_cast<int>(n + 1);
    return upper;
}

void Tokenizer::pre_parseFunction_IF(wchar_t* text)
{
    for (; *text; ++text) {
        if (*text == L':')
            *text = L',';
    }
}

bool Tokenizer::IsChar(wchar_t c)
{
    return c == L'{' || IsAsciiLetter(c);
}

bool Tokenizer::IsDigit(wchar_t c)
{
    return c >= L'0' && c <= L'9';
}

bool Tokenizer::IsOp(wchar_t c)
{
    switch (c) {
    case L'!': case L'%': case L'(': case L')': case L'*':
    case L'+': case L'-': case L'/': case L'@': case L'^':
        return true;
    default:
        return false;
    }
}

bool Tokenizer::IsFunction(const wchar_t* name)
{
    if (!name)
        return false;
    int length = 0;
    std::unique_ptr<wchar_t[]> upper(convertToUpper(name, length));
    VEXA_WString key(upper.get());
    return FunctionFactory::getInstance()->IsFunction(key);
}

void Tokenizer::getWholeFunction(int& position, wchar_t* text, int nameLength, wchar_t* token)
{
    // The name is already in the token; a call that outgrows the buffer is
    // refused at the position where its name starts.
    const int start = position - nameLength;
    int length = nameLength;
    SkipSpace(position, text);
    if (text[position] != L'(')
        Fail(m_failure, position, ParseProblem::kFunctionWithoutArguments, position, text[position] ? 1 : 0,
             UpperName(token, nameLength));
    Append(token, length, L'(', start);
    ++position;
    if (!text[position])
        Fail(m_failure, position, ParseProblem::kUnclosedCall, start, position - start, UpperName(token, nameLength));
    int depth = 1;
    do {
        const wchar_t c = text[position];
        Append(token, length, c, start);
        if (c == L'(')
            ++depth;
        else if (c == L')')
            --depth;
        ++position;
    } while (text[position] && depth != 0);
    if (depth != 0)
        Fail(m_failure, position, ParseProblem::kUnclosedCall, start, position - start, UpperName(token, nameLength));
    token[length] = 0;
}

}  // namespace vexa_parser
