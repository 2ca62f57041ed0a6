#ifndef VEXA_COMPILED_POINT_BOUNDS_H
#define VEXA_COMPILED_POINT_BOUNDS_H

#include <cstddef>
#include <string>

namespace vexa {
struct Column;
struct ShapedColumn;
}

namespace vexa_compiled {

// Why n points of `params` columns, each point writing `per_point` doubles,
// cannot be evaluated: empty when they can. No buffer that large can exist,
// so such a count is a host's mistake (often a negative count turned
// unsigned), and answering it with success and nothing written would hide
// it. A column's last point must also lie within the reach of a pointer
// offset. columns may be null when params is 0.
std::string PointsBeyondReach(std::size_t n, int params, const vexa::Column* columns, std::size_t per_point);

// Throws std::length_error with the reason above.
void CheckPoints(std::size_t n, int params, const vexa::Column* columns, std::size_t per_point);

// Why a rows x cols value is none the language has (0 x 0 aside): empty when
// it is 1 x 1, 1 x n or m x n with m, n >= 2 and fits a value's elements.
std::string ShapeRefused(int rows, int cols);

// The same as PointsBeyondReach for shaped columns, whose every point reads
// rows x cols doubles from its start; a shape refused above is told too.
// bad_shape says which of the two it is.
std::string ShapedPointsBeyondReach(std::size_t n, int params, const vexa::ShapedColumn* columns, int rows,
                                    int cols, bool* bad_shape = nullptr);

// Throws std::invalid_argument for a shape, std::length_error for a reach.
void CheckShapedPoints(std::size_t n, int params, const vexa::ShapedColumn* columns, int rows, int cols);

}  // namespace vexa_compiled

#endif
