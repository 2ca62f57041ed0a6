// The machine-code emitter's encodings against bytes checked by hand (the
// table in data/x64_encodings.txt): every instruction form the back ends
// use, with every register as either operand (the REX bits of r8..r15 and
// xmm8..xmm15, the SIB byte rsp and r12 need as a base, the displacement
// rbp and r13 need), and displacements from 0 to the extremes of 32 bits.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "test_util.h"
#include "vexa/compiled/x86_64/x64_emitter.h"

using namespace vexa_compiled::x64;

namespace {

struct Case {
    int line;
    std::string form;
    std::vector<long long> args;
    std::vector<std::uint8_t> bytes;
};

std::vector<Case> Load()
{
    std::vector<Case> cases;
    for (const testutil::CaseLine& l : testutil::ReadCases("x64_encodings.txt")) {
        const std::vector<std::wstring> words = testutil::Words(l.fields[0]);
        Case c{l.line, testutil::Narrow(words[0]), {}, {}};
        // SSE operations name their opcode in hexadecimal.
        for (std::size_t k = 1; k < words.size(); ++k)
            c.args.push_back(static_cast<long long>(
                std::stoull(words[k], nullptr, c.form.find("Arith") == 0 && k == 1 ? 16 : 0)));
        EXPECT_EQ(l.fields.size(), 2u) << "line " << l.line << " has no bytes";
        for (const std::wstring& byte : testutil::Words(l.fields.back()))
            c.bytes.push_back(static_cast<std::uint8_t>(std::stoul(byte, nullptr, 16)));
        cases.push_back(c);
    }
    return cases;
}

// Writes the case's instruction; false for a form the table does not know.
bool Write(Emitter& em, const Case& c)
{
    const std::vector<long long>& a = c.args;
    const auto r = [&](std::size_t i) { return static_cast<int>(a[i]); };
    const auto m = [&](std::size_t i) { return Mem{r(i), static_cast<std::int32_t>(a[i + 1])}; };
    const std::string& f = c.form;
    const std::uint8_t op = a.empty() ? 0 : static_cast<std::uint8_t>(a[0]);
    if (f == "Push") em.Push(r(0));
    else if (f == "Pop") em.Pop(r(0));
    else if (f == "MovImm64") em.MovImm64(r(0), static_cast<std::uint64_t>(a[1]));
    else if (f == "MovImm32") em.MovImm32(r(0), static_cast<std::uint32_t>(a[1]));
    else if (f == "Call") em.Call(r(0));
    else if (f == "Jmp") em.Jmp(r(0));
    else if (f == "CmpImm32") em.CmpImm32(r(0), static_cast<std::int32_t>(a[1]));
    else if (f == "AddRsp") em.AddRsp(static_cast<std::int32_t>(a[0]));
    else if (f == "SubRsp") em.SubRsp(static_cast<std::int32_t>(a[0]));
    else if (f == "MovReg") em.MovReg(r(0), r(1));
    else if (f == "CmpReg") em.CmpReg(r(0), r(1));
    else if (f == "Test") em.Test(r(0), r(1));
    else if (f == "Movapd") em.Movapd(r(0), r(1));
    else if (f == "Xorpd") em.Xorpd(r(0), r(1));
    else if (f == "Ucomisd") em.Ucomisd(r(0), r(1));
    else if (f == "Cvttsd2si") em.Cvttsd2si(r(0), r(1));
    else if (f == "Cvtsi2sd") em.Cvtsi2sd(r(0), r(1));
    else if (f == "Arith") em.Arith(op, r(1), r(2));
    else if (f == "MovLoad") em.MovLoad(r(0), m(1));
    else if (f == "MovStore") em.MovStore(m(1), r(0));
    else if (f == "Lea") em.Lea(r(0), m(1));
    else if (f == "CmpMemReg") em.CmpMemReg(m(1), r(0));
    else if (f == "MovsdLoad") em.MovsdLoad(r(0), m(1));
    else if (f == "MovsdStore") em.MovsdStore(m(1), r(0));
    else if (f == "MovupdLoad") em.MovupdLoad(r(0), m(1));
    else if (f == "MovupdStore") em.MovupdStore(m(1), r(0));
    else if (f == "UcomisdMem") em.Ucomisd(r(0), m(1));
    else if (f == "ArithMem") em.Arith(op, r(1), m(2));
    else if (f == "CmpMemImm32") em.CmpMemImm32(m(0), static_cast<std::int32_t>(a[2]));
    else if (f == "MovsdLoadPool") em.MovsdLoadPool(r(0), em.Constant(0x3FF0000000000000ULL));
    else if (f == "ArithPool") em.ArithPool(op, r(1), em.Constant(0x3FF0000000000000ULL));
    else if (f == "AndpdPool") em.AndpdPool(r(0), em.Constant(0x3FF0000000000000ULL));
    else if (f == "XorpdPool") em.XorpdPool(r(0), em.Constant(0x3FF0000000000000ULL));
    else if (f == "UcomisdPool") em.UcomisdPool(r(0), em.Constant(0x3FF0000000000000ULL));
    else if (f == "JumpForward" || f == "JumpIfForward") {
        const int label = em.NewLabel();
        if (f == "JumpForward")
            em.Jump(label);
        else
            em.Jump(static_cast<Cond>(a[0]), label);
        em.Bind(label);
    } else if (f == "JumpBack" || f == "JumpIfBack") {
        const int label = em.NewLabel();
        em.Bind(label);
        if (f == "JumpBack")
            em.Jump(label);
        else
            em.Jump(static_cast<Cond>(a[0]), label);
    } else {
        return false;
    }
    return true;
}

TEST(X64Emitter, EveryFormAndRegisterEncodesAsTheTableSays)
{
    const std::vector<Case> cases = Load();
    ASSERT_GT(cases.size(), 2000u);
    for (const Case& c : cases) {
        Emitter em;
        ASSERT_TRUE(Write(em, c)) << "line " << c.line << ": unknown form " << c.form;
        std::vector<std::uint8_t> out = em.Finish();
        // The code is padded to 16 bytes before the (possibly empty) pool;
        // pool forms list the padding and the pool with the instruction.
        if (c.form.find("Pool") == std::string::npos) {
            ASSERT_EQ(out.size() % 16, 0u);
            ASSERT_GE(out.size(), c.bytes.size());
            for (std::size_t i = c.bytes.size(); i < out.size(); ++i)
                EXPECT_EQ(out[i], 0xCC) << "line " << c.line;
            out.resize(c.bytes.size());
        }
        EXPECT_EQ(out, c.bytes) << "line " << c.line << ": " << c.form;
    }
}

}  // namespace
