#ifndef VEXA_TOOLS_EXPLAIN_H
#define VEXA_TOOLS_EXPLAIN_H

#include <string>
#include <vector>

class ICalculator;

namespace vexa_cli {

// The part of an expression to blame for an evaluation that went wrong.
struct Culprit {
    std::string message;  // one line; empty when nothing can be blamed
    int position = -1;    // the call in the text as typed, when a call is to blame
    int length = 0;
};

// Each looks at the calculator's tree with the values of its latest
// Evaluate, node by node; text is the expression as typed, for showing calls
// the way the user wrote them.
//
// For a null result: the innermost call that has no value although all its
// arguments have one ("SQRT(-1) has no value: SQRT refused the argument (-1)").
Culprit ExplainNull(ICalculator* calc, const std::wstring& text, const std::vector<std::wstring>& params);
// For an evaluation that threw: the innermost operation that throws while
// its operands do not, said plainly (a division by zero, a term without a
// value, shapes that do not fit).
Culprit ExplainThrow(ICalculator* calc, const std::wstring& text, const std::vector<std::wstring>& params);
// For a value holding NaN: the innermost operation that makes it.
Culprit ExplainNaN(ICalculator* calc, const std::wstring& text, const std::vector<std::wstring>& params);
// For a value that came out all the same: every call that refused its
// arguments, whose term the arithmetic dropped (null + b is b).
std::vector<Culprit> DroppedTerms(ICalculator* calc, const std::wstring& text,
                                  const std::vector<std::wstring>& params);

}  // namespace vexa_cli

#endif
