#include <gtest/gtest.h>

#if !defined(_WIN32)
#include <sys/wait.h>
#include <unistd.h>
#endif
#if defined(__linux__)
#include <sys/mman.h>
#endif

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "compiled_expression_util.h"
#include "test_util.h"
#include "vexa/core/executable_arena.h"
#include "vexa/vexa_c.h"

// Machine code from the second evaluation of every expression on: set before
// the library first reads it.
#if defined(_WIN32)
static const int kSwitchEarly = _putenv_s("VEXA_MACHINE_CODE_AFTER", "0");
#else
static const int kSwitchEarly = setenv("VEXA_MACHINE_CODE_AFTER", "0", 1);
#endif

#ifndef VEXA_ARENA_TEST_EXPRESSIONS
#define VEXA_ARENA_TEST_EXPRESSIONS 1000000
#endif

namespace {

// Only programs of machine code are placed in the arena: where the library
// makes none, every test here is skipped.
class ExecutableArena : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (std::strcmp(vexa_machine_code(), "none") == 0)
            GTEST_SKIP() << "no machine code on this target: the interpreter runs, nothing is placed";
    }
};

using form_test::Calc;
using vexa_platform::ArenaStats;
using vexa_platform::ExecutableArenaStats;
using vexa_platform::SetExecutableArenaFaults;

// Accessible mappings of the process, or only those whose line holds part.
// Reservations without access hold no memory: the arena keeps those where
// code ran on a processor that never reuses a code address.
std::size_t Mappings(const char* part = "")
{
    std::ifstream maps("/proc/self/maps");
    std::size_t lines = 0;
    for (std::string line; std::getline(maps, line);)
        lines += line.find(part) != std::string::npos && line.find(" ---p ") == std::string::npos;
    return lines;
}

// The chunks' memory files are named so.
const char kCode[] = "vexa-code";
// The allocator (the sanitizers' above all) maps and keeps memory of its own.
const std::size_t kAllocatorMappings = 64;

// Evaluates at x twice: the first run interprets, the second switches to
// machine code where it can be made.
double Twice(ICalculator* calc, double x)
{
    VEXA_Data param(x), result;
    calc->Evaluate(1, &param, result);
    if (!calc->Evaluate(1, &param, result) || result.getType() != DT_SCALAR)
        return -1.0;
    return result.getValue()[0];
}

TEST_F(ExecutableArena, MillionExpressionsInMachineCodeShareMappings) {
#if defined(_WIN32)
    GTEST_SKIP() << "on Windows each program has an allocation of its own, and their number is capped";
#endif
    ASSERT_EQ(kSwitchEarly, 0);
    const std::size_t n = VEXA_ARENA_TEST_EXPRESSIONS;
    Calc model = form_test::Parse("x*2+1", L"x");
    ASSERT_TRUE(model);
    const std::size_t mapsBefore = Mappings();
    const std::size_t programsBefore = ExecutableArenaStats().programs;

    std::vector<Expression*> all(n);
    for (std::size_t i = 0; i < n; ++i) {
        all[i] = static_cast<Expression*>(model.get())->Copy();
        ASSERT_EQ(Twice(all[i], 0.25), 1.5) << i;
    }
    const ArenaStats full = ExecutableArenaStats();
    EXPECT_EQ(full.programs - programsBefore, n) << "every copy reached machine code";
    EXPECT_EQ(full.single, 0u) << "programs share chunks";
    EXPECT_LE(full.writable, 1u);
    const std::size_t codeFull = Mappings(kCode);
    EXPECT_LT(codeFull, n / 200) << "a mapping for hundreds of programs";
    EXPECT_LT(Mappings(), mapsBefore + kAllocatorMappings + n / 200);

    for (std::size_t i = 0; i < n; i += 2) {
        all[i]->Release();
        all[i] = nullptr;
    }
    EXPECT_LE(Mappings(kCode), codeFull) << "releasing never splits a mapping";
    for (std::size_t i = 1; i < n; i += 2)
        ASSERT_EQ(Twice(all[i], 0.5), 2.0) << i;
    for (Expression* e : all)
        if (e)
            e->Release();
    EXPECT_EQ(ExecutableArenaStats().programs, programsBefore);
    const ArenaStats empty = ExecutableArenaStats();
    EXPECT_LE(empty.chunks, 1u) << "only the chunk being filled may stay";
    EXPECT_EQ(empty.stuck, 0u);
    EXPECT_LE(Mappings(kCode), 2u);
    EXPECT_LE(Mappings(), mapsBefore + kAllocatorMappings);
}

