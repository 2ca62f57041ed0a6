#ifndef VEXA_TOOLS_EXPLAIN_H
#define VEXA_TOOLS_EXPLAIN_H

#include <optional>
#include <string>
#include <vector>

#include "tools/values.h"

namespace vexa_cli {

// For an expression whose evaluation gave a null result: the innermost call
// that has no value although all its arguments have one, as "SQRT(@x)
// refused the argument -1 ...". Empty when no single call can be blamed.
std::string FindRefusedCall(const std::wstring& text, const std::optional<std::wstring>& list,
                            const std::vector<Assignment>& given);

}  // namespace vexa_cli

#endif
