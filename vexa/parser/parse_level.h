#ifndef VEXA_PARSER_PARSE_LEVEL_H
#define VEXA_PARSER_PARSE_LEVEL_H

#include <deque>
#include <vector>

#include "vexa/parser/parse_failure.h"

// What one parseExpression call keeps beside its two stacks: the tree depth
// of every operand, for the depth limit, and where things stand in its text,
// for the diagnosis of a failure. Levels chain outward through the arguments
// of function calls. Internal to the parser.
namespace vexa_parser {

// One entry of the operator stack: an operator character and where it stands.
struct OperatorAt {
    wchar_t op;
    int at;
};

// One entry of the operand stack, kept in step with it.
struct OperandInfo {
    int depth;  // of the node's tree
    int start;  // the operand's text in the level's pre-processed text
    int end;
};

class Level {
public:
    // Makes this the current level for as long as it lives.
    Level(Level*& current, const wchar_t* given) : outer(current), text(given), m_current(current)
    {
        current = this;
    }
    ~Level() { m_current = outer; }
    Level(const Level&) = delete;
    Level& operator=(const Level&) = delete;

    // Notes one token. An operand (or '(') right after an operand (or ')') is
    // where an operator is missing, or, after a name, a call of a function
    // nobody knows; the first of each is kept for the diagnosis.
    void NoteToken(bool startsOperand, bool endsOperand, bool isName, int start, int end)
    {
        if (startsOperand && m_previousEnds) {
            if (m_previousIsName && !endsOperand) {
                if (namedParen < 0) {
                    name = m_previous;
                    namedParen = start;
                }
            } else if (second.position < 0) {
                first = m_previous;
                second = Piece{start, end - start};
            }
        }
        m_previousEnds = endsOperand;
        m_previousIsName = isName;
        m_previous = Piece{start, end - start};
    }

    // Whether the '(' at that position is still on the operator stack.
    bool IsOpen(int parenthesis) const
    {
        for (const OperatorAt& entry : *operators) {
            if (entry.at == parenthesis)
                return true;
        }
        return false;
    }

    Level* const outer;
    const wchar_t* const text;    // as given to this level
    const wchar_t* work = nullptr;  // pre-processed
    std::vector<OperandInfo> operands;
    const std::deque<OperatorAt>* operators = nullptr;
    int token = 0;                // start of the token being handled

    // The call whose arguments are being parsed, for the enclosing-call chain.
    const wchar_t* function = nullptr;
    Piece call;
    int argumentsAt = 0;  // where its argument text starts
    int argument = 0;     // 0-based number of the argument being parsed
    int argumentAt = 0;   // where that argument starts

    Piece first, second;  // the first two operands in a row
    Piece name;           // the first name followed by '('
    int namedParen = -1;  // that '('

private:
    Level*& m_current;
    bool m_previousEnds = false;
    bool m_previousIsName = false;
    Piece m_previous;
};

}  // namespace vexa_parser

#endif
