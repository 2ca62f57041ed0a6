#include <limits>

#include "vexa/compiled/program/shaped_program.h"

namespace vexa_compiled {

namespace {

// Shapes are static for a signature, so a 1 x 3 or 3 x 3 kernel is a few
// dozen scalar operations: written out, the back ends keep its elements in
// registers with no loop and no dispatch. Beyond this the code would grow
// with little gain over the interpreter's loops.
constexpr std::size_t kMostUnrolled = 4096;

class Unroller {
public:
    explicit Unroller(std::uint32_t slots) : m_next(slots) {}

    void Emit(std::uint8_t op, std::uint32_t d, std::uint32_t a, std::uint32_t b) { m_code.push_back({op, d, a, b, 0}); }
    std::uint32_t Temporary() { return m_next++; }
    std::uint32_t next() const { return m_next; }
    std::vector<Instr>& code() { return m_code; }

private:
    std::vector<Instr> m_code;
    std::uint32_t m_next;
};

}  // namespace

// The operand orders are those of Run's loops (shaped_run.cpp) in the
// scalar rows' terms: kAdd d, a, b computes b + a, so an element sum keeps
// the operands of SumEach and a running sum of a product is kAdd of the term
// (a) to the sum (b).
std::unique_ptr<Program> ShapedProgram::Unrolled() const
{
    std::unique_ptr<Program> p(new Program());
    if (m_init.size() >= std::numeric_limits<std::uint32_t>::max() / 2)
        return nullptr;
    Unroller u(static_cast<std::uint32_t>(m_init.size()));
    std::vector<Instr>& code = u.code();
    // A matrix product's sums start from 0, as the value arithmetic's do:
    // 0 + t is not t for t = -0 or a subnormal t under denormals-are-zero.
    const std::uint32_t zero = u.Temporary();
    for (const ShapedInstr& in : m_code) {
        if (code.size() > kMostUnrolled)
            return nullptr;
        const std::uint32_t d = in.d, a = in.a, b = in.b, n = in.n;
        switch (in.op) {
        case kSumEach:
            for (std::uint32_t e = 0; e < n; ++e)
                u.Emit(kAdd, d + e, a + e, b + e);
            break;
        case kDifferenceEach:
            for (std::uint32_t e = 0; e < n; ++e)
                u.Emit(kSub, d + e, a + e, b + e);
            break;
        case kScaleEach:
            for (std::uint32_t e = 0; e < n; ++e)
                u.Emit(kMul, d + e, a + e, b);
            break;
        case kQuotientEach:
            // Each division tests the divisor as the run's one test does:
            // the first stops before any element is written.
            for (std::uint32_t e = 0; e < n; ++e)
                u.Emit(kDiv, d + e, a + e, b);
            break;
        case kMatrixProduct:
            if (std::uint64_t(n) * in.cols * in.inner * 2 > kMostUnrolled)
                return nullptr;
            for (std::uint32_t i = 0; i < n; ++i) {
                for (std::uint32_t j = 0; j < in.cols; ++j) {
                    std::uint32_t sum = zero;
                    for (std::uint32_t k = 0; k < in.inner; ++k) {
                        const std::uint32_t term = u.Temporary();
                        u.Emit(kMul, term, a + i * in.inner + k, b + k * in.cols + j);
                        const std::uint32_t to = k + 1 == in.inner ? d + i * in.cols + j : u.Temporary();
                        // 0 + t as t + 0: one operand at most is a NaN, so
                        // the order changes no bit, and the back ends add
                        // the zero to the term's register instead of
                        // loading the zero first.
                        if (k == 0)
                            u.Emit(kAdd, to, zero, term);
                        else
                            u.Emit(kAdd, to, term, sum);
                        sum = to;
                    }
                }
            }
            break;
        case kCrossProduct: {
            static const std::uint32_t kFirst[3][2] = {{1, 2}, {2, 0}, {0, 1}};
            for (std::uint32_t e = 0; e < 3; ++e) {
                const std::uint32_t i = kFirst[e][0], j = kFirst[e][1];
                const std::uint32_t left = u.Temporary(), right = u.Temporary();
                u.Emit(kMul, left, a + i, b + j);
                u.Emit(kMul, right, a + j, b + i);
                u.Emit(kSub, d + e, left, right);
            }
            break;
        }
        default:
            // The table's rows over scalar slots, lists included: their
            // argument slots are copied below as they are.
            code.push_back({in.op, d, a, b, 0});
            break;
        }
        if (u.next() >= std::numeric_limits<std::uint32_t>::max() / 2)
            return nullptr;
    }
    if (code.size() > kMostUnrolled)
        return nullptr;
    p->m_code.swap(code);
    p->m_arg_regs = m_arg_slots;
    p->m_init = m_init;
    p->m_init.resize(u.next(), 0.0);
    for (const Load& load : m_loads) {
        for (std::uint32_t e = 0; e < load.count; ++e)
            p->m_loads.emplace_back(load.param, load.slot + e);
        if (load.param + 1 > p->m_needed_params)
            p->m_needed_params = load.param + 1;
    }
    p->m_result = m_result;
    return p;
}

}  // namespace vexa_compiled
