#ifndef VEXA_VEXA_C_H
#define VEXA_VEXA_C_H

/*
 * vexa for C hosts (and for Fortran through ISO_C_BINDING): opaque handles,
 * UTF-8 texts, plain statuses. Nothing thrown inside the library crosses
 * this interface: every error code of the library, and memory running out,
 * comes back as a status with a message in a vexa_error.
 *
 *   vexa_error err;
 *   vexa_expr* e = vexa_parse("STEP(TIME,0,0,1,10)*SIN(2*PI*TIME)", "TIME", &err);
 *   if (!e) { fprintf(stderr, "%s\n", err.message); return 1; }
 *   double t = 0.5, v;
 *   if (vexa_eval(e, &t, &v, &err) != VEXA_OK) fprintf(stderr, "%s\n", err.message);
 *   vexa_free(e);
 *
 * Errors. Every call that can fail takes a vexa_error* last; it may be NULL.
 * Calls that return int return VEXA_OK (0) or one of the VEXA_E_* statuses
 * below; calls that return a pointer return NULL on failure. On failure,
 * err->message holds one line of UTF-8 and err->code is
 *   - for a text that does not parse: the code the parser threw (0 or a
 *     position, 100, or a negative code of a call tried while parsing), and
 *     err->position the byte offset of the offending piece in the text as
 *     passed (-1 when there is none);
 *   - for an evaluation that threw (status VEXA_E_CODE): the thrown
 *     code (-10001 operands that cannot be combined, -1000 a function
 *     without an implementation, -1001 a registered function already being
 *     evaluated, -1002 calls nested too deep, 123 a parameter without a
 *     value, 1000 a derivative rule given the wrong argument count);
 *   - otherwise the status itself.
 * A point without a value (VEXA_E_CODE, VEXA_E_NULL, VEXA_E_REFUSED) is
 * explained by the part of the text that caused it, found by evaluating the
 * tree again node by node (vexa::DiagnoseEvaluation): a division by zero, a
 * call that refused its arguments (which function, which values), operands
 * of shapes an operator does not take (which shapes), a call that threw.
 * The one-point calls (vexa_eval, vexa_eval_ex, vexa_eval_value,
 * vexa_gradient) then set err->position to the byte offset of that part in
 * the text as passed; bulk calls keep the point's index there and explain
 * the point they tell of in the message. Where another thread holds the tree (or a registered function
 * it calls) at that moment, the message stays the general one of the code.
 * The statuses lie below -20000, apart from every code of the library.
 *
 * Parameters. params is the host's comma-separated list of names (NULL, or
 * nothing but white space: none). Every name a text can contain may be
 * listed, digits and braces included ("TIME,T0,X1,{DIST}"). A list is
 * refused (VEXA_E_LIST, err->position the byte offset in the list) for an
 * empty name ("x,", "x,,y", ",x"), a space inside a name ("x y"), a name
 * given twice (names match without regard to case, as in texts), a function
 * name, a named constant (PI, RTOD, DTOR) or anything no text reads as a
 * name. vexa_param_count and vexa_param_name give the final parameter order:
 * the names of the host's list in its order, then every further name of the
 * text in order of first appearance. Every evaluation takes its values in
 * that order, one per parameter.
 *
 * White space. In texts and lists, tab, carriage return, line feed and the
 * no-break space (U+00A0) are read as spaces, and so is a byte-order mark
 * (U+FEFF) at the start; positions still count in the text as passed.
 *
 * Threads. The library starts no thread of its own except where a bulk call
 * is asked to split its points (vexa_options.threads).
 *   - Any number of threads may at once call vexa_eval, vexa_eval_ex,
 *     vexa_eval_many(_ex), vexa_eval_many_shaped, vexa_gradient(_many), vexa_param_count,
 *     vexa_param_name and vexa_can_plot on the same vexa_expr: these run
 *     on a compiled form of the expression that is only read, each call in
 *     scratch memory of its own. Where no form could be made (registered
 *     functions nested too deep), these calls take turns on the tree:
 *     they wait, none is refused.
 *   - The other calls on one vexa_expr (vexa_eval_value, vexa_derivative,
 *     vexa_dump, vexa_tree_text, vexa_registered_calls, vexa_register) work
 *     on its tree and are for one thread at a time; a second one that
 *     overlaps is refused with VEXA_E_BUSY instead of racing. vexa_free
 *     overlaps nothing on its expression.
 *   - vexa_register and vexa_unregister change the process-wide registry and
 *     must not overlap any other call of the library. Parses may run at once;
 *     two that both try the same registered function may refuse one with
 *     code -1001 (try it again).
 */

#include <stddef.h>

#include "vexa/core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct vexa_expr vexa_expr;

