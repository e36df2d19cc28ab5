"""Counting the fish in recordings, one at a time or many on a Dask cluster.

count() counts one recording in this process. count_recordings() counts many, one
recording per worker process: on a Dask cluster when given a distributed.Client,
on this machine's cores otherwise. Workers open the recordings themselves and read
them a frame at a time, so a path must be readable where the worker runs.
"""

import concurrent.futures
import dataclasses
import math
import multiprocessing
import os

import numpy as np

FISH_DTYPE = np.dtype([
    ("fish_id", np.int32), ("first_frame", np.int32), ("last_frame", np.int32),
    ("first_time", "datetime64[us]"), ("last_time", "datetime64[us]"), ("direction", "U4"),
    ("length_m", np.float64), ("range_m", np.float64), ("bearing_deg", np.float64),
    ("speed_m_s", np.float64), ("detections", np.int32),
])
TRACK_DTYPE = np.dtype([
    ("fish_id", np.int32), ("frame", np.int32), ("time", "datetime64[us]"), ("range_m", np.float64),
    ("bearing_deg", np.float64), ("length_m", np.float64), ("detected", np.bool_),
])
SUMMARY_DTYPE = np.dtype([
    ("file", object), ("start_time", "datetime64[us]"), ("end_time", "datetime64[us]"), ("frames", np.int32),
    ("fish_up", np.int32), ("fish_down", np.int32), ("fish_total", np.int32), ("damage_offset", np.int64),
    ("damage", object), ("error", object),
])

_DEFAULTS = {
    "min_length": 0.25,        # metres; shorter fish are not counted
    "direction": "up-is-right",  # up-is-right, up-is-left, line:DEG, or a list of them
    "count_line": None,        # bearing in degrees whose crossing gives the direction
    "confirm_hits": 3,
    "max_misses": 5,
    "gate": 0.6,               # metres
    "background_samples": 60,
}


@dataclasses.dataclass
class Count:
    """What counting one recording found. Times are numpy.datetime64 in µs (UTC),
    frames positions in the recording from 0; damage_offset is -1 for a whole file."""
    file: str
    fish: np.ndarray
    tracks: np.ndarray
    frames: int = 0
    start_time: np.datetime64 = np.datetime64("NaT", "us")
    end_time: np.datetime64 = np.datetime64("NaT", "us")
    fish_up: int = 0
    fish_down: int = 0
    damage_offset: int = -1
    damage: str = ""
    error: str = ""


@dataclasses.dataclass
class CountTable:
    """The counts of many recordings as single tables, each with a `file` column:
    fish (one row per fish), tracks (one per fish per frame) and summary (one per file)."""
    fish: np.ndarray
    tracks: np.ndarray
    summary: np.ndarray


def _options(options):
    unknown = set(options) - set(_DEFAULTS)
    if unknown:
        raise TypeError("unknown counting option(s): {} (known: {})".format(
            ", ".join(sorted(unknown)), ", ".join(sorted(_DEFAULTS))))
    o = dict(_DEFAULTS, **options)
    directions = o["direction"]
    if isinstance(directions, str):
        directions = directions.split(",")
    up_is_right = True
    line = o["count_line"]
    for value in directions:
        value = value.strip().lower()
        if value == "up-is-right":
            up_is_right = True
        elif value == "up-is-left":
            up_is_right = False
        elif value.startswith("line:"):
            line = value[5:]
        else:
            raise ValueError("direction takes up-is-right, up-is-left or line:DEG, not {!r}".format(value))
    try:
        line = math.nan if line is None else float(line)
    except ValueError:
        raise ValueError("the count line is a bearing in degrees, not {!r}".format(line)) from None
    if not math.isnan(line) and not -180.0 <= line <= 180.0:
        raise ValueError("the count line is a bearing from -180 to 180 degrees, not {}".format(line))
    numbers = [("min_length", 0.0, 100.0), ("gate", 1e-3, 100.0)]
    for name, low, high in numbers:
        if not low <= float(o[name]) <= high:
            raise ValueError("{} is {} to {} metres, not {}".format(name, low, high, o[name]))
    for name, low in (("confirm_hits", 1), ("max_misses", 0), ("background_samples", 0)):
        if int(o[name]) != o[name] or o[name] < low:
            raise ValueError("{} is a whole number from {}, not {}".format(name, low, o[name]))
    return (float(o["min_length"]), up_is_right, line, int(o["confirm_hits"]), int(o["max_misses"]),
            float(o["gate"]), int(o["background_samples"]))


