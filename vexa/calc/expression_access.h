#ifndef VEXA_CALC_EXPRESSION_ACCESS_H
#define VEXA_CALC_EXPRESSION_ACCESS_H

#include "vexa/calc/expression.h"

// The library's own way into an Expression: its root, for the read-only
// walks and the compiled form that sit above this folder, and the hand-over
// of a tree the library built. Hosts reach the tree only through the
// Expression's public operations. Internal.
namespace vexa_calc {

struct ExpressionAccess {
    static INode* Root(const Expression& e) { return e.m_root; }
    // The parser's way to hand over the tree it built.
    static void AdoptTree(Expression& e, INode* root) { e.AdoptTree(root); }
    static CompiledRoot*& Compiled(Expression& e) { return e.m_compiled; }
    // Whether e may run as a program; the tests turn it off to compare a
    // program with the tree it came from.
    static bool Compilable(const Expression& e) { return e.m_compilable; }
    static void SetCompilable(Expression& e, bool on)
    {
        e.m_compilable = on && e.m_root;
        if (!e.m_compilable)
            e.m_fast_path = nullptr;
    }
    static void SetFastPath(Expression& e, ICalculator::FastEvaluate f) { e.m_fast_path = f; }
    static bool EvaluateLong(Expression& e, int count, VEXA_Data* params, VEXA_Data& result)
    {
        return e.EvaluateLong(count, params, result);
    }
    // Offsets of the held parameters within a calculator, for code that
    // reads them directly.
    static int ParamCountOffset(Expression& e) { return Offset(e, &e.m_param_count); }
    static int ParamsOffset(Expression& e) { return Offset(e, &e.m_params); }
    // Whether e's tree was compiled into a program (known after its first
    // evaluation).
    static bool RunsCompiled(const Expression& e) { return e.m_fast_path != nullptr; }
    // The one-step evaluation e's Evaluate takes: it changes once e's
    // program has become machine code.
    static ICalculator::FastEvaluate FastPath(const Expression& e) { return e.m_fast_path; }
    // The held parameters, read without a call into the exported accessors.
    static int ParamCount(const Expression& e) { return e.m_param_count; }
    static VEXA_Data* Params(const Expression& e) { return e.m_params; }
    static int Cost(const Expression& e) { return e.m_cost; }
    static std::atomic<bool>& Evaluating(Expression& e) { return e.m_evaluating; }

private:
    static int Offset(Expression& e, const void* field)
    {
        const ICalculator& base = e;
        return static_cast<int>(static_cast<const char*>(field) - reinterpret_cast<const char*>(&base));
    }
};

}  // namespace vexa_calc

#endif
