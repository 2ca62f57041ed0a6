#include "tools/explain.h"

#include "tools/call_forms.h"
#include "tools/values.h"
#include "tools/wide.h"
#include "vexa/vexa.h"

namespace vexa_cli {

namespace {

// The value of a subtree with the parameters of the latest Evaluate; null
// when it has none or throws.
VEXA_Data ValueOf(INode* node) {
    try {
        return node->Calculate();
    } catch (int) {
        return VEXA_Data();
    }
}

}  // namespace

std::string FindRefusedCall(ICalculator* calc, const std::vector<std::wstring>& params) {
    std::vector<vexa::TreeNodeInfo> nodes;
    vexa::WalkTree(calc, [&nodes](const vexa::TreeNodeInfo& info) {
        nodes.push_back(info);
        return true;
    });
    // Parents come before their children, so from the back the first call
    // found is an innermost one.
    for (std::size_t i = nodes.size(); i-- > 0;) {
        const vexa::TreeNodeInfo& call = nodes[i];
        if (call.kind != vexa::NodeKind::kCall || ValueOf(call.node).getType() != DT_NULL) continue;
        std::string args;
        bool argsOk = true;
        // The arguments are the nodes one level deeper up to the call's end.
        for (std::size_t j = i + 1; j < nodes.size() && nodes[j].depth > call.depth && argsOk; ++j) {
            if (nodes[j].depth != call.depth + 1) continue;
            const VEXA_Data v = ValueOf(nodes[j].node);
            argsOk = v.getType() != DT_NULL;
            args += (args.empty() ? "" : ", ") + FormatValue(v);
        }
        if (!argsOk) continue;
        const CallForm* f = FindCallForm(call.function);
        return ToUtf8(vexa::TreeText(call.node, &params)) + " has no value: " + ToUtf8(call.function) +
               " refused the argument" + (call.child_count == 1 ? " " : "s ") + "(" + args + ")" +
               (f ? std::string(" [") + f->form + ": " + f->summary + "]" : std::string());
    }
    return std::string();
}

}  // namespace vexa_cli