// Resident kilobytes of the chunks' memory.
std::size_t CodeResidentKiB()
{
    std::ifstream smaps("/proc/self/smaps");
    std::size_t kib = 0;
    bool code = false;
    for (std::string line; std::getline(smaps, line);) {
        // A mapping's line, then its fields ("Rss:   12 kB").
        const std::string first = line.substr(0, line.find(' '));
        if (first.empty() || first.back() != ':')
            code = line.find(kCode) != std::string::npos;
        else if (code && first == "Rss:")
            kib += std::strtoul(line.c_str() + 4, nullptr, 10);
    }
    return kib;
}

// Whether the system takes back a page of a memory file when asked: an
// emulator (qemu-user) may ignore the request and answer that it did.
bool PunchingFrees()
{
#if defined(__linux__)
    const long page = sysconf(_SC_PAGESIZE);
    const int fd = memfd_create("vexa-probe", MFD_CLOEXEC);
    bool freed = false;
    if (fd >= 0 && page > 0 && ftruncate(fd, page) == 0) {
        const std::size_t size = static_cast<std::size_t>(page);
        void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (p != MAP_FAILED) {
            volatile unsigned char* bytes = static_cast<unsigned char*>(p);
            bytes[0] = 1;
            freed = madvise(p, size, MADV_REMOVE) == 0 && bytes[0] == 0;
            munmap(p, size);
        }
    }
    if (fd >= 0)
        close(fd);
    return freed;
#else
    return true;
#endif
}

TEST_F(ExecutableArena, EmptiedPagesGoBackWhileTheirChunkStays) {
#if defined(_WIN32)
    GTEST_SKIP() << "on Windows programs share no pages, and the memory is read from /proc";
#endif
    if (!PunchingFrees())
        GTEST_SKIP() << "this system does not take pages of memory files back (qemu-user ignores the request)";
    Calc model = form_test::Parse("x*2+1", L"x");
    ASSERT_TRUE(model);
    const std::size_t start = CodeResidentKiB();
    std::vector<Expression*> all(6000);
    for (Expression*& e : all) {
        e = static_cast<Expression*>(model.get())->Copy();
        ASSERT_EQ(Twice(e, 0.25), 1.5);
    }
    const std::size_t full = CodeResidentKiB();
    ASSERT_GT(full, start + 1000);
    // One program in a hundred stays: in every chunk, yet on few pages.
    for (std::size_t i = 0; i < all.size(); ++i)
        if (i % 100 != 0) {
            all[i]->Release();
            all[i] = nullptr;
        }
    const std::size_t sparse = CodeResidentKiB();
    int wrong = 0;
    for (Expression* e : all)
        if (e) {
            wrong += Twice(e, 0.5) != 2.0;
            e->Release();
        }
    EXPECT_EQ(wrong, 0);
    if (ExecutableArenaStats().kept != 0)
        GTEST_SKIP() << "this kernel takes pages back only through a writable view";
    EXPECT_LT(sparse - start, (full - start) / 4);
}

// Each fault, alone and together: the values come from the interpreter,
// nothing stays mapped once the faults end, nothing is placed by a failed
// call.
TEST_F(ExecutableArena, RefusedPlatformCallsEndInTheInterpreter) {
    using namespace vexa_platform;
    const struct {
        unsigned faults;
        bool places;  // whether programs still reach machine code
    } cases[] = {
        {kFailMap, false},
        {kFailProtect, false},
        {kFailUnmap, true},
        {kFailMap | kFailProtect | kFailUnmap, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.faults);
        const std::size_t mapsBefore = Mappings();
        const std::size_t codeBefore = Mappings(kCode);
        const ArenaStats before = ExecutableArenaStats();
        SetExecutableArenaFaults(c.faults);
        std::vector<Calc> calcs;
        std::vector<std::unique_ptr<vexa::CompiledExpression> > forms;
        for (int k = 1; k <= 40; ++k) {
            calcs.push_back(form_test::Parse("x*" + std::to_string(k) + "+1", L"x"));
            ASSERT_TRUE(calcs.back());
            EXPECT_EQ(Twice(calcs.back().get(), 0.5), 0.5 * k + 1);
            forms.push_back(vexa::CompiledExpression::Make(calcs.back().get(), 1));
            ASSERT_TRUE(forms.back());
            vexa::Workspace ws(*forms.back());
            const double x = 0.5;
            double grad = 0;
            const vexa::Outcome o = forms.back()->Gradient(&x, &grad, ws);
            EXPECT_TRUE(o.ok());
            EXPECT_EQ(o.value, 0.5 * k + 1);
            EXPECT_EQ(grad, k);
        }
        const ArenaStats during = ExecutableArenaStats();
        const std::size_t perExpression = form_test::MakesMachineCode() ? 2 : 1;
        EXPECT_EQ(during.programs - before.programs, c.places ? 40 * perExpression : 0u);
        EXPECT_EQ(during.single, before.single);
        forms.clear();
        calcs.clear();
        SetExecutableArenaFaults(0);
        const ArenaStats after = ExecutableArenaStats();
        EXPECT_EQ(after.programs, before.programs);
        EXPECT_EQ(after.stuck, 0u) << "failed unmappings were tried again";
        EXPECT_LE(after.chunks, before.chunks + 1);
        EXPECT_LE(Mappings(kCode), codeBefore + 2);
        EXPECT_LE(Mappings(), mapsBefore + kAllocatorMappings);
    }
}

