#include <cmath>

#include "vexa/core/data.h"
#include "vexa/core/exact_pow.h"
#include "vexa/core/float_ops.h"

// Results are built directly in the returned value rather than in a
// temporary that is then copied; the value the caller receives is the same.

using vexa_core::Difference;
using vexa_core::Product;
using vexa_core::Quotient;
using vexa_core::Sum;

namespace {

const int kArithmeticFailure = -10001;

[[noreturn]] void Fail() {
    throw kArithmeticFailure;
}

bool HasElements(int rows, int cols) {
    return rows >= 1 && cols >= 1;
}

// Every result is returned through this single named object so that it
// reaches the caller without a copy: a copy of a value whose shape has no
// kind (3 x 1, say) would turn it into a null value.
template <class Fill>
VEXA_Data Build(int rows, int cols, Fill fill) {
    VEXA_Data r(rows, cols);
    if (double* out = r.getValue()) fill(out);
    return r;
}

// Element-wise combination of two operands of the same reported shape, both
// holding elements.
template <class Op>
VEXA_Data ElementWise(const double* x, const double* y, int rows, int cols, Op op) {
    const int n = rows * cols;
    return Build(rows, cols, [&](double* out) {
        for (int e = 0; e < n; ++e) out[e] = op(x[e], y[e]);
    });
}

}  // namespace

VEXA_Data VEXA_Data::operator*(const VEXA_Data& b) const {
    // Scalar times scalar dominates evaluation; take it before any other test.
    if (m_row == 1 && m_col == 1 && b.m_row == 1 && b.m_col == 1 && m_data && b.m_data)
        return VEXA_Data(Product(m_data[0], b.m_data[0]));

    const DataType ta = getType();
    const DataType tb = b.getType();
    if (ta == DT_NULL || tb == DT_NULL) return VEXA_Data();

    if (ta == DT_SCALAR || tb == DT_SCALAR) {
        const VEXA_Data& s = (ta == DT_SCALAR) ? *this : b;
        const VEXA_Data& m = (ta == DT_SCALAR) ? b : *this;
        const double k = s.m_data[0];
        const double* x = m.m_data;
        const int n = m.m_row * m.m_col;
        return Build(m.m_row, m.m_col, [&](double* out) {
            for (int e = 0; e < n; ++e) out[e] = Product(x[e], k);
        });
    }

    if (m_col != b.m_row) Fail();
    // A product shape too large to address gets no storage; the result is
    // then simply null, with the 0 x 0 shape of a refused request.
    const int rows = m_row, inner = m_col, cols = b.m_col;
    const double* x = m_data;
    const double* y = b.m_data;
    return Build(rows, cols, [&](double* out) {
        for (int i = 0; i < rows; ++i) {
            for (int j = 0; j < cols; ++j) {
                double sum = 0.0;
                for (int k = 0; k < inner; ++k) sum = Sum(sum, Product(x[i * inner + k], y[k * cols + j]));
                out[i * cols + j] = sum;
            }
        }
    });
}

VEXA_Data VEXA_Data::operator-(const VEXA_Data& b) const {
    if (m_row == 1 && m_col == 1 && b.m_row == 1 && b.m_col == 1 && m_data && b.m_data)
        return VEXA_Data(Difference(m_data[0], b.m_data[0]));

    if (getType() != DT_NULL) {
        if (!IsConsistent(*this, b)) Fail();
        // Same reported shape, but b may be a null value that kept it.
        if (!b.m_data) Fail();
        return ElementWise(m_data, b.m_data, m_row, m_col, [](double p, double q) { return Difference(p, q); });
    }

    // A null left operand negates b over the shape it reports. Only b's own
    // storage of exactly that shape can supply the elements.
    if (!HasElements(m_row, m_col)) return VEXA_Data();
    if (!b.m_data || b.m_row != m_row || b.m_col != m_col) Fail();
    const double* y = b.m_data;
    const int n = m_row * m_col;
    return Build(m_row, m_col, [&](double* out) {
        for (int e = 0; e < n; ++e) out[e] = -y[e];
    });
}

VEXA_Data VEXA_Data::operator+(const VEXA_Data& b) const {
    if (m_row == 1 && m_col == 1 && b.m_row == 1 && b.m_col == 1 && m_data && b.m_data)
        return VEXA_Data(Sum(b.m_data[0], m_data[0]));

    if (getType() == DT_NULL) return VEXA_Data(b);
    if (!IsConsistent(*this, b)) Fail();
    if (!b.m_data) Fail();
    return ElementWise(m_data, b.m_data, m_row, m_col, [](double p, double q) { return Sum(q, p); });
}

VEXA_Data VEXA_Data::operator/(const VEXA_Data& b) const {
    if (b.getType() != DT_SCALAR) Fail();
    const double d = b.m_data[0];
    if (!(0 < d || 0 > d)) Fail();

    // The left operand's kind is not examined, only its reported shape.
    if (!HasElements(m_row, m_col)) return VEXA_Data();
    if (!m_data) Fail();
    const double* x = m_data;
    const int n = m_row * m_col;
    return Build(m_row, m_col, [&](double* out) {
        for (int e = 0; e < n; ++e) out[e] = Quotient(x[e], d);
    });
}

VEXA_Data VEXA_Data::operator%(const VEXA_Data& b) const {
    if (m_row != 1 || m_col != 3 || b.m_row != 1 || b.m_col != 3) Fail();
    if (!m_data || !b.m_data) Fail();
    const double* x = m_data;
    const double* y = b.m_data;
    return Build(1, 3, [&](double* out) {
        out[0] = Difference(Product(x[1], y[2]), Product(x[2], y[1]));
        out[1] = Difference(Product(x[2], y[0]), Product(x[0], y[2]));
        out[2] = Difference(Product(x[0], y[1]), Product(x[1], y[0]));
    });
}

VEXA_Data VEXA_Data::operator^(const VEXA_Data& b) const {
    if (getType() != DT_SCALAR || b.getType() != DT_SCALAR) Fail();
    return VEXA_Data(vexa_math::Pow(m_data[0], b.m_data[0]));
}
