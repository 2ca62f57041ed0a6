#include "vexa/calc/expression.h"

#include "vexa/calc/expression_access.h"
#include "vexa/calc/tree_operations.h"

using namespace vexa_calc;

Expression::Expression()
    : m_root(nullptr), m_compilable(false), m_compiled(nullptr), m_cost(0), m_evaluating(false)
{
}

Expression::~Expression()
{
    // The compiled form refers to calculators the tree holds: it goes first.
    Tree().destroyCompiled(m_compiled);
    m_compiled = nullptr;
    Tree().destroyTree(m_root);
    m_root = nullptr;
}

bool Expression::Calculate(VEXA_Data& result)
{
    if (!m_root)
        return false;
    const TreeOperations& tree = Tree();
    if (m_compilable && tree.calculateCompiled(*this, result))
        return true;
    result = tree.calculateTree(m_root);
    return result.getType() != DT_NULL;
}

ICalculator* Expression::getDerivativeCalculator(int paramIndex)
{
    if (!m_root)
        return nullptr;
    Expression* e = new Expression();
    try {
        INode* tree = nullptr;
        if (!Tree().deriveTree(m_root, e, paramIndex, tree)) {
            e->Release();
            return nullptr;
        }
        e->AdoptTree(tree);
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
        e->AdoptTree(Tree().copyTree(m_root, e));
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
    AdoptTree(root);
    m_compilable = false;
}

void Expression::AdoptTree(INode* root)
{
    ExpressionAccess::SetFastPath(*this, nullptr);
    Tree().destroyCompiled(m_compiled);
    m_compiled = nullptr;
    if (root != m_root)
        Tree().destroyTree(m_root);
    m_root = root;
    m_compilable = root != nullptr;
    m_cost = Tree().treeCost(root);
}

void Expression::SetName(VEXA_WString& name)
{
    m_name = name;
}

void Expression::Dump(std::vector<std::wstring>& lines)
{
    if (m_root)
        Tree().dumpTree(m_root, lines);
}

void Expression::Print()
{
    if (m_root)
        Tree().printTree(m_root);
}
