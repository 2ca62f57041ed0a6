#include "vexa/parser/vexa_parser.h"

#include <string>

#include "vexa/calc/function_factory.h"
#include "vexa/core/data.h"
#include "vexa/core/platform.h"
#include "vexa/tree/constant_param.h"
#include "vexa/tree/variable_param.h"

namespace {

struct NamedConstant {
    const wchar_t* name;
    double value;
};

const NamedConstant kNamedConstants[] = {
    {L"PI", 3.141592653589793},
    {L"RTOD", 57.29577951308232},
    {L"DTOR", 0.017453292519943295},
};

}  // namespace

VexaParser::VexaParser()
    : m_can_plot(false), m_call_depth(0), m_depths(nullptr), m_result_depth(0)
{
}

VexaParser::VexaParser(const VexaParser& other)
    : m_variable_list(other.m_variable_list), m_can_plot(other.m_can_plot),
      m_call_depth(0), m_depths(nullptr), m_result_depth(0)
{
}

VexaParser& VexaParser::operator=(const VexaParser& other)
{
    if (this != &other)
        m_variable_list = other.m_variable_list;
    m_can_plot = other.m_can_plot;
    return *this;
}

VexaParser::~VexaParser() {}

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
    names.clear();
    if (!list || !list[0])
        return true;

    std::wstring current;
    int position = 0;
    for (;;) {
        SkipSpace(position, list);
        const wchar_t c = list[position];
        if (c == L',') {
            names.push_back(VEXA_WString(current.c_str()));
            current.clear();
        } else if (IsChar(c)) {
            if (current.size() >= static_cast<std::size_t>(kListNameLength - 1))
                return false;
            current.push_back(c);
        } else {
            return false;
        }
        ++position;
        if (!list[position]) {
            names.push_back(VEXA_WString(current.c_str()));
            break;
        }
    }

    // Exact spelling on purpose: only a name written like a registry key is
    // refused, so "Sin" passes while "sin" and "SIN" do not.
    FunctionFactory* factory = FunctionFactory::getInstance();
    for (VEXA_WString& name : names) {
        if (factory->IsFunction(name))
            return false;
    }
    return true;
}

int VexaParser::getIndexOfVariable(const VEXA_WString& name)
{
    for (std::size_t i = 0; i < m_variable_list.size(); ++i) {
        if (m_variable_list[i].SameNoCase(name))
            return static_cast<int>(i);
    }
    return -1;
}

INode* VexaParser::parseVariable(ICalculator* owner, const wchar_t* name)
{
    for (const NamedConstant& constant : kNamedConstants) {
        if (vexa_platform::WcsICmp(name, constant.name) == 0)
            return new ConstantParam(VEXA_Data(constant.value));
    }
    VEXA_WString key(name);
    int index = getIndexOfVariable(key);
    if (index < 0) {
        index = static_cast<int>(m_variable_list.size());
        m_variable_list.push_back(key);
    }
    return new VariableParam(owner, index);
}
