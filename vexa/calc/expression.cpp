#include "vexa/calc/expression.h"

#include "vexa/tree/inode.h"
#include "vexa/tree/node_util.h"

Expression::Expression() : m_root(nullptr) {}

Expression::~Expression()
{
    delete m_root;
    m_root = nullptr;
}

bool Expression::Calculate(VEXA_Data& result)
{
    if (!m_root)
        return false;
    result = m_root->Calculate();
    return result.getType() != DT_NULL;
}

ICalculator* Expression::getDerivativeCalculator(int paramIndex)
{
    if (!m_root)
        return nullptr;
    Expression* e = new Expression();
    try {
        vexa_tree::DerivativeBudgetScope budget;
        e->SetRoot(m_root->getDerivative(e, paramIndex));
    } catch (const vexa_tree::BudgetExceeded&) {
        // A derivative too large to build is an ordinary failure for the
        // host, not a hard error.
        e->Release();
        return nullptr;
    } catch (...) {
        e->Release();
        throw;
    }
    return e;
}

Expression* Expression::Copy()
{
    if (!m_root)
        return nullptr;
    Expression* e = new Expression();
    try {
        e->SetRoot(m_root->Copy(e));
    } catch (...) {
        e->Release();
        throw;
    }
    return e;
}

void Expression::SetRoot(INode* root)
{
    if (root == m_root)
        return;
    delete m_root;
    m_root = root;
}

void Expression::SetName(VEXA_WString& name)
{
    m_name = name;
}

void Expression::Dump(std::vector<std::wstring>& lines)
{
    if (m_root)
        m_root->Dump(lines, 0);
}

void Expression::Print()
{
    if (m_root)
        m_root->Print(0);
}
