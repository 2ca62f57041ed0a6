#ifndef VEXA_TOOLS_EXPLAIN_H
#define VEXA_TOOLS_EXPLAIN_H

#include <string>
#include <vector>

#include "vexa/core/data.h"

class ICalculator;

namespace vexa_cli {

// The part of an expression to blame for an evaluation that went wrong.
struct Culprit {
    std::string message;  // one line; empty when nothing can be blamed
    int position = -1;    // the call in the text as typed, when a call is to blame
    int length = 0;
};

// The library's diagnosis (vexa::DiagnoseEvaluation) of a point without a
// value, with the call form of a built-in function it blames. text is the
// expression as the parser read it; values the point, in params' order.
// Empty message when the library finds no part of the tree to blame.
Culprit ExplainFailure(ICalculator* calc, const std::wstring& text, const std::vector<std::wstring>& params,
                       const std::vector<VEXA_Data>& values);
// For a point with a value: every call that refused its arguments, whose term
// the arithmetic dropped (null + b is b), as the library tells them.
std::vector<Culprit> DroppedTerms(ICalculator* calc, const std::wstring& text,
                                  const std::vector<std::wstring>& params, const std::vector<VEXA_Data>& values);
// For a value holding NaN, which the library counts as a value: the
// innermost operation that makes it, looked at in the calculator's tree with
// the values of its latest Evaluate.
Culprit ExplainNaN(ICalculator* calc, const std::wstring& text, const std::vector<std::wstring>& params);

}  // namespace vexa_cli

#endif
