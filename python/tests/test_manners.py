"""numpy's manners: NaN and one warning for points without a value in array
calls, exceptions for single points, strict honoured everywhere, out=,
checked arguments, and Ctrl-C answered during long array calls."""
import os
import pickle
import signal
import subprocess
import sys
import textwrap
import time
import warnings

import numpy as np
import pytest

import vexa


def call_with_warnings(f, *args, **kwargs):
    with warnings.catch_warnings(record=True) as seen:
        warnings.simplefilter("always")
        result = f(*args, **kwargs)
    return result, [w for w in seen if issubclass(w.category, vexa.EvaluationWarning)]


# text, strict, points, the points without a value, the first one's code
POINTS = [
    ("1/x", False, np.linspace(-1, 1, 1001), [500], -10001),
    ("SQRT(x)+1", False, [-1.0, 4.0], [], None),             # the language drops the term
    ("SQRT(x)+1", True, [-1.0, 4.0, -9.0], [0, 2], None),
    ("1+SQRT(x)", False, [4.0, -1.0, -9.0], [1, 2], -10001),  # it cannot drop a right operand
    # the library's report prefers a point that threw; the first is a refusal
    ("SQRT(x)+1/(x-5)", True, [-1.0, 5.0, 1.0], [0, 1], None),
    # NaN given to LOG is a value, not a failure: those points are passed over
    ("LOG(x)", True, np.r_[np.full(100, np.nan), -1.0, 1.0], [100], None),
]


@pytest.mark.parametrize("text, strict, points, bad, code", POINTS)
def test_points_without_a_value(text, strict, points, bad, code):
    e = vexa.Expression(text, "x", strict=strict)
    x = np.asarray(points)
    got, seen = call_with_warnings(e, x)
    assert np.flatnonzero(np.isnan(got)).tolist() == [i for i in range(len(x)) if np.isnan(x[i]) or i in bad]
    for i in range(len(x)):
        if i in bad:
            with pytest.raises(vexa.EvaluationError):
                e(float(x[i]))
        elif not np.isnan(x[i]):
            assert got[i] == e(float(x[i]))
    if not bad:
        assert seen == []
        return
    assert len(seen) == 1
    w = seen[0].message
    assert (w.failed, w.total, w.index, w.code) == (len(bad), len(x), bad[0], code)
    assert f"{len(bad)} of {len(x)} points" in str(w) and f"point {bad[0]}" in str(w) and w.reason
    assert seen[0].filename == __file__  # points at the caller


def test_first_point_of_a_grid_and_of_many_chunks():
    e = vexa.Expression("1/(x-y)", "x,y")
    grid, seen = call_with_warnings(e, np.arange(3.0)[:, None], np.arange(4.0))
    assert grid.shape == (3, 4) and np.isnan(grid).sum() == 3
    assert seen[0].message.index == 0 and "point 0 (0, 0)" in str(seen[0].message)
    x = np.ones(3_000_000)
    x[[2_500_000, 2_999_999]] = 0
    _, seen = call_with_warnings(vexa.Expression("1/x", "x", threads=2), x)
    assert [(w.message.failed, w.message.index) for w in seen] == [(2, 2_500_000)]
    grads, seen = call_with_warnings(vexa.Expression("1/x", "x").gradient, x)
    assert np.isnan(grads[2_500_000]).all() and seen[0].message.index == 2_500_000


def test_warning_can_be_an_error():
    with warnings.catch_warnings():
        warnings.simplefilter("error", vexa.EvaluationWarning)
        with pytest.raises(vexa.EvaluationWarning):
            vexa.Expression("1/x", "x")(np.zeros(2))
    assert issubclass(vexa.EvaluationWarning, RuntimeWarning)
    _, seen = call_with_warnings(vexa.Expression("1/x", "x"), np.zeros((2, 2)))
    copy = pickle.loads(pickle.dumps(seen[0].message))
    assert str(copy) == str(seen[0].message) and (copy.index, copy.code, copy.shape) == (0, -10001, (2, 2))


# entry point, what it gives at LOG(x)+5, x = -1, lenient and strict
ENTRIES = [
    ("call", lambda e, **k: e(-1.0, **k)),
    ("array", lambda e, **k: e(np.array([-1.0]), **k)[0]),
    ("evaluate", lambda e, **k: e.evaluate(-1.0, **k)),
    ("out", lambda e, **k: e(-1.0, out=np.empty(()), **k)[()]),
]


@pytest.mark.parametrize("name, entry", ENTRIES)
def test_strict_is_honoured_everywhere(name, entry):
    for made, per_call in ((True, {}), (False, {"strict": True}), (True, {"strict": True})):
        e = vexa.Expression("LOG(x)+5", "x", strict=made)
        with warnings.catch_warnings():
            warnings.simplefilter("ignore", vexa.EvaluationWarning)
            if name in ("call", "evaluate"):
                with pytest.raises(vexa.EvaluationError):
                    entry(e, **per_call)
            else:
                assert np.isnan(entry(e, **per_call))
    assert entry(vexa.Expression("LOG(x)+5", "x", strict=False)) == 5.0
    assert entry(vexa.Expression("LOG(x)+5", "x"), strict=False) == 5.0


