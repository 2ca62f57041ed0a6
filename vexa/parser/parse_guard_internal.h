#ifndef VEXA_PARSER_PARSE_GUARD_INTERNAL_H
#define VEXA_PARSER_PARSE_GUARD_INTERNAL_H

#include <vector>

#include "vexa/parser/vexa_parser.h"

class ICalculator;
class INode;

// Ownership helpers of the parser, internal to the library. A parse can fail
// at almost any point with an int error code; these guards make sure that no
// node or calculator reference made so far outlives the failure.
namespace vexa_parser {

// Destroys the nodes still on an operand stack unless the parse finished.
// Null slots are skipped: a slot is pushed before the node that fills it is
// made, so a node is never held outside the stack.
class OperandGuard {
public:
    explicit OperandGuard(std::stack<INode*, std::deque<INode*> >& operands) : m_operands(operands) {}
    ~OperandGuard();
    OperandGuard(const OperandGuard&) = delete;
    OperandGuard& operator=(const OperandGuard&) = delete;

private:
    std::stack<INode*, std::deque<INode*> >& m_operands;
};

// Destroys the argument trees of a call unless they were handed to a node.
class ArgumentsGuard {
public:
    explicit ArgumentsGuard(std::vector<INode*>& args) : m_args(args) {}
    ~ArgumentsGuard();
    void Dismiss() { m_args.clear(); }
    ArgumentsGuard(const ArgumentsGuard&) = delete;
    ArgumentsGuard& operator=(const ArgumentsGuard&) = delete;

private:
    std::vector<INode*>& m_args;
};

// Gives back one calculator reference unless it was handed to a node.
class CalculatorGuard {
public:
    explicit CalculatorGuard(ICalculator* calc) : m_calc(calc) {}
    ~CalculatorGuard();
    void Dismiss() { m_calc = nullptr; }
    CalculatorGuard(const CalculatorGuard&) = delete;
    CalculatorGuard& operator=(const CalculatorGuard&) = delete;

private:
    ICalculator* m_calc;
};

// Counts one level of call nesting for as long as it lives.
class DepthGuard {
public:
    explicit DepthGuard(int& depth) : m_depth(depth) { ++m_depth; }
    ~DepthGuard() { --m_depth; }
    DepthGuard(const DepthGuard&) = delete;
    DepthGuard& operator=(const DepthGuard&) = delete;

private:
    int& m_depth;
};

// Points the parser's depth record at one level's stack for as long as it
// lives, and back at the enclosing level's afterwards.
class DepthStackScope {
public:
    DepthStackScope(std::vector<int>*& current, std::vector<int>* mine)
        : m_current(current), m_outer(current)
    {
        m_current = mine;
    }
    ~DepthStackScope() { m_current = m_outer; }
    DepthStackScope(const DepthStackScope&) = delete;
    DepthStackScope& operator=(const DepthStackScope&) = delete;

private:
    std::vector<int>*& m_current;
    std::vector<int>* m_outer;
};

}  // namespace vexa_parser

#endif
