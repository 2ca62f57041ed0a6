#include "vexa/calc/callable_names.h"

#include "vexa/calc/function_factory.h"

namespace vexa {

bool IsCallableName(const std::wstring& key)
{
    if (key.empty())
        return false;
    for (wchar_t c : key) {
        if (c >= L'a' && c <= L'z')
            return false;
    }
    return true;
}

std::vector<std::wstring> CallableBuiltInNames()
{
    std::vector<std::wstring> all;
    FunctionFactory::getInstance()->GetAllFunctionName(all);
    std::vector<std::wstring> names;
    for (std::wstring& name : all) {
        if (IsCallableName(name))
            names.push_back(std::move(name));
    }
    return names;
}

}  // namespace vexa
