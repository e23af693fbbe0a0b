#!/usr/bin/env python3
"""PostgreSQL servers for tests: Debian's, started as a user would, in a folder of their own, gone with the test.

usage: servers.py [--servers N] [--extension FOLDER] [--set NAME=VALUE]... [--] COMMAND [ARGUMENT]...

Runs COMMAND beside N servers (one, unless said otherwise) that listen on loopback ports and stops them when it ends, or
when this program does, however it dies. The command finds them in its environment: VELDAN_PG_URL_1 and so on are their
databases, VELDAN_PG_URL is the first, VELDAN_PG_FOLDER the folder with the data folders 1, 2 and so on and the logs
1.log, 2.log. Anybody on this machine may connect, as the superuser postgres too, while the servers run.

--extension FOLDER  makes the extension of that build folder (veldan.so, veldan.control, veldan--*.sql) known to the
                    servers. Nothing is installed: they run from a copy of PostgreSQL's tree that is made of links.

Tests in Python take the class Servers instead.
"""

import argparse
import contextlib
import glob
import os
import pwd
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

# Tests kill processes, never the machine: what the kernel has is safe.
DEFAULT_SETTINGS = {"fsync": "off", "max_connections": "100", "max_wal_size": "4GB", "log_min_messages": "warning"}
START_SECONDS = 60


class NoPostgres(Exception):
    """There is no PostgreSQL server to run."""


def installed_bin():
    """The folder of Debian's server programs."""
    found = sorted(glob.glob("/usr/lib/postgresql/*/bin/postgres"), key=lambda path: int(path.split("/")[4]))
    if not found:
        raise NoPostgres("there is no PostgreSQL server; on Debian: apt-get install postgresql-15")
    return os.path.dirname(found[-1])


def free_ports(count):
    with contextlib.ExitStack() as stack:
        sockets = [stack.enter_context(socket.socket()) for _ in range(count)]
        for one in sockets:
            one.bind(("127.0.0.1", 0))
        return [one.getsockname()[1] for one in sockets]


def link_all(source, target):
    os.makedirs(target)
    for name in os.listdir(source):
        os.symlink(os.path.join(source, name), os.path.join(target, name))


