#ifndef VEXA_TREE_NODE_UTIL_H
#define VEXA_TREE_NODE_UTIL_H

#include <cstddef>
#include <string>

class FunctionNode;

// Internal helpers shared by the node classes; not part of the host interface.
namespace vexa_tree {

// Indentation of a dump line: ten blanks per level, nothing for level <= 0.
std::wstring DumpIndent(int level);

// Derivative trees can grow very large on legal texts: exponentially for
// nested MAX/MIN (which repeat a derivative), quadratically for power chains
// (which copy the whole power node at every level). While
// a DerivativeBudgetScope is active on a thread, every node that Copy or a
// derivative rule creates is charged against it, and ChargeNode throws
// BudgetExceeded once the budget is spent. Expression::getDerivativeCalculator
// opens a scope, catches the exception and returns null. Outside any scope
// ChargeNode does nothing.
constexpr std::size_t kDerivativeNodeBudget = 1000000;

struct BudgetExceeded {};

class DerivativeBudgetScope {
public:
    explicit DerivativeBudgetScope(std::size_t budget = kDerivativeNodeBudget);
    ~DerivativeBudgetScope();
    DerivativeBudgetScope(const DerivativeBudgetScope&) = delete;
    DerivativeBudgetScope& operator=(const DerivativeBudgetScope&) = delete;

private:
    std::size_t m_left;
    DerivativeBudgetScope* m_outer;
    friend void ChargeNode();

// Whether the call's function has a symbolic derivative rule; the others are
// differentiated numerically through their first argument.
bool HasSymbolicRule(const FunctionNode& call);
};

void ChargeNode();

// Whether the call's function has a symbolic derivative rule; the others are
// differentiated numerically through their first argument.
bool HasSymbolicRule(const FunctionNode& call);

}  // namespace vexa_tree

#endif
