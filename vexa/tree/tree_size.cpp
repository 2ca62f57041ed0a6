#include "vexa/tree/tree_size.h"

#include <string>
#include <typeinfo>
#include <vector>

#include "vexa/calc/expression.h"
#include "vexa/calc/expression_access.h"
#include "vexa/core/platform.h"
#include "vexa/tree/function_node.h"
#include "vexa/tree/operater_node.h"

namespace vexa {

TreeSize MeasureTree(ICalculator* calc)
{
    TreeSize size;
    Expression* e = dynamic_cast<Expression*>(calc);
    INode* root = e ? vexa_calc::ExpressionAccess::Root(*e) : nullptr;
    if (!root)
        return size;

    // Each node's line is its level's indentation followed by its own text,
    // exactly as the node classes' Dump writes it.
    constexpr std::uint64_t kIndent = 10;
    struct Pending {
        INode* node;
        std::uint64_t level;
    };
    std::vector<Pending> todo{{root, 0}};
    std::vector<std::wstring> own;
    while (!todo.empty()) {
        const Pending p = todo.back();
        todo.pop_back();
        INode* n = p.node;
        const std::type_info& type = typeid(*n);
        if (type == typeid(OperaterNode)) {
            OperaterNode* op = static_cast<OperaterNode*>(n);
            for (INode* child : {op->m_left, op->m_right})
                if (child)
                    todo.push_back({child, p.level + 1});
            size.nodes += 1;
            size.dumpChars += p.level * kIndent + 1;
        } else if (type == typeid(FunctionNode)) {
            FunctionNode* call = static_cast<FunctionNode*>(n);
            for (int i = 0; call->m_args && i < call->m_arg_count; ++i)
                if (call->m_args[i])
                    todo.push_back({call->m_args[i], p.level + 1});
            std::uint64_t name = 0;
            if (call->m_function) {
                const wchar_t* text = call->m_function->getName().getWChar_t();
                name = text ? vexa_platform::WLen(text) : 4;  // "NULL"
            }
            size.nodes += 1;
            size.dumpChars += p.level * kIndent + name;
        } else {
            // Leaves, and classes a host derived: their own dump at level 0,
            // shifted to this level. A leaf's text needs its value formatted,
            // which only the node itself knows how to do.
            own.clear();
            n->Dump(own, 0);
            for (const std::wstring& line : own)
                size.dumpChars += p.level * kIndent + line.size();
            size.nodes += own.size();
        }
        if (p.level + 1 > size.depth)
            size.depth = p.level + 1;
    }
    return size;
}

}  // namespace vexa
