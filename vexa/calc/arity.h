#ifndef VEXA_CALC_ARITY_H
#define VEXA_CALC_ARITY_H

#include <string>

#include "vexa/core/export.h"

class ICalculator;

// How many arguments a call of a function takes. The registry knows only
// names and the parser lets a function decide what it accepts; these counts
// are for the messages and the review of texts. Built-ins have theirs in
// vexa/calc/call_forms.h; a registered expression has one when the C
// interface registered it (its parameter count).
namespace vexa {

// Notes the parameter count of function, registered under name; ForgetArity
// drops it. A count is believed only while the registry still holds that
// very function under that name.
VEXA_API void NoteArity(const std::wstring& name, const ICalculator* function, int count);
VEXA_API void ForgetArity(const std::wstring& name);

// The counts a call of name (as the registry is asked, upper case) accepts;
// false when nothing is known. least > most: no call is accepted.
VEXA_API bool AcceptedCounts(const std::wstring& name, int& least, int& most, bool& builtIn);

// "STEP takes 5 arguments", "POLY takes 3 to 33 arguments"; empty when the
// counts are not known.
VEXA_API std::string TakesArguments(const std::wstring& name);

}  // namespace vexa

#endif
