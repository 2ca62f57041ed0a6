#include "vexa/tree/operater_node.h"

#include "vexa/tree/constant_param.h"
#include "vexa/tree/node_build.h"
#include "vexa/tree/node_util.h"

using vexa_tree::Call;
using vexa_tree::CopyOf;
using vexa_tree::DerivOf;
using vexa_tree::IsConstant;
using vexa_tree::K;
using vexa_tree::NodePtr;
using vexa_tree::Op;

using namespace vexa;

wchar_t vexa::OperatorSymbol(int kind)
{
    switch (kind) {
    case kAdd: return L'+';
    case kSub: return L'-';
    case kMul: return L'*';
    case kDiv: return L'/';
    case kCross: return L'%';
    case kPow: return L'^';
    default: return L' ';
    }
}

namespace {

// Null operands only arise in nodes a host assembles by hand; they evaluate
// to a null value rather than crash.
VEXA_Data ValueOf(INode* node)
{
    return node ? node->Calculate() : VEXA_Data();
}

bool IsZeroConstant(INode* node)
{
    return IsConstant(node) && static_cast<ConstantParam*>(node)->IsZero();
}

bool IsOneConstant(INode* node)
{
    return IsConstant(node) && static_cast<ConstantParam*>(node)->IsOne();
}

}  // namespace

OperaterNode::OperaterNode(int kind, INode* left, INode* right)
    : m_kind(kind), m_left(left), m_right(right)
{
}

OperaterNode::~OperaterNode()
{
    if (m_left) {
        delete m_left;
        m_left = nullptr;
    }
    if (m_right) {
        delete m_right;
        m_right = nullptr;
    }
}

VEXA_Data OperaterNode::Calculate()
{
    VEXA_Data a = ValueOf(m_left);
    VEXA_Data b = ValueOf(m_right);
    switch (m_kind) {
    case kAdd: return a + b;
    case kSub: return a - b;
    case kMul: return a * b;
    case kDiv: return a / b;
    case kCross: return a % b;
    case kPow: return a ^ b;
    default: return VEXA_Data();
    }
}

INode* OperaterNode::Copy(ICalculator* owner)
{
    return Op(m_kind, CopyOf(m_left, owner), CopyOf(m_right, owner)).release();
}

bool OperaterNode::HasParam(int index)
{
    if (m_left && m_left->HasParam(index))
        return true;
    return m_right && m_right->HasParam(index);
}

INode* OperaterNode::getDerivative(ICalculator* owner, int index)
{
    if (!HasParam(index))
        return K(0.0).release();

    INode* L = m_left;
    INode* R = m_right;
    auto dL = [&] { return DerivOf(L, owner, index); };
    auto dR = [&] { return DerivOf(R, owner, index); };
    auto cL = [&] { return CopyOf(L, owner); };
    auto cR = [&] { return CopyOf(R, owner); };

    switch (m_kind) {
    case kAdd:
    case kSub:
        return Op(m_kind, dL(), dR()).release();

    case kMul:
        if (IsConstant(L))
            return Op(kMul, cL(), dR()).release();
        if (IsConstant(R))
            return Op(kMul, dL(), cR()).release();
        return Op(kAdd, Op(kMul, dL(), cR()), Op(kMul, cL(), dR())).release();

    case kDiv:
        return Op(kDiv, Op(kSub, Op(kMul, dL(), cR()), Op(kMul, cL(), dR())),
                  Op(kMul, cR(), cR()))
            .release();

    case kCross: {
        // The cross product is bilinear. A constant's derivative is a scalar
        // zero, which % refuses, so the term of an operand that does not
        // refer to the parameter is left out instead of multiplied by it.
        const bool inL = L && L->HasParam(index);
        const bool inR = R && R->HasParam(index);
        if (inL && inR)
            return Op(kAdd, Op(kCross, dL(), cR()), Op(kCross, cL(), dR())).release();
        if (inL)
            return Op(kCross, dL(), cR()).release();
        return Op(kCross, cL(), dR()).release();
    }

    case kPow: {
        const bool inL = L && L->HasParam(index);
        const bool inR = R && R->HasParam(index);
        if (inL && inR) {
            // f^g * (g' * LOG(f) + g * f' / f)
            NodePtr self(Copy(owner));
            return Op(kMul, std::move(self),
                      Op(kAdd, Op(kMul, dR(), Call(L"LOG", cL())),
                         Op(kDiv, Op(kMul, cR(), dL()), cL())))
                .release();
        }
        if (inL) {
            // g * f^(g - 1) * f'
            return Op(kMul, Op(kMul, cR(), Op(kPow, cL(), Op(kSub, cR(), K(1.0)))), dL())
                .release();
        }
        // LOG(f) * g' * f^g
        return Op(kMul, Op(kMul, Call(L"LOG", cL()), dR()), NodePtr(Copy(owner))).release();
    }

    default:
        return nullptr;
    }
}

void OperaterNode::Print(int) {}

void OperaterNode::Dump(std::vector<std::wstring>& lines, int level)
{
    if (m_left)
        m_left->Dump(lines, level + 1);
    std::wstring line = vexa_tree::DumpIndent(level);
    line += OperatorSymbol(m_kind);
    lines.push_back(std::move(line));
    if (m_right)
        m_right->Dump(lines, level + 1);
}

INode* OperaterNode::Simplify()
{
    if (m_left)
        m_left = m_left->Simplify();
    if (m_right)
        m_right = m_right->Simplify();

    if (m_kind != kAdd && m_kind != kSub && m_kind != kMul && m_kind != kDiv && m_kind != kPow)
        return this;

    if (IsConstant(m_left) && IsConstant(m_right)) {
        INode* folded = new ConstantParam(Calculate());
        delete this;
        return folded;
    }

    auto keepLeft = [this] {
        INode* kept = m_left;
        m_left = nullptr;
        delete this;
        return kept;
    };
    auto keepRight = [this] {
        INode* kept = m_right;
        m_right = nullptr;
        delete this;
        return kept;
    };
    auto makeConstant = [this](double c) {
        INode* k = new ConstantParam(VEXA_Data(c));
        delete this;
        return k;
    };

    switch (m_kind) {
    case kAdd:
        if (IsZeroConstant(m_left))
            return keepRight();
        if (IsZeroConstant(m_right))
            return keepLeft();
        break;
    case kSub:
        if (IsZeroConstant(m_right))
            return keepLeft();
        break;
    case kMul:
        if (IsZeroConstant(m_right))
            return makeConstant(0.0);
        if (IsOneConstant(m_right))
            return keepLeft();
        if (IsZeroConstant(m_left))
            return makeConstant(0.0);
        if (IsOneConstant(m_left))
            return keepRight();
        break;
    case kDiv:
        if (IsOneConstant(m_right))
            return keepLeft();
        break;
    case kPow:
        if (IsOneConstant(m_left))
            return makeConstant(1.0);
        if (IsZeroConstant(m_right))
            return makeConstant(1.0);
        if (IsOneConstant(m_right))
            return keepLeft();
        break;
    }
    return this;
}

int OperaterNode::getNodeType()
{
    return 0;
}

void OperaterNode::getVariableParams(std::vector<VariableParam*>& out)
{
    if (m_left)
        m_left->getVariableParams(out);
    if (m_right)
        m_right->getVariableParams(out);
}
