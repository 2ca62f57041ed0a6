#ifndef VEXA_PARSER_EVALUATION_DIAGNOSIS_H
#define VEXA_PARSER_EVALUATION_DIAGNOSIS_H

#include <string>
#include <vector>

#include "vexa/core/data.h"
#include "vexa/core/export.h"

class ICalculator;

namespace vexa {

// Why an evaluation gave no value, told by the part of the text that caused
// it rather than by the code that came out at the top.
enum class EvaluationCause {
    kNone,              // the point has a value, and no part of it lacks one
    kDivisionByZero,    // a '/' whose divisor is 0
    kRefusedCall,       // a function refused its arguments (SQRT(-1)): no value
    kShapes,            // an operator given operands of shapes it does not take
    kCallFailed,        // a call threw a code (a registered function nested too deep, in use, ...)
    kParameterWithoutValue,  // a parameter the point gave no value
    kOther,
};

struct EvaluationDiagnosis {
    EvaluationCause cause = EvaluationCause::kNone;
    int code = 0;           // the code the culprit threw; 0 when it only had no value
    int position = -1;      // the culprit in the text as typed (characters); -1 without a text
    int length = 0;
    std::wstring function;  // the refusing or failing function, upper case
    std::wstring op;        // the operator concerned: "/", "+", ... (with kRefusedCall: the one left without an operand)
    std::string operands;   // the values the culprit was given, as "(-1)" or "1 x 3 and 1 x 1"
    std::string message;    // plain English, UTF-8, one line, the position included
};

// Evaluates calc at the point (count values) again, node by node, and names
// the first part of the tree without a value: the innermost node that threw
// the code the evaluation threw, or, where the evaluation only gave a null
// value (or gave one but a strict evaluation refused it), the innermost call
// that refused its arguments. text, when given, is the text calc was parsed
// from (with the same white space), so that positions and pieces can be
// shown as typed; names name the parameters.
//
// The evaluation the diagnosis makes is Evaluate's: it is for the thread
// that may evaluate calc, and replaces calc's held parameters. What the
// calculator's Evaluate throws is unchanged; this only explains it.
VEXA_API EvaluationDiagnosis DiagnoseEvaluation(ICalculator* calc, int count, const VEXA_Data* params,
                                                const wchar_t* text = nullptr,
                                                const std::vector<std::wstring>* names = nullptr);

// For a point that has a value: every call that refused its arguments
// although each of them had a value, in the order of the tree, each told as
// DiagnoseEvaluation tells a refused call. These are the terms the
// language's arithmetic dropped (null + b is b); a strict evaluation refuses
// the point for the first of them. Empty where the point has no value (that
// is DiagnoseEvaluation's to explain) or nothing was dropped. The same
// conditions as DiagnoseEvaluation's apply.
VEXA_API std::vector<EvaluationDiagnosis> DiagnoseDroppedTerms(ICalculator* calc, int count, const VEXA_Data* params,
                                                               const wchar_t* text = nullptr,
                                                               const std::vector<std::wstring>* names = nullptr);

}  // namespace vexa

#endif