def _table(columns, dtype, rows_of):
    """A structured array from the byte columns the module hands back."""
    size = len(columns[rows_of]) // np.dtype(dtype[rows_of]).itemsize if rows_of in columns else 0
    table = np.zeros(size, dtype)
    for name in dtype.names:
        if name == "direction":
            table[name] = np.where(np.frombuffer(columns["up"], np.uint8) != 0, "up", "down")
        else:
            table[name] = np.frombuffer(columns[name], dtype[name] if dtype[name].kind != "M" else np.int64)
    return table


def count(path, progress=None, **options):
    """Counts the fish in the recording at `path` (.aris or .nrec), returning a Count.

    `progress`, when given, is called with (frames done, frames in the file) every 50
    frames; an exception it raises stops the count and comes out of count(), as
    Ctrl-C's KeyboardInterrupt does.

    Options: min_length (metres, 0.25), direction ("up-is-right": upstream lies
    towards increasing bearing; "up-is-left"; or "line:DEG"), count_line (bearing in
    degrees: only fish that cross it count, going up when they cross it upstream), confirm_hits (3),
    max_misses (5), gate (metres, 0.6), background_samples (60). Raises OSError when
    not a single frame can be read; a damaged file is counted up to the damage.
    """
    from . import _module
    result = _module._countRecording(os.fspath(path), *_options(options), progress)
    return Count(
        file=os.fspath(path),
        fish=_table(result["fish"], FISH_DTYPE, "fish_id"),
        tracks=_table(result["tracks"], TRACK_DTYPE, "fish_id"),
        frames=result["frames"],
        start_time=np.datetime64(result["start_time"], "us"),
        end_time=np.datetime64(result["end_time"], "us"),
        fish_up=result["fish_up"], fish_down=result["fish_down"],
        damage_offset=result["damage_offset"], damage=result["damage"])


def _count_in_worker(path, options):
    """count() in a worker that counts one recording per core: a file that cannot be
    read becomes a Count with its error, so one bad file does not end the batch."""
    from . import _module
    _module._setLibraryThreads(1)
    try:
        return count(path, **options)
    except OSError as error:
        return Count(file=os.fspath(path), fish=np.zeros(0, FISH_DTYPE), tracks=np.zeros(0, TRACK_DTYPE),
                     error=str(error))


def _with_file(table, file):
    out = np.zeros(len(table), [("file", object)] + [(n, table.dtype[n]) for n in table.dtype.names])
    out["file"] = file
    for name in table.dtype.names:
        out[name] = table[name]
    return out


def count_recordings(paths, client=None, max_workers=None, **options):
    """Counts every recording in `paths`, one recording per worker, and returns a
    CountTable whose rows keep the order of `paths`.

    With `client` (a distributed.Client) the recordings are counted on its cluster's
    workers, which must be able to import ternwick_nereon (PYTHONPATH) and read the
    paths; without, on up to `max_workers` local processes (default: one per core).
    Options as for count(). A file that cannot be read gets a summary row with its error.
    """
    paths = [os.fspath(p) for p in paths]
    _options(options)  # a mistake is reported here, not once per worker
    if client is not None:
        futures = client.map(_count_in_worker, paths, options=options, pure=False)
        counts = client.gather(futures)
    elif paths:
        # spawn: a forked copy of a process that runs Qt's threads is not safe.
        context = multiprocessing.get_context("spawn")
        workers = min(max_workers or os.cpu_count() or 1, len(paths))
        with concurrent.futures.ProcessPoolExecutor(workers, mp_context=context) as pool:
            counts = list(pool.map(_count_in_worker, paths, [options] * len(paths)))
    else:
        counts = []

    summary = np.zeros(len(counts), SUMMARY_DTYPE)
    for row, c in zip(summary, counts):
        row["file"], row["start_time"], row["end_time"], row["frames"] = c.file, c.start_time, c.end_time, c.frames
        row["fish_up"], row["fish_down"], row["fish_total"] = c.fish_up, c.fish_down, c.fish_up + c.fish_down
        row["damage_offset"], row["damage"], row["error"] = c.damage_offset, c.damage, c.error
    fish = [_with_file(c.fish, c.file) for c in counts]
    tracks = [_with_file(c.tracks, c.file) for c in counts]
    empty = Count("", np.zeros(0, FISH_DTYPE), np.zeros(0, TRACK_DTYPE))
    return CountTable(
        fish=np.concatenate(fish) if fish else _with_file(empty.fish, ""),
        tracks=np.concatenate(tracks) if tracks else _with_file(empty.tracks, ""),
        summary=summary)
