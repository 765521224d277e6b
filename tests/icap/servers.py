"""Servers that tests and benchmarks talk to: on a free port of the loopback interface, in the foreground, as a user
without rights, with all their files in a folder of their own. They are ended by process id, whatever happens, and
waiting for anything has an end. Folders stay if VOLE_KEEP is set; VOLE_PRELOAD is the servers' LD_PRELOAD."""
import contextlib
import os
import pathlib
import pwd
import shutil
import signal
import socket
import subprocess
import tempfile
import time

C_ICAP_MODULES = "/usr/lib/x86_64-linux-gnu/c_icap"


# Ends this program as skipped unless all the files are there and all names without a slash are programs.
def skip_without(*paths):
    for path in paths:
        if not (os.path.exists(path) if "/" in str(path) else shutil.which(path)):
            print(f"SKIPPED: there is no {path}")
            raise SystemExit(77)


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as listener:
        return listener.getsockname()[1]


def wait_until(condition, what, seconds=20):
    end = time.monotonic() + seconds
    while not (result := condition()):
        if time.monotonic() > end:
            raise TimeoutError(f"{what}: not in {seconds} s")
        time.sleep(0.02)
    return result


# What the server sends for that until it closes the connection; empty when it is not there.
def ask(port, data, seconds=10):
    with contextlib.suppress(ConnectionError), socket.create_connection(("127.0.0.1", port), seconds) as connection:
        connection.sendall(data)
        return b"".join(iter(lambda: connection.recv(65536), b""))
    return b""


def icap_options(port, service):
    return ask(port, f"OPTIONS icap://localhost/{service} ICAP/1.0\r\nHost: x\r\nConnection: close\r\n\r\n".encode())


# A temporary folder, the user's own.
@contextlib.contextmanager
def folder(user=None):
    path = pathlib.Path(tempfile.mkdtemp(prefix="vole-servers-"))
    if user:
        shutil.chown(path, user)
    try:
        yield path
    finally:
        if not os.environ.get("VOLE_KEEP"):
            shutil.rmtree(path, ignore_errors=True)


# The first of these accounts that exists, if it takes one to be without rights.
def user_for(*names):
    return next((name for name in (*names, "nobody") if name in {entry.pw_name for entry in pwd.getpwall()}),
                None) if os.getuid() == 0 else None


class Server:
    """A program and the processes below it; a context manager that ends them. What it prints is in `output`."""

    def __init__(self, command, where, user=None, port=None):
        rights = {"user": user, "group": pwd.getpwnam(user).pw_gid, "extra_groups": []} if user else {}
        self.folder, self.port, self.output = where, port, where / "output"
        env = os.environ | {"LD_PRELOAD": os.environ.get("VOLE_PRELOAD", "")}
        with open(self.output, "ab") as out:
            self.process = subprocess.Popen([str(word) for word in command], stdin=subprocess.DEVNULL, stdout=out,
                                            stderr=out, cwd=where, env=env, start_new_session=True, **rights)

    # Ids of all that live; orphans are among them, because the session is theirs alone.
    def processes(self):
        pids = []
        for stat in pathlib.Path("/proc").glob("[0-9]*/stat"):
            with contextlib.suppress(OSError):
                state, _, _, session = stat.read_text(errors="replace").rpartition(")")[2].split()[:4]
                if int(session) == self.process.pid and state != "Z":
                    pids.append(int(stat.parent.name))
        return sorted(pids)

    # Kilobytes of all processes together: what they take now, shared pages once, and each one's peak.
    def memory(self):
        total = {"Pss": 0, "VmHWM": 0}
        for pid in self.processes():
            for file, key in (("smaps_rollup", "Pss"), ("status", "VmHWM")):
                with contextlib.suppress(OSError):
                    lines = pathlib.Path(f"/proc/{pid}/{file}").read_text().splitlines()
                    total[key] += sum(int(line.split()[1]) for line in lines if line.startswith(key + ":"))
        return total

    # Until the condition holds; ends early with what the server printed when the server has ended.
    def wait_for(self, condition, what, seconds=20):
        wait_until(lambda: self.process.poll() is not None or condition(), f"{what}\n{self.text()}", seconds)
        if self.process.poll() is not None:
            raise RuntimeError(f"{self.process.args} ended\n{self.text()}")
        return self

    def text(self):
        return "".join(file.read_text(errors="replace") for file in [self.output, *self.folder.glob("*.log")])

    # True if it went when it was told to, with all its processes.
    def stop(self, seconds=20):
        self.process.terminate()
        with contextlib.suppress(TimeoutError):
            wait_until(lambda: self.process.poll() is not None and not self.processes(), "end", seconds)
        left = self.processes()
        for pid in left:
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, signal.SIGKILL)
        self.process.wait()
        return not left

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()


# c-icap with one child, answering. `settings` are lines of its configuration, a list for several of one name.
@contextlib.contextmanager
def c_icap(settings, port=None):
    user = user_for("c-icap")
    with folder(user) as where:
        port = port or free_port()
        usual = {"PidFile": where / "pid", "CommandsSocket": where / "control", "TmpDir": where,
                 "ServerLog": where / "server.log", "AccessLog": where / "access.log", "Port": f"127.0.0.1:{port}",
                 "ServicesDir": C_ICAP_MODULES, "ModulesDir": C_ICAP_MODULES, "Timeout": 30, "KeepAliveTimeout": 30,
                 "MaxKeepAliveRequests": -1, "StartServers": 1, "MaxServers": 1, "MinSpareThreads": 1,
                 "MaxSpareThreads": 1000, "ThreadsPerChild": 32, "LoadMagicFile": "/etc/c-icap/c-icap.magic"}
        lines = [(name, one) for name, value in (usual | settings).items()
                 for one in (value if isinstance(value, list) else [value])]
        config = where / "c-icap.conf"
        config.write_text("".join(f"{name} {value}\n" for name, value in lines))
        with Server(["c-icap", "-N", "-D", "-f", config], where, user, port) as server:
            yield server.wait_for(lambda: icap_options(port, "echo").startswith(b"ICAP/1.0 "), "an answer of c-icap")
