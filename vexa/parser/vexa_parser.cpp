#include "vexa/parser/vexa_parser.h"

#include <algorithm>
#include <memory>

#include "vexa/calc/call_errors.h"
#include "vexa/calc/callee.h"
#include "vexa/calc/expression.h"
#include "vexa/calc/expression_access.h"
#include "vexa/core/data.h"
#include "vexa/core/platform.h"
#include "vexa/parser/parse_guard_internal.h"
#include "vexa/tree/constant_param.h"
#include "vexa/tree/operater_node.h"

namespace {

const double kDegreesToRadians = 0.017453292519943295;
const double kRadiansToDegrees = 57.29577951308232;

// Rows: operator on top of the stack; columns: incoming operator, both in
// getIndexOfSym order (+ - * / ( ) ! @ ^ %). 1 reduce, -1 push, 0 the
// parentheses match, 2 error.
const int kPrecedence[10][10] = {
    {1, 1, -1, -1, -1, 1, -1, -1, -1, -1},
    {1, 1, -1, -1, -1, 1, -1, -1, -1, -1},
    {1, 1, 1, 1, -1, 1, -1, -1, -1, 1},
    {1, 1, 1, 1, -1, 1, -1, -1, -1, 1},
    {-1, -1, -1, -1, -1, 0, -1, -1, -1, -1},
    {2, 2, 2, 2, 2, 2, 2, 2, 2, 2},
    {1, 1, 1, 1, -1, 1, -1, -1, 1, 1},
    {1, 1, 1, 1, -1, 1, -1, -1, -1, 1},
    {1, 1, 1, 1, -1, 1, -1, -1, -1, 1},
    {1, 1, 1, 1, -1, 1, -1, -1, -1, 1},
};

// Length of a text, but never looking further than limit characters: a host
// may hand us a huge text that we are going to refuse anyway.
int BoundedLength(const wchar_t* text, int limit)
{
    int n = 0;
    while (n < limit && text[n])
        ++n;
    return n;
}

}  // namespace

// Every text within the parser's own limits must stay within the depth an
// evaluation may reach; only the registered functions a text calls can take
// it further.
static_assert(vexa_calc::kMaxCost >= VexaParser::kMaxTreeDepth * vexa_calc::kNodeCost +
                                         VexaParser::kMaxCallDepth * (vexa_calc::kCallCost - vexa_calc::kNodeCost),
              "the evaluation depth limit must admit every text the parser's limits admit");

namespace {

// The tree parsed into e, counting the trees of the registered functions it
// calls, must be evaluable within the stack guarantee; otherwise e is left
// without a root, as after any failed parse.
void RefuseTooDeep(Expression* e)
{
    if (vexa_calc::ExpressionAccess::Cost(*e) > vexa_calc::kMaxCost) {
        e->SetRoot(nullptr);
        throw vexa::kCallsTooDeep;
    }
}

}  // namespace

bool VexaParser::parse(const wchar_t* expression, wchar_t* paramNames, ICalculator** out)
{
    m_variable_list.clear();
    m_can_plot = true;
    m_call_depth = 0;
    if (!InitVariableList(paramNames, m_variable_list))
        return false;

    Expression* result = new Expression();
    if (!out) {
        // Nobody would own the expression; parse all the same so that errors
        // and the name list are reported, then give it back.
        try {
            result->SetRoot(parseExpression(result, expression));
            RefuseTooDeep(result);
        } catch (...) {
            result->Release();
            throw;
        }
        result->Release();
        return true;
    }
    *out = result;
    result->SetRoot(parseExpression(result, expression));
    RefuseTooDeep(result);
    return true;
}

bool VexaParser::canPlot()
{
    return m_can_plot;
}

