// The AArch64 emitter's encodings against the GNU cross assembler's (the
// table in data/a64_encodings.txt, written by scripts/a64_golden.py): every
// form with every register in every operand, sp and xzr where the form has
// them, offsets, immediates and branch distances at the ends of their
// fields, and the sequences picked for wide constants and far offsets.
// Then what it must refuse rather than write: a full buffer, a branch or
// constant out of reach, an offset or register a form cannot take.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "vexa/compiled/aarch64/a64_emitter.h"

using namespace vexa_compiled::a64;

namespace {

const char* const kConds[] = {"eq", "ne", "hs", "lo", "mi", "pl", "vs", "vc", "hi", "ls", "ge", "lt", "gt", "le", "al"};

struct Case {
    int line;
    std::string form;
    std::vector<std::string> args;
    std::vector<std::uint8_t> bytes;
};

std::vector<Case> Load()
{
    std::ifstream in(std::string(VEXA_TEST_DATA_DIR) + "/a64_encodings.txt");
    std::vector<Case> cases;
    std::string text;
    for (int line = 1; std::getline(in, text); ++line) {
        if (text.empty() || text[0] == '#')
            continue;
        const std::size_t colon = text.find(" : ");
        Case c{line, {}, {}, {}};
        std::istringstream head(text.substr(0, colon));
        head >> c.form;
        for (std::string arg; head >> arg;)
            c.args.push_back(arg);
        std::istringstream tail(colon == std::string::npos ? "" : text.substr(colon + 3));
        for (std::string byte; tail >> byte;)
            c.bytes.push_back(static_cast<std::uint8_t>(std::strtoul(byte.c_str(), nullptr, 16)));
        cases.push_back(c);
    }
    return cases;
}

// x5 and w5 are 5, d5 is 5, sp and xzr (wzr) the emitter's own numbers.
int R(const std::string& s)
{
    if (s == "sp")
        return sp;
    if (s == "xzr" || s == "wzr")
        return xzr;
    return std::atoi(s.c_str() + 1);
}
XReg X(const std::string& s) { return static_cast<XReg>(R(s)); }
DReg Dr(const std::string& s) { return static_cast<DReg>(R(s)); }
std::int64_t N(const std::string& s) { return static_cast<std::int64_t>(std::strtoull(s.c_str(), nullptr, 0)); }
Cond C(const std::string& s)
{
    for (std::uint32_t i = 0; i < 15; ++i) {
        if (s == kConds[i])
            return static_cast<Cond>(i);
    }
    return static_cast<Cond>(99);
}
PairMode M(const std::string& s)
{
    return s == "pre" ? PairMode::kPreIndex : s == "post" ? PairMode::kPostIndex : PairMode::kOffset;
}

using Args = std::vector<std::string>;
using Write = std::function<void(Emitter&, const Args&)>;

const std::map<std::string, Write>& Forms()
{
    using E = Emitter;
    static const std::map<std::string, Write> forms = [] {
        std::map<std::string, Write> f;
        const auto d3 = [&](void (E::*op)(DReg, DReg, DReg)) {
            return [op](E& e, const Args& a) { (e.*op)(Dr(a[0]), Dr(a[1]), Dr(a[2])); };
        };
        const auto d2 = [&](void (E::*op)(DReg, DReg)) {
            return [op](E& e, const Args& a) { (e.*op)(Dr(a[0]), Dr(a[1])); };
        };
        const auto x3 = [&](void (E::*op)(XReg, XReg, XReg)) {
            return [op](E& e, const Args& a) { (e.*op)(X(a[0]), X(a[1]), X(a[2])); };
        };
        const auto imm = [&](void (E::*op)(XReg, XReg, std::uint32_t)) {
            return [op](E& e, const Args& a) { (e.*op)(X(a[0]), X(a[1]), static_cast<std::uint32_t>(N(a[2]))); };
        };
        f["FAdd"] = d3(&E::FAdd);
        f["FSub"] = d3(&E::FSub);
        f["FMul"] = d3(&E::FMul);
        f["FDiv"] = d3(&E::FDiv);
        f["FSqrt"] = d2(&E::FSqrt);
        f["FAbs"] = d2(&E::FAbs);
        f["FNeg"] = d2(&E::FNeg);
        f["FMov"] = d2(&E::FMov);
        f["FrintZ"] = d2(&E::FrintZ);
        f["FrintA"] = d2(&E::FrintA);
        f["FrintM"] = d2(&E::FrintM);
        f["FrintP"] = d2(&E::FrintP);
        f["FCmp"] = [](E& e, const Args& a) { e.FCmp(Dr(a[0]), Dr(a[1])); };
        f["FCmpZero"] = [](E& e, const Args& a) { e.FCmpZero(Dr(a[0])); };
        f["FCsel"] = [](E& e, const Args& a) { e.FCsel(Dr(a[0]), Dr(a[1]), Dr(a[2]), C(a[3])); };
        f["FMovToX"] = [](E& e, const Args& a) { e.FMovToX(X(a[0]), Dr(a[1])); };
        f["FMovFromX"] = [](E& e, const Args& a) { e.FMovFromX(Dr(a[0]), X(a[1])); };
        f["FCvtzsW"] = [](E& e, const Args& a) { e.FCvtzsW(X(a[0]), Dr(a[1])); };
        f["ScvtfW"] = [](E& e, const Args& a) { e.ScvtfW(Dr(a[0]), X(a[1])); };
        f["MovImm"] = [](E& e, const Args& a) { e.MovImm(X(a[0]), static_cast<std::uint64_t>(N(a[1]))); };
        f["MovReg"] = [](E& e, const Args& a) { e.MovReg(X(a[0]), X(a[1])); };
        f["AddImm"] = imm(&E::AddImm);
        f["SubImm"] = imm(&E::SubImm);
        f["AddReg"] = x3(&E::AddReg);
        f["SubReg"] = x3(&E::SubReg);
        f["CmpImm"] = [](E& e, const Args& a) { e.CmpImm(X(a[0]), static_cast<std::uint32_t>(N(a[1]))); };
        f["CmpReg"] = [](E& e, const Args& a) { e.CmpReg(X(a[0]), X(a[1])); };
        f["CmpImmW"] = [](E& e, const Args& a) { e.CmpImmW(X(a[0]), static_cast<std::uint32_t>(N(a[1]))); };
        f["LdrX"] = [](E& e, const Args& a) { e.LdrX(X(a[0]), X(a[1]), N(a[2])); };
        f["StrX"] = [](E& e, const Args& a) { e.StrX(X(a[0]), X(a[1]), N(a[2])); };
        f["LdrD"] = [](E& e, const Args& a) { e.LdrD(Dr(a[0]), X(a[1]), N(a[2])); };
        f["StrD"] = [](E& e, const Args& a) { e.StrD(Dr(a[0]), X(a[1]), N(a[2])); };
        f["LdrXIndex"] = [](E& e, const Args& a) { e.LdrXIndex(X(a[0]), X(a[1]), X(a[2]), N(a[3]) != 0); };
        f["StrXIndex"] = [](E& e, const Args& a) { e.StrXIndex(X(a[0]), X(a[1]), X(a[2]), N(a[3]) != 0); };
        f["LdrDIndex"] = [](E& e, const Args& a) { e.LdrDIndex(Dr(a[0]), X(a[1]), X(a[2]), N(a[3]) != 0); };
        f["StrDIndex"] = [](E& e, const Args& a) { e.StrDIndex(Dr(a[0]), X(a[1]), X(a[2]), N(a[3]) != 0); };
        const auto offset = [](const Args& a) { return static_cast<std::int32_t>(N(a[3])); };
        f["Ldp"] = [offset](E& e, const Args& a) { e.Ldp(X(a[0]), X(a[1]), X(a[2]), offset(a), M(a[4])); };
        f["Stp"] = [offset](E& e, const Args& a) { e.Stp(X(a[0]), X(a[1]), X(a[2]), offset(a), M(a[4])); };
        f["LdpD"] = [offset](E& e, const Args& a) { e.LdpD(Dr(a[0]), Dr(a[1]), X(a[2]), offset(a), M(a[4])); };
        f["StpD"] = [offset](E& e, const Args& a) { e.StpD(Dr(a[0]), Dr(a[1]), X(a[2]), offset(a), M(a[4])); };
        f["LdrDConst"] = [](E& e, const Args& a) { e.LdrDConst(Dr(a[0]), e.Constant(0x3FF0000000000000ULL)); };
        f["LdrXConst"] = [](E& e, const Args& a) { e.LdrXConst(X(a[0]), e.Constant(0x3FF0000000000000ULL)); };
        f["Br"] = [](E& e, const Args& a) { e.Br(X(a[0])); };
        f["Blr"] = [](E& e, const Args& a) { e.Blr(X(a[0])); };
        f["Ret"] = [](E& e, const Args& a) { e.Ret(X(a[0])); };
        f["Nop"] = [](E& e, const Args&) { e.Nop(); };
        return f;
    }();
    return forms;
}

void Branch(Emitter& e, const Case& c, int label)
{
    const Args& a = c.args;
    if (c.form == "B") e.B(label);
    else if (c.form == "Bl") e.Bl(label);
    else if (c.form == "BCond") e.BCond(C(a[0]), label);
    else if (c.form == "Cbz") e.Cbz(X(a[0]), label);
    else e.Cbnz(X(a[0]), label);
}

// Branch forms put the label delta bytes away, with nops between, and
// answer the branch's word only.
std::vector<std::uint8_t> Emit(const Case& c, bool& known)
{
    const bool branch = c.form == "B" || c.form == "Bl" || c.form == "BCond" || c.form == "Cbz" || c.form == "Cbnz";
    const std::int64_t delta = branch ? N(c.args.back()) : 0;
    Emitter e(static_cast<std::size_t>(std::llabs(delta)) + 64);
    const int label = e.NewLabel();
    known = true;
    std::size_t at = 0;
    if (branch && delta <= 0) {
        e.Bind(label);
        for (std::int64_t i = 0; i < -delta / 4; ++i)
            e.Nop();
        at = e.size();
        Branch(e, c, label);
    } else if (branch) {
        Branch(e, c, label);
        for (std::int64_t i = 1; i < delta / 4; ++i)
            e.Nop();
        e.Bind(label);
    } else {
        const auto form = Forms().find(c.form);
        if (form == Forms().end()) {
            known = false;
            return {};
        }
        form->second(e, c.args);
    }
    std::vector<std::uint8_t> out;
    EXPECT_TRUE(e.Finish(out)) << "line " << c.line << ": fault " << static_cast<int>(e.fault());
    if (branch && out.size() >= at + 4)
        return std::vector<std::uint8_t>(out.begin() + static_cast<std::ptrdiff_t>(at),
                                         out.begin() + static_cast<std::ptrdiff_t>(at + 4));
    return out;
}

TEST(A64Emitter, EveryFormAndRegisterEncodesAsTheAssemblerDoes)
{
    const std::vector<Case> cases = Load();
    ASSERT_GT(cases.size(), 3000u);
    for (const Case& c : cases) {
        bool known = false;
        const std::vector<std::uint8_t> out = Emit(c, known);
        ASSERT_TRUE(known) << "line " << c.line << ": unknown form " << c.form;
        EXPECT_EQ(out, c.bytes) << "line " << c.line << ": " << c.form;
    }
}

// What must fail, and with which fault; nothing after it is written.
TEST(A64Emitter, RefusesWhatNoFormTakes)
{
    using Step = std::function<void(Emitter&)>;
    const struct {
        const char* what;
        Fault fault;
        Step step;
    } table[] = {
        {"add to xzr", Fault::kRegister, [](Emitter& e) { e.AddImm(xzr, x1, 1); }},
        {"add from xzr", Fault::kRegister, [](Emitter& e) { e.SubImm(x1, xzr, 1); }},
        {"movz into sp", Fault::kRegister, [](Emitter& e) { e.MovImm(sp, 1); }},
        {"move xzr to sp", Fault::kRegister, [](Emitter& e) { e.MovReg(sp, xzr); }},
        {"register add with sp", Fault::kRegister, [](Emitter& e) { e.AddReg(x0, sp, x1); }},
        {"compare xzr with an immediate", Fault::kRegister, [](Emitter& e) { e.CmpImm(xzr, 1); }},
        {"compare sp with a register", Fault::kRegister, [](Emitter& e) { e.CmpReg(sp, x1); }},
        {"load into sp", Fault::kRegister, [](Emitter& e) { e.LdrX(sp, x1, 0); }},
        {"xzr as a base", Fault::kRegister, [](Emitter& e) { e.LdrD(d0, xzr, 0); }},
        {"sp as an index", Fault::kRegister, [](Emitter& e) { e.LdrDIndex(d0, x1, sp, true); }},
        {"branch to xzr", Fault::kRegister, [](Emitter& e) { e.Br(xzr); }},
        {"return to xzr", Fault::kRegister, [](Emitter& e) { e.Ret(xzr); }},
        {"cbz on sp", Fault::kRegister, [](Emitter& e) { e.Cbz(sp, e.NewLabel()); }},
        {"fmov to sp", Fault::kRegister, [](Emitter& e) { e.FMovToX(sp, d0); }},
        {"d32", Fault::kRegister, [](Emitter& e) { e.FAdd(static_cast<DReg>(32), d0, d1); }},
        {"x33", Fault::kRegister, [](Emitter& e) { e.LdrX(static_cast<XReg>(33), x1, 0); }},
        {"pair loads one register twice", Fault::kRegister, [](Emitter& e) { e.Ldp(x1, x1, sp, 0, PairMode::kOffset); }},
        {"pre-index base loaded", Fault::kRegister, [](Emitter& e) { e.Ldp(x1, x2, x1, 16, PairMode::kPreIndex); }},
        {"post-index base stored", Fault::kRegister, [](Emitter& e) { e.Stp(x1, x2, x2, 16, PairMode::kPostIndex); }},
        {"scratch sp", Fault::kRegister, [](Emitter& e) { e.SetScratch(sp); }},
        {"scratch xzr", Fault::kRegister, [](Emitter& e) { e.SetScratch(xzr); }},
        {"far offset from the scratch", Fault::kRegister, [](Emitter& e) { e.LdrD(d0, x16, 1 << 20); }},
        {"far store of the scratch", Fault::kRegister, [](Emitter& e) { e.StrX(x16, x2, -4096); }},
        {"far offset from another scratch", Fault::kRegister,
         [](Emitter& e) { e.SetScratch(x9); e.StrD(d0, x9, 40000); }},
        {"add 4097", Fault::kOffset, [](Emitter& e) { e.AddImm(x0, x1, 4097); }},
        {"add 4095 << 12 + 4096", Fault::kOffset, [](Emitter& e) { e.AddImm(x0, x1, 0x1000000); }},
        {"sub 0x1001", Fault::kOffset, [](Emitter& e) { e.SubImm(sp, sp, 0x1001); }},
        {"compare 0x1001", Fault::kOffset, [](Emitter& e) { e.CmpImm(x0, 0x1001); }},
        {"compare w0 with 0x1000", Fault::kOffset, [](Emitter& e) { e.CmpImmW(x0, 0x1000); }},
        {"compare wsp", Fault::kRegister, [](Emitter& e) { e.CmpImmW(sp, 0); }},
        {"pair offset 4", Fault::kOffset, [](Emitter& e) { e.Stp(x29, x30, sp, 4, PairMode::kOffset); }},
        {"pair offset 512", Fault::kOffset, [](Emitter& e) { e.StpD(d8, d9, sp, 512, PairMode::kPreIndex); }},
        {"pair offset -520", Fault::kOffset, [](Emitter& e) { e.LdpD(d8, d9, sp, -520, PairMode::kPostIndex); }},
        {"condition nv", Fault::kOffset, [](Emitter& e) { e.BCond(static_cast<Cond>(15), e.NewLabel()); }},
        {"fcsel on nv", Fault::kOffset, [](Emitter& e) { e.FCsel(d0, d1, d2, static_cast<Cond>(15)); }},
        {"unknown label", Fault::kLabel, [](Emitter& e) { e.B(3); }},
        {"bound twice", Fault::kLabel, [](Emitter& e) { const int l = e.NewLabel(); e.Bind(l); e.Bind(l); }},
        {"never bound", Fault::kLabel, [](Emitter& e) { e.Bl(e.NewLabel()); }},
        {"unknown constant", Fault::kLabel, [](Emitter& e) { e.LdrDConst(d0, 0); }},
        {"negative constant", Fault::kLabel, [](Emitter& e) { e.Constant(1); e.LdrXConst(x0, -1); }},
        {"full at the third word", Fault::kFull, [](Emitter& e) { e.Nop(); e.Nop(); e.Nop(); }},
        {"full within a sequence", Fault::kFull, [](Emitter& e) { e.MovImm(x0, 0x123456789ABCDEF0); }},
        {"full once the constants follow", Fault::kFull,
         [](Emitter& e) { e.LdrDConst(d0, e.Constant(1)); }},
        {"far offset full", Fault::kFull, [](Emitter& e) { e.Nop(); e.LdrD(d0, x1, 1 << 20); }},
    };
    for (const auto& t : table) {
        Emitter e(8);
        t.step(e);
        const std::size_t size = e.size();
        if (!e.ok()) {  // else only Finish can know
            e.Nop();
            e.FAdd(d0, d0, d0);
            e.Bind(e.NewLabel());
            EXPECT_EQ(e.size(), size) << t.what;
        }
        std::vector<std::uint8_t> out{1};
        EXPECT_FALSE(e.Finish(out)) << t.what;
        EXPECT_TRUE(out.empty()) << t.what;
        EXPECT_EQ(e.fault(), t.fault) << t.what;
        EXPECT_LE(e.size(), 8u) << t.what;
    }
}

// b.cond, cbz and a literal load reach 1 MiB back and 1 MiB - 4 ahead: one
// word further is refused, not wrapped.
TEST(A64Emitter, ReachOfBranchesAndConstants)
{
    const std::size_t mib = 1u << 20;
    for (const bool far : {false, true}) {
        Emitter ahead(2 * mib);
        const int label = ahead.NewLabel();
        ahead.BCond(kVs, label);
        ahead.Cbz(x1, label);
        for (std::size_t i = 2; i < mib / 4 - 1 + far; ++i)
            ahead.Nop();
        ahead.Bind(label);  // the b.cond's farthest reach, or a word beyond it
        std::vector<std::uint8_t> out;
        EXPECT_EQ(ahead.Finish(out), !far) << far;
        EXPECT_EQ(ahead.fault(), far ? Fault::kRange : Fault::kNone);

        Emitter back(2 * mib);
        const int top = back.NewLabel();
        back.Bind(top);
        for (std::size_t i = 0; i < mib / 4 - 2 + far; ++i)
            back.Nop();
        back.B(top);  // b reaches 128 MiB: fine either way
        back.Nop();
        back.BCond(kEq, top);  // 1 MiB back, or a word more
        EXPECT_EQ(back.Finish(out), !far) << far;

        // The constants start at the next even word after the code.
        Emitter pool(2 * mib);
        pool.LdrDConst(d0, pool.Constant(7));
        for (std::size_t i = 0; i < mib / 4 - 3 + far; ++i)
            pool.Nop();
        EXPECT_EQ(pool.Finish(out), !far) << far;
        if (!far) {
            ASSERT_EQ(out.size(), mib - 8 + 8);
            EXPECT_EQ(out[mib - 8], 7);
        }
    }
}

// The 26-bit field of b and bl, which no test buffer could fill, and an
// offset between words.
TEST(A64Emitter, PatchLimits)
{
    const std::int64_t b_far = (std::int64_t{1} << 27);
    const struct {
        std::uint32_t op;
        std::int64_t delta;
        bool ok;
        std::uint32_t word;
    } table[] = {
        {0x14000000, b_far - 4, true, 0x15FFFFFF},
        {0x94000000, -b_far, true, 0x96000000},
        {0x14000000, b_far, false, 0},
        {0x94000000, -b_far - 4, false, 0},
        {0x14000000, 2, false, 0},
        {0x5C000000, 6, false, 0},
    };
    for (const auto& t : table) {
        std::uint32_t word = t.op;
        EXPECT_EQ(Emitter::Patch(word, t.delta), t.ok) << t.delta;
        EXPECT_EQ(word, t.ok ? t.word : t.op) << std::hex << t.op;
    }
}

}  // namespace
