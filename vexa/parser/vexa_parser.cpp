#include "vexa/parser/vexa_parser.h"

#include <algorithm>
#include <memory>

#include "vexa/calc/calc_ref.h"
#include "vexa/calc/call_errors.h"
#include "vexa/calc/callee.h"
#include "vexa/calc/expression.h"
#include "vexa/calc/expression_access.h"
#include "vexa/core/data.h"
#include "vexa/core/platform.h"
#include "vexa/parser/function_call.h"
#include "vexa/parser/name_list.h"
#include "vexa/parser/parse_guard_internal.h"
#include "vexa/parser/parse_level.h"
#include "vexa/parser/tokenizer.h"
#include "vexa/tree/constant_param.h"
#include "vexa/tree/operater_node.h"
#include "vexa/tree/variable_param.h"

using vexa::ParseProblem;
using vexa_parser::Fail;
using vexa_parser::FailureRecord;
using vexa_parser::Level;
using vexa_parser::OperandInfo;
using vexa_parser::Piece;
using vexa_parser::Record;
using vexa_parser::TokenKind;
using vexa_parser::Tokenizer;

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

OperandInfo PopOperand(Level& level)
{
    if (level.operands.empty())
        return OperandInfo{1, level.token, level.token};
    const OperandInfo info = level.operands.back();
    level.operands.pop_back();
    return info;
}

bool IsNumberStart(wchar_t c)
{
    return (c >= L'0' && c <= L'9') || c == L'.';
}

// What the writer of "1e5" or "1.5e-3" meant, with the capital E.
std::wstring ExponentHint(const wchar_t* work, Piece number, Piece name)
{
    std::wstring hint(work + number.position, static_cast<std::size_t>(number.length));
    hint += L'E';
    hint.append(work + name.position + 1, static_cast<std::size_t>(name.length - 1));
    int p = name.position + name.length;
    if (name.length == 1 && (work[p] == L'+' || work[p] == L'-')) {
        hint += work[p++];
        while (work[p] >= L'0' && work[p] <= L'9')
            hint += work[p++];
    }
    return hint;
}

}  // namespace

VexaParser::VexaParser() : m_can_plot(false), m_call_depth(0), m_level(nullptr), m_result_depth(0) {}

VexaParser::VexaParser(const VexaParser& other)
    : m_variable_list(other.m_variable_list), m_can_plot(other.m_can_plot), m_call_depth(0), m_level(nullptr),
      m_result_depth(0), m_failure(other.m_failure ? new FailureRecord(*other.m_failure) : nullptr)
{
}

VexaParser& VexaParser::operator=(const VexaParser& other)
{
    if (this != &other) {
        m_variable_list = other.m_variable_list;
        m_name_index.reset();
        m_failure.reset(other.m_failure ? new FailureRecord(*other.m_failure) : nullptr);
    }
    m_can_plot = other.m_can_plot;
    return *this;
}

VexaParser::~VexaParser() {}

// Every text within the parser's own limits must stay within the depth an
// evaluation may reach; only the registered functions a text calls can take
// it further.
static_assert(vexa_calc::kMaxCost >= VexaParser::kMaxTreeDepth * vexa_calc::kNodeCost +
                                         VexaParser::kMaxCallDepth * (vexa_calc::kCallCost - vexa_calc::kNodeCost),
              "the evaluation depth limit must admit every text the parser's limits admit");

namespace {

// The tree parsed into e, counting the trees of the registered functions it
// calls, must be evaluable within the stack guarantee; otherwise e is left
// without a root, as after any failed parse. The whole text is to blame.
void RefuseTooDeep(Expression* e, vexa_parser::FailureSlot& failure, const wchar_t* text)
{
    if (vexa_calc::ExpressionAccess::Cost(*e) > vexa_calc::kMaxCost) {
        e->SetRoot(nullptr);
        vexa_parser::FailureRecord& r = vexa_parser::Record(failure, vexa::kCallsTooDeep,
                                                            vexa::ParseProblem::kEvaluationTooDeep, 0,
                                                            static_cast<int>(vexa_platform::WLen(text)));
        r.preprocessed = false;
        throw vexa::kCallsTooDeep;
    }
}

}  // namespace

