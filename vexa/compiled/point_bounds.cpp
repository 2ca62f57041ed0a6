#include "vexa/compiled/point_bounds.h"

#include <cstdint>
#include <limits>
#include <stdexcept>

#include "vexa/compiled/compiled_expression.h"

namespace vexa_compiled {

namespace {

// The most doubles one object can hold: offsets between its elements must
// fit a ptrdiff_t in bytes.
constexpr std::size_t kMostDoubles =
    static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max()) / sizeof(double);

}  // namespace

std::string PointsBeyondReach(std::size_t n, int params, const vexa::Column* columns, std::size_t per_point)
{
    if (n == 0)
        return std::string();
    if (n > kMostDoubles / (per_point == 0 ? 1 : per_point))
        return std::to_string(n) + " points need more doubles than one buffer can hold";
    // With n <= kMostDoubles, (n - 1) * |stride| is checked without overflow.
    const std::size_t last = n - 1;
    for (int k = 0; k < params && columns; ++k) {
        const std::ptrdiff_t stride = columns[k].stride;
        const std::size_t size = stride < 0 ? 0 - static_cast<std::size_t>(stride) : static_cast<std::size_t>(stride);
        if (last > 0 && size > kMostDoubles / last)
            return "the stride " + std::to_string(stride) + " of parameter " + std::to_string(k) +
                   " reaches beyond any buffer over " + std::to_string(n) + " points";
    }
    return std::string();
}

void CheckPoints(std::size_t n, int params, const vexa::Column* columns, std::size_t per_point)
{
    const std::string why = PointsBeyondReach(n, params, columns, per_point);
    if (!why.empty())
        throw std::length_error("vexa: " + why);
}

std::string ShapeRefused(int rows, int cols)
{
    const bool number = rows == 1 && cols == 1;
    const bool row = rows == 1 && cols >= 2;
    const bool matrix = rows >= 2 && cols >= 2;
    const std::string shape = std::to_string(rows) + " x " + std::to_string(cols);
    if (!number && !row && !matrix)
        return "a " + shape + " value is none the language has (1 x 1, 1 x n or m x n with m, n >= 2)";
    // The bound of VEXA_Data's own storage.
    if (static_cast<long long>(rows) * cols > 0x7FFFFFFFLL)
        return "a " + shape + " value has more elements than a value can hold";
    return std::string();
}

std::string ShapedPointsBeyondReach(std::size_t n, int params, const vexa::ShapedColumn* columns, int rows,
                                    int cols, bool* bad_shape)
{
    if (bad_shape)
        *bad_shape = true;
    std::string why = ShapeRefused(rows, cols);
    if (!why.empty())
        return "the result: " + why;
    for (int k = 0; k < params && columns; ++k) {
        why = ShapeRefused(columns[k].rows, columns[k].cols);
        if (!why.empty())
            return "parameter " + std::to_string(k) + ": " + why;
    }
    if (bad_shape)
        *bad_shape = false;
    if (n == 0)
        return std::string();
    // Both shapes hold at most 2^31 - 1 elements, so no product below wraps.
    const std::size_t per_point = static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols);
    if (n > kMostDoubles / per_point)
        return std::to_string(n) + " points of " + std::to_string(per_point) +
               " doubles need more than one buffer can hold";
    const std::size_t last = n - 1;
    for (int k = 0; k < params && columns; ++k) {
        const std::ptrdiff_t stride = columns[k].stride;
        const std::size_t size = stride < 0 ? 0 - static_cast<std::size_t>(stride) : static_cast<std::size_t>(stride);
        const std::size_t elements = static_cast<std::size_t>(columns[k].rows) * static_cast<std::size_t>(columns[k].cols);
        // The last point's value must end within reach of the column's start.
        if ((last > 0 && size > (kMostDoubles - elements) / last))
            return "the stride " + std::to_string(stride) + " of parameter " + std::to_string(k) +
                   " reaches beyond any buffer over " + std::to_string(n) + " points";
    }
    return std::string();
}

void CheckShapedPoints(std::size_t n, int params, const vexa::ShapedColumn* columns, int rows, int cols)
{
    bool bad_shape = false;
    const std::string why = ShapedPointsBeyondReach(n, params, columns, rows, cols, &bad_shape);
    if (why.empty())
        return;
    if (bad_shape)
        throw std::invalid_argument("vexa: " + why);
    throw std::length_error("vexa: " + why);
}

}  // namespace vexa_compiled
