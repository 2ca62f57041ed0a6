#ifndef VEXA_CALC_FUNCTION_FACTORY_H
#define VEXA_CALC_FUNCTION_FACTORY_H

#include <map>
#include <string>
#include <vector>

#include "vexa/calc/buidin_function.h"
#include "vexa/core/wstring.h"

class ICalculator;

// Process-wide registry of the built-in functions and of the expressions a
// host registers under names of its own. A registered expression is one
// calculator shared by every call of its name, so its calls run one at a
// time (an overlapping call throws vexa::kFunctionInUse). Register refuses
// built-in and taken names, a null calculator, one that is no Expression,
// and an expression too deep to be called within the stack guarantee.
class VEXA_API FunctionFactory {
public:
    static FunctionFactory* getInstance();
    static void Destroy();

    bool IsFunction(VEXA_WString& name);
    ICalculator* CreateFunction(VEXA_WString& name);
    bool Register(VEXA_WString& name, ICalculator* calc);
    bool UnRegister(VEXA_WString& name);
    void GetAllFunctionName(std::vector<std::wstring>& names);
    void GetAllFunctionBiFunctionName(std::vector<std::wstring>& names);

    FunctionFactory(const FunctionFactory&) {}
    FunctionFactory& operator=(const FunctionFactory&) { return *this; }
    virtual ~FunctionFactory();

protected:
    FunctionFactory();
    void init();
    bool InitBuildInMap();
    bool IsBuildInFunction(VEXA_WString& name);
    bool HasRegister(VEXA_WString& name);
    BuildInFunctionPtr findBuidInFunction(VEXA_WString& name);

    static FunctionFactory* m_instance;
    static std::map<VEXA_WString, BuildInFunctionPtr>* keywordsmap;
    static std::map<VEXA_WString, ICalculator*>* m_calculator_map;
};

#endif
