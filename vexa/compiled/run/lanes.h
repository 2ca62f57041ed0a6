#ifndef VEXA_COMPILED_LANES_H
#define VEXA_COMPILED_LANES_H

// The four operations over many lanes at once, for the many-point runner.
// Internal.
namespace vexa_compiled {

// Lanes go in groups of this many; every block is a whole number of groups.
constexpr int kLaneGroup = 4;

// d[i] = first[i] (op) second[i] for i < n, n a multiple of kLaneGroup: per
// lane exactly what Sum, Difference, Product and Quotient of
// vexa/core/float_ops.h give, the bits of a NaN included, since the vector
// instructions keep the operand order too. d may alias either operand.
void SumLanes(double* d, const double* first, const double* second, int n);
void DifferenceLanes(double* d, const double* first, const double* second, int n);
void ProductLanes(double* d, const double* first, const double* second, int n);
void QuotientLanes(double* d, const double* first, const double* second, int n);

}  // namespace vexa_compiled

#endif
