#ifndef VEXA_PARSER_TOKENIZER_H
#define VEXA_PARSER_TOKENIZER_H

#include <cstdint>

#include "vexa/parser/parse_failure.h"

// Pre-processing of an expression text and its cutting into tokens, one at a
// time. Internal to the parser.
namespace vexa_parser {

enum class TokenKind : int {
    kNumber = 0,
    kOperator = 1,
    kCall = 2,  // a function name with its whole parenthesised argument text
    kName = 3,
    kInvalid = 4,
};

// The steps are stateless; an object only carries the failure record that
// the steps which throw fill in first.
class Tokenizer {
public:
    explicit Tokenizer(FailureSlot& failure) : m_failure(failure) {}

    // Removes spaces outside braces, folds "**" to '^' and writes unary signs
    // as '!' and '@'. With rawIndex, also writes for every output character
    // the index of the input character it came from: the diagnosis of a
    // failure maps positions back to the text as typed this way.
    static void PreParse(const wchar_t* text, wchar_t* out, int* rawIndex = nullptr);
    static std::uint64_t lengthAfterTrimmingTailWhite(wchar_t* text, bool cut);
    static void SkipSpace(int& position, const wchar_t* text);

    // The token at position into token, position moved past it. A token that
    // does not fit the token buffer throws the position where it starts.
    TokenKind getNextToken(int& position, wchar_t* text, wchar_t* token);
    void getNextDigit(int& position, wchar_t* text, wchar_t* token);
    void getWholeFunction(int& position, wchar_t* text, int nameLength, wchar_t* token);

    // A new upper-cased copy, freed by the caller with delete[]; length
    // counts the terminator.
    static wchar_t* convertToUpper(const wchar_t* text, int& length);
    static void pre_parseFunction_IF(wchar_t* text);
    static bool IsChar(wchar_t c);
    static bool IsDigit(wchar_t c);
    static bool IsOp(wchar_t c);
    // Whether the upper-cased name is a registry key.
    static bool IsFunction(const wchar_t* name);

private:
    void Append(wchar_t* token, int& length, wchar_t c, int tokenStart);

    FailureSlot& m_failure;
};

}  // namespace vexa_parser

#endif
