#ifndef VEXA_TOOLS_DERIVATIVES_H
#define VEXA_TOOLS_DERIVATIVES_H

#include <string>
#include <vector>

#include "vexa/vexa.h"

namespace vexa_cli {

// A derivative requested on the command line: NAME, or NAME:K for the K-th.
struct DerivativeRequest {
    int index = 0;  // parameter in the final order
    int order = 1;
    bool operator==(const DerivativeRequest& o) const { return index == o.index && order == o.order; }
};

// Reads NAME or NAME:K; false with a message for an unknown name or an order
// outside 1..kMaxOrder.
bool ParseDerivativeRequest(const std::string& text, const std::vector<std::wstring>& params,
                            DerivativeRequest& out, std::string& error);

// "d/dTIME", "d2/dTIME2".
std::string DerivativeLabel(const std::vector<std::wstring>& params, const DerivativeRequest& d);

// A derivative as a host gets it from the library (getDerivativeCalculator,
// as often as the order says), and what a user should know about it.
struct HostDerivative {
    vexa::CalcRef calc;  // null when refused or when the library gave none
    std::string error;   // then: why
    // Empty when every step was symbolic; otherwise why its values are not
    // to be trusted: a central difference (step 0.001), or an argument whose
    // variation it does not follow.
    std::string mark;
};

const int kMaxOrder = 10;

// Refuses orders that would nest more central differences than make sense:
// each costs twice the evaluations of the one inside it, and each divides the
// rounding errors by its step, so beyond the third the values are noise.
HostDerivative HostDerivativeOf(ICalculator* calc, const std::vector<std::wstring>& params,
                                const DerivativeRequest& d);

}  // namespace vexa_cli

#endif
