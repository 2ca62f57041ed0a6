#ifndef VEXA_CALC_EXPRESSION_H
#define VEXA_CALC_EXPRESSION_H

#include <atomic>
#include <string>
#include <vector>

#include "vexa/calc/icalculator.h"

class INode;

namespace vexa_calc {
struct CompiledRoot;
struct ExpressionAccess;
}

// The calculator the parser hands out: owns the root of an expression tree.
//
// getDerivativeCalculator builds a new expression tree, which on some legal
// texts grows fast with the depth of the original: exponentially for nested
// MAX/MIN (each level repeats a derivative), quadratically for chains of
// powers (each level copies the whole power node). Building stops after 1,000,000 nodes; the call then
// returns null, as for an expression without a root. Hard errors of the
// derivative rules (the int 1000) and exhausted memory pass to the caller.
// Copy and getDerivativeCalculator of an expression without a root return
// null.
class VEXA_API Expression : public ICalculator {
public:
    Expression();
    ICalculator* getDerivativeCalculator(int paramIndex) override;
    ~Expression() override;

    Expression* Copy();
    void SetRoot(INode* root);
    void SetName(VEXA_WString& name);
    void Dump(std::vector<std::wstring>& lines);
    void Print();

protected:
    bool Calculate(VEXA_Data& result) override;

private:
    friend struct vexa_calc::ExpressionAccess;

    // Takes root as a tree the library built, which may be compiled.
    void AdoptTree(INode* root);

    INode* m_root;
    // A tree the library built (parse, Copy, getDerivativeCalculator) cannot
    // change afterwards, so it is compiled into a flat program on its first
    // evaluation and run as that. A tree a host hands to SetRoot may still be
    // changed through its nodes and is always evaluated as a tree.
    bool m_compilable;
    vexa_calc::CompiledRoot* m_compiled;
    // How deep an evaluation of the tree goes, registered functions it calls
    // included, in the units of vexa/calc/callee.h; set with the root.
    int m_cost;
    // Set while a call of this expression as a registered function runs:
    // its held parameters belong to that call.
    std::atomic<bool> m_evaluating;
};

#endif
