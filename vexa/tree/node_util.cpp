#include "vexa/tree/node_util.h"

namespace vexa_tree {

namespace {
thread_local DerivativeBudgetScope* t_scope = nullptr;
}

std::wstring DumpIndent(int level)
{
    std::wstring s;
    if (level > 0)
        s.assign(static_cast<std::size_t>(level) * 10, L' ');
    return s;
}

DerivativeBudgetScope::DerivativeBudgetScope(std::size_t budget)
    : m_left(budget), m_outer(t_scope)
{
    t_scope = this;
}

DerivativeBudgetScope::~DerivativeBudgetScope()
{
    t_scope = m_outer;
}

void ChargeNode()
{
    DerivativeBudgetScope* s = t_scope;
    if (!s)
        return;
    if (s->m_left == 0)
        throw BudgetExceeded();
    --s->m_left;
}

}  // namespace vexa_tree
