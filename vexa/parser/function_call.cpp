#include "vexa/parser/function_call.h"

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

namespace vexa_parser {

CallText SplitCall(const wchar_t* call)
{
    CallText c;
    int position = 0;
    Tokenizer::SkipSpace(position, call);
    if (call[position])
        c.name.push_back(call[position++]);
    while (Tokenizer::IsChar(call[position]) || Tokenizer::IsDigit(call[position]))
        c.name.push_back(call[position++]);
    Tokenizer::SkipSpace(position, call);
    if (call[position] != L'(') {
        c.close = position;
        return c;
    }
    c.open = position++;
    int depth = 1;
    for (; call[position]; ++position) {
        const wchar_t ch = call[position];
        if (ch == L'(') {
            ++depth;
        } else if (ch == L')') {
            if (--depth == 0)
                break;
        }
        c.arguments.push_back(ch);
    }
    c.close = position;
    return c;
}

std::vector<ArgumentText> SplitArguments(const wchar_t* arguments)
{
    std::vector<ArgumentText> out;
    ArgumentText current{0, std::wstring()};
    int depth = 0;
    for (const wchar_t* p = arguments; *p; ++p) {
        const wchar_t c = *p;
        if (c == L',' && depth == 0) {
            out.push_back(current);
            current = {static_cast<int>(p - arguments) + 1, std::wstring()};
            continue;
        }
        if (c == L'(')
            ++depth;
        else if (c == L')')
            --depth;
        current.text.push_back(c);
    }
    out.push_back(current);
    return out;
}

bool IsContactFunction(const wchar_t* upperName)
{
    return vexa_platform::WcsICmp(upperName, L"BISTOP") == 0 ||
           vexa_platform::WcsICmp(upperName, L"IMPACT") == 0;
}

INode* ParseCall(const CallSite& site, ICalculator* owner, wchar_t* call)
{
    // The call comes out of one token, so its name and its argument text are
    // both bounded by the token buffer already.
    Level& level = site.level;
    const int callStart = level.token;
    CallText text = SplitCall(call);

    int upperLength = 0;
    std::unique_ptr<wchar_t[]> upper(Tokenizer::convertToUpper(text.name.c_str(), upperLength));
    if (vexa_platform::WcsICmp(upper.get(), L"IF") == 0) {
        // IF(x: n, z, p) is read as IF(x, n, z, p), nested calls included.
        Tokenizer::pre_parseFunction_IF(call);
        text = SplitCall(call);
    }

    if (text.open < 0)
        Fail(site.failure, text.close, ParseProblem::kFunctionWithoutArguments, callStart + text.close, 1, upper.get());
    const int position = text.close;
    level.argumentsAt = callStart + text.open + 1;
    const std::wstring& arguments = text.arguments;
    // For the enclosing-call chain of a failure inside an argument.
    level.function = upper.get();
    level.call = Piece{callStart, position + 1};
    auto fail = [&](int code, ParseProblem problem, int count) {
        Record(site.failure, code, problem, callStart, position + 1, upper.get()).count = count;
        throw code;
    };

    VEXA_WString key(upper.get());
    vexa::CalcRef calculator(FunctionFactory::getInstance()->CreateFunction(key));
    if (!calculator)
        fail(100, ParseProblem::kUnknownFunction, -1);

    std::vector<INode*> args;
    ArgumentsGuard argumentsGuard(args);
    {
        DepthGuard nested(site.callDepth);
        site.parseArguments(site.parser, owner, arguments.c_str(), args);
    }
    const int argumentsDepth = site.resultDepth;

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
        site.canPlot = false;
        int resultObjects = 0;
        for (INode* arg : args) {
            std::vector<VariableParam*> leaves;
            arg->getVariableParams(leaves);
            if (leaves.size() != 1)
                continue;
            const int index = leaves[0]->m_index;
            if (index >= 0 && static_cast<std::size_t>(index) < site.names.size() &&
                site.names[static_cast<std::size_t>(index)].isResultObject())
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
    site.resultDepth = argumentsDepth + 1;
    return node;
}

}  // namespace vexa_parser
