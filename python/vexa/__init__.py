"""Expressions of a multibody-dynamics solver's function language.

    >>> import vexa, numpy
    >>> e = vexa.Expression("STEP(TIME,0,0,1,10)*SIN(2*PI*TIME)", params="TIME")
    >>> e(TIME=0.25)
    1.5625
    >>> e(TIME=numpy.linspace(0, 2, 5)).shape       # arrays: one value per point
    (5,)

Parameters declared with shapes take vectors and matrices, one per point:

    >>> f = vexa.Expression("R%F", params="R,F", shapes={"R": (3,), "F": (3,)})
    >>> f(R=numpy.eye(3), F=(0, 0, 1)).shape           # 3 points of a 1 x 3 row
    (3, 3)

An array call evaluates the compiled form of the expression over all points
with the interpreter lock released; values are bit for bit those of a call
per point. The exact gradient (reverse mode) is ``e.gradient(...)``, the
exact Hessian ``e.hessian(...)``; ``e.derivative(name)`` is the exact partial
as an Expression, ``e.derivative(name, exact=False)`` the library's own
derivative calculator.

Points without a value follow numpy: a call with numbers raises
:class:`EvaluationError`; an array call gives NaN there and emits one
:class:`EvaluationWarning` that says how many points, the first one and why.
"""

import collections
import collections.abc
import numbers
import os
import pickle
import warnings

import numpy as np

from . import _vexa
from ._version import __version__

__all__ = ["Expression", "System", "register", "unregister", "registered", "functions", "Function",
           "VexaError", "ParseError", "EvaluationError", "EvaluationWarning", "TextWarning", "__version__"]


class VexaError(Exception):
    """Anything the library refuses; message says why."""

    def __init__(self, message, code=None):
        super().__init__(message)
        self.message = message
        self.code = code

    def __reduce__(self):
        return type(self), (self.message, self.code)


class ParseError(VexaError, ValueError):
    """A text that does not parse, or a parameter-name list that is rejected.

    code is what the parser threw (in_list False), position the character in
    the text as typed (or in the list when in_list); -1 when there is none.
    """

    def __init__(self, code, position, message, in_list=False):
        super().__init__(message, code)
        self.position = position
        self.in_list = in_list

    def __str__(self):
        where = "parameter list" if self.in_list else "text"
        return f"{self.message} (code {self.code}, position {self.position} of the {where})"

    def __reduce__(self):
        return type(self), (self.code, self.position, self.message, self.in_list)


class EvaluationError(VexaError, ArithmeticError):
    """An evaluation without a value: code is the library's thrown code, or
    None for a null value (a function refused its arguments). The message
    names the cause (a division by zero, a call that refused its values,
    shapes that do not fit); position is the character of the text where
    the cause stands, -1 where none is known (a derivative, many points)."""

    def __init__(self, code, message, position=-1):
        super().__init__(message, code)
        self.position = position

    def __reduce__(self):
        return type(self), (self.code, self.message, self.position)


class EvaluationWarning(RuntimeWarning):
    """Emitted once by an array call that left points NaN for want of a value.

    failed: how many points; total: how many there were; index: the first
    such point (flat index in C order); code: what it threw, or None for a
    null value or a strict refusal; reason: the library's message for it,
    which names the cause; position: the character of the text where the
    cause stands (-1 where none is known).
    """

    def __init__(self, failed, total, index, code, reason, shape=None, position=-1):
        where = str(index)
        if shape is not None and len(shape) > 1:
            where += " " + str(tuple(int(i) for i in np.unravel_index(index, shape)))
        super().__init__(f"{failed} of {total} points have no value (NaN there); "
                         f"the first is point {where}: {reason}")
        self.failed = failed
        self.total = total
        self.index = index
        self.code = code
        self.reason = reason
        self.shape = shape
        self.position = position

    def __reduce__(self):
        """Its fields, so that it crosses to other processes (Dask turns a
        worker's warnings filtered as errors into exceptions it ships)."""
        return type(self), (self.failed, self.total, self.index, self.code, self.reason, self.shape,
                            self.position)


