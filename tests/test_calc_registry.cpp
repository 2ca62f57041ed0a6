#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#if defined(__linux__)
#include <dlfcn.h>
#elif defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#endif

#include "vexa/calc/expression.h"
#include "vexa/calc/function_factory.h"

namespace {

// An expression that reports its reference count and its destruction.
class Probe : public Expression {
public:
    explicit Probe(bool* destroyed = nullptr, const char* farewell = nullptr)
        : m_destroyed(destroyed), m_farewell(farewell) {}
    ~Probe() override {
        if (m_destroyed != nullptr) *m_destroyed = true;
        if (m_farewell != nullptr) std::fputs(m_farewell, stderr);
    }
    int refs() const { return m_ref_count; }

private:
    bool* m_destroyed;
    const char* m_farewell;
};

// The registry's operations take non-const names; these take literals.
bool IsFunction(VEXA_WString name) { return FunctionFactory::getInstance()->IsFunction(name); }
ICalculator* Create(VEXA_WString name) { return FunctionFactory::getInstance()->CreateFunction(name); }
bool Register(VEXA_WString name, ICalculator* c) { return FunctionFactory::getInstance()->Register(name, c); }
bool UnRegister(VEXA_WString name) { return FunctionFactory::getInstance()->UnRegister(name); }

std::wstring NameOf(ICalculator* calc) {
    const wchar_t* text = calc->getName().getWChar_t();
    return text != nullptr ? text : L"<no text>";
}

std::vector<std::wstring> Names(bool with_registered) {
    std::vector<std::wstring> names;
    FunctionFactory* f = FunctionFactory::getInstance();
    with_registered ? f->GetAllFunctionBiFunctionName(names) : f->GetAllFunctionName(names);
    return names;
}

// Every test starts and ends with a fresh registry.
class RegistryTest : public testing::Test {
protected:
    void SetUp() override { FunctionFactory::Destroy(); }
    void TearDown() override { FunctionFactory::Destroy(); }
};

TEST_F(RegistryTest, NamesListInKeyOrder) {
    const std::vector<std::wstring> names = Names(false);
    ASSERT_EQ(names.size(), 100u);  // the table's two duplicates count once
    EXPECT_EQ(names.front(), L"ABS");
    EXPECT_EQ(std::vector<std::wstring>(names.end() - 3, names.end()),
              (std::vector<std::wstring>{L"add", L"cos", L"sin"}));
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    EXPECT_EQ(*(std::find(names.begin(), names.end(), L"ACCX") + 1), L"ACCXYZ");

    std::vector<std::wstring> twice = names;
    FunctionFactory::getInstance()->GetAllFunctionName(twice);
    EXPECT_EQ(twice.size(), 200u);
    EXPECT_TRUE(std::equal(names.begin(), names.end(), twice.begin() + 100));

    Probe* probes[] = {new Probe(), new Probe(), new Probe()};
    ASSERT_TRUE(Register(L"ZED", probes[0]));
    ASSERT_TRUE(Register(L"lower", probes[1]));
    ASSERT_TRUE(Register(L"MYF", probes[2]));
    std::vector<std::wstring> expected = names;
    expected.insert(expected.end(), {L"MYF", L"ZED", L"lower"});
    EXPECT_EQ(Names(true), expected);
    EXPECT_EQ(Names(false), names);
    for (Probe* p : probes) p->Release();
}

TEST_F(RegistryTest, LookupsAreExact) {
    for (const wchar_t* known : {L"SIN", L"STEP5", L"DX", L"add", L"sin", L"DXYZ", L"MAG"}) {
        EXPECT_TRUE(IsFunction(known));
    }
    for (const wchar_t* unknown : {L"Sin", L"ADD", L"SINX", L"abs", L"", L"TAN "}) {
        EXPECT_FALSE(IsFunction(unknown));
        EXPECT_EQ(Create(unknown), nullptr);
    }
}

TEST_F(RegistryTest, BuiltinCalculatorsAreFreshAndNamed) {
    ICalculator* a = Create(L"ABS");
    ICalculator* b = Create(L"ABS");
    ICalculator* lower = Create(L"sin");
    EXPECT_NE(a, b);
    EXPECT_EQ(NameOf(a), L"ABS");
    EXPECT_EQ(NameOf(lower), L"sin");
    EXPECT_EQ(a->getDerivativeCalculator(0), nullptr);
    EXPECT_TRUE(a->Release());  // a count of 0: the first Release destroys
    EXPECT_TRUE(b->Release());
    EXPECT_TRUE(lower->Release());
}

#if defined(__linux__)
// Only CreateFunction makes built-in calculators; hosts cannot build one.
TEST(RegistryExports, BuiltinCalculatorClassIsNotExported) {
    EXPECT_NE(dlsym(RTLD_DEFAULT, "_ZN15FunctionFactory11getInstanceEv"), nullptr);
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "_ZN14BuidInFunctionC1ER12VEXA_WStringPFbiP9VEXA_DataRS2_E"), nullptr);
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "_ZN14BuidInFunction9CalculateER9VEXA_Data"), nullptr);
}
#elif defined(_WIN32) && defined(__GNUC__)
// The same through the DLL's export table (MinGW mangles as on Linux).
TEST(RegistryExports, BuiltinCalculatorClassIsNotExported) {
    HMODULE dll = nullptr;
    ASSERT_TRUE(GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                       GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                                   reinterpret_cast<LPCWSTR>(&FunctionFactory::getInstance), &dll));
    EXPECT_NE(GetProcAddress(dll, "_ZN15FunctionFactory11getInstanceEv"), nullptr);
    EXPECT_EQ(GetProcAddress(dll, "_ZN14BuidInFunctionC1ER12VEXA_WStringPFbiP9VEXA_DataRS2_E"), nullptr);
    EXPECT_EQ(GetProcAddress(dll, "_ZN14BuidInFunction9CalculateER9VEXA_Data"), nullptr);
}
#endif

