#ifndef VEXA_BENCH_EXPRTK_PEER_H
#define VEXA_BENCH_EXPRTK_PEER_H

#include <memory>
#include <string>

// The peer parser ExprTk behind a small interface: its header is huge and
// slow to compile, so it is compiled once, in exprtk_peer.cpp, and nothing
// else includes it. The language's own functions are given to it as the
// callbacks of native_functions.h, under the names gen_cases writes.
namespace peer {

class Exprtk {
public:
    Exprtk();
    ~Exprtk();
    Exprtk(const Exprtk&) = delete;
    Exprtk& operator=(const Exprtk&) = delete;

    // Binds slots[0..params) as p0, p1, ... and compiles text; on failure,
    // false and the parser's message in *error.
    bool Compile(const std::string& text, double* slots, int params, std::string* error);
    double Eval() const;
    // Evaluates once per set of `params` values (count sets, one after the
    // other in `sets`), copying each into the slots first; returns the sum
    // of the values. The loop lies here, beside the evaluation, as a host
    // would write it: the peer is not charged a call across files per point.
    double Run(const double* sets, int params, int count) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace peer

#endif