TEST_F(ExecutableArena, GradientCodeIsMadeOnceWhenFirstAskedFor) {
    Calc calc = form_test::Parse("x*y+SIN(x)", L"x,y");
    ASSERT_TRUE(calc);
    const std::size_t programs = ExecutableArenaStats().programs;
    auto form = vexa::CompiledExpression::Make(calc.get(), 2);
    ASSERT_TRUE(form);
    EXPECT_EQ(ExecutableArenaStats().programs, programs) << "a form only evaluated makes no gradient code";

    const double point[2] = {0.75, -2.0};
    std::vector<double> grads(16, 0.0);
    testutil::OnThreads(8, [&](int t) {
        vexa::Workspace ws(*form);
        form->Gradient(point, &grads[2 * t], ws);
    });
    const std::size_t made = form_test::MakesMachineCode() ? 1 : 0;
    EXPECT_EQ(ExecutableArenaStats().programs, programs + made);
    double again[2];
    {
        vexa::Workspace ws(*form);
        ASSERT_TRUE(form->Gradient(point, again, ws).ok());
    }
    EXPECT_NEAR(again[0], -2.0 + std::cos(0.75), 1e-15);
    EXPECT_EQ(again[1], 0.75);
    for (int t = 0; t < 8; ++t) {
        EXPECT_EQ(form_test::Bits(grads[2 * t]), form_test::Bits(again[0]));
        EXPECT_EQ(form_test::Bits(grads[2 * t + 1]), form_test::Bits(again[1]));
    }
    EXPECT_EQ(ExecutableArenaStats().programs, programs + made);
    form.reset();
    EXPECT_EQ(ExecutableArenaStats().programs, programs);
}

// Programs placed and released on many threads at once land apart and all
// go back.
TEST_F(ExecutableArena, ThreadsPlaceAndReleaseAtOnce) {
    // The registry is made once before threads parse, as hosts must.
    FunctionFactory::getInstance();
    const std::size_t programs = ExecutableArenaStats().programs;
    std::vector<int> wrong(4, 0);
    testutil::OnThreads(4, [&wrong](int t) {
        std::vector<std::pair<Calc, int> > mine;
        for (int k = 0; k < 300; ++k) {
            mine.emplace_back(form_test::Parse("x*" + std::to_string(t) + "+" + std::to_string(k), L"x"), k);
            wrong[t] += Twice(mine.back().first.get(), 2.0) != 2.0 * t + k;
            if (k % 3 == 0)
                mine.erase(mine.begin() + k / 2);
        }
        for (const auto& m : mine)
            wrong[t] += Twice(m.first.get(), 0.5) != 0.5 * t + m.second;
    });
    EXPECT_EQ(wrong, std::vector<int>(4, 0));
    EXPECT_EQ(ExecutableArenaStats().programs, programs);
}

#if !defined(_WIN32)
// A forked child shares the chunks: code either side writes afterwards
// must not land where the other's code lies.
TEST_F(ExecutableArena, ForkedProcessesWriteApart) {
    Calc before = form_test::Parse("x*3+1", L"x");
    ASSERT_EQ(Twice(before.get(), 0.5), 2.5);
    int go[2];
    ASSERT_EQ(pipe(go), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        char c;
        bool ok = read(go[0], &c, 1) == 1;
        for (int k = 1; k <= 50 && ok; ++k) {
            Calc mine = form_test::Parse("x*" + std::to_string(k) + "-7", L"x");
            ok = Twice(mine.get(), 0.5) == 0.5 * k - 7;
        }
        ok = ok && Twice(before.get(), 0.5) == 2.5;
        _exit(ok ? 0 : 1);
    }
    std::vector<Calc> mine;
    for (int k = 1; k <= 50; ++k) {
        mine.push_back(form_test::Parse("x*" + std::to_string(k) + "+9", L"x"));
        ASSERT_EQ(Twice(mine.back().get(), 0.5), 0.5 * k + 9);
    }
    before.reset();
    ASSERT_EQ(write(go[1], "g", 1), 1);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    for (int k = 1; k <= 50; ++k)
        EXPECT_EQ(Twice(mine[static_cast<std::size_t>(k - 1)].get(), 0.5), 0.5 * k + 9);
    close(go[0]);
    close(go[1]);
}

#endif

}  // namespace
