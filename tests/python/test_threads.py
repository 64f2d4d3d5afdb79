"""Transforms on two threads run at the same time: the binding does not hold
the global interpreter lock while the library computes."""

from __future__ import annotations

import threading
import time

import numpy as np

from conftest import SLOT_OF_OUTPUT, assert_same_outputs

ROUNDS = 6
ALL_OUTPUTS = tuple(SLOT_OF_OUTPUT)
ARGUMENTS = dict(phase=0, bit_depth=12, output_maximum=65535, outputs=ALL_OUTPUTS)


def test_two_threads_transform_large_frames_at_once(reference, processor):
    rng = np.random.default_rng(2448)
    frames = [rng.integers(0, 4096, size=(2048, 2448), dtype=np.uint16) for _ in range(2)]
    expected = [reference.transform(frame, **ARGUMENTS) for frame in frames]
    results = [None, None]
    intervals = [[], []]
    barrier = threading.Barrier(2)

    def work(index: int, synchronised: bool) -> None:
        for _ in range(ROUNDS):
            if synchronised:
                barrier.wait()
            start = time.perf_counter()
            results[index] = processor.transform(frames[index], **ARGUMENTS)
            intervals[index].append((start, time.perf_counter()))

    started = time.perf_counter()
    for index in range(2):
        work(index, synchronised=False)
    one_after_the_other = time.perf_counter() - started
    for index in range(2):
        assert_same_outputs(results[index], expected[index])
        intervals[index].clear()

    threads = [threading.Thread(target=work, args=(index, True)) for index in range(2)]
    started = time.perf_counter()
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    side_by_side = time.perf_counter() - started
    for index in range(2):
        assert_same_outputs(results[index], expected[index])

    print(f"\ntwo threads, {ROUNDS} transforms of 2448x2048 each: one after the other "
          f"{one_after_the_other:.3f} s, side by side {side_by_side:.3f} s, "
          f"ratio {one_after_the_other / side_by_side:.2f} (2 means full overlap)")
    # A thread that held the interpreter lock during its call would keep the
    # other from even taking its start time, so no two calls could overlap.
    overlapping = sum(
        1 for first in intervals[0] for second in intervals[1]
        if first[0] < second[1] and second[0] < first[1]
    )
    assert overlapping > 0
