"""The server of the view's tests, and what honest and other requests by sockets get of it.
Needs Python's standard library alone."""

import os
import re
import socket
import subprocess
import sys
import time

PATIENCE = 60  # seconds that nothing here takes


class Server:
    """The server of the tests, for as long as the block lasts."""

    def __init__(self, program, *arguments):
        self.process = subprocess.Popen(
            [program, *arguments], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True
        )
        port, self.token = self.process.stdout.readline().split()
        self.port = int(port)
        self.host = f"127.0.0.1:{port}"

    def __enter__(self):
        return self

    def __exit__(self, *_):
        begin = time.monotonic()
        self.process.stdin.close()
        code = self.process.wait(PATIENCE)
        self.process.stdout.close()
        require(code == 0, f"the server ended with {code}")
        print(f"ended within {time.monotonic() - begin:.2f} s")

    def connection(self):
        return socket.create_connection(("127.0.0.1", self.port), PATIENCE)

    def request(self, target="/echo?text=a", method="GET", version="HTTP/1.1", **fields):
        """The bytes of a request, honest but for what is given; None leaves a field out."""
        fields = {"Host": self.host, "Polarization-Token": self.token} | {
            name.replace("_", "-"): value for name, value in fields.items()
        }
        lines = [f"{name}: {value}" for name, value in fields.items() if value is not None]
        return "\r\n".join([f"{method} {target} {version}", *lines, "", ""]).encode("latin-1")

    def memory(self):
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as status:
            return int(re.search(r"VmRSS:\s*(\d+)", status.read()).group(1)) * 1024

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))


def require(condition, what):
    if not condition:
        sys.exit(f"{os.path.basename(sys.argv[0])}: {what}")


def all_of(connection):
    """Whatever comes until the other side closes, or breaks off."""
    received = b""
    try:
        while part := connection.recv(1 << 16):
            received += part
    except ConnectionError:
        pass
    return received


def answer_on(connection):
    """One answer: status, fields in small letters, body."""
    while (end := connection.recv(4096, socket.MSG_PEEK).find(b"\r\n\r\n")) < 0:
        require(connection.recv(1, socket.MSG_PEEK), "the connection ended without an answer")
        time.sleep(0.001)
    received = connection.recv(end + 4)
    first, *lines = received.decode("latin-1").rstrip().split("\r\n")
    fields = {name.lower(): value for name, value in (line.split(": ", 1) for line in lines)}
    body = b""
    while left := int(fields.get("content-length", 0)) - len(body):
        part = connection.recv(min(left, 1 << 20))
        require(part, "an answer's body is cut short")
        body += part
    return int(first.split()[1]), fields, body


def answer_to(server, request):
    with server.connection() as connection:
        try:
            connection.sendall(request)
        except ConnectionError:
            pass  # refused before its end
        return answer_on(connection)


def status_of(server, request):
    return answer_to(server, request)[0]


def be_honest(server, behind):
    status, _, body = answer_to(server, server.request("/echo?text=honest"))
    require((status, body) == (200, b"honest"), f"behind {behind} an honest request got {status}")
