"""Who reaches a run: what it listens on while its workers hold a frame, and who is let in."""

from __future__ import annotations

import contextlib
import http.client
import os
import subprocess
import sys
from pathlib import Path

import pytest
import zarr
from batch_support import (
    WITH_US,
    Gate,
    assert_equal,
    frames_of,
    loopback_cluster,
    options,
    run,
    started,
)
from distributed import Client, Security

LOOPBACK = "0100007F"


def tree_of(number):
    """A process and all that come from it."""
    parents = {}
    for file in Path("/proc").glob("[0-9]*/stat"):
        with contextlib.suppress(FileNotFoundError, ProcessLookupError):
            parents[int(file.parent.name)] = int(file.read_text().rpartition(")")[2].split()[1])
    tree = {number}
    while more := {child for child, parent in parents.items() if parent in tree} - tree:
        tree |= more
    return tree


def listening(processes):
    """Address and port of each listening socket of these processes."""
    inodes = set()
    for process in processes:
        for file in Path(f"/proc/{process}/fd").iterdir():
            with contextlib.suppress(FileNotFoundError):
                inodes.add(os.readlink(file))
    found = []
    for table in ("tcp", "tcp6"):
        for line in Path("/proc/net", table).read_text().splitlines()[1:]:
            fields = line.split()
            if fields[3] == "0A" and f"socket:[{fields[9]}]" in inodes:
                address, port = fields[1].split(":")
                found.append((address, int(port, 16)))
    return found


def serves_pages(port):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=60)
    try:
        connection.request("GET", "/info/main/workers.html")
        return connection.getresponse().status
    except (OSError, http.client.HTTPException):
        return None
    finally:
        connection.close()


@contextlib.contextmanager
def a_held_run(folder, *more):
    """A run on two workers, each of which holds a frame; it has to end well."""
    frames = frames_of(4)
    zarr.save_array(str(folder / "in.zarr"), frames, chunks=(1, 64, 96))
    (folder / "tmp").mkdir()
    gate = Gate(folder, 0)
    client = started(
        folder / "in.zarr",
        folder / "out.zarr",
        *options("--workers", 2, *more),
        env=os.environ | gate.environment | {"TMPDIR": str(folder / "tmp")},
    )
    gate.wait_for(2)
    yield client
    gate.open()
    printed, errors = client.communicate()
    assert client.returncode == 0, errors
    client.told = errors
    assert assert_equal(folder / "out.zarr", frames) == 4


def test_a_run_on_this_machine_is_reached_by_nobody_else(tmp_path):
    with a_held_run(tmp_path) as client:
        sockets = listening(tree_of(client.pid))
        # A scheduler, and for each worker itself and what restarts it.
        assert len(sockets) == 5 and {address for address, _ in sockets} == {LOOPBACK}, sockets
        assert not [port for _, port in sockets if serves_pages(port)]
        in_client = listening([client.pid])
        assert len(in_client) == 3  # all but those of the workers themselves
        for _, port in in_client:
            for scheme, security in (("tcp", None), ("tls", Security.temporary())):
                with pytest.raises(OSError):
                    Client(f"{scheme}://127.0.0.1:{port}", timeout=0.5, security=security)
        # Processes that others may look at.
        for process in tree_of(client.pid):
            assert b"PRIVATE KEY" not in Path(f"/proc/{process}/cmdline").read_bytes()
        folders = list((tmp_path / "tmp").iterdir())
        assert folders and all(file.stat().st_mode & 0o777 == 0o700 for file in folders)
    assert not client.told and not list((tmp_path / "tmp").iterdir())


def test_pages_are_shown_where_they_are_asked_for(tmp_path):
    with a_held_run(tmp_path, "--dashboard") as client:
        sockets = listening(tree_of(client.pid))
        assert len(sockets) == 6 and {address for address, _ in sockets} == {LOOPBACK}, sockets
        ports = [port for _, port in sockets if serves_pages(port) == 200]
        assert len(ports) == 1
    assert client.told == f"pages of the run: http://127.0.0.1:{ports[0]}/info/main/workers.html\n"