TEST_F(RegistryTest, RegisterRefusalsLeaveEverythingAlone) {
    Probe* probe = new Probe();
    for (const wchar_t* builtin : {L"SIN", L"sin", L"add"}) EXPECT_FALSE(Register(builtin, probe));
    EXPECT_FALSE(Register(L"FRESH", nullptr));
    ICalculator* abs = Create(L"ABS");  // not an expression
    EXPECT_FALSE(Register(L"FRESH", abs));
    EXPECT_EQ(NameOf(abs), L"ABS");
    EXPECT_TRUE(abs->Release());
    EXPECT_FALSE(IsFunction(L"FRESH"));
    EXPECT_EQ(Names(true).size(), 100u);
    EXPECT_EQ(probe->refs(), 0);
    EXPECT_EQ(NameOf(probe), L"<no text>");
    EXPECT_TRUE(probe->Release());
}

TEST_F(RegistryTest, RegisteredCalculatorIsNamedSharedAndHandedBack) {
    bool destroyed = false;
    Probe* probe = new Probe(&destroyed);
    Probe* other = new Probe();
    ASSERT_TRUE(Register(L"MYF", probe));
    EXPECT_EQ(probe->refs(), 1);
    EXPECT_EQ(NameOf(probe), L"MYF");
    EXPECT_FALSE(Register(L"MYF", other));
    EXPECT_EQ(NameOf(other), L"<no text>");
    EXPECT_TRUE(Register(L"myf", other));  // keys are case-sensitive
    EXPECT_FALSE(other->Release());

    ICalculator* held = Create(L"MYF");
    EXPECT_EQ(held, probe);
    EXPECT_EQ(Create(L"MYF"), probe);
    EXPECT_EQ(probe->refs(), 3);
    EXPECT_FALSE(probe->Release());

    EXPECT_FALSE(UnRegister(L"NEVER"));
    EXPECT_FALSE(UnRegister(L"SIN"));
    EXPECT_TRUE(UnRegister(L"MYF"));
    EXPECT_FALSE(UnRegister(L"MYF"));
    EXPECT_FALSE(IsFunction(L"MYF"));
    EXPECT_EQ(probe->refs(), 2);  // the registry's reference now belongs to the caller
    EXPECT_FALSE(held->Release());
    EXPECT_FALSE(probe->Release());
    EXPECT_FALSE(destroyed);
    EXPECT_TRUE(probe->Release());
    EXPECT_TRUE(destroyed);
}

TEST_F(RegistryTest, DestroyReleasesRegistrationsAndStartsAfresh) {
    bool sole_destroyed = false;
    Probe* sole = new Probe(&sole_destroyed);
    Probe* shared = new Probe();
    ASSERT_TRUE(Register(L"SOLE", sole));
    ASSERT_TRUE(Register(L"SHARED", shared));
    EXPECT_FALSE(sole->Release());  // only the registry holds it now
    ICalculator* abs = Create(L"ABS");

    FunctionFactory::Destroy();
    EXPECT_TRUE(sole_destroyed);
    EXPECT_EQ(shared->refs(), 0);
    FunctionFactory::Destroy();

    VEXA_Data arg(-3.0);  // calculators handed out before stay usable
    VEXA_Data result;
    EXPECT_TRUE(abs->Evaluate(1, &arg, result));
    EXPECT_EQ(result.getValue()[0], 3.0);
    EXPECT_TRUE(abs->Release());

    EXPECT_FALSE(IsFunction(L"SHARED"));
    EXPECT_TRUE(IsFunction(L"SIN"));
    EXPECT_EQ(Names(true).size(), 100u);
    EXPECT_TRUE(shared->Release());
}

TEST_F(RegistryTest, CopyOfTheRegistryLeavesTheSingletonIntact) {
    Probe* probe = new Probe();
    ASSERT_TRUE(Register(L"MYF", probe));
    { FunctionFactory copy(*FunctionFactory::getInstance()); }
    EXPECT_TRUE(IsFunction(L"SIN"));
    EXPECT_TRUE(IsFunction(L"MYF"));
    EXPECT_EQ(probe->refs(), 1);
    EXPECT_FALSE(probe->Release());
}

// Unloading the library (here: process exit) ends the registry as Destroy does.
TEST(RegistryUnload, ReleasesRegisteredCalculatorsAtExit) {
    EXPECT_EXIT(
        {
            Probe* probe = new Probe(nullptr, "released at unload\n");
            if (!Register(L"ATEXIT", probe)) std::abort();
            probe->Release();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "released at unload");
}

}  // namespace
