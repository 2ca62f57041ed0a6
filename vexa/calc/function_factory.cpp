#include "vexa/calc/function_factory.h"

#include "vexa/calc/builtins.h"
#include "vexa/calc/callee.h"
#include "vexa/calc/expression.h"
#include "vexa/calc/expression_access.h"

FunctionFactory* FunctionFactory::m_instance = nullptr;
std::map<VEXA_WString, BuildInFunctionPtr>* FunctionFactory::keywordsmap = nullptr;
std::map<VEXA_WString, ICalculator*>* FunctionFactory::m_calculator_map = nullptr;

namespace {

// The library has no start-up or shut-down call of its own, so the registry
// (and the references it holds on registered calculators) goes away with the
// library image through this object's destructor.
struct RegistryUnloader {
    ~RegistryUnloader() { FunctionFactory::Destroy(); }
};

RegistryUnloader g_registry_unloader;

}  // namespace

FunctionFactory* FunctionFactory::getInstance() {
    if (m_instance != nullptr) return m_instance;
    m_instance = new FunctionFactory();
    m_instance->init();
    return m_instance;
}

void FunctionFactory::Destroy() {
    if (m_instance == nullptr) return;
    delete m_instance;
    m_instance = nullptr;
}

FunctionFactory::FunctionFactory() {}

// The registry's state is static, but the class has a public copy
// constructor: a host-made copy going out of scope must not tear down the
// state that the singleton still serves.
FunctionFactory::~FunctionFactory() {
    if (this != m_instance) return;
    delete keywordsmap;
    keywordsmap = nullptr;
    if (m_calculator_map != nullptr) {
        for (auto& entry : *m_calculator_map) entry.second->Release();
        delete m_calculator_map;
        m_calculator_map = nullptr;
    }
}

void FunctionFactory::init() {
    InitBuildInMap();
    if (m_calculator_map == nullptr) m_calculator_map = new std::map<VEXA_WString, ICalculator*>();
}

bool FunctionFactory::InitBuildInMap() {
    delete keywordsmap;
    keywordsmap = new std::map<VEXA_WString, BuildInFunctionPtr>();
    const vexa_builtins::NameRow* rows = vexa_builtins::Table();
    for (std::size_t i = 0; i < vexa_builtins::TableSize(); ++i) {
        // insert keeps the first entry of a name listed twice.
        keywordsmap->insert(std::make_pair(VEXA_WString(rows[i].name), rows[i].function));
    }
    return true;
}

// The maps are null only on a copy that outlived Destroy; such a registry
// knows no names rather than crashing.
bool FunctionFactory::IsBuildInFunction(VEXA_WString& name) {
    return keywordsmap != nullptr && keywordsmap->find(name) != keywordsmap->end();
}

bool FunctionFactory::HasRegister(VEXA_WString& name) {
    return m_calculator_map != nullptr && m_calculator_map->find(name) != m_calculator_map->end();
}

BuildInFunctionPtr FunctionFactory::findBuidInFunction(VEXA_WString& name) {
    if (keywordsmap == nullptr) return nullptr;
    auto it = keywordsmap->find(name);
    return it == keywordsmap->end() ? nullptr : it->second;
}

bool FunctionFactory::IsFunction(VEXA_WString& name) {
    return IsBuildInFunction(name) || HasRegister(name);
}

ICalculator* FunctionFactory::CreateFunction(VEXA_WString& name) {
    if (IsBuildInFunction(name)) return new BuidInFunction(name, findBuidInFunction(name));
    if (HasRegister(name)) {
        ICalculator* calc = m_calculator_map->find(name)->second;
        calc->AddRef();
        return calc;
    }
    return nullptr;
}

// Only expressions can be registered: the registry renames what it takes,
// and naming is an Expression operation.
bool FunctionFactory::Register(VEXA_WString& name, ICalculator* calc) {
    if (IsBuildInFunction(name)) return false;
    if (HasRegister(name) || calc == nullptr) return false;
    if (m_calculator_map == nullptr) return false;
    Expression* expression = dynamic_cast<Expression*>(calc);
    if (expression == nullptr) return false;
    // Every call evaluates the expression's tree below the caller's: one too
    // deep to evaluate on its own could never be called.
    if (vexa_calc::ExpressionAccess::Cost(*expression) > vexa_calc::kMaxCost) return false;
    expression->SetName(name);
    // The entry before the reference: an insertion that runs out of memory
    // must not leave a reference that nothing gives back.
    m_calculator_map->insert(std::make_pair(name, calc));
    expression->AddRef();
    return true;
}

// The reference taken by Register is not given back here: it passes to the
// caller, who ends it with Release.
bool FunctionFactory::UnRegister(VEXA_WString& name) {
    if (!HasRegister(name)) return false;
    m_calculator_map->erase(name);
    return true;
}

void FunctionFactory::GetAllFunctionName(std::vector<std::wstring>& names) {
    if (keywordsmap == nullptr) return;
    for (const auto& entry : *keywordsmap) {
        names.push_back(static_cast<std::wstring&>(entry.first));
    }
}

void FunctionFactory::GetAllFunctionBiFunctionName(std::vector<std::wstring>& names) {
    GetAllFunctionName(names);
    if (m_calculator_map == nullptr) return;
    for (const auto& entry : *m_calculator_map) {
        names.push_back(static_cast<std::wstring&>(entry.first));
    }
}