bool VexaParser::parse(const wchar_t* expression, wchar_t* paramNames, ICalculator** out)
{
    m_variable_list.clear();
    m_name_index.reset();
    m_failure.reset();
    m_can_plot = true;
    m_call_depth = 0;
    if (!InitVariableList(paramNames, m_variable_list))
        return false;

    Expression* result = new Expression();
    // Without an out-pointer nobody would own the expression; it is parsed
    // all the same so that errors and the name list are reported, then given
    // back.
    vexa::CalcRef unowned(out ? nullptr : result);
    if (out)
        *out = result;
    try {
        vexa_calc::ExpressionAccess::AdoptTree(*result, parseExpression(result, expression));
        RefuseTooDeep(result, m_failure, expression);
    } catch (int) {
        if (m_failure)
            m_failure->text = expression ? expression : L"";
        throw;
    }
    return true;
}

bool VexaParser::canPlot()
{
    return m_can_plot;
}

int VexaParser::getParamsNum()
{
    return static_cast<int>(m_variable_list.size());
}

const VEXA_WString& VexaParser::getParam(int index)
{
    return m_variable_list[static_cast<std::size_t>(index)];
}

bool VexaParser::InitVariableList(wchar_t* list, std::vector<VEXA_WString>& names)
{
    if (vexa_parser::ReadNameList(list, names, m_failure))
        return true;
    m_failure->text = list;
    return false;
}

int VexaParser::getIndexOfVariable(const VEXA_WString& name)
{
    return vexa_parser::FindName(m_variable_list, name.getWChar_t(), m_name_index);
}

INode* VexaParser::parseVariable(ICalculator* owner, const wchar_t* name)
{
    double value = 0;
    if (vexa_parser::NamedConstant(name, value))
        return new ConstantParam(VEXA_Data(value));
    VEXA_WString key(name);
    int index = getIndexOfVariable(key);
    if (index < 0) {
        index = static_cast<int>(m_variable_list.size());
        m_variable_list.push_back(key);
    }
    return new VariableParam(owner, index);
}

// A call's node is built in function_call.cpp; its arguments come back here,
// since they are expressions of this parse.
INode* VexaParser::parseFunction(ICalculator* owner, wchar_t* call)
{
    const vexa_parser::CallSite site{*m_level,      m_failure,       m_call_depth, m_result_depth,
                                     m_can_plot,    m_variable_list, this,
                                     [](void* parser, ICalculator* o, const wchar_t* arguments,
                                        std::vector<INode*>& args) {
                                         static_cast<VexaParser*>(parser)->parseParams(o, arguments, args);
                                     }};
    return vexa_parser::ParseCall(site, owner, call);
}

void VexaParser::parseParams(ICalculator* owner, const wchar_t* arguments, std::vector<INode*>& args)
{
    vexa_parser::Level& level = *m_level;
    int deepest = 0;
    for (const vexa_parser::ArgumentText& argument : vexa_parser::SplitArguments(arguments)) {
        if (argument.text.empty())
            continue;
        level.argument = static_cast<int>(args.size());
        level.argumentAt = level.argumentsAt + argument.begin;
        // Reserve the slot first so the node is never held outside the list.
        args.push_back(nullptr);
        args.back() = parseExpression(owner, argument.text.c_str());
        deepest = std::max(deepest, m_result_depth);
    }
    m_result_depth = deepest;
}

INode* VexaParser::parseExpression(ICalculator* owner, const wchar_t* text)
{
    if (!text)
        text = L"";
    Level level(m_level, text);
    try {
        return parseLevel(owner, level);
    } catch (int code) {
        // Completed on the way out of each level, so only a failed parse pays:
        // the pieces move into the text this level was given, then into the
        // enclosing level's text, which adds the call they lie in.
        FailureRecord& record = vexa_parser::RecordOrDefault(m_failure, level.token);
        record.code = code;
        if (record.preprocessed)
            vexa_parser::MapToGivenText(record, text);
        if (Level* outer = level.outer) {
            vexa_parser::ShiftPieces(record, outer->argumentAt);
            record.calls.push_back({outer->function ? outer->function : L"", outer->argument, outer->call});
        }
        throw;
    }
}

