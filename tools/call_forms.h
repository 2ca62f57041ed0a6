#ifndef VEXA_TOOLS_CALL_FORMS_H
#define VEXA_TOOLS_CALL_FORMS_H

#include <iosfwd>
#include <string>
#include <vector>

#include "vexa/calc/call_forms.h"

namespace vexa_cli {

// Lists every name the registry knows with its call form; names given in
// `only` restrict the list (case folded). Returns the number printed; unknown
// names in `only` are reported in `unknown`.
int ListFunctions(std::ostream& out, const std::vector<std::string>& only, bool namesOnly,
                  std::vector<std::string>& unknown);

}  // namespace vexa_cli

#endif
