"""vexa.System: outputs as each Expression gives them, the Jacobian as each
gradient, broadcasting, failures as warnings, pickling."""
import pickle
import warnings

import numpy as np
import pytest

import vexa

TEXTS = ["STEP(TIME,0,0,1,1)*SIN(W*TIME)", "K*X + SIN(W*TIME)", "SQRT(X)*W"]


def test_outputs_and_jacobian_are_each_expressions():
    s = vexa.System(TEXTS, "TIME")
    assert s.params == ["TIME", "W", "K", "X"] and s.outputs == TEXTS
    t = np.linspace(0, 2, 7)
    values = s(TIME=t[:, None], W=2.0, K=3.0, X=np.array([0.5, 1.5]))
    jac = s.jacobian(TIME=t[:, None], W=2.0, K=3.0, X=np.array([0.5, 1.5]))
    assert values.shape == (7, 2, 3) and jac.shape == (7, 2, 3, 4)
    for i, text in enumerate(TEXTS):
        e = vexa.Expression(text, s.params, strict=False)
        want = e(t[:, None], 2.0, 3.0, np.array([0.5, 1.5]))
        assert np.array_equal(values[..., i], want)
        grad = e.gradient(t[:, None], 2.0, 3.0, np.array([0.5, 1.5]))
        assert np.allclose(jac[..., i, :], grad, rtol=1e-14, atol=0)
    rows, cols = s.sparsity()
    assert list(zip(rows, cols)) == [(0, 0), (0, 1), (1, 0), (1, 1), (1, 2), (1, 3), (2, 1), (2, 3)]


def test_failed_outputs_warn_and_a_system_pickles():
    s = vexa.System(TEXTS, ["TIME"], strict=True)
    with warnings.catch_warnings(record=True) as w:
        warnings.simplefilter("always")
        out = s(1.0, 2.0, 3.0, -1.0)
    assert np.isnan(out[2]) and not np.isnan(out[1])
    assert len(w) == 1 and "output 2" in str(w[0].message)
    back = pickle.loads(pickle.dumps(s))
    assert back.params == s.params and np.array_equal(back(1.0, 2.0, 3.0, 4.0), s(1.0, 2.0, 3.0, 4.0))
    with pytest.raises(vexa.ParseError):
        vexa.System(["x+", "y"])
    with pytest.raises(TypeError):
        vexa.System("x")
