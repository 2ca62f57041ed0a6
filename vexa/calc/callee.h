#ifndef VEXA_CALC_CALLEE_H
#define VEXA_CALC_CALLEE_H

#include "vexa/core/data.h"

class ICalculator;

// How a tree calls the calculator of a function, and how deep such calls go.
// Internal to the library: the tree's function nodes, the parser's test
// evaluation and the central-difference calculator call functions through
// CallFunction, and so must every other evaluation that calls a function's
// calculator (a compiled program's calls, for one).
namespace vexa_calc {

// Every operation on a tree recurses once per level, and an evaluation also
// continues into the trees of the registered functions it calls. Depth is
// counted in units of about 256 bytes of stack, the most an optimised build
// needs per unit (x86-64, measured): a leaf or operator level is one unit, a
// call level four (its frame holds the argument values), entering a
// registered expression one more, and each central-difference wrapper five
// (it holds four values of its own and evaluates what it wraps).
constexpr int kNodeCost = 1;
constexpr int kCallCost = 4;
constexpr int kEntryCost = 1;
constexpr int kStepCost = 5;

// The deepest evaluation the library admits: what the parser's own limits
// allow one text (2100 levels, of which at most 100 are calls), so no text
// that calls no registered function is ever refused for it. About 600 KiB
// of evaluation, 770 KiB to build a derivative, within a 1 MiB stack.
constexpr int kMaxCost = 2400;

// The units that evaluating function adds below the call node that calls
// it: the cost of a registered expression's tree and the wrappers around
// it; 0 for a built-in. Never more than kMaxCost + 1, which reads as too deep.
int CalleeCost(ICalculator* function);

// function->Evaluate(count, args, result), guarded for registered
// expressions. Throws vexa::kFunctionInUse when the expression is being
// evaluated already (another thread, or a loop through itself), and
// vexa::kCallsTooDeep when the thread's stack has no room for its tree.
// Built-in calls go straight through, at the cost of one type test.
bool CallFunction(ICalculator* function, int count, VEXA_Data* args, VEXA_Data& result);

}  // namespace vexa_calc

#endif
