"""Expressions of a multibody-dynamics solver's function language.

    >>> import vexa, numpy
    >>> e = vexa.Expression("STEP(TIME,0,0,1,10)*SIN(2*PI*TIME)", params="TIME")
    >>> e(TIME=0.25)
    1.5625
    >>> e(TIME=numpy.linspace(0, 2, 5)).shape       # arrays: one value per point
    (5,)

An array call evaluates the compiled form of the expression over all points
with the interpreter lock released; values are bit for bit those of a call
per point. The exact gradient (reverse mode) is ``e.gradient(...)``; the
library's own derivative calculator is ``e.derivative(name)``.
"""

import collections
import pickle

import numpy as np

from . import _vexa

__all__ = ["Expression", "register", "unregister", "registered", "functions", "Function",
           "VexaError", "ParseError", "EvaluationError"]


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
    None for a null value (a function refused its arguments)."""

    def __init__(self, code, message):
        super().__init__(message, code)

    def __reduce__(self):
        return type(self), (self.code, self.message)


Function = collections.namedtuple("Function", "name form summary")

# How a registered function came about, so that an expression calling it can
# be rebuilt in another process: text, parameter list, derivative indices and
# the definitions of what it calls in turn. text is None for a function
# registered outside Python.
_Definition = collections.namedtuple("_Definition", "name text params chain calls")
_registry = {}
_MISSING = object()


def _param_list(params):
    if params is None or isinstance(params, str):
        return params
    names = list(params)
    for name in names:
        if not isinstance(name, str) or "," in name:
            raise TypeError("params is a str of comma-separated names or a list of names without commas")
    return ",".join(names)


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

    strict: a refused call or a null value inside fails the point instead of
    dropping the term. threads: for array calls, 1 the calling thread, N > 1
    N threads, < 0 one per core.
    """

    __slots__ = ("_handle", "_names", "_text", "_params", "_chain", "_calls", "strict", "threads")

    def __init__(self, text, params=None, *, strict=False, threads=1):
        if not isinstance(text, str):
            raise TypeError("the text is a str")
        self._params = _param_list(params)
        self._text = text
        self._chain = ()
        self._adopt(_vexa.parse(text, self._params))
        self._calls = tuple(_registry.get(name) or _Definition(name, None, None, (), ())
                            for name in self._handle.registered_calls())
        self.strict = strict
        self.threads = threads

    def _adopt(self, handle):
        self._handle = handle
        self._names = handle.names

    @property
    def params(self):
        """The parameter names in their final order: the list's, then the text's."""
        return list(self._names)

    @property
    def text(self):
        return self._text

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

    def __call__(self, *args, **kwargs):
        """A float for numbers; for arrays (numpy broadcasting) an array of
        the broadcast shape, NaN where a point has no value."""
        values = self._bind(args, kwargs)
        if all(type(v) is float or type(v) is int for v in values):
            return self._handle.eval(values, self.strict)
        values = [np.asarray(v, dtype=np.float64) for v in values]
        if all(v.ndim == 0 for v in values):
            return self._handle.eval([float(v) for v in values], self.strict)
        shape, columns = _columns(values)
        out = np.empty(shape)
        self._handle.eval_many(columns, out.reshape(-1), self.strict, self.threads)
        return out

    def gradient(self, *args, **kwargs):
        """Exact partial derivatives in the final parameter order: shape
        (number of parameters,) for numbers, the broadcast shape followed by
        it for arrays (NaN where the gradient fails)."""
        values = self._arrays(args, kwargs)
        if all(v.ndim == 0 for v in values):
            return self._handle.gradient([float(v) for v in values])
        shape, columns = _columns(values)
        out = np.empty(shape + (len(self._names),))
        self._handle.gradient_many(columns, out.reshape(-1), self.threads)
        return out

    def evaluate(self, *args, **kwargs):
        """One point with values of any shape: numbers, vectors of shape (n,)
        and matrices of shape (m, n); the result is a float or an array."""
        values = [np.ascontiguousarray(v) for v in self._arrays(args, kwargs)]
        return self._handle.eval_value(values)

    def derivative(self, param):
        """The library's derivative calculator with respect to a parameter
        (a name or an index), as an Expression of the same parameters."""
        index = self._index(param)
        d = Expression.__new__(Expression)
        d._adopt(self._handle.derivative(index))
        d._text, d._params, d._chain, d._calls = self._text, self._params, self._chain + (index,), self._calls
        d.strict, d.threads = self.strict, self.threads
        return d

    def dump(self):
        """The library's dump of the tree, one line per node."""
        return self._handle.dump()

    def __str__(self):
        return self._handle.tree_text()

    def __repr__(self):
        text = f"vexa.Expression({self._text!r}, params={self._params!r})"
        return text + "".join(f".derivative({i})" for i in self._chain)

    def __reduce__(self):
        _check_picklable(self._calls)
        return _rebuild, (self._text, self._params, self._chain, self._calls, self.strict, self.threads)


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


def _rebuild(text, params, chain, calls, strict, threads):
    _ensure_registered(calls)
    e = Expression(text, params, strict=strict, threads=threads)
    for index in chain:
        e = e.derivative(index)
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
