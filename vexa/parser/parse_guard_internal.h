#ifndef VEXA_PARSER_PARSE_GUARD_INTERNAL_H
#define VEXA_PARSER_PARSE_GUARD_INTERNAL_H

#include <deque>
#include <stack>
#include <vector>

class ICalculator;
class INode;

// Ownership helpers of the parser, internal to the library. A parse can fail
// at almost any point with an int error code; these guards make sure that no
// node made so far outlives the failure.
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

}  // namespace vexa_parser

#endif
