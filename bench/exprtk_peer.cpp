// Compiled once, at -O2, apart from the benchmarks (see exprtk_peer.h).
// Only features that a scalar formula never reaches are left out, to keep
// the compilation bearable; the optimisations ExprTk applies to formulas
// (constant folding, fused node forms, integer powers) all stay on.
#define exprtk_disable_string_capabilities
#define exprtk_disable_rtl_io
#define exprtk_disable_rtl_io_file
#define exprtk_disable_rtl_vecops
#define exprtk_disable_return_statement
#define exprtk_disable_break_continue
#include "exprtk_peer.h"

#include <exprtk.hpp>

#include <vector>

#include "native_functions.h"

namespace peer {
namespace {

double Anint(double x) { return std::round(x); }
double Mod(double a, double b) { return native::mod(a, b); }
double Sign(double a, double b) { return native::sign(a, b); }

// POLY, CHEBY, FORCOS and FORSIN take their coefficients as a list.
struct Series : exprtk::ivararg_function<double> {
    enum Kind { kPoly, kCheby, kForcos, kForsin } kind;
    explicit Series(Kind k) : kind(k) {}
    double operator()(const std::vector<double>& v) override
    {
        const int n = static_cast<int>(v.size());
        switch (kind) {
        case kPoly: return n < 2 ? 0.0 : native::poly(v[0], v[1], v.data() + 2, n - 2);
        case kCheby: return n < 2 ? 0.0 : native::cheby(v[0], v[1], v.data() + 2, n - 2);
        case kForcos: return n < 3 ? 0.0 : native::forcos(v[0], v[1], v[2], v.data() + 3, n - 3);
        case kForsin: return n < 3 ? 0.0 : native::forsin(v[0], v[1], v[2], v.data() + 3, n - 3);
        }
        return 0.0;
    }
};

}  // namespace

struct Exprtk::Impl {
    exprtk::symbol_table<double> symbols;
    exprtk::expression<double> expression;
    Series poly{Series::kPoly}, cheby{Series::kCheby}, forcos{Series::kForcos}, forsin{Series::kForsin};
    double* slots = nullptr;
};

Exprtk::Exprtk() : impl_(new Impl()) {}
Exprtk::~Exprtk() = default;

bool Exprtk::Compile(const std::string& text, double* slots, int params, std::string* error)
{
    Impl& m = *impl_;
    m.slots = slots;
    for (int i = 0; i < params; ++i)
        m.symbols.add_variable("p" + std::to_string(i), slots[i]);
    m.symbols.add_constants();
    m.symbols.add_function("anint", Anint);
    m.symbols.add_function("vmod", Mod);
    m.symbols.add_function("vsign", Sign);
    m.symbols.add_function("step", native::step);
    m.symbols.add_function("step5", native::step5);
    m.symbols.add_function("havsin", native::havsin);
    m.symbols.add_function("shf", native::shf);
    m.symbols.add_function("impact", native::impact);
    m.symbols.add_function("bistop", native::bistop);
    m.symbols.add_function("sweep", native::sweep);
    m.symbols.add_function("poly", m.poly);
    m.symbols.add_function("cheby", m.cheby);
    m.symbols.add_function("forcos", m.forcos);
    m.symbols.add_function("forsin", m.forsin);
    m.expression.register_symbol_table(m.symbols);
    exprtk::parser<double> parser;
    if (parser.compile(text, m.expression))
        return true;
    if (error)
        *error = parser.error();
    return false;
}

double Exprtk::Eval() const { return impl_->expression.value(); }

double Exprtk::Run(const double* sets, int params, int count) const
{
    double* slots = impl_->slots;
    const exprtk::expression<double>& e = impl_->expression;
    double sum = 0.0;
    for (int s = 0; s < count; ++s, sets += params) {
        for (int i = 0; i < params; ++i)
            slots[i] = sets[i];
        sum += e.value();
    }
    return sum;
}

}  // namespace peer
