#ifndef VEXA_CALC_EXPRESSION_ACCESS_H
#define VEXA_CALC_EXPRESSION_ACCESS_H

#include "vexa/calc/expression.h"

// The library's own way into an Expression: its root, for the read-only
// walks and the compiled form that sit above this folder. Hosts reach the
// tree only through the Expression's public operations. Internal.
namespace vexa_calc {

struct ExpressionAccess {
    static INode* Root(const Expression& e) { return e.m_root; }
    static int Cost(const Expression& e) { return e.m_cost; }
    static std::atomic<bool>& Evaluating(Expression& e) { return e.m_evaluating; }
};

}  // namespace vexa_calc

#endif