INode* VexaParser::parseLevel(ICalculator* owner, Level& level)
{
    const wchar_t* text = level.text;
    if (BoundedLength(text, kWorkLength) >= kWorkLength) {
        // Refused before pre-processing: the piece counts in the text as given.
        const int length = static_cast<int>(vexa_platform::WLen(text));
        Record(m_failure, 0, ParseProblem::kTextTooLong, kWorkLength - 1, length - (kWorkLength - 1)).preprocessed =
            false;
        throw 0;
    }

    // Heap buffers: calls nest by recursion through here, and two fixed
    // buffers per level would otherwise eat 24 KiB of stack a level.
    std::unique_ptr<wchar_t[]> work(new wchar_t[kWorkLength]);
    std::unique_ptr<wchar_t[]> token(new wchar_t[kTokenLength]);
    Tokenizer tokenizer(m_failure);
    Tokenizer::PreParse(text, work.get());
    const int length = static_cast<int>(Tokenizer::lengthAfterTrimmingTailWhite(work.get(), true));
    if (length == 0)
        Fail(m_failure, 0, ParseProblem::kEmptyText, 0, 0);
    level.work = work.get();

    OperatorStack operators;
    level.operators = &operators;
    OperandStack operands;
    vexa_parser::OperandGuard guard(operands);
    int position = 0;
    while (position < length) {
        const int start = position;
        level.token = start;
        switch (tokenizer.getNextToken(position, work.get(), token.get())) {
        case TokenKind::kOperator: {
            const wchar_t incoming = token[0];
            level.NoteToken(incoming == L'(', incoming == L')', false, start, position);
            bool done = false;
            while (!operators.empty() && !done) {
                switch (Precede(operators.back().op, incoming)) {
                case -1:
                    operators.push_back({incoming, start});
                    done = true;
                    break;
                case 0: {
                    // The group's operand now stands for the whole group.
                    const int open = operators.back().at;
                    operators.pop_back();
                    if (!level.operands.empty() && level.operands.back().start > open) {
                        level.operands.back().start = open;
                        level.operands.back().end = position;
                    }
                    done = true;
                    break;
                }
                case 1:
                    Operate(operators, operands);
                    break;
                default:
                    Fail(m_failure, position, ParseProblem::kOther, start, 1);
                }
            }
            // A ')' without its '(' is dropped on purpose.
            if (!done && incoming != L')')
                operators.push_back({incoming, start});
            break;
        }
        case TokenKind::kCall:
            level.NoteToken(true, true, false, start, position);
            if (m_call_depth >= kMaxCallDepth)
                Fail(m_failure, start, ParseProblem::kCallsTooDeep, start, position - start);
            operands.push(nullptr);
            operands.top() = parseFunction(owner, token.get());
            if (m_result_depth > kMaxTreeDepth)
                Fail(m_failure, 0, ParseProblem::kTreeTooDeep, start, position - start);
            level.operands.push_back({m_result_depth, start, position});
            break;
        case TokenKind::kName:
            level.NoteToken(true, true, true, start, position);
            operands.push(nullptr);
            operands.top() = parseVariable(owner, token.get());
            if (!operands.top())
                Fail(m_failure, position, ParseProblem::kOther, start, position - start);
            level.operands.push_back({1, start, position});
            break;
        case TokenKind::kNumber: {
            level.NoteToken(true, true, false, start, position);
            const double value = parseConstant(token.get());
            operands.push(nullptr);
            operands.top() = new ConstantParam(VEXA_Data(value));
            level.operands.push_back({1, start, position});
            break;
        }
        default:
            // The position stays on an unknown character; an open brace
            // reaches the end of the text.
            if (work[start] == L'{')
                Fail(m_failure, position, ParseProblem::kUnclosedBrace, start, position - start);
            if (level.namedParen >= 0 && level.IsOpen(level.namedParen))
                FailUnknownFunction(level, position);
            Fail(m_failure, position, ParseProblem::kUnknownCharacter, start, 1, std::wstring(1, work[start]));
        }
    }
    while (!operators.empty())
        Operate(operators, operands);
    if (operands.size() != 1)
        FailOperands(level, operands.size());
    INode* root = operands.top();
    operands.pop();
    m_result_depth = level.operands.back().depth;
    return root;
}

