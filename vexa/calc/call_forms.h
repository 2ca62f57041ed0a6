#ifndef VEXA_CALC_CALL_FORMS_H
#define VEXA_CALC_CALL_FORMS_H

#include <string>

#include "vexa/core/export.h"

namespace vexa {

// How a function of the language is called. The registry knows only names;
// the argument lists and their meanings are kept here, for the messages and
// listings of the command and of the C and Python interfaces.
struct CallForm {
    const char* name;
    const char* form;     // e.g. "STEP(x, x0, h0, x1, h1)"
    const char* summary;  // one line
    int min_args;         // -1: refuses every call
    int max_args;
};

// The entry for a built-in name: an exact match first, then one with ASCII
// letters of either case; null for a name without one (a registered
// function, an unknown name).
VEXA_API const CallForm* FindCallForm(const std::wstring& name);

}  // namespace vexa

#endif
