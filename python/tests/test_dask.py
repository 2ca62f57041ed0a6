"""The README's parameter study over dask.array on a distributed.LocalCluster
(10^8 points there, fewer here): worker processes get the expression and the
registered function it calls by pickling, and the results are bit for bit
those of one call in this process."""
import numpy as np
import pytest

import vexa

da = pytest.importorskip("dask.array")
distributed = pytest.importorskip("distributed")


def test_parameter_study_on_a_local_cluster():
    vexa.register("PYRISE", vexa.Expression("STEP(t,0,0,1,a)", "t,a"))
    try:
        e = vexa.Expression("PYRISE(TIME,AMP)*SIN(2*PI*FREQ*TIME)", params="TIME,AMP,FREQ")
        time = da.linspace(0, 10, 20_000, chunks=5_000)
        amp = da.linspace(0.5, 2.0, 50, chunks=10)
        with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                      dashboard_address=None) as cluster, distributed.Client(cluster):
            values = da.map_blocks(e, time[None, :], amp[:, None], FREQ=1.5, dtype=float)
            peaks = values.max(axis=1).compute()
        want = e(time.compute()[None, :], amp.compute()[:, None], FREQ=1.5)
        assert values.shape == (50, 20_000) and np.array_equal(peaks, want.max(axis=1))
    finally:
        vexa.unregister("PYRISE")