void VexaParser::Operate(OperatorStack& operators, OperandStack& operands)
{
    Level& level = *m_level;
    if (operators.empty())
        Fail(m_failure, 0, ParseProblem::kOther, level.token, 1);
    wchar_t op = operators.back().op;
    const int at = operators.back().at;
    operators.pop_back();
    // Left on the stack when the text ended. The operands stay on their
    // stack, whose guard frees them.
    if (op == L'(') {
        if (at == level.namedParen)
            FailUnknownFunction(level, 0);
        Fail(m_failure, 0, ParseProblem::kUnclosedParenthesis, at, 1);
    }
    if (operands.empty())
        FailMissingOperand(level, op, at, true);
    std::unique_ptr<INode> right(operands.top());
    operands.pop();
    const OperandInfo r = PopOperand(level);
    int depth = r.depth;
    int start = at;
    std::unique_ptr<INode> left;
    if (op == L'!' || op == L'@') {
        // Unary signs become 0 + x and 0 - x; the tree has no unary node.
        left.reset(new ConstantParam(VEXA_Data(0.0)));
        op = (op == L'!') ? L'+' : L'-';
    } else {
        // The operand taken may lie before the operator: then its right one is missing.
        if (operands.empty())
            FailMissingOperand(level, op, at, r.start < at);
        left.reset(operands.top());
        operands.pop();
        const OperandInfo l = PopOperand(level);
        depth = std::max(depth, l.depth);
        start = l.start;
    }
    ++depth;
    if (depth > kMaxTreeDepth)
        Fail(m_failure, 0, ParseProblem::kTreeTooDeep, start, r.end - start);
    operands.push(nullptr);
    operands.top() = Operate(left.release(), op, right.release());
    level.operands.push_back({depth, start, r.end});
}

void VexaParser::FailMissingOperand(Level& level, wchar_t op, int at, bool right)
{
    if (level.namedParen >= 0 && level.IsOpen(level.namedParen))
        FailUnknownFunction(level, 0);
    Record(m_failure, 0, ParseProblem::kMissingOperand, at, 1, std::wstring(1, op)).missingRight = right;
    throw 0;
}

void VexaParser::FailUnknownFunction(Level& level, int code)
{
    const Piece name = level.name;
    Fail(m_failure, code, ParseProblem::kUnknownFunction, name.position, name.length,
         std::wstring(level.work + name.position, static_cast<std::size_t>(name.length)));
}

void VexaParser::FailOperands(Level& level, std::size_t count)
{
    const wchar_t* work = level.work;
    if (count == 0)
        Fail(m_failure, 0, ParseProblem::kNoOperand, 0, static_cast<int>(vexa_platform::WLen(work)));
    // An operator is missing where an operand first followed another, unless
    // a name followed by '(' came first: that is a call of an unknown function.
    Piece first = level.first;
    Piece second = level.second;
    if (level.namedParen >= 0 && (second.position < 0 || level.name.position < first.position))
        FailUnknownFunction(level, 0);
    if (second.position < 0) {
        first = Piece{level.operands[0].start, level.operands[0].end - level.operands[0].start};
        second = Piece{level.operands[1].start, level.operands[1].end - level.operands[1].start};
    }
    if (IsNumberStart(work[first.position]) && work[second.position] == L'e') {
        // "1e5" reads as the number 1 followed by the name e5.
        FailureRecord& r = Record(m_failure, 0, ParseProblem::kLowerCaseExponent, second.position, second.length,
                                  ExponentHint(work, first, second));
        r.other = first;
        throw 0;
    }
    // Show whole operands: a parenthesised group rather than its '('.
    for (const OperandInfo& o : level.operands) {
        if (o.start == second.position && o.end > second.position + second.length)
            second.length = o.end - o.start;
        if (o.end == first.position + first.length && o.start < first.position)
            first = Piece{o.start, o.end - o.start};
    }
    Record(m_failure, 0, ParseProblem::kMissingOperator, second.position, second.length).other = first;
    throw 0;
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
