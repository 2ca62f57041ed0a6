#ifndef VEXA_CORE_DATA_ACCESS_H
#define VEXA_CORE_DATA_ACCESS_H

#include <cstring>

#include "vexa/core/data.h"

namespace vexa_core {

// Inline access to the fields of a value, for the library's evaluation paths.
// The exported members answer the same questions through a call into the
// library each; evaluation asks them for every parameter and every result,
// where that call costs more than the answer. Internal to the library.
struct DataAccess {
    // A value of kind DT_SCALAR, exactly as getType would say.
    static bool IsScalar(const VEXA_Data& d) { return d.m_data && d.m_row == 1 && d.m_col == 1; }

    // The element of a value for which IsScalar holds.
    static double Scalar(const VEXA_Data& d) { return d.m_data[0]; }

    // Offsets of the fields within a value, for code that reads them directly.
    static int ShapeOffset() { return Offset(&VEXA_Data::m_row); }
    static int DataOffset() { return Offset(&VEXA_Data::m_data); }
    static int SpaceOffset() { return Offset(&VEXA_Data::m_space); }

    // Overwrites the element of a value for which IsScalar holds.
    static void SetScalar(VEXA_Data& d, double v) { d.m_data[0] = v; }

    // d = VEXA_Data(v): a scalar in the inline buffer. Storage that is already
    // the inline buffer of a scalar is reused instead of released and set up
    // anew; the value that results is the same.
    static void AssignScalar(VEXA_Data& d, double v)
    {
        if (d.m_data != d.m_space) {
            d.iReleaseData();
            d.m_data = d.m_space;
        }
        d.m_row = 1;
        d.m_col = 1;
        d.m_space[0] = v;
    }

    // The shape and elements of any value, read without a call.
    static int Rows(const VEXA_Data& d) { return d.m_row; }
    static int Cols(const VEXA_Data& d) { return d.m_col; }
    static const double* Elements(const VEXA_Data& d) { return d.m_data; }

    // d = a value of rows x cols whose elements are the first at v, in the
    // inline buffer as a copy of such a value would be; false, d untouched,
    // where it does not fit there.
    static bool AssignInline(VEXA_Data& d, int rows, int cols, const double* v)
    {
        if (rows < 1 || cols < 1 || rows > 9 || cols > 9 || rows * cols > 9)
            return false;
        if (d.m_data != d.m_space) {
            d.iReleaseData();
            d.m_data = d.m_space;
        }
        d.m_row = rows;
        d.m_col = cols;
        // Element by element: v was just written that way, and wider reads
        // of it would wait for the writes to drain.
        for (int e = 0; e < rows * cols; ++e)
            d.m_space[e] = v[e];
        return true;
    }

    // Whether d's elements are in its inline buffer.
    static bool IsInline(const VEXA_Data& d) { return d.m_data == d.m_space; }

    // The nine doubles of the inline buffer of a value of at most nine
    // elements (it always holds them there) into to.
    static void CopyBuffer(double* to, const VEXA_Data& from) { std::memcpy(to, from.m_space, sizeof from.m_space); }

    // to = from for two values of the same shape of at most nine elements:
    // their inline buffers, as the assignment copies it.
    static void CopyInlineValue(VEXA_Data& to, const VEXA_Data& from)
    {
        if (&to != &from)
            std::memcpy(to.m_space, from.m_space, sizeof to.m_space);
    }

private:
    template <class T>
    static int Offset(T VEXA_Data::*field)
    {
        const VEXA_Data probe;
        return static_cast<int>(reinterpret_cast<const char*>(&(probe.*field)) -
                                reinterpret_cast<const char*>(&probe));
    }
};

}  // namespace vexa_core

#endif
