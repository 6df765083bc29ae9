"""A client of the FastCGI protocol, and a worker to ask."""

import os
import pathlib
import signal
import socket
import struct
import subprocess
import time

BEGIN, END, PARAMS, STDIN, STDOUT, STDERR = 1, 3, 4, 5, 6, 7


def record(kind, content):
    return struct.pack(">BBHHBx", 1, kind, 1, len(content), 0) + content


def stream(kind, content):
    pieces = [content[i:i + 65535] for i in range(0, len(content), 65535)]
    return b"".join(record(kind, piece) for piece in [*pieces, b""])


def request(environment, body=b""):
    """The records of a request."""
    parameters = b""
    for name, value in environment.items():
        name, value = name.encode("latin-1"), value.encode("latin-1")
        for length in (len(name), len(value)):
            parameters += struct.pack(">I", length | 1 << 31) if length > 127 else bytes([length])
        parameters += name + value
    return record(BEGIN, struct.pack(">HB5x", 1, 0)) + stream(PARAMS, parameters) + stream(STDIN, body)


def answer(connection):
    """What comes back: the output, the errors, and the status; None when the end does not come."""
    streams = {STDOUT: b"", STDERR: b""}
    with connection.makefile("rb") as records:
        while len(head := records.read(8)) == 8:
            kind, length, padding = struct.unpack(">xBxxHBx", head)
            content = records.read(length + padding)[:length]
            if kind == END:
                return streams[STDOUT], streams[STDERR], struct.unpack(">I4x", content)[0]
            streams[kind] += content
    return streams[STDOUT], streams[STDERR], None


class Worker:
    """A worker with its socket in a directory, asked without a web server. A context manager."""

    def __init__(self, program, directory, *options, environment=None):
        self.socket = pathlib.Path(f"{directory}.sock")
        self.log = pathlib.Path(f"{directory}.log")
        self.written, self.read = self.log.open("wb"), self.log.open("rb")
        self.process = subprocess.Popen(
            [program, "--socket", self.socket, *options], cwd=directory, stderr=self.written,
            stdin=subprocess.DEVNULL, env=environment)

    def __enter__(self):
        end = time.monotonic() + 20
        while not self.socket.exists() and self.process.poll() is None and time.monotonic() < end:
            time.sleep(0.01)
        return self

    def __exit__(self, *ignored):
        self.process.send_signal(signal.SIGTERM)
        self.process.wait(60)
        for file in (self.written, self.read):
            file.close()
        self.log.unlink()

    def errors(self):
        """What it wrote to its log since this was asked last."""
        return self.read.read()

    def connect(self, seconds=60):
        connection = socket.socket(socket.AF_UNIX)
        connection.settimeout(seconds)
        connection.connect(str(self.socket))
        return connection

    def ask(self, environment, body=b"", seconds=60):
        with self.connect(seconds) as connection:
            try:
                connection.sendall(request(environment, body))
            except BrokenPipeError:
                pass  # The answer was given before all was read.
            return answer(connection)

    def children(self):
        tasks = pathlib.Path(f"/proc/{self.process.pid}/task/{self.process.pid}/children")
        return [int(child) for child in tasks.read_text().split()]


"".encode("unicode_escape")  # Loads what reports need while it may be read.


def leave_root():
    """A worker does not run as root, so neither do those who share files with it."""
    if os.getuid() == 0:
        os.setgroups([])
        os.setgid(65534)
        os.setuid(65534)