class TextWarning(UserWarning):
    """Emitted when an Expression is made from a text that parses but is
    probably not read as meant: a ')' that closes nothing (the text ends
    there), names that differ only in case (one parameter), a registered
    function called with another count than its parameters, "1 5" read as
    15, a call of constants without a value, a placeholder's fixed value.

    message: the library's review; position: the character of the text it
    concerns (-1 where none).
    """

    def __init__(self, message, position=-1):
        super().__init__(message)
        self.message = message
        self.position = position

    def __reduce__(self):
        return type(self), (self.message, self.position)


Function = collections.namedtuple("Function", "name form summary")
Function.__doc__ = "A built-in function: its name, its call form and a line on what it does."

# How a registered function came about, so that an expression calling it can
# be rebuilt in another process: text, parameter list, derivative indices and
# the definitions of what it calls in turn. text is None for a function
# registered outside Python.
_Definition = collections.namedtuple("_Definition", "name text params chain calls")
_registry = {}
_MISSING = object()


def _param_list(params):
    """The host's names as the library takes them, after refusing what the
    library would silently turn into other names: an empty name, white space
    inside one (dropped: "A B" would be AB; a braced name keeps its own, as
    in texts) and a name given twice (names match without regard to case).
    Spaces around a name are no part of it.

    Returns the list and, for a str, where each of its characters stood in
    it, so that a position the library reports can be told as typed."""
    if params is None:
        return None, None
    if isinstance(params, str):
        names = params.split(",")
    else:
        try:
            names = list(params)
        except TypeError:
            raise TypeError("params is a str of comma-separated names or a list of names") from None
        for name in names:
            if not isinstance(name, str):
                raise TypeError(f"params holds names as str, not {type(name).__name__}")
            if "," in name:
                raise ValueError(f"params: {name!r} holds a comma; give one name per entry")
        if not names:
            return None, None
    seen = {}
    for i, raw in enumerate(names):
        name = raw.strip()
        if not name:
            raise ValueError(f"params: name {i + 1} of {len(names)} is empty ({params!r})")
        braced = name.startswith("{") and name.endswith("}")  # "{V 1}" is a name of texts
        if not braced and any(c.isspace() for c in name):
            raise ValueError(f"params: {name!r} has white space inside; separate names with commas")
        if name.upper() in seen:
            raise ValueError(f"params: {name!r} is given twice (as {seen[name.upper()]!r})")
        seen[name.upper()] = name
    if not isinstance(params, str):
        return ",".join(n.strip() for n in names), None
    joined, typed, at = [], [], 0
    for raw in names:
        lead = len(raw) - len(raw.lstrip())
        name = raw.strip()
        if joined:
            joined.append(",")
            typed.append(at - 1)
        joined.append(name)
        typed.extend(range(at + lead, at + lead + len(name)))
        at += len(raw) + 1
    typed.append(len(params))
    return "".join(joined), typed


def _strict_flag(value):
    if not isinstance(value, (bool, np.bool_)):
        raise TypeError(f"strict is True or False, not {value!r}")
    return bool(value)


def _thread_count(value):
    if isinstance(value, (bool, np.bool_)) or not isinstance(value, numbers.Integral):
        raise TypeError(f"threads is a whole number (0: one per core), not {value!r}")
    if not 0 <= value <= _MOST_THREADS:
        raise ValueError(f"threads is 0 (one per core) or 1 to {_MOST_THREADS}, not {value}")
    return int(value)


# More threads than this are a mistake rather than a wish.
_MOST_THREADS = 4096


def _target(out, shape):
    """The array results go to: a new one, or out after checking that it is
    one the library can write in place."""
    if out is None:
        return np.empty(shape)
    if not isinstance(out, np.ndarray):
        raise TypeError(f"out is a numpy array, not {type(out).__name__}")
    if out.dtype != np.float64:
        raise TypeError(f"out has dtype {out.dtype}; the results are float64")
    if out.shape != shape:
        raise ValueError(f"out has shape {out.shape}; the results have shape {shape}")
    if not out.flags.c_contiguous or not out.flags.writeable:
        raise ValueError("out is a writable C-contiguous array")
    return out


def _apart_from(columns, result):
    # The library's bulk calls take results that overlap no column (a block's
    # results may be written before all of its values are read): an input
    # that shares memory with the output is read from a copy.
    return [c.copy() if isinstance(c, np.ndarray) and np.may_share_memory(c, result) else c
            for c in columns]


