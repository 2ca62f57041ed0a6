// Built-ins run once per function call of every evaluation, so they must not
// touch the heap.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <vector>

#include "builtin_call.h"

namespace {
bool g_counting = false;
long g_allocations = 0;

// Out of line, so that the optimizer, seeing the replaced operator new, does
// not take free here for a mismatched deallocation.
__attribute__((noinline)) void FreeBlock(void* p) {
    std::free(p);
}
}  // namespace

void* operator new(std::size_t size) {
    if (g_counting) ++g_allocations;
    if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* p) noexcept { FreeBlock(p); }
void operator delete[](void* p) noexcept { FreeBlock(p); }
void operator delete(void* p, std::size_t) noexcept { FreeBlock(p); }
void operator delete[](void* p, std::size_t) noexcept { FreeBlock(p); }

namespace {

long AllocationsOfEvaluate(const wchar_t* name, std::vector<VEXA_Data> args) {
    VEXA_WString key(name);
    ICalculator* calc = FunctionFactory::getInstance()->CreateFunction(key);
    VEXA_Data result(1, 12);  // a heap-sized result is replaced, not reused
    g_allocations = 0;
    g_counting = true;
    calc->Evaluate(static_cast<int>(args.size()), args.data(), result);
    g_counting = false;
    calc->Release();
    return g_allocations;
}

TEST(BuiltinAllocation, ComputingCallsAllocateNothingOfTheirOwn) {
    const std::pair<const wchar_t*, std::vector<VEXA_Data>> calls[] = {
        {L"MOD", {7.0, 3.0}},
        {L"SWEEP", {2.0, 3.0, 1.0, 0.25, 3.0, 0.75, 1.0}},
        {L"BISTOP", {3.25, 2.0, 1.0, 3.0, 64.0, 2.0, 10.0, 0.5}},
        {L"CHEBY", std::vector<VEXA_Data>(33, VEXA_Data(0.5))},
        {L"FORSIN", std::vector<VEXA_Data>(34, VEXA_Data(0.5))},
        {L"MAG", {RowVector({3.0, 4.0, 12.0})}},
    };
    for (const auto& call : calls) {
        // A spline name refuses everything, so its Evaluate costs exactly
        // the calculator's own copy of the parameters.
        const long baseline = AllocationsOfEvaluate(L"AKISPL", call.second);
        ASSERT_GT(baseline, 0) << "the count does not see the library's allocations";
        EXPECT_EQ(AllocationsOfEvaluate(call.first, call.second), baseline) << call.second.size();
    }
}

}  // namespace