typedef struct vexa_error {
    int code;
    int position;
    char message[256];
} vexa_error;

/* Statuses. */
#define VEXA_OK 0
#define VEXA_E_CODE (-20001)   /* the evaluation threw: err->code holds the code */
#define VEXA_E_NULL (-20002)         /* no value: a function refused its arguments, or a parameter had none */
#define VEXA_E_NOT_SCALAR (-20003)   /* the value is a vector or matrix where a number was asked for */
#define VEXA_E_REFUSED (-20004)      /* strict: a call refused its arguments, or a null value arose inside */
#define VEXA_E_NO_GRADIENT (-20005)  /* the exact gradient cannot follow the point (a vector value inside) */
#define VEXA_E_POINTS (-20006)       /* a bulk call left points NaN; err tells of one (position: its index) */
#define VEXA_E_LIST (-20007)         /* the parameter-name list is rejected; err->position: byte offset in the list */
#define VEXA_E_NO_DERIVATIVE (-20008) /* the derivative tree would be too large or too deep */
#define VEXA_E_NOT_REGISTERED (-20009) /* a name refused by vexa_register, or unknown to vexa_unregister */
#define VEXA_E_BUSY (-20010)         /* another thread works on this expression's tree right now */
#define VEXA_E_TOO_SMALL (-20011)    /* the result does not fit the buffer given; its shape is reported */
#define VEXA_E_ARGUMENT (-20012)     /* a null handle or pointer, an index or shape out of range */
#define VEXA_E_MEMORY (-20013)       /* memory ran out; nothing was changed */
#define VEXA_E_INTERNAL (-20014)     /* anything else the library stopped on (the message says what) */
#define VEXA_E_SHAPE (-20015)        /* a point's value has another shape than the one asked for */

/* Parsing. params: the host's comma-separated parameter names, or NULL. */
VEXA_API vexa_expr* vexa_parse(const char* text, const char* params, vexa_error* err); /* NULL on error */
/* The library's review of a text that parses but is probably not read as
   meant (a ')' that closes nothing, names that differ only in case, a
   registered function called with another count than its parameters, "1 5"
   read as 15, a call of constants without a value, ...): one warning a line,
   the byte offset of its piece in the text as passed (-1: none), a tab, the
   message. An empty text when there is nothing to say; NULL on error (a text
   that does not parse, a rejected list: as vexa_parse). Free it with
   vexa_free_text. */
VEXA_API char* vexa_review(const char* text, const char* params, vexa_error* err);
VEXA_API void vexa_free(vexa_expr* e);                                                 /* NULL is fine */
VEXA_API int vexa_param_count(const vexa_expr* e);                                     /* -1 for NULL */
VEXA_API const char* vexa_param_name(const vexa_expr* e, int index); /* owned by e; NULL out of range */
VEXA_API int vexa_can_plot(const vexa_expr* e);                      /* 0 when it calls IMPACT or BISTOP */

/* One point, all parameters numbers: *result is what the library's Evaluate
   gives, bit for bit. params may be NULL when there are no parameters. */
VEXA_API int vexa_eval(vexa_expr* e, const double* params, double* result, vexa_error* err); /* 0 = ok */

typedef struct vexa_options {
    int strict;  /* nonzero: a refused call or a null value inside fails the point (VEXA_E_REFUSED),
                    where ordinary evaluation drops the term: LOG(X) + 5 at X = -1 is 5 */
    int threads; /* bulk calls: 1 the calling thread alone, N > 1 N threads, 0 or less one per hardware
                    thread: the meaning vexa::Options gives it */
} vexa_options; /* NULL options: not strict, the calling thread alone */

/* vexa_eval with options (NULL: the defaults). */
VEXA_API int vexa_eval_ex(vexa_expr* e, const double* params, double* result, const vexa_options* options,
                          vexa_error* err);

/* Values of any shape: 0 x 0 null, 1 x 1 a number, 1 x n a row vector,
   m x n a matrix (m, n >= 2), row-major. There are no column vectors. */
typedef struct vexa_value {
    int rows;
    int cols;
    double* data;
} vexa_value;

/* One point with values of any shape (params: vexa_param_count of them; a
   0 x 0 one has no value). The result's elements go to result->data, which
   holds capacity doubles; rows and cols are set even when they do not fit
   (VEXA_E_TOO_SMALL), so a host can size its buffer and call again. A null
   result is VEXA_E_NULL with 0 x 0. Works on the tree (one thread at a time). */
VEXA_API int vexa_eval_value(vexa_expr* e, const vexa_value* params, vexa_value* result, size_t capacity,
                             vexa_error* err);

/* Many points: columns[i] holds the n values of parameter i; results gets n
   values, each what vexa_eval gives. A point without a value gets NaN, and
   the call then returns VEXA_E_POINTS, every other point being computed. */
