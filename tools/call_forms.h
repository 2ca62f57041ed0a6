#ifndef VEXA_TOOLS_CALL_FORMS_H
#define VEXA_TOOLS_CALL_FORMS_H

#include <iosfwd>
#include <string>
#include <vector>

namespace vexa_cli {

// How a function of the language is called. The registry only knows names;
// the argument lists and meanings are kept here for the user.
struct CallForm {
    const char* name;
    const char* form;     // e.g. "STEP(x, x0, h0, x1, h1)"
    const char* summary;  // one line
    int min_args;         // -1: refuses every call
    int max_args;
};

// The entry for a registry name (exact match first, then ASCII case folded);
// null when the table has none.
const CallForm* FindCallForm(const std::wstring& name);

// Lists every name the registry knows with its call form; names given in
// `only` restrict the list (case folded). Returns the number printed; unknown
// names in `only` are reported in `unknown`.
int ListFunctions(std::ostream& out, const std::vector<std::string>& only, bool namesOnly,
                  std::vector<std::string>& unknown);

}  // namespace vexa_cli

#endif