def _warn(summary, shape):
    if summary is not None:
        failed, index, code, reason, position = summary
        total = int(np.prod(shape, dtype=np.int64))
        warnings.warn(EvaluationWarning(failed, total, index, code, reason, shape, position), stacklevel=3)


def _shape_of(name, shape):
    """The trailing axes of a shaped parameter's values, checked: (n,) a
    1 x n row, (m, n) an m x n matrix."""
    try:
        axes = tuple(shape)
    except TypeError:
        raise TypeError(f"shapes: the shape of {name!r} is a tuple such as (3,) or (3, 3), not {shape!r}") from None
    if not 1 <= len(axes) <= 2 or not all(isinstance(a, numbers.Integral) and not isinstance(a, bool) and a >= 1
                                         for a in axes):
        raise ValueError(f"shapes: the shape of {name!r} is (n,) or (m, n) of positive whole numbers, not {shape!r}")
    axes = tuple(int(a) for a in axes)
    if len(axes) == 2 and axes[0] > 1 and axes[1] == 1:
        raise ValueError(f"shapes: {name!r} would be a column vector {axes}, which the language has not")
    if int(np.prod(axes, dtype=np.int64)) > 0x7FFFFFFF:
        raise ValueError(f"shapes: {name!r} of shape {axes} has more elements than a value can hold")
    return axes


def _rows_cols(axes):
    return (1, 1) if not axes else (1, axes[0]) if len(axes) == 1 else axes


def _columns(arrays):
    """The broadcast shape of arrays and one column per array: a number held
    for every point, or a flat contiguous array of all the points."""
    shape = np.broadcast_shapes(*(a.shape for a in arrays))
    columns = []
    for a in arrays:
        if a.size == 1:
            columns.append(float(a.reshape(-1)[0]))
        else:
            columns.append(np.ascontiguousarray(np.broadcast_to(a, shape)).reshape(-1))
    return shape, columns


