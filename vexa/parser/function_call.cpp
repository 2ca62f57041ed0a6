#include "vexa/parser/vexa_parser.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "vexa/calc/callee.h"
#include "vexa/calc/function_factory.h"
#include "vexa/calc/icalculator.h"
#include "vexa/core/data.h"
#include "vexa/core/platform.h"
#include "vexa/parser/parse_guard_internal.h"
#include "vexa/tree/function_node.h"
#include "vexa/tree/variable_param.h"

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
    int position = 0;
    SkipSpace(position, call);
    std::wstring name;
    if (call[position])
        name.push_back(call[position++]);
    while (IsChar(call[position]) || IsDigit(call[position]))
        name.push_back(call[position++]);

    int upperLength = 0;
    std::unique_ptr<wchar_t[]> upper(convertToUpper(name.c_str(), upperLength));
    if (vexa_platform::WcsICmp(upper.get(), L"IF") == 0)
        pre_parseFunction_IF(call);

    SkipSpace(position, call);
    if (call[position] != L'(')
        throw position;
    ++position;
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

    VEXA_WString key(upper.get());
    ICalculator* calculator = FunctionFactory::getInstance()->CreateFunction(key);
    if (!calculator)
        throw 100;
    vexa_parser::CalculatorGuard calculatorGuard(calculator);

    std::vector<INode*> args;
    vexa_parser::ArgumentsGuard argumentsGuard(args);
    {
        vexa_parser::DepthGuard level(m_call_depth);
        parseParams(owner, arguments.c_str(), args);
    }
    const int argumentsDepth = m_result_depth;

    // The function itself decides which calls it accepts: try it once with
    // every argument set to 1.
    const int count = static_cast<int>(args.size());
    {
        std::vector<VEXA_Data> values(args.size(), VEXA_Data(1.0));
        VEXA_Data result;
        if (!vexa_calc::CallFunction(calculator, count, values.data(), result))
            throw 100;
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
            throw 100;
    }

    INode** array = new INode*[args.size()];
    for (std::size_t i = 0; i < args.size(); ++i)
        array[i] = args[i];
    FunctionNode* node;
    try {
        node = new FunctionNode(calculator, array, count);
    } catch (...) {
        delete[] array;
        throw;
    }
    argumentsGuard.Dismiss();
    calculatorGuard.Dismiss();
    m_result_depth = argumentsDepth + 1;
    return node;
}

void VexaParser::parseParams(ICalculator* owner, const wchar_t* arguments, std::vector<INode*>& args)
{
    std::wstring current;
    int depth = 0;
    int deepest = 0;
    auto finish = [&]() {
        if (current.empty())
            return;
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
