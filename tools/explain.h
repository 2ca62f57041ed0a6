#ifndef VEXA_TOOLS_EXPLAIN_H
#define VEXA_TOOLS_EXPLAIN_H

#include <string>
#include <vector>

class ICalculator;

namespace vexa_cli {

// For a calculator whose latest Evaluate gave a null result: the innermost
// call that has no value although all its arguments have one, as "SQRT(x)
// has no value: SQRT refused the argument (-1) ...". Empty when no single
// call can be blamed.
std::string FindRefusedCall(ICalculator* calc, const std::vector<std::wstring>& params);

}  // namespace vexa_cli

#endif
