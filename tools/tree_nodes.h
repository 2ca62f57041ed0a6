#ifndef VEXA_TOOLS_TREE_NODES_H
#define VEXA_TOOLS_TREE_NODES_H

#include <vector>

#include "vexa/vexa.h"

namespace vexa_cli {

// A calculator's tree as the library's walk lists it, parents before
// children, with where each node's subtree ends in the list.
class TreeNodes {
public:
    explicit TreeNodes(ICalculator* calc, const std::vector<std::wstring>* names = nullptr) {
        vexa::WalkTree(calc, [this](const vexa::TreeNodeInfo& n) {
            m_nodes.push_back(n);
            return true;
        }, names);
        m_end.assign(m_nodes.size(), m_nodes.size());
        std::vector<std::size_t> open;
        for (std::size_t i = 0; i < m_nodes.size(); ++i) {
            while (!open.empty() && m_nodes[open.back()].depth >= m_nodes[i].depth) {
                m_end[open.back()] = i;
                open.pop_back();
            }
            open.push_back(i);
        }
    }

    std::size_t size() const { return m_nodes.size(); }
    const vexa::TreeNodeInfo& node(std::size_t i) const { return m_nodes[i]; }
    // One past the last node of i's subtree.
    std::size_t End(std::size_t i) const { return m_end[i]; }
    // i's operands or arguments, in order.
    std::vector<std::size_t> Children(std::size_t i) const {
        std::vector<std::size_t> out;
        for (std::size_t j = i + 1; j < m_end[i]; j = m_end[j]) out.push_back(j);
        return out;
    }

private:
    std::vector<vexa::TreeNodeInfo> m_nodes;
    std::vector<std::size_t> m_end;
};

}  // namespace vexa_cli

#endif
