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

// A node whose subtree is complete, rendered from its children's texts.
struct Pending {
    TreeNodeInfo info;
    std::vector<std::wstring> parts;
};

std::wstring Render(const Pending& p)
{
    const TreeNodeInfo& info = p.info;
    switch (info.kind) {
    case NodeKind::kOperator: {
        std::wstring text = p.parts.empty() ? std::wstring() : p.parts[0];
        text += info.symbol;
        return p.parts.size() > 1 ? text + p.parts[1] : text;
    }
    case NodeKind::kCall: {
        std::wstring text = info.function + L"(";
        for (std::size_t i = 0; i < p.parts.size(); ++i)
            text += (i ? L", " : L"") + p.parts[i];
        return text + L")";
    }
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
    // The walk gives parents first; a node is rendered once its last child
    // is, which keeps deep trees off the C stack here too.
    std::vector<Pending> open;
    std::wstring result;
    WalkTree(
        root,
        [&](const TreeNodeInfo& info) {
            open.push_back(Pending{info, {}});
            while (!open.empty() && open.back().parts.size() >= static_cast<std::size_t>(open.back().info.child_count)) {
                const Pending done = std::move(open.back());
                open.pop_back();
                std::wstring text = Render(done);
                if (open.empty()) {
                    result = std::move(text);
                    break;
                }
                // Inside an operation, an operation or a negative number is
                // parenthesised; an argument stands alone.
                const bool group = done.info.kind == NodeKind::kOperator || (!text.empty() && text[0] == L'-');
                if (open.back().info.kind == NodeKind::kOperator && group)
                    text = L"(" + text + L")";
                open.back().parts.push_back(std::move(text));
            }
            return true;
        },
        names);
    return result;
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
