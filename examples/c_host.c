/* A C host: parses a motion drive, evaluates it at one point and at many,
   asks for its exact gradient and the library's derivative, registers it as
   a function of its own, and shows how a syntax error reads. Exits non-zero
   when anything is not as expected. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <vexa/vexa_c.h>

static int failures = 0;

static void expect(int ok, const char* what, const vexa_error* err)
{
    if (!ok) {
        ++failures;
        printf("FAILED: %s (%s)\n", what, err ? err->message : "");
    }
}

int main(void)
{
    vexa_error err;
    vexa_expr* drive = vexa_parse("STEP(TIME,0,0,1,AMP)*SIN(2*PI*TIME)", "TIME", &err);
    if (!drive) {
        printf("%s\n", err.message);
        return 1;
    }
    /* TIME from the list, then AMP from the text. */
    printf("parameters: %s, %s\n", vexa_param_name(drive, 0), vexa_param_name(drive, 1));

    double point[2] = {0.25, 2.0};
    double value = 0.0;
    expect(vexa_eval(drive, point, &value, &err) == VEXA_OK, "one point", &err);
    printf("f(0.25, 2) = %.17g\n", value);
    expect(fabs(value - 0.3125) < 1e-15, "value of the cubic step at a quarter", NULL);

    /* 1000 points: TIME varies, AMP is held at 2 (a stride of 0). */
    enum { N = 1000 };
    static double time[N], values[N];
    for (int i = 0; i < N; ++i)
        time[i] = 0.002 * i;
    const double amp = 2.0;
    const double* columns[2] = {time, &amp};
    const ptrdiff_t strides[2] = {1, 0};
    vexa_report report;
    expect(vexa_eval_many_ex(drive, N, columns, strides, values, NULL, &report, &err) == VEXA_OK, "many points",
           &err);
    expect(values[125] == value, "bulk values equal single ones", NULL);

    /* Exact partials at one point, and the library's own derivative. */
    double grad[2];
    expect(vexa_gradient(drive, point, grad, &err) == VEXA_OK, "gradient", &err);
    printf("d/dTIME = %.17g, d/dAMP = %.17g\n", grad[0], grad[1]);
    vexa_expr* dtime = vexa_derivative(drive, 0, &err);
    expect(dtime != NULL, "derivative", &err);
    double slope = 0.0;
    expect(dtime && vexa_eval(dtime, point, &slope, &err) == VEXA_OK, "derivative value", &err);
    /* STEP has no symbolic rule: the library differentiates it by a central
       difference, close to the exact value but not equal. */
    printf("library derivative d/dTIME = %.17g\n", slope);
    expect(fabs(slope - grad[0]) < 1e-5, "the derivative agrees with the exact gradient", NULL);
    vexa_free(dtime);

    /* The drive as a function of the language, called by a later text. */
    expect(vexa_register("DRIVE", drive, &err) == VEXA_OK, "register", &err);
    vexa_expr* twice = vexa_parse("2*DRIVE(t, 2)", "t", &err);
    double t = 0.25, doubled = 0.0;
    expect(twice && vexa_eval(twice, &t, &doubled, &err) == VEXA_OK && doubled == 2 * value, "registered call",
           &err);
    vexa_free(twice);
    expect(vexa_unregister("DRIVE", &err) == VEXA_OK, "unregister", &err);

    /* A syntax error: the code the parser threw, the byte offset, a message. */
    vexa_expr* bad = vexa_parse("MAX(SIN(x), STEP(x,0,0,1,2 # 3))", "x", &err);
    printf("error %d at %d: %s\n", err.code, err.position, err.message);
    expect(!bad && err.position == 27, "syntax error position", NULL);

    /* A value that refuses: SQRT of a negative number has no value. */
    vexa_expr* root = vexa_parse("SQRT(x)", "x", &err);
    double minus = -1.0, r = 0.0;
    expect(vexa_eval(root, &minus, &r, &err) == VEXA_E_NULL && isnan(r), "null value", &err);
    printf("SQRT(-1): %s\n", err.message);
    vexa_free(root);

    vexa_free(drive);
    printf("%s\n", failures ? "C host: FAILED" : "C host: all as expected");
    return failures ? 1 : 0;
}
