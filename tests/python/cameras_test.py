"""Cameras from Python: what is refused, and frames of the simulated camera on 127.0.0.1."""

import contextlib
import gc
import os
import signal
import socket
import subprocess
import sys
import textwrap
import threading
import time

import numpy as np
import pytest

import veldrane_polarization as vp
from veldrane_polarization import _cameras

PROGRAM = os.environ.get("SIMULATED_CAMERA")
LONGEST_WAIT = 500  # seconds, for the camera; less than ctest gives a file of tests
needs_camera = pytest.mark.skipif(PROGRAM is None, reason="SIMULATED_CAMERA names no program")


@contextlib.contextmanager
def the_only_camera():
    """One at a time on a machine: the lock that the tests in C++ take."""
    deadline = time.monotonic() + LONGEST_WAIT
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as lock:
        while True:
            try:
                lock.bind("\0simulated_camera")
                break
            except OSError:
                if time.monotonic() > deadline:
                    raise TimeoutError("somebody else keeps the camera") from None
                time.sleep(0.02)
        yield


@contextlib.contextmanager
def camera_process(*options):
    serial = f"SIM{os.getpid()}"
    command = ["/usr/bin/setpriv", "--pdeathsig", "KILL", PROGRAM, "--serial", serial]
    with the_only_camera(), subprocess.Popen(
        [*command, "--width", "64", "--height", "32", *options], stdout=subprocess.PIPE, text=True
    ) as camera:
        assert camera.stdout.readline() == "ready\n"
        try:
            yield camera, next(each for each in vp.list_cameras() if each.serial == serial)
        finally:
            camera.kill()


@contextlib.contextmanager
def simulated_camera(*options):
    with camera_process(*options) as (_, about):
        yield about


@pytest.mark.parametrize(
    "options, kind, line",
    [
        ({"id": 3}, TypeError, "id is 3; give one that list_cameras() tells"),
        ({"id": ""}, ValueError, "id is ''; give one that list_cameras() tells, or leave it out"),
        ({"pixel_format": "RGB8"}, ValueError, "pixel_format is 'RGB8'; give one of 'Mono8', "),
        ({"exposure_us": "5"}, TypeError, "exposure_us is '5'; give a finite number"),
        ({"gain": float("nan")}, ValueError, "gain is nan; give a finite number"),
        ({"region": 3}, TypeError, "region is 3; give (row, column, height, width)"),
        (
            {"region": (1, 2, 3)},
            ValueError,
            "region is (1, 2, 3); give (row, column, height, width)",
        ),
        ({"region": (0, 0, 0, 8)}, ValueError, "height of region is 0; give a whole number from 1"),
        ({"frames": 0}, ValueError, "frames is 0; give a whole number from 1"),
        ({"drop": "some"}, ValueError, "drop is 'some'; give one of 'newest', 'oldest', 'none'"),
        ({"waiting_frames": 5000}, ValueError, "waiting_frames is 5000; give a whole number from"),
        ({"reconnect_seconds": -1}, ValueError, "reconnect_seconds is -1; give 0 to 1e+06"),
        ({"packet_socket": 1}, TypeError, "packet_socket is 1; give True or False"),
    ],
)
def test_what_cannot_be_is_refused_in_a_line(options, kind, line):
    with pytest.raises(kind) as refusal:
        vp.open_camera(**options)
    assert str(refusal.value).startswith(line)


def test_a_camera_is_an_iterator_that_is_given_back():
    class Native:
        stopped = 0
        frames = [(np.zeros((2, 4), np.uint16), 65535, 7, 8), None]

        def next(self):
            return self.frames.pop(0)

        def stop(self):
            self.stopped += 1

        def counts(self):
            return 5, 1, 2, {"time-out": 3}, 0

        def description(self):
            return "id", "vendor", "model", "serial", "", "Fake"

        def settings(self):
            return "Mono12", (3, 0, 2, 4), (2048, 2448), 5000.0, None, None

    native = Native()
    with _cameras.Camera(native) as camera:
        assert [frame.frame_number for frame in camera] == [65535]
    assert native.stopped == 1
    assert (camera.counts.received, camera.counts.incomplete) == (5, {"time-out": 3})
    assert camera.settings.region.height == 2 and camera.description.model == "model"
    assert camera.layout((90, 45, 135, 0)) == (135, 0, 90, 45)


