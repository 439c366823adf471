"""The cluster that a run works on: one that is there, or one of this machine's own processes."""

from __future__ import annotations

import contextlib
import re
import sys
import tempfile
from collections.abc import Iterator
from typing import Any, Optional

_CONNECT_SECONDS = 10
_ADDRESS = re.compile(r"([a-z]+://)?[^\s/]+:(?P<port>[0-9]{1,5})/?")


class Cluster_error(ValueError):
    """A cluster that no run can begin on: one line for a user."""


def reason_of(error: BaseException) -> str:
    """In one line. That of a time that has run out has no text."""
    return " ".join(str(error).split()) or type(error).__name__


def credentials(ca_file: Optional[str], cert: Optional[str], key: Optional[str]) -> Any:
    """What a scheduler with TLS asks for. None, and Dask takes those of its own configuration."""
    given = {"--tls-ca-file": ca_file, "--tls-cert": cert, "--tls-key": key}
    if not any(given.values()):
        return None
    for option in ("--tls-ca-file", "--tls-cert"):  # a key may be in the file of its certificate
        if not given[option]:
            raise Cluster_error(f"{option} is missing; give the file that dask-scheduler has")
    for option, file in given.items():
        if file is None:
            continue
        try:
            with open(file, "rb"):
                pass
        except OSError as error:
            raise Cluster_error(
                f"{option} {file} cannot be read ({error.strerror}); give the file that "
                "dask-scheduler has"
            ) from None
    from distributed import Security

    security = Security(
        require_encryption=True, tls_ca_file=ca_file, tls_client_cert=cert, tls_client_key=key
    )
    try:
        security.get_connection_args("client")
    except OSError:  # of the ssl library
        raise Cluster_error(
            "--tls-ca-file, --tls-cert and --tls-key are no certificates in PEM form and the key "
            "of the second; give files that belong together"
        ) from None
    return security


@contextlib.contextmanager
def cluster(
    scheduler: Optional[str], workers: Optional[int], security: Any = None, dashboard: bool = False
) -> Iterator[Any]:
    """A client of the cluster that is there, or of one of our own."""
    if scheduler is not None:
        with _closing(_client_of(scheduler, security)) as client:
            yield client
        return
    folder = tempfile.TemporaryDirectory(prefix="veldrane-", ignore_cleanup_errors=True)
    with folder, _closing(_local_cluster(workers, folder.name, dashboard)) as local:
        from distributed import Client

        try:
            client = Client(local)
        except (OSError, RuntimeError) as error:
            raise _local_failure(error) from None
        with _closing(client):
            yield client


def _client_of(scheduler: str, security: Any) -> Any:
    from distributed import Client

    unusable = Cluster_error(
        f"--scheduler {scheduler} is no address that can be used; give one such as tcp://HOST:8786"
    )
    # Dask takes ten seconds to find out, or a text of its own.
    found = _ADDRESS.fullmatch(scheduler)
    if found is None or not 1 <= int(found["port"]) <= 65535:
        raise unusable
    address = scheduler
    if security is not None and "://" not in scheduler:
        address = f"tls://{scheduler}"
    try:
        return Client(address, timeout=_CONNECT_SECONDS, security=security)
    except OSError as error:
        raise Cluster_error(
            f"--scheduler {scheduler} does not answer ({reason_of(error)}); start "
            "dask-scheduler there, or leave the option out"
        ) from None
    except (ImportError, ValueError):  # some kinds of addresses want packages of their own
        raise unusable from None
    except TypeError:
        raise Cluster_error(
            f"--scheduler {scheduler} asks for certificates; give --tls-ca-file, --tls-cert and "
            "--tls-key"
        ) from None
    except RuntimeError:
        raise Cluster_error(
            f"--scheduler {scheduler} is without TLS, and certificates are given; give tls:// in "
            "front of the address"
        ) from None


def _local_failure(error: Exception) -> Cluster_error:
    return Cluster_error(
        f"no cluster can be started on this machine ({reason_of(error)}); give fewer --workers, or a "
        "--scheduler"
    )


def _local_cluster(workers: Optional[int], folder: str, dashboard: bool) -> Any:
    from .local import pages, start

    try:
        local = start(workers, folder, dashboard)
    except (OSError, RuntimeError) as error:
        raise _local_failure(error) from None
    if dashboard:
        print(f"pages of the run: {pages(local)}", file=sys.stderr)
    return local


@contextlib.contextmanager
def _closing(part: Any) -> Iterator[Any]:
    try:
        yield part
    finally:
        # What cannot be closed is gone already.
        with contextlib.suppress(Exception):
            part.close()