def test_gradient_is_always_strict():
    e = vexa.Expression("LOG(x)+5", "x", strict=False)
    with pytest.raises(vexa.EvaluationError):
        e.gradient(-1.0)
    with pytest.raises(ValueError, match="always strict"):
        e.gradient(1.0, strict=False)
    assert e.gradient(1.0, strict=True).tolist() == [1.0]


@pytest.mark.parametrize("out, error", [([0.0, 0.0, 0.0], TypeError), (np.zeros(3, dtype=np.float32), TypeError)] + [
    (out, ValueError) for out in (np.zeros(4), np.zeros((3, 1)), np.zeros(6)[::2])] + [(np.zeros(3).view(), None)])
def test_out(out, error):
    e = vexa.Expression("x*2", "x")
    x = np.arange(3.0)
    if error is None:
        assert e(x, out=out) is out and out.tolist() == [0.0, 2.0, 4.0]
        return
    with pytest.raises(error):
        e(x, out=out)
    frozen = np.zeros(3)
    frozen.flags.writeable = False
    with pytest.raises(ValueError):
        e(x, out=frozen)


def test_out_may_be_an_input_and_gradients_take_one():
    e = vexa.Expression("x*x+y", "x,y")
    x = np.linspace(0, 1, 10_000)
    want = e(x, 1.0)
    assert np.array_equal(e(x, 1.0, out=x), want) and np.array_equal(x, want)
    g = np.empty((5, 2))
    assert e.gradient(np.arange(5.0), 1.0, out=g) is g and g[:, 1].tolist() == [1.0] * 5
    with pytest.raises(ValueError):
        e.gradient(np.arange(5.0), 1.0, out=np.empty(5))


def test_parameters_named_like_the_keywords():
    e = vexa.Expression("out*2+strict", "out,strict")
    assert e(1, 2) == e(OUT=1, STRICT=2) == 4.0
    assert e(np.ones(2), 2, strict=True).tolist() == [4.0, 4.0]


# constructor arguments of the wrong type, then of the right type but wrong
BAD_ARGUMENTS = [(k, TypeError) for k in (
    {"threads": 1.5}, {"threads": True}, {"threads": "2"}, {"strict": "yes"}, {"strict": 1}, {"params": [1]},
    {"params": 5})] + [(k, ValueError) for k in (
    {"threads": -1}, {"threads": 10**6}, {"params": "TIME AMP"}, {"params": "TIME,AMP,"}, {"params": "x,,y"},
    {"params": ",x"}, {"params": ""}, {"params": ["TIME", "", "AMP"]}, {"params": ["TIME", "AMP", "time"]},
    {"params": ["A B"]}, {"params": ["a,b"]})]


@pytest.mark.parametrize("kwargs, error", BAD_ARGUMENTS)
def test_arguments_are_checked(kwargs, error):
    with pytest.raises(error):
        vexa.Expression("TIME*AMP", **kwargs)


@pytest.mark.parametrize("params, position", [("a,b_c", 3), (" a,  b_c", 6), ("a ,b,c_d ", 6)])
def test_list_errors_point_into_the_list_as_typed(params, position):
    with pytest.raises(vexa.ParseError) as info:
        vexa.Expression("x", params)
    assert info.value.in_list and info.value.position == position and params[position] == "_"


def test_arguments_accepted():
    assert vexa.Expression("AMP*TIME", "TIME, AMP").params == ["TIME", "AMP"]
    assert vexa.Expression("AMP*TIME", []).params == ["AMP", "TIME"]
    e = vexa.Expression("x*3", "x", threads=0)
    assert np.array_equal(e(np.arange(1e5)), np.arange(1e5) * 3)
    with pytest.raises(TypeError):
        e.threads = 1.5
    with pytest.raises(ValueError):
        e.threads = -2
    assert e.threads == 0


CTRL_C = textwrap.dedent("""
    import sys, time
    import numpy as np
    import vexa
    e = vexa.Expression("+".join(["SIN(X*{k})^2+COS(X*{k})^2".format(k=k) for k in range(1, 9)]), "X")
    x = np.linspace(0, 1, 30_000_000)
    print("ready", flush=True)
    try:
        e(x)
        print("finished", time.monotonic(), flush=True)
    except KeyboardInterrupt:
        print("interrupted", time.monotonic(), flush=True)
""")


def test_ctrl_c_stops_an_array_call():
    # The goal is an answer within 0.2 s; the assertion leaves room for a busy machine.
    env = dict(os.environ, PYTHONPATH=os.pathsep.join(sys.path))
    child = subprocess.Popen([sys.executable, "-c", CTRL_C], stdout=subprocess.PIPE, text=True, env=env)
    try:
        assert child.stdout.readline().strip() == "ready"
        time.sleep(0.3)
        sent = time.monotonic()
        child.send_signal(signal.SIGINT)
        outcome, at = child.stdout.readline().split()
        child.wait(timeout=30)
    finally:
        child.kill()
    assert outcome == "interrupted" and float(at) - sent < 5.0