class Servers:
    """Servers 1 to count, as a context. Also runs their programs: psql(), url()."""

    def __init__(self, count=1, extension=None, settings=None):
        self.count = count
        self.settings = {**DEFAULT_SETTINGS, **(settings or {})}
        self.processes = {}
        self.user = "postgres" if os.geteuid() == 0 else None  # the server refuses to run as root
        self.system_bin = installed_bin()
        self.bin = self.system_bin
        self.folder = tempfile.mkdtemp(prefix="veldan-pg-")
        os.chmod(self.folder, 0o755)
        try:
            if extension is not None:
                self._copy_tree(extension)
            self.ports = dict(zip(range(1, count + 1), free_ports(count)))
            self._make_data()
            for number in self.ports:
                self.start(number)
        except BaseException:
            self.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        for number in list(self.processes):
            self.stop(number, signal.SIGINT)
        shutil.rmtree(self.folder, ignore_errors=True)

    def _copy_tree(self, extension):
        """PostgreSQL finds its files from where its program is; the program itself must be no link."""
        major = self.system_bin.split("/")[4]
        prefix = os.path.join(self.folder, "tree")
        lib, share = os.path.join("lib/postgresql", major), os.path.join("share/postgresql", major)
        link_all(os.path.join("/usr", lib, "lib"), os.path.join(prefix, lib, "lib"))
        link_all(os.path.join("/usr", share), os.path.join(prefix, share))
        extensions = os.path.join(prefix, share, "extension")
        os.unlink(extensions)
        link_all(os.path.join("/usr", share, "extension"), extensions)
        self.bin = os.path.join(prefix, lib, "bin")
        os.makedirs(self.bin)
        for program in ("postgres", "initdb"):
            shutil.copy(os.path.join(self.system_bin, program), self.bin)
        wanted = {"*.so": os.path.join(prefix, lib, "lib"), "*.control": extensions, "veldan--*.sql": extensions}
        for pattern, target in wanted.items():
            files = glob.glob(os.path.join(extension, pattern))
            if not files:
                raise FileNotFoundError(f"{extension}: there is no {pattern}; is the extension built?")
            for file in files:
                copy = os.path.join(target, os.path.basename(file))
                with contextlib.suppress(FileNotFoundError):
                    os.unlink(copy)
                shutil.copy(file, copy)
                os.chmod(copy, 0o755)

    def _as_user(self, command):
        """The server goes when this process does, even when it is killed."""
        who = ["--reuid", self.user, "--regid", self.user, "--init-groups"] if self.user else []
        return ["setpriv", "--pdeathsig", "INT", *who, "--", *command]

    def data(self, number):
        return os.path.join(self.folder, str(number))

    def _make_data(self):
        first = self.data(1)
        if self.user:
            user = pwd.getpwnam(self.user)
            os.chown(self.folder, user.pw_uid, user.pw_gid)
        made = subprocess.run(self._as_user([os.path.join(self.bin, "initdb"), "-D", first, "-U", "postgres", "-A", "trust",
                                             "-E", "UTF8", "--locale=C.UTF-8", "--no-sync"]),
                              cwd=self.folder, capture_output=True, text=True, check=False)
        if made.returncode != 0:
            raise RuntimeError("initdb: " + made.stderr)
        for number in range(2, self.count + 1):
            subprocess.run(self._as_user(["cp", "-R", "-p", first, self.data(number)]), cwd=self.folder, check=True)

    def start(self, number):
        """Starts a server that does not run, and waits until it answers."""
        settings = {**self.settings, "port": self.ports[number], "listen_addresses": "127.0.0.1",
                    "unix_socket_directories": self.folder}
        words = [word for name, value in settings.items() for word in ("-c", f"{name}={value}")]
        with open(self.data(number) + ".log", "ab") as log:
            self.processes[number] = subprocess.Popen(
                self._as_user([os.path.join(self.bin, "postgres"), "-D", self.data(number), *words]),
                cwd=self.folder, stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True)
        end = time.monotonic() + START_SECONDS
        ready = [os.path.join(self.system_bin, "pg_isready"), "-q", "-h", "127.0.0.1", "-p", str(self.ports[number])]
        while subprocess.run(ready, check=False).returncode != 0:
            if self.processes[number].poll() is not None or time.monotonic() > end:
                with open(self.data(number) + ".log", encoding="utf-8", errors="replace") as log:
                    raise RuntimeError(f"server {number} did not start:\n{log.read()}")
            time.sleep(0.05)

    def stop(self, number, how=signal.SIGINT):
        """SIGINT: in order; SIGKILL: as a crash, with all its processes."""
        process = self.processes.pop(number)
        if how == signal.SIGKILL:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(process.pid, signal.SIGKILL)
        else:
            process.send_signal(how)
        process.wait()

    def url(self, number=1, database="postgres", user="postgres"):
        return f"postgresql://{user}@127.0.0.1:{self.ports[number]}/{database}"

    def psql(self, sql, number=1, database="postgres", user="postgres"):
        """What psql prints for the statements, without decoration. Fails with its message."""
        done = subprocess.run(["psql", "-X", "-q", "-A", "-t", "-v", "ON_ERROR_STOP=1", "-d",
                               self.url(number, database, user)], input=sql, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise RuntimeError(done.stderr.strip())
        return done.stdout.strip()

    def environment(self):
        urls = {f"VELDAN_PG_URL_{number}": self.url(number) for number in self.ports}
        return {**os.environ, **urls, "VELDAN_PG_URL": self.url(1), "VELDAN_PG_FOLDER": self.folder}


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--servers", type=int, default=1, metavar="N")
    parser.add_argument("--extension", metavar="FOLDER")
    parser.add_argument("--set", action="append", default=[], metavar="NAME=VALUE", help="a setting of the servers")
    parser.add_argument("command", nargs=argparse.REMAINDER)
    options = parser.parse_args()
    command = options.command[1:] if options.command[:1] == ["--"] else options.command
    if not command:
        parser.error("a command is needed")
    for stop in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(stop, lambda number, _: sys.exit(128 + number))
    settings = dict(setting.split("=", 1) for setting in options.set)
    with Servers(options.servers, options.extension, settings) as servers:
        return subprocess.run(command, env=servers.environment(), check=False).returncode


if __name__ == "__main__":
    try:
        sys.exit(main())
    except NoPostgres as failure:
        sys.exit(str(failure))
