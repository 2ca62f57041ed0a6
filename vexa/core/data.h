#ifndef VEXA_CORE_DATA_H
#define VEXA_CORE_DATA_H

#include <string>

#include "vexa/core/export.h"

namespace vexa_core {
struct DataAccess;
}

enum DataType {
    DT_NULL = 0,
    DT_SCALAR = 1,
    DT_VECTOR = 2,
    DT_MATRIX = 3
};

// The one value type of the language: null, scalar, row vector or matrix of
// doubles, row-major. Values of up to nine elements live in m_space and never
// touch the heap.
class VEXA_API VEXA_Data {
public:
    VEXA_Data();
    VEXA_Data(double v);
    VEXA_Data(int rows, int cols);
    VEXA_Data(const VEXA_Data& other);
    ~VEXA_Data();

    VEXA_Data& operator=(const VEXA_Data& other);
    bool operator==(const VEXA_Data& other) const;
    operator std::wstring() const;

    DataType getType() const;
    bool getDataInfo(int& rows, int& cols) const;
    double* getValue() const;
    static bool IsConsistent(const VEXA_Data& a, const VEXA_Data& b);
    void Print() const;

    // Arithmetic; every failure throws the int -10001.
    VEXA_Data operator*(const VEXA_Data& b) const;
    VEXA_Data operator-(const VEXA_Data& b) const;
    VEXA_Data operator+(const VEXA_Data& b) const;
    VEXA_Data operator/(const VEXA_Data& b) const;
    VEXA_Data operator%(const VEXA_Data& b) const;
    VEXA_Data operator^(const VEXA_Data& b) const;

private:
    // Raw field access for the library's own hot paths (vexa/core/data_access.h).
    friend struct vexa_core::DataAccess;

    void InitSpace(int rows, int cols);
    void iReleaseData();
    void setDataInfo(int rows, int cols);

    int m_row;
    int m_col;
    double* m_data;
    double m_space[9];
};

#endif
