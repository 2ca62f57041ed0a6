#include "vexa/parser/vexa_parser.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "vexa/calc/calc_ref.h"
#include "vexa/calc/call_errors.h"
#include "vexa/calc/callee.h"
#include "vexa/calc/function_factory.h"
#include "vexa/calc/icalculator.h"
#include "vexa/core/data.h"
#include "vexa/core/platform.h"
#include "vexa/parser/parse_guard_internal.h"
#include "vexa/parser/parse_level.h"
#include "vexa/parser/tokenizer.h"
#include "vexa/tree/function_node.h"
#include "vexa/tree/variable_param.h"

using vexa::ParseProblem;
using vexa_parser::Fail;
using vexa_parser::Tokenizer;

namespace {

bool IsContactFunction(const wchar_t* upperName)
{
    return vexa_platform::WcsICmp(upperName, L"BISTOP") == 0 ||
           vexa_platform::WcsICmp(upperName, L"IMPACT") == 0;
}

}  // namespace

INode* VexaParser::parseFunction(ICalculator* owner, wchar_t* call)
{
    // The call comes out of one token, so its name and its argument text are
    // both bounded by the token buffer already.
    vexa_parser::Level& level = *m_level;
    const int callStart = level.token;
    int position = 0;
    Tokenizer::SkipSpace(position, call);
    std::wstring name;
    if (call[position])
        name.push_back(call[position++]);
    while (Tokenizer::IsChar(call[position]) || Tokenizer::IsDigit(call[position]))
        name.push_back(call[position++]);

    int upperLength = 0;
    std::unique_ptr<wchar_t[]> upper(Tokenizer::convertToUpper(name.c_str(), upperLength));
    if (vexa_platform::WcsICmp(upper.get(), L"IF") == 0)
        Tokenizer::pre_parseFunction_IF(call);

    Tokenizer::SkipSpace(position, call);
    if (call[position] != L'(')
        Fail(m_failure, position, ParseProblem::kFunctionWithoutArguments, callStart + position, 1, upper.get());
    ++position;
    level.argumentsAt = callStart + position;
    std::wstring arguments;
    int depth = 1;
    for (; call[position]; ++position) {
        const wchar_t c = call[position];
        if (c == L'(') {
            ++depth;
        } else if (c == L')') {
            if (--depth == 0)
                break;
        }
        arguments.push_back(c);
    }
    // For the enclosing-call chain of a failure inside an argument.
    level.function = upper.get();
    level.call = vexa_parser::Piece{callStart, position + 1};
    auto fail = [&](int code, ParseProblem problem, int count) {
        vexa_parser::Record(m_failure, code, problem, callStart, position + 1, upper.get()).count = count;
        throw code;
    };

    VEXA_WString key(upper.get());
    vexa::CalcRef calculator(FunctionFactory::getInstance()->CreateFunction(key));
    if (!calculator)
        fail(100, ParseProblem::kUnknownFunction, -1);

    std::vector<INode*> args;
    vexa_parser::ArgumentsGuard argumentsGuard(args);
    {
        vexa_parser::DepthGuard nested(m_call_depth);
        parseParams(owner, arguments.c_str(), args);
    }
    const int argumentsDepth = m_result_depth;

    // The function itself decides which calls it accepts: try it once with
    // every argument set to 1.
    const int count = static_cast<int>(args.size());
    {
        std::vector<VEXA_Data> values(args.size(), VEXA_Data(1.0));
        VEXA_Data result;
        bool accepted = false;
        try {
            accepted = vexa_calc::CallFunction(calculator.get(), count, values.data(), result);
        } catch (int code) {
            fail(code,
                 code == vexa::kCallsTooDeep     ? ParseProblem::kEvaluationTooDeep
                 : code == vexa::kFunctionInUse ? ParseProblem::kFunctionInUse
                                                : ParseProblem::kCallFailed,
                 count);
        }
        if (!accepted)
            fail(100, ParseProblem::kRefusedCall, count);
    }

    if (IsContactFunction(upper.get())) {
        m_can_plot = false;
        int resultObjects = 0;
        for (INode* arg : args) {
            std::vector<VariableParam*> leaves;
            arg->getVariableParams(leaves);
            if (leaves.size() != 1)
                continue;
            const int index = leaves[0]->m_index;
            if (index >= 0 && index < getParamsNum() &&
                m_variable_list[static_cast<std::size_t>(index)].isResultObject())
                ++resultObjects;
        }
        if (count == 0 || resultObjects != 2)
            fail(100, ParseProblem::kContactArguments, count);
    }

    INode** array = new INode*[args.size()];
    for (std::size_t i = 0; i < args.size(); ++i)
        array[i] = args[i];
    FunctionNode* node;
    try {
        node = new FunctionNode(calculator.get(), array, count);
    } catch (...) {
        delete[] array;
        throw;
    }
    argumentsGuard.Dismiss();
    calculator.release();
    m_result_depth = argumentsDepth + 1;
    return node;
}

void VexaParser::parseParams(ICalculator* owner, const wchar_t* arguments, std::vector<INode*>& args)
{
    vexa_parser::Level& level = *m_level;
    std::wstring current;
    int depth = 0;
    int deepest = 0;
    int begin = 0;  // where the current argument starts in the argument text
    auto finish = [&]() {
        if (current.empty())
            return;
        level.argument = static_cast<int>(args.size());
        level.argumentAt = level.argumentsAt + begin;
        // Reserve the slot first so the node is never held outside the list.
        args.push_back(nullptr);
        args.back() = parseExpression(owner, current.c_str());
        deepest = std::max(deepest, m_result_depth);
        current.clear();
    };
    for (const wchar_t* p = arguments; *p; ++p) {
        const wchar_t c = *p;
        if (c == L',' && depth == 0) {
            finish();
            begin = static_cast<int>(p - arguments) + 1;
            continue;
        }
        if (c == L'(')
            ++depth;
        else if (c == L')')
            --depth;
        current.push_back(c);
    }
    finish();
    m_result_depth = deepest;
}
