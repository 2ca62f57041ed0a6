#include "vexa/tree/tree_text.h"

#include <charconv>

#include "vexa/tree/tree_walk.h"

namespace vexa {

namespace {

std::wstring NumberText(double x)
{
    // The language has no negative zero to write: -0 would read as 0 - 0.
    if (x == 0.0)
        return L"0";
    char buffer[64];
    const std::to_chars_result end = std::to_chars(buffer, buffer + sizeof buffer, x);
    std::wstring text(buffer, end.ptr);
    // The language's exponent letter is the capital E.
    for (wchar_t& c : text) {
        if (c == L'e')
            c = L'E';
    }
    return text;
}

// A node whose text is being written: its children follow in the walk.
struct Open {
    NodeKind kind;
    wchar_t symbol;
    std::size_t children;  // as many as the node says it has
    std::size_t seen;
    bool shown;    // false inside a node whose text leaves its children out
    bool grouped;  // a parenthesis to close
};

// The text of a node without children of its own, or the start of a call.
std::wstring LeafText(const TreeNodeInfo& info)
{
    switch (info.kind) {
    case NodeKind::kCall: return info.function + L"(";
    case NodeKind::kConstant: return ValueText(info.value);
    case NodeKind::kParameter:
        return info.parameter_name.empty() ? L"v:" + std::to_wstring(info.parameter) : info.parameter_name;
    default: return L"?";
    }
}

}  // namespace

std::wstring ValueText(const VEXA_Data& value)
{
    int rows = 0, cols = 0;
    value.getDataInfo(rows, cols);
    const double* e = value.getValue();
    if (value.getType() == DT_NULL || !e || rows < 1 || cols < 1)
        return L"null";
    if (value.getType() == DT_SCALAR)
        return NumberText(e[0]);
    auto row = [&](int r) {
        std::wstring text = L"[";
        for (int c = 0; c < cols; ++c)
            text += (c ? L", " : L"") + NumberText(e[r * cols + c]);
        return text + L"]";
    };
    if (value.getType() == DT_VECTOR)
        return row(0);
    std::wstring text = L"[";
    for (int r = 0; r < rows; ++r)
        text += (r ? L", " : L"") + row(r);
    return text + L"]";
}

std::wstring TreeText(INode* root, const std::vector<std::wstring>* names)
{
    // Written in one pass as the walk goes (parents first), each character
    // once: building a node's text from its children's texts would copy a
    // text once per level above it, length times depth. The walk's heap
    // stack keeps deep trees off the C stack.
    std::vector<Open> open;
    std::wstring out;
    bool complete = false;
    // Closes every node whose last child has been written.
    auto close = [&]() {
        while (!open.empty() && open.back().seen >= open.back().children) {
            const Open done = open.back();
            open.pop_back();
            if (done.shown) {
                if (done.kind == NodeKind::kOperator && done.children == 1)
                    out += done.symbol;
                else if (done.kind == NodeKind::kCall)
                    out += L')';
                if (done.grouped)
                    out += L')';
            }
            if (open.empty())
                complete = true;
        }
    };
    WalkTree(
        root,
        [&](const TreeNodeInfo& info) {
            bool shown = true, inOperation = false;
            if (!open.empty()) {
                Open& parent = open.back();
                const std::size_t index = parent.seen++;
                shown = parent.shown;
                if (parent.kind == NodeKind::kOperator) {
                    // An operation shows its first two operands only.
                    shown = shown && index < 2;
                    inOperation = true;
                    if (shown && index == 1)
                        out += parent.symbol;
                } else if (parent.kind == NodeKind::kCall) {
                    if (shown && index > 0)
                        out += L", ";
                } else {
                    shown = false;
                }
            }
            const std::size_t children = static_cast<std::size_t>(info.child_count);
            bool grouped = false;
            if (info.kind == NodeKind::kOperator) {
                // Inside an operation, an operation is parenthesised.
                grouped = shown && inOperation;
                if (grouped)
                    out += L'(';
                if (shown && children == 0)
                    out += info.symbol;
            } else if (shown) {
                // So is a negative number; an argument stands alone.
                const std::wstring text = LeafText(info);
                grouped = inOperation && !text.empty() && text[0] == L'-';
                if (grouped)
                    out += L'(';
                out += text;
            }
            open.push_back(Open{info.kind, info.symbol, children, 0, shown, grouped});
            close();
            return !complete;
        },
        names);
    if (!complete)
        out.clear();
    return out;
}

std::wstring TreeText(ICalculator* calc, const std::vector<std::wstring>* names)
{
    std::wstring result;
    // The calculator's root, through the walk's own look-up.
    WalkTree(
        calc,
        [&](const TreeNodeInfo& info) {
            result = TreeText(info.node, names);
            return false;
        },
        names);
    return result;
}

}  // namespace vexa