INode* VexaParser::parseExpression(ICalculator* owner, const wchar_t* text)
{
    if (!text)
        text = L"";
    if (BoundedLength(text, kWorkLength) >= kWorkLength)
        throw 0;

    // Heap buffers: calls nest by recursion through here, and two fixed
    // buffers per level would otherwise eat 24 KiB of stack a level.
    std::unique_ptr<wchar_t[]> work(new wchar_t[kWorkLength]);
    std::unique_ptr<wchar_t[]> token(new wchar_t[kTokenLength]);
    PreParse(text, work.get());
    const int length = static_cast<int>(lengthAfterTrimmingTailWhite(work.get(), true));
    if (length == 0)
        throw 0;

    OperatorStack operators;
    OperandStack operands;
    vexa_parser::OperandGuard guard(operands);
    std::vector<int> depths;
    vexa_parser::DepthStackScope depthScope(m_depths, &depths);
    int position = 0;
    while (position < length) {
        const int start = position;
        const int kind = getNextToken(position, work.get(), token.get());
        switch (kind) {
        case 1: {
            const wchar_t incoming = token[0];
            bool done = false;
            while (!operators.empty() && !done) {
                switch (Precede(operators.top(), incoming)) {
                case -1:
                    operators.push(incoming);
                    done = true;
                    break;
                case 0:
                    operators.pop();
                    done = true;
                    break;
                case 1:
                    Operate(operators, operands);
                    break;
                default:
                    throw position;
                }
            }
            // A ')' without its '(' is dropped on purpose.
            if (!done && incoming != L')')
                operators.push(incoming);
            break;
        }
        case 2:
            if (m_call_depth >= kMaxCallDepth)
                throw start;
            operands.push(nullptr);
            operands.top() = parseFunction(owner, token.get());
            if (m_result_depth > kMaxTreeDepth)
                throw 0;
            depths.push_back(m_result_depth);
            break;
        case 3:
            operands.push(nullptr);
            operands.top() = parseVariable(owner, token.get());
            if (!operands.top())
                throw position;
            depths.push_back(1);
            break;
        case 0: {
            const double value = parseConstant(token.get());
            operands.push(nullptr);
            operands.top() = new ConstantParam(VEXA_Data(value));
            depths.push_back(1);
            break;
        }
        default:
            throw position;
        }
    }
    while (!operators.empty())
        Operate(operators, operands);
    if (operands.size() != 1)
        throw 0;
    INode* root = operands.top();
    operands.pop();
    m_result_depth = depths.back();
    return root;
}

void VexaParser::Operate(OperatorStack& operators, OperandStack& operands)
{
    if (operators.empty())
        throw 0;
    wchar_t op = operators.top();
    operators.pop();
    if (operands.empty())
        throw 0;
    std::unique_ptr<INode> right(operands.top());
    operands.pop();
    int depth = PopDepth();
    std::unique_ptr<INode> left;
    if (op == L'!' || op == L'@') {
        // Unary signs become 0 + x and 0 - x; the tree has no unary node.
        left.reset(new ConstantParam(VEXA_Data(0.0)));
        op = (op == L'!') ? L'+' : L'-';
    } else {
        if (operands.empty())
            throw 0;
        left.reset(operands.top());
        operands.pop();
        depth = std::max(depth, PopDepth());
    }
    ++depth;
    if (depth > kMaxTreeDepth)
        throw 0;
    operands.push(nullptr);
    operands.top() = Operate(left.release(), op, right.release());
    if (m_depths)
        m_depths->push_back(depth);
}

INode* VexaParser::Operate(INode* left, wchar_t op, INode* right)
{
    vexa::OperatorKind kind;
    switch (op) {
    case L'+': kind = vexa::kAdd; break;
    case L'-': kind = vexa::kSub; break;
    case L'*': kind = vexa::kMul; break;
    case L'/': kind = vexa::kDiv; break;
    case L'%': kind = vexa::kCross; break;
    case L'^': kind = vexa::kPow; break;
    default:
        // Only an unmatched '(' gets here.
        delete left;
        delete right;
        throw 0;
    }
    try {
        return new OperaterNode(kind, left, right);
    } catch (...) {
        delete left;
        delete right;
        throw;
    }
}

int VexaParser::PopDepth()
{
    if (!m_depths || m_depths->empty())
        return 1;
    const int depth = m_depths->back();
    m_depths->pop_back();
    return depth;
}

int VexaParser::Precede(wchar_t top, wchar_t incoming)
{
    const int row = getIndexOfSym(top);
    const int col = getIndexOfSym(incoming);
    if (row < 0 || col < 0)
        return 2;
    return kPrecedence[row][col];
}

int VexaParser::getIndexOfSym(wchar_t op)
{
    switch (op) {
    case L'+': return 0;
    case L'-': return 1;
    case L'*': return 2;
    case L'/': return 3;
    case L'(': return 4;
    case L')': return 5;
    case L'!': return 6;
    case L'@': return 7;
    case L'^': return 8;
    case L'%': return 9;
    default: return -1;
    }
}

double VexaParser::parseConstant(const wchar_t* token)
{
    // The conversion stops at the suffix letter, so the whole token can be
    // handed over.
    const double value = vexa_platform::WToF(token);
    for (const wchar_t* p = token; *p; ++p) {
        if (*p == L'D' || *p == L'd')
            return value * kDegreesToRadians;
        if (*p == L'R' || *p == L'r')
            return value * kRadiansToDegrees;
    }
    return value;
}
