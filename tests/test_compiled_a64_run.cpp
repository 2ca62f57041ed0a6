// Small functions written by the AArch64 emitter, placed in the library's
// executable memory and called: the bytes the assembler agreed on also do
// what the emitter's callers will count on (separate roundings of a
// multiply and an add, NaN-aware selection, constants after the code, far
// offsets through the scratch register, a loop, a call out and back with
// the frame kept). Run where the processor is AArch64 only.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <vector>

#include "vexa/compiled/aarch64/a64_emitter.h"

#if defined(__aarch64__) && defined(__linux__)
#include "vexa/core/executable_memory.h"

using namespace vexa_compiled::a64;

namespace {

std::uint64_t Bits(double v)
{
    std::uint64_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

double Halve(double v) { return v * 0.5; }

using Fn = double (*)(double, double, double, const double*, std::uint64_t);

struct Piece {
    const char* what;
    std::function<void(Emitter&)> write;
    double a, b, c;
    double expected;
};

TEST(A64Run, EmittedFunctionsGiveTheBitsOfTheirCppCounterparts)
{
    // The two roundings differ from one fused rounding here.
    const double a = 1.0 + std::ldexp(1.0, -30), b = 1.0 - std::ldexp(1.0, -30), c = -1.0;
    volatile double product = a * b;
    ASSERT_NE(Bits(product + c), Bits(std::fma(a, b, c)));
    const double nan = std::numeric_limits<double>::quiet_NaN();
    std::vector<double> memory(6000);
    for (std::size_t i = 0; i < memory.size(); ++i)
        memory[i] = 0.25 * static_cast<double>(i);
    const double sum_first_ten = 11.25;

    const Piece pieces[] = {
        {"d0 * d1 + d2", [](Emitter& e) { e.FMul(d0, d0, d1); e.FAdd(d0, d0, d2); e.Ret(); }, a, b, c, product + c},
        {"greater of two, the second where unordered",
         [](Emitter& e) { e.FCmp(d0, d1); e.FCsel(d0, d0, d1, kGt); e.Ret(); }, nan, 2.0, 0, 2.0},
        {"constant after the code",
         [](Emitter& e) { e.LdrDConst(d1, e.Constant(Bits(0.1))); e.FDiv(d0, d0, d1); e.Ret(); }, 1.0, 0, 0, 1.0 / 0.1},
        {"far offset and an index",
         [](Emitter& e) {
             e.LdrD(d0, x0, 8 * 5000);  // beyond the scaled form: through x16
             e.MovImm(x9, 7);
             e.LdrDIndex(d1, x0, x9, true);
             e.FSub(d0, d0, d1);
             e.Ret();
         },
         0, 0, 0, 1250.0 - 1.75},
        {"loop over the first ten",
         [](Emitter& e) {
             const int top = e.NewLabel();
             e.FMovFromX(d0, xzr);
             e.MovImm(x2, 0);
             e.Bind(top);
             e.LdrDIndex(d1, x0, x2, true);
             e.FAdd(d0, d0, d1);
             e.AddImm(x2, x2, 1);
             e.CmpReg(x2, x1);
             e.BCond(kLo, top);
             e.Ret();
         },
         0, 0, 0, sum_first_ten},
        {"call out with a frame",
         [](Emitter& e) {
             e.Stp(x29, x30, sp, -32, PairMode::kPreIndex);
             e.MovReg(x29, sp);
             e.StrD(d2, sp, 16);
             e.MovImm(x9, reinterpret_cast<std::uintptr_t>(&Halve));
             e.Blr(x9);
             e.LdrD(d1, sp, 16);
             e.FAdd(d0, d0, d1);
             e.Ldp(x29, x30, sp, 32, PairMode::kPostIndex);
             e.Ret();
         },
         3.0, 0, 0.25, 1.75},
    };
    // All kept until the end, each at an address of its own: qemu-user
    // does not see code written through the arena's other view, and would
    // run what it translated earlier at a reused address.
    std::vector<vexa_platform::ExecutableMemory> places(sizeof pieces / sizeof pieces[0]);
    for (std::size_t i = 0; i < places.size(); ++i) {
        const Piece& r = pieces[i];
        Emitter e(4096);
        r.write(e);
        std::vector<std::uint8_t> code;
        ASSERT_TRUE(e.Finish(code)) << r.what;
        ASSERT_TRUE(places[i].Load(code.data(), code.size())) << r.what;
        const Fn fn = reinterpret_cast<Fn>(places[i].data());
        EXPECT_EQ(Bits(fn(r.a, r.b, r.c, memory.data(), 10)), Bits(r.expected)) << r.what;
    }
}

}  // namespace

#else

TEST(A64Run, EmittedFunctionsGiveTheBitsOfTheirCppCounterparts)
{
    GTEST_SKIP() << "the processor is not AArch64: the emitter's bytes are checked, not run";
}

#endif
