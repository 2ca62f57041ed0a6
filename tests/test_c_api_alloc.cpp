// Memory running out at every allocation in turn, inside each call of the C
// interface: the call answers VEXA_E_MEMORY (or succeeds), nothing crosses
// the interface, and nothing leaks (the sanitizer build checks).
#include <gtest/gtest.h>

#include <functional>

#include "alloc_counter.h"
#include "vexa/vexa_c.h"

using alloc_counter::countdown;

namespace {

// Runs call with the k-th allocation failing, k = 1, 2, ... until it gets
// through; every failed run must say VEXA_E_MEMORY.
void FailEachAllocation(const char* what, const std::function<int(vexa_error&)>& call)
{
    for (long k = 1;; ++k) {
        vexa_error err;
        countdown = k;
        int status;
        try {
            status = call(err);
        } catch (...) {
            FAIL() << what << ": an exception escaped with allocation " << k << " failing";
        }
        const bool reached = countdown == 0;
        countdown = -1;
        if (!reached) {
            ASSERT_EQ(status, VEXA_OK) << what << ": " << err.message;
            return;
        }
        ASSERT_EQ(status, VEXA_E_MEMORY) << what << " with allocation " << k << " failing: " << err.message;
        ASSERT_EQ(err.code, VEXA_E_MEMORY);
    }
}

int StatusOf(vexa_expr* made, const vexa_error& err)
{
    vexa_free(made);
    return made ? VEXA_OK : err.code;
}

TEST(CApiMemory, EveryCallAnswersWhenMemoryRunsOut)
{
#if defined(_WIN32)
    GTEST_SKIP() << "the library's DLL allocates through its own operator new, which a program cannot replace";
#endif
    vexa_expr* twice = vexa_parse("2*a", "a", nullptr);
    ASSERT_EQ(vexa_register("MTWICE", twice, nullptr), VEXA_OK);
    vexa_expr* e = vexa_parse("MTWICE(STEP(x,0,0,1,y))*V+LOG(x)", "x,y,V", nullptr);
    vexa_expr* vectors = vexa_parse("MTWICE(x)*V*y", "x,y,V", nullptr);
    ASSERT_TRUE(e && vectors);
    const double point[] = {0.5, 2, 3};
    double out[9], grad[3], many[300];

    FailEachAllocation("parse", [](vexa_error& err) {
        return StatusOf(vexa_parse("MTWICE(STEP(x,0,0,1,y))*V+LOG(x)", "x,y,V", &err), err);
    });
    FailEachAllocation("derivative", [&](vexa_error& err) { return StatusOf(vexa_derivative(e, 0, &err), err); });
    FailEachAllocation("register", [&](vexa_error& err) {
        const int status = vexa_register("MCOPY", e, &err);
        if (status == VEXA_OK) {
            const long pending = countdown;
            countdown = -1;
            vexa_unregister("MCOPY", nullptr);
            countdown = pending;
        }
        return status;
    });
    FailEachAllocation("eval", [&](vexa_error& err) { return vexa_eval(e, point, out, &err); });
    FailEachAllocation("gradient", [&](vexa_error& err) { return vexa_gradient(e, point, grad, &err); });
    FailEachAllocation("many", [&](vexa_error& err) {
        const double* columns[] = {point, point + 1, point + 2};
        const ptrdiff_t held[] = {0, 0, 0};
        return vexa_eval_many_ex(e, 300, columns, held, many, nullptr, nullptr, &err);
    });
    FailEachAllocation("value", [&](vexa_error& err) {
        // Values of more than nine elements live on the heap.
        double v[12] = {1, 2, 3}, big[12];
        const vexa_value in[] = {{1, 1, v}, {1, 1, v + 1}, {1, 12, v}};
        vexa_value result = {0, 0, big};
        return vexa_eval_value(vectors, in, &result, 12, &err);
    });
    FailEachAllocation("dump", [&](vexa_error& err) {
        char* t = vexa_dump(e, &err);
        vexa_free_text(t);
        return t ? VEXA_OK : err.code;
    });
    vexa_free(e);
    vexa_free(vectors);
    ASSERT_EQ(vexa_unregister("MTWICE", nullptr), VEXA_OK);
    vexa_free(twice);
}

}  // namespace
