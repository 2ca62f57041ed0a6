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
#include <functional>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "test_util.h"
#include "vexa/compiled/aarch64/a64_emitter.h"

using namespace vexa_compiled::a64;

namespace {

const char* const kConds[] = {"eq", "ne", "hs", "lo", "mi", "pl", "vs", "vc",
                               "hi", "ls", "ge", "lt", "gt", "le", "al", "nv"};

// An emitter call in text form, and what follows it on its line.
struct Case {
    int line;
    std::string form;
    std::vector<std::string> args;
    std::wstring then;
};

std::vector<Case> Load(const char* file)
{
    std::vector<Case> cases;
    for (const testutil::CaseLine& l : testutil::ReadCases(file)) {
        const std::vector<std::wstring> words = testutil::Words(l.fields[0]);
        Case c{l.line, testutil::Narrow(words[0]), {}, l.fields.back()};
        for (std::size_t k = 1; k < words.size(); ++k)
            c.args.push_back(testutil::Narrow(words[k]));
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
    for (std::uint32_t i = 0; i < 16; ++i) {
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
        using D3 = void (E::*)(DReg, DReg, DReg);
        using D2 = void (E::*)(DReg, DReg);
        using X3 = void (E::*)(XReg, XReg, XReg);
        using Imm = void (E::*)(XReg, XReg, std::uint32_t);
        for (const auto& [name, op] : std::initializer_list<std::pair<const char*, D3>>{
                 {"FAdd", &E::FAdd}, {"FSub", &E::FSub}, {"FMul", &E::FMul}, {"FDiv", &E::FDiv}})
            f[name] = [op = op](E& e, const Args& a) { (e.*op)(Dr(a[0]), Dr(a[1]), Dr(a[2])); };
        for (const auto& [name, op] : std::initializer_list<std::pair<const char*, D2>>{
                 {"FSqrt", &E::FSqrt}, {"FAbs", &E::FAbs}, {"FNeg", &E::FNeg}, {"FMov", &E::FMov},
                 {"FrintZ", &E::FrintZ}, {"FrintA", &E::FrintA}, {"FrintM", &E::FrintM}, {"FrintP", &E::FrintP}})
            f[name] = [op = op](E& e, const Args& a) { (e.*op)(Dr(a[0]), Dr(a[1])); };
        for (const auto& [name, op] : std::initializer_list<std::pair<const char*, X3>>{
                 {"AddReg", &E::AddReg}, {"SubReg", &E::SubReg}})
            f[name] = [op = op](E& e, const Args& a) { (e.*op)(X(a[0]), X(a[1]), X(a[2])); };
        for (const auto& [name, op] : std::initializer_list<std::pair<const char*, Imm>>{
                 {"AddImm", &E::AddImm}, {"SubImm", &E::SubImm}})
            f[name] = [op = op](E& e, const Args& a) { (e.*op)(X(a[0]), X(a[1]), static_cast<std::uint32_t>(N(a[2]))); };
        f["FCmp"] = [](E& e, const Args& a) { e.FCmp(Dr(a[0]), Dr(a[1])); };
        f["FCmpZero"] = [](E& e, const Args& a) { e.FCmpZero(Dr(a[0])); };
        f["FCsel"] = [](E& e, const Args& a) { e.FCsel(Dr(a[0]), Dr(a[1]), Dr(a[2]), C(a[3])); };
        f["FMovToX"] = [](E& e, const Args& a) { e.FMovToX(X(a[0]), Dr(a[1])); };
        f["FMovFromX"] = [](E& e, const Args& a) { e.FMovFromX(Dr(a[0]), X(a[1])); };
        f["FCvtzsW"] = [](E& e, const Args& a) { e.FCvtzsW(X(a[0]), Dr(a[1])); };
        f["ScvtfW"] = [](E& e, const Args& a) { e.ScvtfW(Dr(a[0]), X(a[1])); };
        f["MovImm"] = [](E& e, const Args& a) { e.MovImm(X(a[0]), static_cast<std::uint64_t>(N(a[1]))); };
        f["MovReg"] = [](E& e, const Args& a) { e.MovReg(X(a[0]), X(a[1])); };
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
    const std::vector<Case> cases = Load("a64_encodings.txt");
    ASSERT_GT(cases.size(), 3000u);
    for (const Case& c : cases) {
        bool known = false;
        const std::vector<std::uint8_t> out = Emit(c, known);
        ASSERT_TRUE(known) << "line " << c.line << ": unknown form " << c.form;
        std::vector<std::uint8_t> bytes;
        for (const std::wstring& byte : testutil::Words(c.then))
            bytes.push_back(static_cast<std::uint8_t>(std::stoul(byte, nullptr, 16)));
        EXPECT_EQ(out, bytes) << "line " << c.line << ": " << c.form;
    }
}

// What must fail, and with which fault; nothing after it is written (the
// single calls in data/a64_refusals.txt, then the sequences).
TEST(A64Emitter, RefusesWhatNoFormTakes)
{
    using Step = std::function<void(Emitter&)>;
    struct Refusal {
        std::string what;
        Fault fault;
        Step step;
    };
    std::vector<Refusal> table = {
        {"cbz on sp", Fault::kRegister, [](Emitter& e) { e.Cbz(sp, e.NewLabel()); }},
        {"scratch sp", Fault::kRegister, [](Emitter& e) { e.SetScratch(sp); }},
        {"scratch xzr", Fault::kRegister, [](Emitter& e) { e.SetScratch(xzr); }},
        {"far offset from another scratch", Fault::kRegister,
         [](Emitter& e) { e.SetScratch(x9); e.StrD(d0, x9, 40000); }},
        {"condition nv", Fault::kOffset, [](Emitter& e) { e.BCond(static_cast<Cond>(15), e.NewLabel()); }},
        {"unknown label", Fault::kLabel, [](Emitter& e) { e.B(3); }},
        {"bound twice", Fault::kLabel, [](Emitter& e) { const int l = e.NewLabel(); e.Bind(l); e.Bind(l); }},
        {"never bound", Fault::kLabel, [](Emitter& e) { e.Bl(e.NewLabel()); }},
        {"unknown constant", Fault::kLabel, [](Emitter& e) { e.LdrDConst(d0, 0); }},
        {"negative constant", Fault::kLabel, [](Emitter& e) { e.Constant(1); e.LdrXConst(x0, -1); }},
        {"full at the third word", Fault::kFull, [](Emitter& e) { e.Nop(); e.Nop(); e.Nop(); }},
        {"far offset full", Fault::kFull, [](Emitter& e) { e.Nop(); e.LdrD(d0, x1, 1 << 20); }},
    };
    const std::map<std::wstring, Fault> faults = {
        {L"register", Fault::kRegister}, {L"offset", Fault::kOffset}, {L"label", Fault::kLabel}, {L"full", Fault::kFull}};
    for (const Case& c : Load("a64_refusals.txt")) {
        table.push_back({"line " + std::to_string(c.line) + ": " + c.form, faults.at(c.then),
                         [c](Emitter& e) { Forms().at(c.form)(e, c.args); }});
    }
    EXPECT_GT(table.size(), 40u);
    for (const Refusal& t : table) {
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
