#include "tools/derivatives.h"

#include <algorithm>
#include <set>

#include "tools/errors.h"
#include "tools/session.h"
#include "tools/tree_nodes.h"
#include "tools/wide.h"

namespace vexa_cli {

namespace {

// Central differences nested beyond this are refused.
const int kMaxNestedDifferences = 3;

std::string Ordinal(int k) {
    const char* suffix = k % 10 == 1 && k % 100 != 11 ? "st" : k % 10 == 2 && k % 100 != 12 ? "nd"
                                                       : k % 10 == 3 && k % 100 != 13 ? "rd"
                                                                                      : "th";
    return std::to_string(k) + suffix;
}

// How one getDerivativeCalculator step treats parameter p in the tree of
// calc: the functions it differentiates by a central difference, and the
// arguments holding p that it does not follow.
void NoteStep(ICalculator* calc, int p, const std::vector<std::wstring>& params, std::set<std::string>& central,
              std::set<std::string>& blind, int& nested) {
    const TreeNodes t(calc);
    auto holds = [&](std::size_t from, std::size_t to) {
        for (std::size_t k = from; k < to; ++k)
            if (t.node(k).kind == vexa::NodeKind::kParameter && t.node(k).parameter == p) return true;
        return false;
    };
    for (std::size_t i = 0; i < t.size(); ++i) {
        const vexa::TreeNodeInfo& call = t.node(i);
        if (call.kind != vexa::NodeKind::kCall || !call.numeric_derivative) continue;
        std::wstring name = call.function;
        int wraps = 0;
        while (name.compare(0, 5, L"wrap:") == 0) {
            name = name.substr(5);
            ++wraps;
        }
        const std::vector<std::size_t> args = t.Children(i);
        for (std::size_t k = 0; k < args.size(); ++k) {
            if (!holds(args[k], t.End(args[k]))) continue;
            if (k == 0) {
                central.insert(ToUtf8(name));
                nested = std::max(nested, wraps + 1);
            } else {
                blind.insert(ToUtf8(params[static_cast<std::size_t>(p)]) + " in argument " + std::to_string(k + 1) +
                             " of " + ToUtf8(name));
            }
        }
    }
}

std::string Join(const std::set<std::string>& items) {
    std::string s;
    for (const std::string& i : items) s += (s.empty() ? "" : ", ") + i;
    return s;
}

}  // namespace

bool ParseDerivativeRequest(const std::string& text, const std::vector<std::wstring>& params,
                            DerivativeRequest& out, std::string& error) {
    std::string name = text;
    out.order = 1;
    const std::size_t colon = text.rfind(':');
    const std::size_t brace = text.rfind('}');
    if (colon != std::string::npos && (brace == std::string::npos || colon > brace) && colon + 1 < text.size() &&
        text.find_first_not_of("0123456789", colon + 1) == std::string::npos && text.size() - colon - 1 <= 3) {
        name = text.substr(0, colon);
        out.order = std::stoi(text.substr(colon + 1));
        if (out.order < 1 || out.order > kMaxOrder) {
            error = "the order of a derivative is 1 to " + std::to_string(kMaxOrder) + " (got '" + text + "')";
            return false;
        }
    }
    out.index = FindParam(params, ToWide(name));
    if (out.index >= 0) return true;
    error = "'" + name + "' is not a parameter of this expression; its parameters are: " + JoinNames(params);
    return false;
}

std::string DerivativeLabel(const std::vector<std::wstring>& params, const DerivativeRequest& d) {
    const std::string name = ToUtf8(params[static_cast<std::size_t>(d.index)]);
    if (d.order == 1) return "d/d" + name;
    const std::string k = std::to_string(d.order);
    return "d" + k + "/d" + name + k;
}

HostDerivative HostDerivativeOf(ICalculator* calc, const std::vector<std::wstring>& params,
                                const DerivativeRequest& d) {
    HostDerivative h;
    std::set<std::string> central, blind;
    vexa::CalcRef current = vexa::CalcRef::Share(calc);
    const std::string by = ToUtf8(params[static_cast<std::size_t>(d.index)]);
    for (int k = 1; k <= d.order; ++k) {
        int nested = 0;
        NoteStep(current.get(), d.index, params, central, blind, nested);
        if (nested > kMaxNestedDifferences) {
            h.error = "the " + Ordinal(d.order) + " derivative by " + by + " would nest " + std::to_string(nested) +
                      " central differences (of " + Join(central) + "): each doubles the work (2^" +
                      std::to_string(nested) + " = " + std::to_string(1 << std::min(nested, 30)) +
                      " evaluations per value) and divides the rounding errors by its step 0.002, so beyond the "
                      "third order the result is noise (the 5th derivative of POLY(x,0,1,2,3) gives -0.18, not 0)";
            return h;
        }
        int code = 0;
        vexa::CalcRef next = DerivativeOf(current.get(), d.index, code);
        if (!next) {
            h.error = "cannot differentiate by " + by + ": " +
                      (code ? DescribeThrownCode(code)
                            : std::string("the derivative tree grew beyond the library's limits (1,000,000 new "
                                          "nodes, or too deep to evaluate)"));
            return h;
        }
        current = std::move(next);
    }
    h.calc = std::move(current);
    if (!central.empty()) h.mark = "central difference (step 0.001) for " + Join(central);
    if (!blind.empty())
        h.mark += (h.mark.empty() ? "" : "; ") + std::string("blind to ") + Join(blind) +
                  " (differentiated through the first argument only)";
    return h;
}

}  // namespace vexa_cli