class Expression:
    """An expression parsed with a parameter list (a str of comma-separated
    names, or a list of names). Values go in by position in the final order
    (``params``) or by name (names match without regard to case).

    strict (default True): a call that refuses its arguments, or a null
    value inside, leaves the point without a value. With strict=False the
    language's own rules apply: such a term is dropped where the language
    drops it (``SQRT(X)+1`` at X = -1 is 1) and fails where it cannot be
    combined (``1+SQRT(X)`` at X = -1 throws -10001).

    threads: for array calls, 1 the calling thread, N > 1 N threads, 0 one
    per core.
    """

    __slots__ = ("_handle", "_names", "_text", "_params", "_chain", "_calls", "_strict", "_threads", "_shapes")

    def __init__(self, text, params=None, *, shapes=None, strict=True, threads=1):
        """Parses text (raises ParseError, or ValueError/TypeError for a
        parameter list or setting that cannot be right); emits a TextWarning
        for each piece of a text that parses but is probably not read as
        meant.

        shapes maps parameter names to the shape of their values: (n,) a
        1 x n row vector, (m, n) an m x n matrix. Calls then read the
        trailing axes of such a parameter's array as its value and the
        leading ones as points."""
        if not isinstance(text, str):
            raise TypeError("the text is a str")
        self.strict = strict
        self.threads = threads
        self._params, typed = _param_list(params)
        self._text = text
        self._chain = ()
        try:
            self._adopt(_vexa.parse(text, self._params))
        except ParseError as e:
            if e.in_list and typed is not None and 0 <= e.position < len(typed):
                e.position = typed[e.position]
            raise
        self._calls = tuple(_registry.get(name) or _Definition(name, None, None, (), ())
                            for name in self._handle.registered_calls())
        self._shapes = {}
        if shapes is not None:
            if not isinstance(shapes, collections.abc.Mapping):
                raise TypeError("shapes maps parameter names to shapes, such as {'R': (3,)}")
            for name, shape in shapes.items():
                self._shapes[self._index(name)] = _shape_of(name, shape)
        for message, position in _vexa.review(text, self._params):
            warnings.warn(TextWarning(message, position), stacklevel=2)

    def _adopt(self, handle):
        self._handle = handle
        self._names = handle.names

    @property
    def strict(self):
        """Whether a refused call or a null value inside leaves a point
        without a value (True) or follows the language's rules (False)."""
        return self._strict

    @strict.setter
    def strict(self, value):
        self._strict = _strict_flag(value)

    @property
    def threads(self):
        """Threads of array calls: 1 the calling thread, N > 1 N threads, 0 one per core."""
        return self._threads

    @threads.setter
    def threads(self, value):
        self._threads = _thread_count(value)

    @property
    def params(self):
        """The parameter names in their final order: the list's, then the text's."""
        return list(self._names)

    @property
    def text(self):
        """The text as it was parsed."""
        return self._text

    @property
    def shapes(self):
        """The declared shapes of parameters' values, by name."""
        return {self._names[i]: axes for i, axes in sorted(self._shapes.items())}

    @property
    def can_plot(self):
        """False for an expression that calls IMPACT or BISTOP."""
        return self._handle.can_plot

    def _index(self, name):
        if isinstance(name, int) and not isinstance(name, bool):
            if 0 <= name < len(self._names):
                return name
            raise IndexError(f"no parameter {name}: the expression has {len(self._names)}")
        if name in self._names:
            return self._names.index(name)
        folded = name.upper() if isinstance(name, str) else None
        for i, known in enumerate(self._names):
            if known.upper() == folded:
                return i
        raise KeyError(f"no parameter {name!r}; the parameters are {self._names}")

    def _bind(self, args, kwargs):
        n = len(self._names)
        if len(args) > n:
            raise TypeError(f"the expression takes {n} values, {len(args)} given")
        values = list(args) + [_MISSING] * (n - len(args))
        for name, value in kwargs.items():
            try:
                i = self._index(name)
            except KeyError as e:
                raise TypeError(e.args[0]) from None
            if values[i] is not _MISSING:
                raise TypeError(f"{self._names[i]} is given twice")
            values[i] = value
        # numpy would read None as NaN
        missing = [self._names[i] for i, v in enumerate(values) if v is _MISSING or v is None]
        if missing:
            raise TypeError("no value for " + ", ".join(missing))
        return values

    def _arrays(self, args, kwargs):
        return [np.asarray(v, dtype=np.float64) for v in self._bind(args, kwargs)]

    def _strict_of(self, strict):
        return self._strict if strict is None else _strict_flag(strict)

    def _bulk_threads(self):
        return self._threads or (os.cpu_count() or 1)

    def __call__(self, *args, out=None, strict=None, **kwargs):
        """The value at a point or at many.

        Numbers give a float, or raise EvaluationError where the point has
        no value. Arrays broadcast as numpy does and give an array of the
        broadcast shape (written to out when given: float64, that shape,
        C-contiguous), NaN where a point has no value, with one
        EvaluationWarning for them all. strict overrides the expression's
        for this call. The keywords out and strict, spelled so, are this
        call's; a parameter of either name is given by position or in
        upper case.

        A parameter declared in shapes takes arrays whose trailing axes are
        its value; the result's shape is the points' followed by the
        value's, as the first point with a value has it.
        """
        strict = self._strict_of(strict)
        values = self._bind(args, kwargs)
        if self._shapes:
            return self._call_shaped([np.asarray(v, dtype=np.float64) for v in values], out, strict)
        if out is None:
            if all(type(v) is float or type(v) is int for v in values):
                return self._handle.eval(values, strict)
            values = [np.asarray(v, dtype=np.float64) for v in values]
            if all(v.ndim == 0 for v in values):
                return self._handle.eval([float(v) for v in values], strict)
        else:
            values = [np.asarray(v, dtype=np.float64) for v in values]
        shape, columns = _columns(values)
        result = _target(out, shape)
        summary = self._handle.eval_many(_apart_from(columns, result), result.reshape(-1), strict,
                                         self._bulk_threads())
        _warn(summary, shape)
        return result

    # How many points are tried for a value whose shape gives the result's.
    _SHAPE_TRIES = 16

    def _call_shaped(self, arrays, out, strict):
        axes = [self._shapes.get(i, ()) for i in range(len(arrays))]
        leading = []
        for name, a, t in zip(self._names, arrays, axes):
            if a.ndim < len(t) or a.shape[a.ndim - len(t):] != t:
                raise ValueError(f"{name} has shape {a.shape}; its values have shape {t}, after any axes of points")
            leading.append(a.shape[:a.ndim - len(t)])
        shape = np.broadcast_shapes(*leading)
        total = int(np.prod(shape, dtype=np.int64))
        if total == 0:
            # no point to find the result's shape from: no axes added
            return _target(out, shape)
        spread = [np.broadcast_to(a, shape + t) for a, t in zip(arrays, axes)]
        first, error = None, None
        for flat in range(min(total, self._SHAPE_TRIES)):
            at = np.unravel_index(flat, shape) if shape else ()
            try:
                first = self._handle.eval_value([np.ascontiguousarray(a[at]) for a in spread])
                break
            except EvaluationError as e:
                error = error or e
        if first is None and total == 1:
            raise error
        if first is None:
            raise EvaluationError(error.code, f"the first {min(total, self._SHAPE_TRIES)} points have no value, so "
                                  f"the result's shape is not known: {error.message}", error.position)
        result_axes = () if isinstance(first, float) else first.shape
        if not shape and out is None:
            return first
        result = _target(out, shape + result_axes)
        held = [int(np.prod(lead, dtype=np.int64)) == 1 for lead in leading]
        columns = [np.ascontiguousarray(a).reshape(-1) if h else np.ascontiguousarray(b).reshape(-1)
                   for a, b, h in zip(arrays, spread, held)]
        shapes = [_rows_cols(t) for t in axes]
        rows, cols = _rows_cols(result_axes)
        summary = self._handle.eval_many_shaped(_apart_from(columns, result), held, [r for r, _ in shapes],
                                                [c for _, c in shapes], rows, cols, result.reshape(-1), strict,
                                                self._bulk_threads())
        _warn(summary, shape)
        return result

    def gradient(self, *args, out=None, strict=None, **kwargs):
        """Exact partial derivatives in the final parameter order: shape
        (number of parameters,) for numbers, the broadcast shape followed by
        it for arrays (into out when given), with NaN and one
        EvaluationWarning where a point has none.

        The exact gradient is always strict: a point where a term would be
        dropped has no gradient, whatever the expression's strict says, and
        strict=False is refused here.
        """
        if strict is not None and not _strict_flag(strict):
            raise ValueError("the exact gradient is always strict: strict=False cannot be honoured")
        if self._shapes:
            raise TypeError("the exact gradient takes numbers; this expression has shaped parameters")
        values = self._arrays(args, kwargs)
        if out is None and all(v.ndim == 0 for v in values):
            return self._handle.gradient([float(v) for v in values])
        shape, columns = _columns(values)
        result = _target(out, shape + (len(self._names),))
        summary = self._handle.gradient_many(_apart_from(columns, result), result.reshape(-1),
                                             self._bulk_threads())
        _warn(summary, shape)
        return result

    def hessian(self, *args, **kwargs):
        """Every second partial derivative at one point of numbers, an array
        of shape (n, n) over the final parameters: exact, symmetric, with the
        gradient's branches at kinks. Always strict, as gradient is; raises
        EvaluationError where the point has none."""
        if self._shapes:
            raise TypeError("the exact Hessian takes numbers; this expression has shaped parameters")
        values = self._arrays(args, kwargs)
        if any(v.ndim != 0 for v in values):
            raise TypeError("hessian takes one point of numbers")
        return self._handle.hessian([float(v) for v in values])

    def evaluate(self, *args, strict=None, **kwargs):
        """One point with values of any shape: numbers, vectors of shape (n,)
        and matrices of shape (m, n); the result is a float or an array.
        Raises EvaluationError where there is no value.

        With numbers only, strict is honoured as by a call. Vectors and
        matrices are evaluated by the tree, which follows the language's
        rules even in strict mode (a term dropped there is not seen).
        """
        strict = self._strict_of(strict)
        arrays = self._arrays(args, kwargs)
        numbers_only = all(v.ndim == 0 for v in arrays)
        values = [np.ascontiguousarray(v) for v in arrays]
        if not strict or not numbers_only:
            return self._handle.eval_value(values)
        try:
            return self._handle.eval([float(v) for v in values], True)
        except EvaluationError:
            # numbers may still make a vector, which only the tree gives
            value = self._handle.eval_value(values)
            if isinstance(value, float):
                raise
            return value

    def derivative(self, param, exact=True):
        """The partial derivative with respect to a parameter (a name or an
        index), as an Expression of the same parameters.

        exact=True (the default): exact to rounding through every function,
        with the gradient's branches at kinks, evaluated by compiled code at
        a cost that does not grow with the text's nesting; its own derivative
        is exact too, up to the fourth order. Only numbers go in, and it is
        always strict, as gradient is; it has no tree to dump.

        exact=False: the library's derivative calculator, a derivative tree
        built by rules: central differences (a fixed step of 0.001, through
        the first argument only) for functions without a symbolic rule
        (STEP, IMPACT, SINH, ATAN2, ...), so it can be far off at and near
        kinks; it grows exponentially with nested MAX and MIN, and is
        refused past a million nodes. Its tree can be dumped and printed."""
        index = self._index(param)
        d = Expression.__new__(Expression)
        d._adopt(self._handle.derivative(index, bool(exact)))
        step = (index,) if exact else index
        d._text, d._params, d._chain, d._calls = self._text, self._params, self._chain + (step,), self._calls
        d._strict, d._threads, d._shapes = self._strict, self._threads, dict(self._shapes)
        return d

    def dump(self):
        """The library's dump of the tree, one line per node."""
        return self._handle.dump()

    def __str__(self):
        """The tree on one line."""
        return self._handle.tree_text()

    def __repr__(self):
        """The call that rebuilds the expression (registered functions aside)."""
        shapes = f", shapes={self.shapes!r}" if self._shapes else ""
        text = f"vexa.Expression({self._text!r}, params={self._params!r}{shapes})"
        return text + "".join(f".derivative({i[0]})" if isinstance(i, tuple) else f".derivative({i}, exact=False)"
                              for i in self._chain)

    def __reduce__(self):
        """Text, parameter list, derivative chain, settings and the
        definitions of the registered functions called, which unpickling
        registers where they are missing; shapes where any are declared."""
        _check_picklable(self._calls)
        fields = (self._text, self._params, self._chain, self._calls, self.strict, self.threads)
        return _rebuild, fields + ((self.shapes,) if self._shapes else ())