def test_a_camera_that_somebody_keeps_is_not_waited_for_without_end(monkeypatch):
    with the_only_camera():
        monkeypatch.setattr(sys.modules[__name__], "LONGEST_WAIT", 0)
        with pytest.raises(TimeoutError, match="keeps the camera"), the_only_camera():
            pass


def test_without_a_camera_nothing_of_it_is_loaded():
    code = "import veldrane_polarization; print('aravis' in open('/proc/self/maps').read())"
    done = subprocess.run([sys.executable, "-B", "-c", code], capture_output=True, text=True)
    assert (done.stdout, done.stderr) == ("False\n", "")


@needs_camera
def test_frames_arrive_as_they_were_sent():
    with simulated_camera("--different", "1", "--rate", "200") as about:
        assert about.protocol == "GigEVision" and about.address == "127.0.0.1"
        with vp.open_camera(about.id, pixel_format="Mono12p", frames=3) as camera:
            frames = list(camera)
            assert camera.settings.pixel_format == "Mono12p"
            assert camera.settings.region == (0, 0, 32, 64)
        assert [frame.frame_number for frame in frames] == [1, 2, 3]
        assert frames[0].camera_time_ns < frames[1].camera_time_ns
        assert abs(frames[0].host_time_ns - time.time_ns()) < 3600e9
        assert camera.counts.received >= 3 and camera.counts.lost == 0
        whole = frames[0].samples
        assert whole.dtype == np.uint16 and whole.shape == (32, 64) and 255 < whole.max() < 4096
        assert np.array_equal(whole, frames[2].samples)
        assert vp.process(whole, layout=2, bit_depth=12, planes="dolp").dolp.shape == (32, 64)

        with vp.open_camera(about.id, region=(3, 5, 16, 32), frames=1) as camera:
            assert np.array_equal(next(camera).samples, whole[3:19, 5:37])
            assert camera.settings.region == (3, 5, 16, 32)
            assert camera.layout(2) == vp.Calibration.ideal(2).of_region(3, 5).layout


@needs_camera
def test_interrupted_a_camera_is_given_back():
    with simulated_camera("--frames", "1") as about:
        with pytest.raises(KeyboardInterrupt), vp.open_camera(about.id) as camera:
            next(camera)
            threading.Timer(0.2, signal.raise_signal, [signal.SIGINT]).start()
            next(camera)
        assert list(camera) == [] and camera.counts.received == 1
        with vp.open_camera(about.id) as camera:
            assert next(camera).frame_number == 1


@needs_camera
class Test_a_camera_that_sends_no_more:
    """After its first frame. Each script is a process of its own, which may hang."""

    @pytest.fixture(scope="class")
    def run(self):
        with simulated_camera("--frames", "1") as about:

            def run(script):
                begin = f"""
                    import os, signal, sys, threading, time
                    import veldrane_polarization as vp
                    camera = vp.open_camera({about.id!r})
                    next(camera)
                """
                code = textwrap.dedent(begin) + textwrap.dedent(script)
                done = subprocess.run(
                    [sys.executable, "-B", "-c", code], capture_output=True, text=True, timeout=15
                )
                assert (done.returncode, done.stderr) == (0, "")
                return done.stdout

            yield run

    def test_is_given_back_by_the_handler_of_a_signal(self, run):
        script = """
            signal.signal(signal.SIGALRM, lambda *_: camera.close())
            signal.setitimer(signal.ITIMER_REAL, 0.1)
            print(list(camera), camera.counts.received)
            print(next(vp.open_camera(camera.description.id)).frame_number)
        """
        assert run(script) == "[] 1\n1\n"

    def test_is_given_back_by_a_handler_that_raises(self, run):
        script = """
            def handler(*_):
                camera.close()
                raise KeyError
            signal.signal(signal.SIGALRM, handler)
            signal.setitimer(signal.ITIMER_REAL, 0.1)
            try:
                next(camera)
            except KeyError:
                print(next(vp.open_camera(camera.description.id)).frame_number)
        """
        assert run(script) == "1\n"

    def test_is_not_asked_in_the_handler_of_a_signal(self, run):
        script = """
            signal.signal(signal.SIGALRM, lambda *_: next(camera))
            signal.setitimer(signal.ITIMER_REAL, 0.1)
            try:
                next(camera)
            except RuntimeError as error:
                print(str(error).split(";")[1])
        """
        assert run(script) == " ask outside the handler\n"

    def test_is_given_back_by_another_thread(self, run):
        script = """
            threading.Timer(0.1, camera.close).start()
            print(list(camera), camera.counts.received)
        """
        assert run(script) == "[] 1\n"

    def test_lets_signals_through_to_one_of_two_threads(self, run):
        script = """
            def handler(*_):
                raise KeyError
            other = threading.Thread(target=list, args=[camera])
            other.start()
            time.sleep(0.1)  # until it waits for a frame
            signal.signal(signal.SIGALRM, handler)
            signal.setitimer(signal.ITIMER_REAL, 0.1)
            try:
                next(camera)
            except KeyError:
                camera.close()
                other.join()
                print(list(camera))
        """
        assert run(script) == "[]\n"

    def test_lets_the_interpreter_end(self, run):
        script = """
            for _ in range(2):
                threading.Thread(target=list, args=[camera], daemon=True).start()
            time.sleep(0.1)
        """
        assert run(script) == ""

    def test_stays_with_its_process_after_a_fork(self, run):
        script = """
            threading.Thread(target=list, args=[camera], daemon=True).start()
            time.sleep(0.1)
            child = os.fork()
            if child == 0:
                print(list(camera), flush=True)
                sys.exit()
            print(os.waitpid(child, 0)[1])
        """
        assert run(script) == "[]\n0\n"