def test_a_machine_that_cannot_make_keys_is_told_of_it(tmp_path):
    zarr.save_array(str(tmp_path / "in.zarr"), frames_of(2), chunks=(1, 64, 96))
    program = """import sys
sys.modules["cryptography"] = None
from veldrane_polarization import batch
sys.exit(batch.main(sys.argv[1:]))
"""
    done = subprocess.run(
        [
            sys.executable,
            "-B",
            "-c",
            program,
            tmp_path / "in.zarr",
            tmp_path / "out.zarr",
            *map(str, options("--workers", 1)),
        ],
        capture_output=True,
        text=True,
    )
    assert done.returncode == 2 and done.stderr.count("\n") == 1, done.stderr
    assert done.stderr.endswith("; install it, in Debian python3-cryptography\n")


def keys_of(security, folder):
    """Files of a certificate, which stands for itself, and of its key."""
    (folder / "ca.pem").write_text(security.tls_ca_file)
    (folder / "cert.pem").write_text(security.tls_client_cert)
    (folder / "key.pem").write_text(security.tls_client_key)
    return {name: str(folder / f"{name}.pem") for name in ("ca", "cert", "key")}


def test_a_cluster_of_ones_own_may_have_keys(tmp_path):
    security = Security.temporary()
    files = keys_of(security, tmp_path)
    shared = {
        "DASK_DISTRIBUTED__COMM__DEFAULT_SCHEME": "tls",
        "DASK_DISTRIBUTED__COMM__REQUIRE_ENCRYPTION": "True",
        "DASK_DISTRIBUTED__COMM__TLS__CA_FILE": files["ca"],
    }
    for role in ("SCHEDULER", "WORKER", "CLIENT"):
        shared |= {
            f"DASK_DISTRIBUTED__COMM__TLS__{role}__{part.upper()}": files[part]
            for part in ("cert", "key")
        }
    frames = frames_of(3)
    zarr.save_array(str(tmp_path / "in.zarr"), frames, chunks=(1, 64, 96))
    given = ("--tls-ca-file", files["ca"], "--tls-cert", files["cert"], "--tls-key", files["key"])
    with loopback_cluster(tmp_path, ({},), shared, security) as (address, *_):
        assert address.startswith("tls://")
        for name, line, more in (
            ("given", (address.removeprefix("tls://"), *given), {}),
            ("configured", (address,), {"env": os.environ | shared}),
        ):
            out = tmp_path / f"{name}.zarr"
            code, printed, errors = run(
                tmp_path / "in.zarr", out, *options("--scheduler", *line), **more
            )
            assert code == 0 and not errors, errors
            assert assert_equal(out, frames) == 3
        for line, words in (
            ((address,), "asks for certificates; give --tls-ca-file"),
            ((address.replace("tls", "tcp"), *given), "is without TLS, and certificates are given"),
        ):
            code, printed, errors = run(
                tmp_path / "in.zarr", tmp_path / "out.zarr", *options("--scheduler", *line)
            )
            assert code == 2 and not printed and errors.count("\n") == 1, errors
            assert errors.startswith(f"error: --scheduler {line[0]} {words}"), errors


def test_local_workers_have_a_folder_of_their_own_and_do_not_warn():
    program = """
from veldrane_polarization.batch import cluster
with cluster.cluster(None, 1) as client:
    (worker,) = client.scheduler_info()["workers"].values()
    print(worker["local_directory"])
    client.run(eval, "__import__('warnings').warn('of a slow disk')")
"""
    environment = {name: value for name, value in os.environ.items() if name != "PYTHONWARNINGS"}
    done = subprocess.run(
        [*WITH_US, "-B", "-c", program], capture_output=True, text=True, env=environment
    )
    folder = Path(done.stdout.strip())
    assert any(part.startswith("veldrane-") for part in folder.parts)
    assert not folder.exists() and not done.stderr, done.stderr
