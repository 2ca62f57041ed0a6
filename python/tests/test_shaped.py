"""Parameters declared with shapes: array calls read their trailing axes as
vectors and matrices, broadcast the leading ones as points, and give every
element bit for bit as a one-point evaluate() does."""
import pickle

import numpy as np
import pytest

import vexa

RNG = np.random.default_rng(5)


def _same_as_evaluate(e, result, arrays, lead):
    """Each point of result against evaluate() of the point's values."""
    spread = [np.broadcast_to(a, lead + a.shape[a.ndim - len(t):])
              for a, t in zip(arrays, [e.shapes.get(n, ()) for n in e.params])]
    for at in np.ndindex(*lead):
        try:
            want = np.asarray(e.evaluate(*[s[at] for s in spread]))
        except vexa.EvaluationError:
            assert np.isnan(result[at]).all()
            continue
        assert want.tobytes() == np.ascontiguousarray(result[at]).tobytes(), at


@pytest.mark.parametrize("text, params, shapes, values, result_shape", [
    ("R%F", "R,F", {"R": (3,), "F": (3,)}, [(4, 3), (3,)], (4, 3)),
    ("u*M", "u,M", {"u": (3,), "M": (3, 3)}, [(5, 3), (3, 3)], (5, 3)),
    ("M*M+M", "M", {"M": (3, 3)}, [(2, 3, 3, 3)], (2, 3, 3, 3)),
    ("k*V", "k,V", {"V": (3,)}, [(6, 1), (1, 2, 3)], (6, 2, 3)),
    ("u*M*k", "u,M,k", {"u": (2,), "M": (2, 4)}, [(7, 2), (7, 2, 4), ()], (7, 4)),
    ("SIN(k)+1", "k,V", {"V": (3,)}, [(8,), (8, 3)], (8,)),
])
@pytest.mark.parametrize("threads", [1, 2])
def test_points_match_one_point_evaluate(text, params, shapes, values, result_shape, threads):
    e = vexa.Expression(text, params=params, shapes=shapes, threads=threads)
    arrays = [RNG.uniform(-3, 3, s) for s in values]
    result = e(*arrays)
    assert result.shape == result_shape
    lead = np.broadcast_shapes(*(a.shape[:a.ndim - len(e.shapes.get(n, ()))] for a, n in zip(arrays, e.params)))
    _same_as_evaluate(e, result, arrays, lead)


def test_a_single_point_and_out():
    e = vexa.Expression("R%F", params="R,F", shapes={"R": (3,), "F": (3,)})
    assert e(R=(1, 0, 0), F=(0, 1, 0)).tolist() == [0, 0, 1]
    out = np.empty((2, 3))
    assert e(R=np.eye(3)[:2], F=(0, 0, 1), out=out) is out
    assert out.tolist() == [[0, -1, 0], [1, 0, 0]]
    with pytest.raises(ValueError, match="shape"):
        e(R=np.eye(3), F=(0, 0, 1), out=np.empty(3))
    assert e(R=np.empty((0, 3)), F=(0, 0, 1)).shape == (0,)


def test_points_without_a_value_warn_and_give_nan():
    e = vexa.Expression("V*(1/k)", params="V,k", shapes={"V": (3,)})
    with pytest.warns(vexa.EvaluationWarning) as told:
        result = e(V=(1, 2, 3), k=[1, 0, 2, 0])
    assert np.isnan(result[[1, 3]]).all() and result[2].tolist() == [0.5, 1, 1.5]
    w = told[0].message
    assert (w.failed, w.index, w.code) == (2, 1, -10001)
    # Vectors that cannot be multiplied: every point fails, the first shows it.
    bad = vexa.Expression("(u%v)*w", params="u,v,w", shapes={"u": (3,), "v": (3,), "w": (3,)})
    with pytest.raises(vexa.EvaluationError, match="the first 3 points"):
        bad(np.eye(3), (0, 0, 1), (1, 1, 1))
    with pytest.raises(vexa.EvaluationError, match="^(?!the first)"):
        bad((1, 0, 0), (0, 0, 1), (1, 1, 1))


@pytest.mark.parametrize("shapes, error", [({"R": 3}, TypeError), ({"Q": (3,)}, KeyError)] + [
    ({"R": shape}, ValueError) for shape in [(), (3, 1), (0,), (2, 2, 2), (65536, 65536)]])
def test_declarations_that_cannot_be_right(shapes, error):
    with pytest.raises(error):
        vexa.Expression("R*2", params="R", shapes=shapes)


def test_values_of_another_shape_are_refused():
    e = vexa.Expression("R*2", params="R", shapes={"R": (3,)})
    for value in [(1, 2), np.ones((4, 2)), 5.0]:
        with pytest.raises(ValueError, match="shape"):
            e(R=value)
    with pytest.raises(TypeError, match="gradient"):
        e.gradient(R=(1, 2, 3))


def test_pickle_and_derivative_keep_shapes():
    e = vexa.Expression("k*V", params="k,V", shapes={"v": (3,)})
    assert e.shapes == {"V": (3,)}
    copy = pickle.loads(pickle.dumps(e))
    assert copy.shapes == {"V": (3,)} and "shapes" in repr(copy)
    assert copy(k=[1, 2], V=(1, 2, 3)).tolist() == [[1, 2, 3], [2, 4, 6]]
    assert e.derivative("k").shapes == e.shapes
    plain = vexa.Expression("x*2", params="x")
    assert pickle.loads(pickle.dumps(plain)).shapes == {}


@pytest.mark.parametrize("columns, held, rows, cols, out", [
    ([np.ones(3)], [False], [1], [3], np.empty(6)),      # 1 point's values for 2 points
    ([np.ones(6)], [True], [1], [3], np.empty(6)),       # a held value of another size
    ([np.ones(6)], [False], [1], [0], np.empty(6)),
    ([np.ones(6)], [False, True], [1], [3], np.empty(6)),
    ([np.ones(6)], [False], [1], [3], np.empty(5)),      # no whole number of results
])
def test_the_extension_checks_what_it_reads(columns, held, rows, cols, out):
    handle = vexa.Expression("R*2", params="R", shapes={"R": (3,)})._handle
    with pytest.raises(ValueError):
        handle.eval_many_shaped(columns, held, rows, cols, 1, 3, out, True, 1)
