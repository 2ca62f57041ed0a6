#include "vexa/tree/variable_param.h"

#include "vexa/calc/icalculator.h"
#include "vexa/core/platform.h"
#include "vexa/tree/constant_param.h"
#include "vexa/tree/node_util.h"

VariableParam::VariableParam(ICalculator* owner, int index)
    : m_calculator(owner), m_index(index)
{
}

VariableParam::~VariableParam() {}

VEXA_Data VariableParam::Calculate()
{
    // The range test keeps getParam from throwing: a parameter the host did
    // not pass is an ordinary failure (a null value), not a hard error.
    if (!m_calculator || m_index < 0 || m_index >= m_calculator->getParamCount())
        return VEXA_Data();
    return m_calculator->getParam(m_index);
}

INode* VariableParam::Copy(ICalculator* owner)
{
    vexa_tree::ChargeNode();
    return new VariableParam(owner, m_index);
}

bool VariableParam::HasParam(int index)
{
    return m_index == index;
}

INode* VariableParam::getDerivative(ICalculator*, int index)
{
    vexa_tree::ChargeNode();
    return new ConstantParam(VEXA_Data(HasParam(index) ? 1.0 : 0.0));
}

void VariableParam::Print(int) {}

void VariableParam::Dump(std::vector<std::wstring>& lines, int level)
{
    lines.push_back(vexa_tree::DumpIndent(level) + L"v:" + vexa_platform::FormatInt(m_index));
}

INode* VariableParam::Simplify()
{
    return this;
}

int VariableParam::getNodeType()
{
    return 3;
}

void VariableParam::getVariableParams(std::vector<VariableParam*>& out)
{
    out.push_back(this);
}
