#ifndef VEXA_TOOLS_SESSION_H
#define VEXA_TOOLS_SESSION_H

#include <optional>
#include <string>
#include <vector>

#include "tools/values.h"
#include "vexa/vexa.h"

namespace vexa_cli {

enum class ParseStatus { Ok, ListRejected, SyntaxError };

// An expression parsed with a host parameter list.
struct Parsed {
    ParseStatus status = ParseStatus::SyntaxError;
    std::wstring text;
    std::optional<std::wstring> list;  // the host list; none means a null list
    vexa::CalcRef calc;
    std::vector<std::wstring> params;  // final parameter order
    bool can_plot = true;
    vexa::ParseDiagnosis diagnosis;  // why it failed
};

Parsed ParseText(const std::wstring& text, const std::optional<std::wstring>& list);

// The library's review of a parsed text (ReviewText) as the checked list
// reads it: a list that parsed holds no name the described parser would join
// (spaces inside a name are refused there; a braced name keeps its own).
std::vector<vexa::TextWarning> Review(const Parsed& p);

// Outcome of one Evaluate: a value, a null result, or an int thrown.
struct EvalResult {
    bool ok = false;
    bool thrown = false;
    int code = 0;
    VEXA_Data value;
};

EvalResult EvaluateAt(ICalculator* calc, std::vector<VEXA_Data>& values);

// Derivative calculator for parameter `index`; null with `code` set when the
// library threw, null with code 0 when it gave none.
vexa::CalcRef DerivativeOf(ICalculator* calc, int index, int& code);

// Index of `name` in the final order (ASCII case folded, first match), or -1.
int FindParam(const std::vector<std::wstring>& params, const std::wstring& name);

// Values in the final order from NAME=VALUE assignments. Fails with a message
// naming every parameter that got no value.
bool BindValues(const std::vector<std::wstring>& params, const std::vector<Assignment>& given,
                std::vector<VEXA_Data>& values, std::string& error, std::vector<std::string>* unused);

std::string JoinNames(const std::vector<std::wstring>& names);

// Whether every value is a scalar, as bulk evaluation and exact gradients need.
bool AllScalar(const std::vector<VEXA_Data>& values);

}  // namespace vexa_cli

#endif