VEXA_API int vexa_eval_many(vexa_expr* e, size_t n, const double* const* columns, double* results,
                            vexa_error* err);

/* What went wrong over many points. */
typedef struct vexa_report {
    size_t failed; /* points left NaN */
    size_t thrown; /* of those, points whose evaluation threw a code */
} vexa_report;

/* vexa_eval_many with options and strides: point j of parameter i is
   columns[i][j * strides[i]] (strides NULL: all 1; a stride of 0 holds one
   value for every point). When some point threw, err tells of the first that
   threw; otherwise of the first that failed. report may be NULL. A count or
   stride no buffer could match (a negative count turned unsigned) is refused
   with VEXA_E_ARGUMENT before anything is written; so in vexa_gradient_many. */
VEXA_API int vexa_eval_many_ex(vexa_expr* e, size_t n, const double* const* columns, const ptrdiff_t* strides,
                               double* results, const vexa_options* options, vexa_report* report,
                               vexa_error* err);

/* Many points with values of any shape: point j of parameter i is the
   rows[i] x cols[i] doubles, row-major, from columns[i] + j * strides[i]
   (strides NULL: each parameter's values side by side, rows[i] * cols[i]
   apart; a stride of 0 holds one value for every point; rows and cols NULL:
   every parameter a number). results + j * result_rows * result_cols gets
   point j's value, each what vexa_eval_value gives. A point without a value
   of that shape gets NaN in all its elements (err->code VEXA_E_SHAPE where
   the shape differs), and the call then returns VEXA_E_POINTS as
   vexa_eval_many_ex does. A shape the language has not (a column vector,
   a side below 1) and a count or stride no buffer could match are refused
   with VEXA_E_ARGUMENT before anything is written. Vectors and matrices are
   evaluated by the tree, ordinarily: options->strict counts only where
   every parameter and the result are numbers. */
VEXA_API int vexa_eval_many_shaped(vexa_expr* e, size_t n, const double* const* columns, const ptrdiff_t* strides,
                                   const int* rows, const int* cols, int result_rows, int result_cols,
                                   double* results, const vexa_options* options, vexa_report* report,
                                   vexa_error* err);

/* Exact partial derivatives at one point, grad[k] = d value / d parameter k
   (vexa_param_count of them), by reverse-mode differentiation of the
   compiled program: exact to rounding through every argument of every
   function. Always strict; where it fails every partial is NaN. */
VEXA_API int vexa_gradient(vexa_expr* e, const double* params, double* grad, vexa_error* err); /* 0 = ok */

/* Every second partial derivative at one point, H[i * n + j] = d2 value /
   d parameter i d parameter j (n = vexa_param_count), exact to rounding and
   symmetric, with vexa_gradient's branches at kinks (forward mode over dual
   numbers). Always strict; where it fails every element is NaN. */
VEXA_API int vexa_hessian(vexa_expr* e, const double* params, double* H, vexa_error* err); /* 0 = ok */

/* Values and gradients over many points: values[j] (values may be NULL) and
   grads[j * vexa_param_count(e) + k]. Columns, strides, options and report
   as in vexa_eval_many_ex. */
VEXA_API int vexa_gradient_many(vexa_expr* e, size_t n, const double* const* columns, const ptrdiff_t* strides,
                                double* values, double* grads, const vexa_options* options, vexa_report* report,
                                vexa_error* err);

/* Systems: several texts over the same parameters as one model, every
   output and the whole Jacobian in one call. Each text is parsed as
   vexa_parse parses it with names; the system's parameters are the names of
   the list, then every further name in order of first appearance across the
   texts (names match without regard to case). Pieces the texts share are
   computed once; every output is, bit for bit, what vexa_eval of its text
   gives. A text that does not parse fails the whole call as vexa_parse
   fails, the message naming the output; count below 1 or no texts is
   VEXA_E_ARGUMENT. Threads as for vexa_eval_many_ex and vexa_gradient_many. */
typedef struct vexa_system vexa_system;
VEXA_API vexa_system* vexa_system_make(const char* const* texts, int count, const char* names, vexa_error* err);
VEXA_API void vexa_system_free(vexa_system* s); /* NULL is fine */
/* Either pointer may be NULL; VEXA_E_ARGUMENT for a NULL system. */
VEXA_API int vexa_system_size(const vexa_system* s, int* outputs, int* params);
VEXA_API const char* vexa_system_param(const vexa_system* s, int index); /* owned by s; NULL out of range */
/* One point: outputs gets every output. Where some have no value they are
   NaN and the status is the first one's, err->position its index and the
   message naming it; the others are computed. */
