"""The service as the tests start it, and the contents that they send: made of words in their tables."""
import functools
import gzip
import io
import random
import re
import shlex
import zipfile
import zlib

import servers

# Put together here so that no scanner flags this file.
EICAR = ("X5O!P%@AP[4\\PZX54(P^)7CC)7}$" + "EICAR-STANDARD" + "-ANTIVIRUS-TEST" + "-FILE!$H+H*").encode()


# Into the ZIP that is there, or a new one.
def zipped(content, name, archive=b"", method=zipfile.ZIP_DEFLATED):
    file = io.BytesIO(archive)
    with zipfile.ZipFile(file, "a", method) as target:
        target.writestr(name, content)
    return file.getvalue()


def noise(size):
    return random.Random(size).randbytes(int(size))


def copies(content, number):
    return functools.reduce(lambda archive, name: zipped(content, str(name), archive), range(int(number)), b"")


# Says in the local header and in the directory of a ZIP that its members are encrypted.
def encrypted(archive):
    return re.sub(rb"(PK\x03\x04..|PK\x01\x02....).", lambda head: head[1] + b"\1", archive, flags=re.S)


# Brotli's form for what does not get smaller: a head of 20 bits and the size, the content, the end.
def brotli(content):
    return ((len(content) - 1) << 4 | 1 << 20).to_bytes(3, "little") + content + b"\3"


def form(content, file_name):
    part = "--b\r\nContent-Disposition: form-data; name=f; filename=\"%s\"\r\n\r\n%s"
    return (part % ("a.txt", "hello\r\n") + part % (file_name, "")).encode() + content + b"\r\n--b--\r\n"


STEPS = {"eicar": lambda _: EICAR, "copies": copies, "noise": lambda _, size: noise(size), "zip": zipped,
         "behind": lambda archive, size: zipped(noise(size), "filler", archive, zipfile.ZIP_STORED),
         "encrypted": encrypted, "cut": lambda content, size: content[:-int(size)], "gzip": gzip.compress,
         "padded": lambda content, size: content.ljust(int(size)),
         "zeros": lambda _, size: bytes(int(size)), "deflate": zlib.compress, "br": brotli, "form": form, }


# Of words, each of which makes something of what the one before made: `eicar zip:inner.com gzip`.
def make(words):
    steps = [word.encode().decode("unicode_escape").split(":", 1) for word in shlex.split(words)]
    return functools.reduce(lambda content, step: STEPS[step[0]](content, *step[1:]), steps, b"")


# A server with the service; without the options that are empty.
def service(module, patterns, **options):
    settings = {f"vole.{name}": value for name, value in ({"PatternDir": patterns} | options).items() if value}
    return servers.c_icap({"Service": ["echo srv_echo.so", f"vole {module}"]} | settings)
