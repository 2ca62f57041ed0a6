#include "vexa/tree/node_build.h"

#include <typeinfo>

#include "vexa/calc/function_factory.h"
#include "vexa/calc/icalculator.h"
#include "vexa/tree/constant_param.h"
#include "vexa/tree/function_node.h"
#include "vexa/tree/node_util.h"
#include "vexa/tree/operater_node.h"

namespace vexa_tree {

ArgArray::ArgArray(int count) : m_args(new INode*[count < 0 ? 0 : count]()), m_count(count < 0 ? 0 : count) {}

ArgArray::~ArgArray()
{
    if (!m_args)
        return;
    for (int i = 0; i < m_count; ++i)
        delete m_args[i];
    delete[] m_args;
}

NodePtr K(double c)
{
    ChargeNode();
    return NodePtr(new ConstantParam(VEXA_Data(c)));
}

NodePtr Op(int kind, NodePtr left, NodePtr right)
{
    ChargeNode();
    NodePtr node(new OperaterNode(kind, left.get(), right.get()));
    left.release();
    right.release();
    return node;
}

NodePtr CopyOf(INode* node, ICalculator* owner)
{
    return NodePtr(node ? node->Copy(owner) : nullptr);
}

NodePtr DerivOf(INode* node, ICalculator* owner, int index)
{
    if (!node)
        return K(0.0);
    return NodePtr(node->getDerivative(owner, index));
}

NodePtr MakeCall(vexa::CalcRef& fn, ArgArray& args)
{
    NodePtr node(new FunctionNode(fn.get(), nullptr, 0));
    FunctionNode* call = static_cast<FunctionNode*>(node.get());
    call->m_arg_count = args.count();
    call->m_args = args.release();
    fn.release();
    return node;
}

NodePtr CallWith(const wchar_t* name, NodePtr* args, int count)
{
    // Charged before the calculator exists, so a spent budget creates nothing.
    ChargeNode();
    VEXA_WString key(name);
    vexa::CalcRef fn(FunctionFactory::getInstance()->CreateFunction(key));
    ArgArray array(count);
    NodePtr node = MakeCall(fn, array);
    FunctionNode* call = static_cast<FunctionNode*>(node.get());
    for (int i = 0; i < count; ++i)
        call->m_args[i] = args[i].release();
    return node;
}

bool IsConstant(INode* node)
{
    return node && typeid(*node) == typeid(ConstantParam);
}

}  // namespace vexa_tree