class System:
    """Several texts over the same parameters as one compiled model: every
    output, and the Jacobian of all outputs, in one call. Pieces the texts
    share are computed once; each output is, bit for bit, what an Expression
    of its text gives (with strict=False, the language's own rules).

    params: the host's names (as Expression takes them); the system's
    parameters are these, then every further name in order of first
    appearance across the texts. Values go in as Expression takes them, by
    position or by name, numbers or arrays that broadcast.

        >>> import vexa
        >>> s = vexa.System(["SIN(W*TIME)", "K*X + SIN(W*TIME)"], "TIME")
        >>> s.params
        ['TIME', 'W', 'K', 'X']
        >>> s(0.0, 2.0, 3.0, 1.5)
        array([0. , 4.5])
        >>> s.jacobian(0.0, 2.0, 3.0, 1.5)[1]
        array([2. , 0. , 1.5, 3. ])
        >>> s.sparsity()
        (array([0, 0, 1, 1, 1, 1], dtype=int32), array([0, 1, 0, 1, 2, 3], dtype=int32))

    Registered functions the texts call must be registered wherever a
    pickled System is rebuilt.
    """

    __slots__ = ("_handle", "_names", "_texts", "_params", "_strict", "_threads")

    def __init__(self, texts, params=None, threads=1, strict=False):
        """Parses every text (raises ParseError naming the output that does not)."""
        if isinstance(texts, str):
            raise TypeError("texts is a list of str, one per output")
        texts = tuple(texts)
        if not texts or not all(isinstance(t, str) for t in texts):
            raise TypeError("texts is a non-empty list of str, one per output")
        self._strict = _strict_flag(strict)
        self._threads = _thread_count(threads)
        self._params, _ = _param_list(params)
        self._texts = texts
        self._handle = _vexa.make_system(list(texts), self._params)
        self._names = self._handle.names

    @property
    def params(self):
        """The parameters in their final order."""
        return list(self._names)

    @property
    def outputs(self):
        """The texts, one per output."""
        return list(self._texts)

    # Values bind to parameters as an Expression's do.
    _index = Expression._index
    _bind = Expression._bind
    _arrays = Expression._arrays

    def _points(self, args, kwargs):
        shape, columns = _columns(self._arrays(args, kwargs))
        return shape, columns, int(np.prod(shape, dtype=np.int64))

    def _threads_now(self):
        return self._threads or (os.cpu_count() or 1)

    def __call__(self, *args, strict=None, **kwargs):
        """The outputs: shape broadcast_shape + (number of outputs,), NaN
        where an output has no value, with one EvaluationWarning for them all."""
        strict = self._strict if strict is None else _strict_flag(strict)
        shape, columns, n = self._points(args, kwargs)
        result = np.empty(shape + (len(self._texts),))
        summary = self._handle.eval_many(columns, n, result.reshape(-1), strict, self._threads_now())
        self._warn(summary, n)
        return result

    def jacobian(self, *args, **kwargs):
        """The exact Jacobian: shape broadcast_shape + (outputs, params), a
        failed output's row NaN (always strict, as Expression.gradient)."""
        shape, columns, n = self._points(args, kwargs)
        values = np.empty(n * len(self._texts))
        result = np.empty(shape + (len(self._texts), len(self._names)))
        summary = self._handle.jacobian_many(columns, n, values, result.reshape(-1), self._threads_now())
        self._warn(summary, n)
        return result

    def sparsity(self):
        """The entries of the Jacobian that can be other than zero: (rows,
        cols) int arrays, output and parameter, row by row."""
        return self._handle.sparsity()

    def _warn(self, summary, n):
        if summary is not None:
            failed, point, code, reason = summary
            warnings.warn(EvaluationWarning(failed, n * len(self._texts), point, code, reason), stacklevel=3)

    def __repr__(self):
        """The call that rebuilds the system."""
        return f"vexa.System({list(self._texts)!r}, params={self._params!r})"

    def __reduce__(self):
        """The texts, the parameter list and the settings."""
        return System, (self._texts, self._params, self._threads, self._strict)


