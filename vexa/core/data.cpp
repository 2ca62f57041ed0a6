#include "vexa/core/data.h"

#include <cmath>
#include <cstring>

#include "vexa/core/platform.h"

VEXA_Data::VEXA_Data() : m_row(0), m_col(0), m_data(nullptr) {}

VEXA_Data::VEXA_Data(double v) : m_row(1), m_col(1), m_data(m_space) {
    m_space[0] = v;
}

// A request that yields no storage reports 0 x 0 like a default value, so
// that nothing later mistakes it for a shape with elements.
VEXA_Data::VEXA_Data(int rows, int cols) : m_row(0), m_col(0), m_data(nullptr) {
    InitSpace(rows, cols);
}

namespace {

// Values of up to nine elements live in the inline buffer, and copying all
// of it at once is cheaper than a loop over the elements; the elements
// beyond the shape were never part of the value.
void CopyInline(double* to, const double* from) {
    std::memcpy(to, from, 9 * sizeof(double));
}

}  // namespace

VEXA_Data::VEXA_Data(const VEXA_Data& other) : m_row(-2), m_col(-2), m_data(nullptr) {
    // A copy of a null value has no storage at all, so getValue() never hands
    // out a buffer whose contents nobody wrote.
    if (other.getType() == DT_NULL) return;
    if (other.m_data == other.m_space) {
        m_row = other.m_row;
        m_col = other.m_col;
        m_data = m_space;
        CopyInline(m_space, other.m_space);
        return;
    }
    InitSpace(other.m_row, other.m_col);
    const int n = m_row * m_col;
    for (int e = 0; e < n; ++e) m_data[e] = other.m_data[e];
}

VEXA_Data::~VEXA_Data() {
    iReleaseData();
}

VEXA_Data& VEXA_Data::operator=(const VEXA_Data& other) {
    if (this == &other) return *this;
    if (other.getType() == DT_NULL) {
        iReleaseData();
        return *this;
    }
    if (other.m_data == other.m_space) {
        if (m_data != m_space) iReleaseData();
        m_row = other.m_row;
        m_col = other.m_col;
        m_data = m_space;
        CopyInline(m_space, other.m_space);
        return *this;
    }
    // Reusing storage of the same shape gives the same value as releasing and
    // setting it up anew, without a heap round trip for large values.
    if (!(m_data && m_row == other.m_row && m_col == other.m_col)) InitSpace(other.m_row, other.m_col);
    const int n = m_row * m_col;
    for (int e = 0; e < n; ++e) m_data[e] = other.m_data[e];
    return *this;
}

bool VEXA_Data::operator==(const VEXA_Data& other) const {
    if (!IsConsistent(*this, other)) return false;
    if (m_row < 1 || m_col < 1) return true;  // no elements to compare
    // A null value may still report a positive shape (assignment keeps it);
    // it has no elements, so it equals nothing of that shape.
    if (!m_data || !other.m_data) return false;
    const int n = m_row * m_col;
    for (int e = 0; e < n; ++e) {
        if (std::fabs(m_data[e] - other.m_data[e]) > 0.000001) return false;
    }
    return true;
}

VEXA_Data::operator std::wstring() const {
    switch (getType()) {
    case DT_SCALAR:
        return vexa_platform::FormatInt(vexa_platform::Trunc32(m_data[0]));
    case DT_VECTOR:
        return L"vector";
    case DT_MATRIX:
        return L"matrix";
    default:
        return L"null";
    }
}

DataType VEXA_Data::getType() const {
    if (!m_data) return DT_NULL;
    if (m_row == 1) {
        if (m_col == 1) return DT_SCALAR;
        return m_col > 1 ? DT_VECTOR : DT_NULL;
    }
    if (m_row < 1) return DT_NULL;
    return m_col > 1 ? DT_MATRIX : DT_NULL;
}

bool VEXA_Data::getDataInfo(int& rows, int& cols) const {
    rows = m_row;
    cols = m_col;
    return true;
}

double* VEXA_Data::getValue() const {
    return m_data;
}

bool VEXA_Data::IsConsistent(const VEXA_Data& a, const VEXA_Data& b) {
    return a.m_row == b.m_row && a.m_col == b.m_col;
}

void VEXA_Data::Print() const {}

void VEXA_Data::InitSpace(int rows, int cols) {
    iReleaseData();
    if (rows < 1 || cols < 1) return;
    // A product beyond the 32-bit range cannot be addressed by the shape
    // fields; such a request gets no storage, like a non-positive shape.
    const long long n = static_cast<long long>(rows) * cols;
    if (n > 0x7FFFFFFFLL) return;
    m_data = n > 9 ? new double[static_cast<std::size_t>(n)] : m_space;
    setDataInfo(rows, cols);
}

void VEXA_Data::iReleaseData() {
    if (m_data && m_data != m_space) delete[] m_data;
    m_data = nullptr;
}

void VEXA_Data::setDataInfo(int rows, int cols) {
    m_row = rows;
    m_col = cols;
}
