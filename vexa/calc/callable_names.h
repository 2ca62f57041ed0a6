#ifndef VEXA_CALC_CALLABLE_NAMES_H
#define VEXA_CALC_CALLABLE_NAMES_H

#include <string>
#include <vector>

#include "vexa/core/export.h"

namespace vexa {

// The built-in functions a text can call, in the registry's order. A text
// reaches a function through its name in upper case, so the registry's
// internal entries under lower-case keys (add, cos, sin) are left out: every
// listing the library's users see (the C interface, Python, the command)
// comes from here, so they all count alike.
VEXA_API std::vector<std::wstring> CallableBuiltInNames();

// Whether a registry key can be reached from a text at all.
VEXA_API bool IsCallableName(const std::wstring& key);

}  // namespace vexa

#endif
