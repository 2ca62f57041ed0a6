#include "tools/call_forms.h"

#include <ostream>

#include "tools/wide.h"
#include "vexa/calc/callable_names.h"
#include "vexa/vexa.h"

namespace vexa_cli {

int ListFunctions(std::ostream& out, const std::vector<std::string>& only, bool namesOnly,
                  std::vector<std::string>& unknown) {
    const std::vector<std::wstring> names = vexa::CallableBuiltInNames();
    std::vector<bool> found(only.size(), false);
    if (only.empty() && !namesOnly)
        out << "The language knows " << names.size()
            << " functions a text can call. Expressions match names without regard to case; call forms:\n\n";
    int printed = 0;
    for (const std::wstring& name : names) {
        bool wanted = only.empty();
        for (std::size_t i = 0; i < only.size(); ++i) {
            if (SameNoCase(name, ToWide(only[i]))) {
                wanted = true;
                found[i] = true;
            }
        }
        if (!wanted) continue;
        ++printed;
        const std::string n = ToUtf8(name);
        if (namesOnly) {
            out << n << '\n';
            continue;
        }
        const vexa::CallForm* f = vexa::FindCallForm(name);
        if (f && n == f->name) {
            out << f->form << "\n    " << f->summary << '\n';
        } else {
            out << n << "(...)\n    (no call form recorded for this name)\n";
        }
    }
    for (std::size_t i = 0; i < only.size(); ++i)
        if (!found[i]) unknown.push_back(only[i]);
    return printed;
}

}  // namespace vexa_cli