VEXA_API int vexa_system_eval(vexa_system* s, const double* params, double* outputs, vexa_error* err);
/* The exact Jacobian, jacobian[i * params + k] = d output i / d parameter k,
   and the outputs (outputs may be NULL). Always strict; a failed output's
   row is NaN, told as in vexa_system_eval. */
VEXA_API int vexa_system_jacobian(vexa_system* s, const double* params, double* outputs, double* jacobian,
                                  vexa_error* err);
/* The Jacobian's entries that can be other than zero, row by row: rows[j]
   the output, cols[j] the parameter, for the first capacity of them.
   Returns their count (call with capacity 0 to size the arrays), or
   VEXA_E_ARGUMENT for a NULL system or arrays missing. */
VEXA_API int vexa_system_sparsity(const vexa_system* s, int* rows, int* cols, int capacity);
/* Many points, columns and strides as in vexa_eval_many_ex (one column per
   system parameter): point j's outputs at outputs + j * outputs_count, its
   Jacobian at jacobians + j * outputs_count * params (outputs may be NULL
   there). An output without a value makes the call return VEXA_E_POINTS,
   err->position the point, the message naming the output; report counts
   values, not points. */
VEXA_API int vexa_system_eval_many(vexa_system* s, size_t n, const double* const* columns, const ptrdiff_t* strides,
                                   double* outputs, const vexa_options* options, vexa_report* report,
                                   vexa_error* err);
VEXA_API int vexa_system_jacobian_many(vexa_system* s, size_t n, const double* const* columns,
                                       const ptrdiff_t* strides, double* outputs, double* jacobians,
                                       const vexa_options* options, vexa_report* report, vexa_error* err);

/* The library's derivative calculator with respect to parameter index: a
   new expression of the same parameters (symbolic where a rule exists, a
   central difference through the first argument otherwise). Free it with
   vexa_free. */
VEXA_API vexa_expr* vexa_derivative(vexa_expr* e, int index, vexa_error* err);

/* The exact partial derivative with respect to parameter index, as a new
   expression of the same parameters (vexa::ExactDerivative): exact to
   rounding through every function, with vexa_gradient's branches at kinks,
   and never growing with the text's nesting; of a handle made by this call,
   the next order (at most the fourth; VEXA_E_NO_DERIVATIVE beyond). Its
   values are evaluated strictly, as vexa_gradient's, and only where every
   parameter is a number; it has no tree: vexa_dump and vexa_tree_text give
   nothing, vexa_gradient reports VEXA_E_NO_GRADIENT. Free it with
   vexa_free. */
VEXA_API vexa_expr* vexa_exact_derivative(vexa_expr* e, int index, vexa_error* err);

/* Texts the library allocates: NUL-terminated UTF-8, freed with
   vexa_free_text. NULL on error. */
VEXA_API char* vexa_dump(const vexa_expr* e, vexa_error* err);      /* the dump lines, each ending in '\n' */
VEXA_API char* vexa_tree_text(const vexa_expr* e, vexa_error* err); /* the tree on one line */
/* The names of the registered functions the expression calls, one a line. */
VEXA_API char* vexa_registered_calls(const vexa_expr* e, vexa_error* err);
#define VEXA_BUILTIN 1
#define VEXA_REGISTERED 2
/* Function names, one a line: which = VEXA_BUILTIN, VEXA_REGISTERED or both.
   Only names a text can call are listed (the registry's internal lower-case
   entries are not), the same names the vexa command lists. */
VEXA_API char* vexa_functions(int which, vexa_error* err);
VEXA_API void vexa_free_text(char* text); /* NULL is fine */

/* Registers a copy of e under name: later texts call it as name(a, b, ...),
   with the arguments in e's parameter order; it takes vexa_param_count(e)
   arguments, which the messages of failed calls name and a text review
   checks. Refused (VEXA_E_NOT_REGISTERED, the message says why) unless the
   name is one a text can call: the letters A-Z and digits, a letter first,
   not a keyword (TIME, CYCLEANGLE), a named constant (PI, RTOD, DTOR), a
   built-in or a name taken already; refused too for an expression too deep
   to be called. */
VEXA_API int vexa_register(const char* name, const vexa_expr* e, vexa_error* err);
/* Removes a name vexa_register registered; expressions parsed before keep
   calling what they called. */
VEXA_API int vexa_unregister(const char* name, vexa_error* err);

/* The library's version, "MAJOR.MINOR.PATCH" (static storage). */
VEXA_API const char* vexa_version(void);
/* The machine code the library generates for compiled expressions:
   "x86-64 (System V)", "AArch64" (Linux; there gradients run in the
   interpreter), or "none" where every compiled program runs in the
   library's interpreter. The build decides (static storage). */
VEXA_API const char* vexa_machine_code(void);

#ifdef __cplusplus
}
#endif

#endif
