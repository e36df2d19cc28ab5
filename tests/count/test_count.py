"""ternwick_nereon.count() and count_recordings() on generated recordings, here,
on local processes and on a Dask cluster of two worker processes."""

import csv
import os
import subprocess

import numpy as np
import pytest

import ternwick_nereon as tn

pytestmark = pytest.mark.skipif(not hasattr(tn, "count"), reason="built without the analysis library")


@pytest.fixture(scope="module")
def recordings(tmp_path_factory):
    folder = tmp_path_factory.mktemp("recordings")
    paths = []
    for seed in (5, 6):
        path = folder / "passage{}.aris".format(seed)
        subprocess.run([os.environ["NEREON_MAKE_ARIS"], str(path), "--frames", "200", "--seed", str(seed)],
                       check=True, stdout=subprocess.DEVNULL)
        paths.append(str(path))
    return paths


def test_count_agrees_with_the_command_line(recordings, tmp_path):
    counted = tn.count(recordings[0])
    subprocess.run([os.environ["NEREON_COUNT"], recordings[0], "--out", str(tmp_path)], check=True)
    with open(tmp_path / "passage5.fish.csv", newline="") as f:
        rows = list(csv.DictReader(f))
    assert counted.frames == 200 and counted.damage_offset == -1
    assert len(counted.fish) == len(rows) == counted.fish_up + counted.fish_down > 0
    for fish, row in zip(counted.fish, rows):
        assert fish["fish_id"] == int(row["fish_id"]) and fish["direction"] == row["direction"]
        assert (fish["first_frame"], fish["last_frame"]) == (int(row["first_frame"]), int(row["last_frame"]))
        assert np.datetime_as_string(fish["first_time"]) + "Z" == row["first_time"]
        for name in ("length_m", "range_m", "bearing_deg"):
            assert fish[name] == pytest.approx(float(row[name]), abs=1e-3)
    track = counted.tracks[counted.tracks["fish_id"] == counted.fish[0]["fish_id"]]
    assert track["frame"][0] == counted.fish[0]["first_frame"] and track["frame"][-1] == counted.fish[0]["last_frame"]
    assert track["detected"].any()


def test_count_recordings_locally_and_on_dask(recordings, tmp_path):
    distributed = pytest.importorskip("distributed")
    missing = str(tmp_path / "missing.aris")
    paths = recordings + [missing]
    one_by_one = [tn.count(path) for path in recordings]
    local = tn.count_recordings(paths, max_workers=2)
    with distributed.LocalCluster(n_workers=2, processes=True, threads_per_worker=1,
                                  dashboard_address=None) as cluster, distributed.Client(cluster) as client:
        on_dask = tn.count_recordings(paths, client=client)
    for table in (local, on_dask):
        assert list(table.summary["file"]) == paths
        assert list(table.summary["frames"]) == [200, 200, 0]
        assert "missing.aris" in table.summary["error"][2]
        assert list(table.summary["fish_total"][:2]) == [len(c.fish) for c in one_by_one]
        expected = np.concatenate([c.fish for c in one_by_one])
        assert list(table.fish["file"]) == [c.file for c in one_by_one for _ in c.fish]
        for name in expected.dtype.names:
            np.testing.assert_array_equal(table.fish[name], expected[name])
        assert len(table.tracks) == sum(len(c.tracks) for c in one_by_one)


def test_an_exception_from_progress_stops_the_count(recordings):
    seen = []

    def progress(done, total):
        seen.append((done, total))
        if done >= 100:
            raise KeyboardInterrupt

    with pytest.raises(KeyboardInterrupt):
        tn.count(recordings[0], progress=progress)
    assert seen == [(50, 200), (100, 200)]


@pytest.mark.parametrize("options, error", [
    ({"min_lenght": 0.3}, TypeError),
    ({"direction": "sideways"}, ValueError),
    ({"confirm_hits": 0}, ValueError),
])
def test_bad_options_are_refused_before_counting(options, error):
    with pytest.raises(error):
        tn.count_recordings(["never-opened.aris"], **options)
