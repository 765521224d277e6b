#!/usr/bin/env -S python3 -B -W error
"""The package as its users see it, on the starter set. VOLE_LIBRARY names the library, if it is not installed."""
import array
import ctypes
import gc
import gzip
import hashlib
import io
import mmap
import os
import pathlib
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import unittest
import zipfile
from unittest import mock

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "python"))
import vole  # noqa: E402
from vole import _library as library  # noqa: E402

# Put together here so that no scanner flags this file.
EICAR = ("X5O!P%@AP[4\\PZX54(P^)7CC)7}$" + "EICAR-STANDARD" + "-ANTIVIRUS-TEST" + "-FILE!$H+H*").encode()
FOUND = "found Eicar-Test-File=md5,raw"
STARTER = ROOT / "patterns" / "starter"


def zipped(name, content):
    with zipfile.ZipFile(file := io.BytesIO(), "w", zipfile.ZIP_DEFLATED) as target:
        target.writestr(name, content)
    return file.getvalue()


def encrypted(archive):
    return re.sub(rb"(PK\x03\x04..|PK\x01\x02....).", lambda head: head[1] + b"\1", archive, flags=re.S)


def told(result):
    at = lambda member: "@" + vole.shown_path(member) if member else ""
    return " ".join([result.outcome.word] + [
        f"{f.name}{'!' * f.allowed}={f.kind.word},{f.form.word}{'' if f.offset is None else f.offset}{at(f.member)}"
        for f in result.findings] + [r.code.word + at(r.member) for r in result.reasons])


class Unseekable(io.BytesIO):
    seekable = lambda self: False


class Reader:
    def __init__(self, *pieces):
        self.pieces = iter(pieces)

    def read(self, size):
        piece = next(self.pieces)
        if isinstance(piece, BaseException):
            raise piece
        return piece


