#include "tools/dot_tree.h"

#include <sstream>

#include "tools/wide.h"
#include "vexa/vexa.h"

namespace vexa_cli {

namespace {

// A label as a DOT string: quotes and backslashes escaped, line breaks as \n.
std::string DotEsc(const std::string& s) {
    std::string o;
    for (char c : s) {
        if (c == '\n') {
            o += "\\n";
            continue;
        }
        if (c == '"' || c == '\\') o += '\\';
        o += c;
    }
    return o;
}

const char* CallKindText(vexa::CallKind kind) {
    switch (kind) {
    case vexa::CallKind::kBuiltIn: return "built-in";
    case vexa::CallKind::kRegistered: return "registered";
    case vexa::CallKind::kNumericDerivative: return "numeric derivative";
    default: return "call";
    }
}

// A node's label: the operator, the function, the constant or the parameter.
std::string Label(const vexa::TreeNodeInfo& n) {
    switch (n.kind) {
    case vexa::NodeKind::kOperator: return std::string(1, static_cast<char>(n.symbol == L' ' ? '?' : n.symbol));
    case vexa::NodeKind::kCall: return ToUtf8(n.function);
    case vexa::NodeKind::kConstant: return ToUtf8(vexa::ValueText(n.value));
    case vexa::NodeKind::kParameter:
        return (n.parameter_name.empty() ? std::string() : ToUtf8(n.parameter_name) + " ") + "(v:" +
               std::to_string(n.parameter) + ")";
    default: return "?";
    }
}

}  // namespace

std::string RenderDot(const std::vector<DotGraph>& graphs, const std::vector<std::wstring>& params) {
    std::ostringstream o;
    o << "digraph vexa {\n"
      << "  ordering=out;\n"
      << "  fontname=\"Helvetica\";\n"
      << "  node [fontname=\"Helvetica\"];\n";
    for (std::size_t g = 0; g < graphs.size(); ++g) {
        o << "  subgraph cluster_" << g << " {\n"
          << "    label=\"" << DotEsc(graphs[g].title) << "\";\n"
          << "    labelloc=t;\n";
        const std::string prefix = "g" + std::to_string(g) + "n";
        // The latest node seen at each depth is the parent of the next one deeper.
        std::vector<std::string> parents;
        int counter = 0;
        vexa::WalkTree(
            graphs[g].calc,
            [&](const vexa::TreeNodeInfo& n) {
                const std::string id = prefix + std::to_string(counter++);
                std::string label = Label(n), shape = "plaintext", style;
                switch (n.kind) {
                case vexa::NodeKind::kOperator:
                    shape = "circle";
                    style = ", style=filled, fillcolor=\"#fde9c9\"";
                    break;
                case vexa::NodeKind::kCall:
                    shape = "box";
                    style = n.call == vexa::CallKind::kNumericDerivative
                                ? ", style=\"rounded,filled,dashed\", fillcolor=\"#f3e0f7\""
                                : ", style=\"rounded,filled\", fillcolor=\"#d7e8fb\"";
                    if (n.call != vexa::CallKind::kBuiltIn) label += std::string("\n[") + CallKindText(n.call) + "]";
                    break;
                case vexa::NodeKind::kParameter:
                    shape = "ellipse";
                    style = ", style=filled, fillcolor=\"#d9f2d9\"";
                    label = (n.parameter_name.empty() ? std::string() : ToUtf8(n.parameter_name) + "\n") + "(v:" +
                            std::to_string(n.parameter) + ")";
                    break;
                default:
                    break;
                }
                o << "    " << id << " [label=\"" << DotEsc(label) << "\", shape=" << shape << style << "];\n";
                parents.resize(static_cast<std::size_t>(n.depth));
                if (n.depth > 0) o << "    " << parents.back() << " -> " << id << ";\n";
                parents.push_back(id);
                return true;
            },
            &params);
        o << "  }\n";
    }
    o << "}\n";
    return o.str();
}

void WriteOutline(std::ostream& o, ICalculator* calc, const std::vector<std::wstring>& params) {
    vexa::WalkTree(
        calc,
        [&o](const vexa::TreeNodeInfo& n) {
            o << std::string(2 * static_cast<std::size_t>(n.depth), ' ') << Label(n);
            if (n.kind == vexa::NodeKind::kCall) o << "  [" << CallKindText(n.call) << "]";
            if (n.kind == vexa::NodeKind::kConstant && n.value.getType() != DT_SCALAR) {
                int rows = 0, cols = 0;
                n.value.getDataInfo(rows, cols);
                o << "  [" << rows << " x " << cols << "]";
            }
            o << '\n';
            return true;
        },
        &params);
}

}  // namespace vexa_cli
