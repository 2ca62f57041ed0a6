#include "vexa/tree/constant_param.h"

#include <cmath>

#include "vexa/tree/node_util.h"

ConstantParam::ConstantParam(const VEXA_Data& value) : m_value(value) {}

ConstantParam::~ConstantParam() {}

VEXA_Data ConstantParam::Calculate()
{
    return m_value;
}

INode* ConstantParam::Copy(ICalculator*)
{
    vexa_tree::ChargeNode();
    return new ConstantParam(m_value);
}

bool ConstantParam::HasParam(int)
{
    return false;
}

INode* ConstantParam::getDerivative(ICalculator*, int)
{
    // A constant's derivative is the scalar zero whatever its shape; the
    // operator rules rely on recognising it through IsZero.
    vexa_tree::ChargeNode();
    return new ConstantParam(VEXA_Data(0.0));
}

void ConstantParam::Print(int) {}

void ConstantParam::Dump(std::vector<std::wstring>& lines, int level)
{
    lines.push_back(vexa_tree::DumpIndent(level) + static_cast<std::wstring>(m_value));
}

INode* ConstantParam::Simplify()
{
    return this;
}

int ConstantParam::getNodeType()
{
    return 2;
}

void ConstantParam::getVariableParams(std::vector<VariableParam*>&) {}

bool ConstantParam::IsZero()
{
    return m_value.getType() == DT_SCALAR && std::fabs(m_value.getValue()[0]) < 1e-7;
}

bool ConstantParam::IsOne()
{
    return m_value.getType() == DT_SCALAR && std::fabs(m_value.getValue()[0] - 1.0) < 1e-7;
}