class Vole(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.set = self.enterContext(vole.Signatures(STARTER))
        self.scanner = self.enterContext(vole.Scanner(self.set))

    def test_declarations_are_those_of_the_header(self):
        numbers = {}
        for line in (ROOT / "tests/abi/layout-64.txt").read_text().splitlines():
            name, *words = line.split()
            if line.startswith("  "):
                self.assertEqual(getattr(struct, name).offset, int(words[0]), line)
            elif name in ("outcome", "reason", "error"):
                numbers.setdefault(name, {})[int(words[0])] = " ".join(words[1:])
            elif name == "limits":
                self.assertEqual([getattr(vole.Limits(), field[0]) or 0 for field in library.LimitsStruct._fields_[1:]],
                                 [int(word) for word in words])
            elif name == "isolation":
                self.assertEqual([library.WORKER_MEMORY, library.WORKER_GRACE_MS], [int(word) for word in words])
            elif number := re.match("VOLE_(KIND|FORM|EVENT)_(.*)", name):
                kind = {"KIND": vole.Kind, "FORM": vole.Form, "EVENT": vole.EventType}[number[1]]
                self.assertEqual(kind[number[2]], int(words[0]))
            elif name.startswith("vole_"):
                struct = getattr(library, name.removeprefix("vole").title().replace("_", "") + "Struct")
                self.assertEqual(ctypes.sizeof(struct), int(words[0]), line)
        for kind, name in (vole.Outcome, "outcome"), (vole.ReasonCode, "reason"):
            self.assertEqual({n: word for n, word in numbers[name].items() if word != "unknown"},
                             {member.value: member.word for member in kind})
        self.assertEqual({*vole.ErrorCode}, {*numbers["error"]} - {0, 12})
        self.assertEqual([vole.Outcome(99), vole.ReasonCode(99), vole.Kind(99)],
                         [vole.Outcome.INCOMPLETE, vole.ReasonCode.UNSUPPORTED, vole.Kind.UNKNOWN])
        self.assertEqual(vole.__version__, vole.engine_version())

    def test_every_way_of_scanning_gives_the_same(self):
        for content, answer in (
            (b"", "clean"),
            (b"hay" * 10**6, "clean"),
            (EICAR, FOUND),
            (zipped("a", zipped("/b\n\u202e\\", EICAR)), FOUND + r"@a/b\n\xe2\x80\xae\\"),
            (encrypted(zipped("s", b"hay")), "incomplete encrypted@s"),
            (zipped("\xfc", EICAR)[:60], "incomplete truncated@\xfc truncated"),
        ):
            path = self.folder / "content"
            path.write_bytes(content)
            pipe = subprocess.Popen(["cat", path], stdout=subprocess.PIPE)
            (self.folder / "gz").write_bytes(gzip.compress(content))  # Has a descriptor of something else.
            with (pipe.stdout, open(path, "rb") as plain, open(path, "rb", 0) as raw,
                  gzip.open(self.folder / "gz") as gz,
                  tempfile.NamedTemporaryFile() as named, open(self.folder / "new", "w+b") as unflushed):
                named.write(content), unflushed.write(content), plain.seek(0, 2), gz.read(1)
                places = plain.tell(), gz.tell()
                for file in (plain, raw, gz, named, unflushed, pipe.stdout, io.BytesIO(content), Unseekable(content)):
                    self.assertEqual(told(self.scanner.scan_file(file)), answer, file)
                self.assertEqual((plain.tell(), gz.tell()), places)
            self.assertEqual(pipe.wait(), 0)
            for name in path, str(path), os.fsencode(path):
                self.assertEqual(told(self.scanner.scan_path(name)), answer)
            twice = bytes(byte for byte in content for _ in "xx")
            for data in (content, bytearray(content), memoryview(content), memoryview(twice)[::2],
                         array.array("B", content)):
                self.assertEqual(told(self.scanner.scan_bytes(data)), answer, type(data))
        with open(self.folder / "gz", "rb") as file, mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ) as data:
            self.assertEqual(self.scanner.scan_bytes(data).counters.bytes_read, len(data))

    def test_isolated_scanners_outlive_their_workers(self):
        def kill(event):
            if event.type == kill_at:
                for stat in pathlib.Path("/proc").glob("[0-9]*/stat"):
                    if re.match(rf"\d+ \(vole-worker\) . {os.getpid()} ", stat.read_text()):
                        os.kill(int(stat.parent.name), signal.SIGKILL)

        kill_at = None
        archive = zipped("a", EICAR)
        with vole.Scanner(self.set, isolated=True, on_event=kill) as scanner:
            for _ in range(2):
                for content, answer in (archive, FOUND + "@a"), (archive[:60], "incomplete truncated@a truncated"):
                    self.assertEqual(told(scanner.scan_bytes(content)), answer)
                    self.assertEqual(told(scanner.scan_file(Unseekable(content))), answer)
                kill_at = vole.EventType.MEMBER_ENTERED
                with self.assertRaisesRegex(vole.WorkerLostError, r"killed by signal 9 \(KILL\)") as caught:
                    scanner.scan_bytes(archive)
                self.assertIs(caught.exception.result.outcome, vole.Outcome.FAILED)
                kill_at = None
        limit = resource.getrlimit(resource.RLIMIT_NOFILE)
        resource.setrlimit(resource.RLIMIT_NOFILE, (3, limit[1]))
        try:
            self.assertRaisesRegex(vole.IsolationError, "Too many open files", vole.Scanner, self.set, isolated=True)
        finally:
            resource.setrlimit(resource.RLIMIT_NOFILE, limit)

    def test_sets_tell_of_problems_and_false_alarms(self):
        folder = shutil.copytree(STARTER, self.folder / "set")
        (folder / "x.hdb").write_text(f"{hashlib.md5(b'harmless').hexdigest()}:8:Example-False-Alarm\nbroken\n")
        problems = []
        with vole.Signatures(folder, on_problem=problems.append) as signatures:
            self.assertEqual([(p.file, p.line, p.text, p.fatal) for p in problems],
                             [(f"{folder}/x.hdb", 2, b"broken", False)])
            self.assertEqual((signatures.count, len(signatures.id)), (self.set.count + 1, 32))
            self.assertTrue(signatures.memory and signatures.is_false_alarm("example-FALSE-alarm"))
            self.assertFalse(signatures.is_false_alarm("Eicar-Test-File"))
            signatures.save(self.folder / "saved")
            with vole.Signatures(self.folder / "saved", strict=True, threads=True) as saved:
                self.assertEqual(saved.id, signatures.id)
            scanner = vole.Scanner(signatures, vole.Limits(max_depth=1), all_matches=True)
        self.assertEqual(told(scanner.scan_bytes(b"harmless")), "clean Example-False-Alarm!=md5,raw")
        self.assertEqual(told(scanner.scan_bytes(zipped("a", zipped("b", EICAR)))), "incomplete depth-limit@a")
        self.assertIn(" Eicar-Test-Start=checksum,raw0", told(scanner.scan_bytes(EICAR)))
        self.assertEqual(told(vole.Scanner(self.set, vole.Limits(*[None, 0] * 3, None)).scan_bytes(EICAR)), FOUND)
        with self.assertRaises(vole.SignaturesError) as caught:
            vole.Signatures(folder, strict=True)
        self.assertEqual((caught.exception.problem, str(caught.exception)), (problems[0], str(problems[0])))
        self.assertRaises(ZeroDivisionError, vole.Signatures, folder, on_problem=lambda problem: 1 / 0)

    def test_misuse_is_answered(self):
        closed, scan, file = vole.Scanner(self.set), self.scanner, self.scanner.scan_file
        closed.close(), closed.close()
        (writable := open(self.folder / "w", "wb")).close()
        gone = vole.Signatures(STARTER)
        gone.close()
        for what, kinds, text in (
            (lambda: scan.scan_path(self.folder / "gone"), (vole.NotFoundError, FileNotFoundError), "gone"),
            (lambda: scan.scan_path(self.folder), (vole.NotFileError, OSError), "not a regular file"),
            (lambda: scan.scan_path("a\0b"), (ValueError,), "null"),
            (lambda: scan.scan_path(3), (TypeError,), "int"),
            (lambda: scan.scan_bytes("text"), (TypeError,), "str"),
            (lambda: file(io.StringIO("text")), (TypeError,), "str"),
            (lambda: file(b"bytes"), (TypeError,), "bytes"),
            (lambda: file(writable), (ValueError,), "closed"),
            (lambda: file(Reader(None)), (BlockingIOError,), "yet"),
            (lambda: file(Reader(b"x" * 2**20)), (ValueError,), "more than"),
            (lambda: file(Reader(b"x", KeyboardInterrupt())), (KeyboardInterrupt,), ""),
            (lambda: closed.scan_bytes(b""), (vole.ClosedError, ValueError), "Scanner is closed"),
            (closed.cancel, (vole.ClosedError,), "closed"),
            (closed.__enter__, (vole.ClosedError,), "closed"),
            (lambda: self.set.save(self.folder), (vole.NotFileError, OSError), str(self.folder)),
            (lambda: self.set.save(self.folder / "gone/set"), (vole.NotFoundError,), "gone/set"),
            (lambda: gone.save("x"), (vole.ClosedError,), "Signatures is closed"),
            (lambda: gone.count, (vole.ClosedError,), "Signatures is closed"),
            (lambda: vole.Scanner(gone), (vole.ClosedError,), "closed"),
            (lambda: vole.Scanner(STARTER), (TypeError,), "signatures"),
            (lambda: vole.Scanner(self.set, vole.Limits(max_ratio=2**32)), (ValueError,), "max_ratio"),
            (lambda: vole.Scanner(self.set, vole.Limits(max_total=-1)), (ValueError,), "max_total"),
            (lambda: vole.Scanner(self.set, vole.Limits(max_total=0.5)), (TypeError,), "float"),
            (lambda: vole.Signatures(self.folder / "gone"), (vole.NotFoundError, OSError), "gone"),
        ):
            with self.assertRaises(kinds[0]) as caught:
                what()
            for kind in kinds:
                self.assertIsInstance(caught.exception, kind)
            self.assertIn(text, str(caught.exception))
        with self.assertRaises(vole.VoleError) as caught:
            scan.scan_path(self.folder)
        self.assertEqual((caught.exception.result.outcome.word, caught.exception.code), ("failed", 5))
        with mock.patch("vole._callbacks.Caught.run", side_effect=[RecursionError, 0]), mock.patch("sys.unraisablehook"):
            self.assertRaises(vole.ReadError, file, Unseekable(b"hay"))
        self.assertEqual(told(scan.scan_bytes(EICAR)), FOUND)

    def test_callbacks_hear_cancel_and_raise(self):
        events, content = [], zipped("a", zipped("b", EICAR))
        act = [lambda: None]
        scanner = vole.Scanner(self.set, on_event=lambda event: (events.append(event), act[0]()))
        result = scanner.scan_bytes(content)
        self.assertEqual([f"{event.type.word} {vole.shown_path(event.member)}" for event in events],
                         ["member-entered a", "member-done a", "member-entered a/b", "finding a/b",
                          "member-done a/b"])
        self.assertEqual((events[3].finding, events[2].size), (result.findings[0], len(EICAR)))

        def elsewhere(*calls):
            thread = threading.Thread(target=lambda: raised.extend(call() for call in calls))
            thread.start(), thread.join()

        def error_of(call, *arguments):
            try:
                return call(*arguments)
            except vole.VoleError as error:
                return type(error)

        raised = []
        act[0] = lambda: elsewhere(
            lambda: error_of(scanner.scan_bytes, b""), lambda: error_of(scanner.close), scanner.cancel)
        self.assertEqual(told(scanner.scan_bytes(content)), "incomplete cancelled")
        self.assertEqual(raised[:3], [vole.ScannerBusyError, vole.ScannerBusyError, None])
        scanner.rearm()
        for act[0], kind in ((lambda: 1 / 0, ZeroDivisionError), (sys.exit, SystemExit),
                             (scanner.close, vole.ScannerBusyError)):
            events.clear()
            self.assertRaises(kind, scanner.scan_bytes, content)
            self.assertEqual(len(events), 1, "what was raised ends the scan")
        act[0] = lambda: None
        self.assertEqual(scanner.scan_bytes(content).findings, result.findings)

    def test_other_threads_run_during_a_scan(self):
        content, results = zipped("a", bytes(1 << 25)), []
        for _ in range(100):  # It may be over, or not begun, when it is cancelled.
            thread = threading.Thread(target=lambda: results.append(self.scanner.scan_bytes(content)))
            thread.start()
            while thread.is_alive() and "scanning" not in repr(self.scanner):
                pass
            self.scanner.cancel(), thread.join(), self.scanner.rearm()
            if results[-1].counters.members and results[-1].outcome is vole.Outcome.INCOMPLETE:
                return
        self.fail("nobody could cancel a scan under way")

    def test_signal_handlers_may_raise(self):
        handler = lambda number, frame: 1 / 0
        self.addCleanup(signal.signal, signal.SIGALRM, signal.signal(signal.SIGALRM, handler))
        scanner, content = vole.Scanner(self.set, on_event=lambda event: None), zipped("a", bytes(1 << 26))
        for when in 0.01, 0.02, 0.03:  # In the library, which calls back for every 8 MiB.
            signal.setitimer(signal.ITIMER_REAL, when)
            self.assertRaises(ZeroDivisionError, scanner.scan_bytes, content)
        self.assertIs(signal.getsignal(signal.SIGALRM), handler)

    def test_results_outlive_what_they_came_from(self):
        for last in range(3):
            owners = [vole.Signatures(STARTER)]
            owners += [vole.Scanner(owners[0]), vole.Scanner(owners[0])]
            results = [scanner.scan_bytes(zipped("a", EICAR)) for scanner in owners[1:]]
            owners[last].me = owners[last]  # A circle: this one goes last.
            del owners
            gc.collect()
            self.assertEqual([told(result) for result in results], [FOUND + "@a"] * 2)

    def test_the_readme_is_right(self):
        example = re.search("```python\n(.*?)```", (ROOT / "python/README.md").read_text(), re.S)[1]
        (self.folder / "x.zip").write_bytes(zipped("a", EICAR))
        run = subprocess.run([sys.executable, "-B", "-c", example, STARTER, "x.zip"], cwd=self.folder,
                             capture_output=True, text=True, env=os.environ | {"PYTHONPATH": str(ROOT / "python")})
        self.assertEqual((run.stdout, run.stderr), ("x.zip found\n   Eicar-Test-File a\n", ""))


unittest.main()
