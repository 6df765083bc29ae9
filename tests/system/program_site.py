"""ProgramSite: a directory with the program in it, run by many processes at once without a web
server between. Several sites may share one data directory, as several hosts would."""

import os
import pathlib
import shutil
import subprocess
import tempfile

from harness import Failure, expect


class ProgramSite:
    def __init__(self, build, config="", data=None):
        # As realpath: the program refuses script directories that lie behind links.
        self.directory = pathlib.Path(os.path.realpath(tempfile.mkdtemp(prefix="vexa-site-")))
        self.program = self.directory / "vexa"
        shutil.copy(build / "vexa", self.program)
        (self.directory / "site").mkdir()
        self.data = data if data is not None else self.directory / "data"
        self.data.mkdir(exist_ok=True)
        (self.directory / "vexa.conf").write_text(
            f"vexaroot={self.directory}/site\nstdmodedatadir={self.data}\nusecookies=no\n"
            f"serveradmin=admin@example.com\n{config}\n".replace("{DIR}", str(self.directory)))

    def __enter__(self):
        return self

    def __exit__(self, *ignored):
        shutil.rmtree(self.directory)

    def write(self, name, text):
        (self.directory / "site" / name).write_text(text)

    def start(self, page="index.vx", query=""):
        chosen = {name: os.environ[name] for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS")
                  if name in os.environ}
        return subprocess.Popen(
            [self.program], cwd=self.directory, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, env={"GATEWAY_INTERFACE": "CGI/1.1", "PATH_INFO": "/" + page,
                                         "QUERY_STRING": query, "TZ": "UTC", **chosen})

    def page(self, page="index.vx", query=""):
        """The page of one request that must run to its end."""
        return page_of(self.start(page, query))


def page_of(process):
    """What a process that ends by itself wrote behind the headers."""
    output, errors = process.communicate(timeout=300)
    expect("standard error", errors, b"")
    expect("exit status", process.returncode, 1)
    head, separator, page = output.partition(b"\r\n\r\n")
    if not separator:
        raise Failure(f"no response: {output!r}")
    return page.decode("latin-1")