@needs_camera
def test_counts_do_not_wait_for_a_camera_that_is_given_back():
    with camera_process() as (process, about):
        camera = vp.open_camera(about.id, frames=1)
        assert len(list(camera)) == 1
        closing = threading.Thread(target=camera.close)
        process.send_signal(signal.SIGSTOP)  # so that it does not answer for ten seconds
        try:
            closing.start()
            for _ in range(20):
                assert camera.counts.received >= 1
                time.sleep(0.01)
            assert closing.is_alive()
        finally:
            process.send_signal(signal.SIGCONT)
            closing.join()


@needs_camera
def test_arrays_outlive_their_camera():
    with simulated_camera("--different", "8", "--rate", "200") as about:
        with vp.open_camera(about.id, frames=16, drop="none") as camera:
            frames = [(frame.samples, frame.samples.copy()) for frame in camera]
            counts = camera.counts
        del camera
        gc.collect()
        assert len(frames) == 16 and len({whole.tobytes() for _, whole in frames}) == 8
        assert all(np.array_equal(kept, whole) for kept, whole in frames)
        assert counts.lost == 0


@needs_camera
def test_frames_that_closing_lets_go_are_counted_as_dropped():
    with simulated_camera("--frames", "4", "--rate", "200") as about:
        with vp.open_camera(about.id) as camera:
            next(camera)
            while camera.counts.received < 4:
                time.sleep(0.01)
        assert (camera.counts.received, camera.counts.dropped) == (4, 3)


@needs_camera
def test_a_camera_that_goes_away_is_told_behind_its_frames():
    with simulated_camera("--die-after", "3", "--rate", "100") as about:
        frames = []
        with vp.open_camera(about.id) as camera:
            with pytest.raises(vp.Camera_error) as error:
                for frame in camera:
                    frames.append(frame.frame_number)
        assert str(error.value).startswith(f"camera {about.id}: went away")
        assert frames == [1, 2, 3]


@needs_camera
def test_what_the_camera_refuses_is_told_in_a_line():
    with simulated_camera() as about:
        with pytest.raises(ValueError, match="^exposure is 1e\\+20 us; this camera takes "):
            vp.open_camera(about.id, exposure_us=1e20)
        with pytest.raises(vp.Camera_error, match="^camera none: does not answer; those that do: "):
            vp.open_camera("none")


def test_what_is_missing_for_cameras_is_told_in_a_line(monkeypatch):
    monkeypatch.setitem(sys.modules, "veldrane_polarization._native_cameras", None)
    monkeypatch.delattr(vp, "_native_cameras", raising=False)
    with pytest.raises(vp.Camera_error, match="^cameras: cannot be reached, since .*; install "):
        vp.list_cameras()
