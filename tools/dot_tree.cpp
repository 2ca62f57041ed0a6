#include "tools/dot_tree.h"

#include <sstream>

#include "tools/wide.h"

namespace vexa_cli {

namespace {

struct Line {
    int level;
    std::string text;
    bool blankOperator;
};

Line Split(const std::wstring& w) {
    std::size_t blanks = 0;
    while (blanks < w.size() && w[blanks] == L' ') ++blanks;
    Line l{static_cast<int>(blanks / 10), ToUtf8(w.substr(blanks)), false};
    // An operator of an unknown kind dumps a single blank after its indent.
    if (blanks % 10 == 1 && l.text.empty()) l.blankOperator = true;
    return l;
}

TreeNode::Kind Classify(const Line& l, int& index) {
    if (l.blankOperator) return TreeNode::Operator;
    const std::string& t = l.text;
    if (t.size() == 1 && std::string("+-*/%^").find(t[0]) != std::string::npos) return TreeNode::Operator;
    if (t.size() > 2 && t.compare(0, 2, "v:") == 0) {
        try {
            index = std::stoi(t.substr(2));
            return TreeNode::Variable;
        } catch (...) {
        }
    }
    const bool numeric = !t.empty() && (std::isdigit(static_cast<unsigned char>(t[0])) ||
                                        (t[0] == '-' && t.size() > 1 && std::isdigit(static_cast<unsigned char>(t[1]))));
    if (numeric || t == "null" || t == "vector" || t == "matrix" || t == "nan" || t == "-nan" || t == "inf" ||
        t == "-inf")
        return TreeNode::Constant;
    return TreeNode::Function;
}

struct Entry {
    std::unique_ptr<TreeNode> node;
    int level;
    bool open;  // an operator still waiting for its right operand
};

// Attaches finished subtrees to an operator above them that waits for its
// right operand: the subtree right after an operator's line is that operand.
void Settle(std::vector<Entry>& stack) {
    while (stack.size() >= 2) {
        Entry& top = stack.back();
        Entry& below = stack[stack.size() - 2];
        if (top.open || !below.open || below.level != top.level - 1) return;
        below.node->children.push_back(std::move(top.node));
        below.open = false;
        stack.pop_back();
    }
}

std::string DotEsc(const std::string& s) {
    std::string o;
    for (char c : s) {
        if (c == '"' || c == '\\') o += '\\';
        o += c;
    }
    return o;
}

void Emit(std::ostringstream& o, const TreeNode& n, const std::string& prefix, int& counter,
          const std::vector<std::wstring>& params, std::string& id) {
    id = prefix + std::to_string(counter++);
    std::string label = n.text, shape = "box", extra;
    switch (n.kind) {
    case TreeNode::Operator:
        shape = "circle";
        extra = ", style=filled, fillcolor=\"#fde9c9\"";
        if (label.empty()) label = "?";
        break;
    case TreeNode::Function:
        shape = "box";
        extra = ", style=\"rounded,filled\", fillcolor=\"#d7e8fb\"";
        break;
    case TreeNode::Variable:
        shape = "ellipse";
        extra = ", style=filled, fillcolor=\"#d9f2d9\"";
        if (n.index >= 0 && n.index < static_cast<int>(params.size()))
            label = ToUtf8(params[n.index]) + "\\n(v:" + std::to_string(n.index) + ")";
        break;
    case TreeNode::Constant:
        shape = "plaintext";
        break;
    }
    std::string esc = DotEsc(label);
    // Keep the line break written above for variables.
    for (std::size_t p = esc.find("\\\\n"); p != std::string::npos; p = esc.find("\\\\n", p)) esc.replace(p, 3, "\\n");
    o << "    " << id << " [label=\"" << esc << "\", shape=" << shape << extra << "];\n";
    for (const auto& c : n.children) {
        std::string cid;
        Emit(o, *c, prefix, counter, params, cid);
        o << "    " << id << " -> " << cid << ";\n";
    }
}

}  // namespace

std::unique_ptr<TreeNode> TreeFromDump(const std::vector<std::wstring>& lines) {
    std::vector<Entry> stack;
    for (const std::wstring& w : lines) {
        const Line l = Split(w);
        auto node = std::make_unique<TreeNode>();
        node->text = l.text;
        node->kind = Classify(l, node->index);
        if (node->kind == TreeNode::Function) {
            // Its arguments are the finished subtrees one level deeper just above.
            std::size_t first = stack.size();
            while (first > 0 && !stack[first - 1].open && stack[first - 1].level == l.level + 1) --first;
            for (std::size_t i = first; i < stack.size(); ++i) node->children.push_back(std::move(stack[i].node));
            stack.resize(first);
            stack.push_back({std::move(node), l.level, false});
            Settle(stack);
        } else if (node->kind == TreeNode::Operator) {
            if (!stack.empty() && !stack.back().open && stack.back().level == l.level + 1) {
                node->children.push_back(std::move(stack.back().node));
                stack.pop_back();
            }
            stack.push_back({std::move(node), l.level, true});
        } else {
            stack.push_back({std::move(node), l.level, false});
            Settle(stack);
        }
    }
    if (stack.size() != 1 || stack[0].open || stack[0].level != 0) return nullptr;
    return std::move(stack[0].node);
}

std::string RenderDot(const std::vector<DotGraph>& graphs, const std::vector<std::wstring>& params) {
    std::ostringstream o;
    o << "digraph vexa {\n"
      << "  ordering=out;\n"
      << "  fontname=\"Helvetica\";\n"
      << "  node [fontname=\"Helvetica\"];\n"
      << "  labelloc=b;\n"
      << "  label=\"constants show the whole-number text the library dumps for them\";\n";
    for (std::size_t g = 0; g < graphs.size(); ++g) {
        o << "  subgraph cluster_" << g << " {\n"
          << "    label=\"" << DotEsc(graphs[g].title) << "\";\n"
          << "    labelloc=t;\n";
        int counter = 0;
        std::string id;
        if (graphs[g].root) Emit(o, *graphs[g].root, "g" + std::to_string(g) + "n", counter, params, id);
        o << "  }\n";
    }
    o << "}\n";
    return o.str();
}

}  // namespace vexa_cli