def _check_picklable(calls):
    for d in calls:
        if d.text is None:
            raise pickle.PicklingError(f"{d.name} was registered outside Python: its text is not known here")
        _check_picklable(d.calls)


def _ensure_registered(calls):
    for d in calls:
        _ensure_registered(d.calls)
        if _registry.get(d.name) == d:
            continue
        if d.name in _registry or d.name in registered():
            raise VexaError(f"{d.name} is registered here with another definition")
        register(d.name, _rebuild(d.text, d.params, d.chain, d.calls, False, 1))


def _rebuild(text, params, chain, calls, strict, threads, shapes=None):
    _ensure_registered(calls)
    e = Expression(text, params, strict=strict, threads=threads)
    # a derivative chain holds (index,) for an exact step, index for the
    # library's derivative calculator
    for step in chain:
        e = e.derivative(step[0]) if isinstance(step, tuple) else e.derivative(step, exact=False)
    # shapes name the final parameters, which a derivative shares
    e._shapes = {e._index(name): _shape_of(name, axes) for name, axes in (shapes or {}).items()}
    return e


def register(name, expression):
    """Registers a copy of expression under name; later texts call it as
    NAME(a, b, ...) with the arguments in its parameter order. Texts reach
    only names in upper case."""
    if not isinstance(expression, Expression):
        raise TypeError("register takes an Expression")
    _vexa.register(name, expression._handle)
    _registry[name] = _Definition(name, expression._text, expression._params, expression._chain,
                                  expression._calls)


def unregister(name):
    """Removes a name registered from Python; expressions parsed before keep
    calling what they called."""
    _vexa.unregister(name)
    _registry.pop(name, None)


def registered():
    """The names of the registered functions."""
    return _vexa.function_names(_vexa.REGISTERED)


def functions():
    """The built-in functions with their call forms and a line on each."""
    out = []
    for name in _vexa.function_names(_vexa.BUILTIN):
        form = _vexa.call_form(name) or (name + "(...)", "")
        out.append(Function(name, *form))
    return out
