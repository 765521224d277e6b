"""Contents that tests of the ICAP service send, made of words in their tables; and c-icap's client, which sends them."""
import functools
import gzip
import io
import random
import shlex
import subprocess
import zipfile
import zlib

# Put together here so that no scanner flags this file.
EICAR = ("X5O!P%@AP[4\\PZX54(P^)7CC)7}$" + "EICAR-STANDARD" + "-ANTIVIRUS-TEST" + "-FILE!$H+H*").encode()


def zipped(content, name, method=zipfile.ZIP_DEFLATED):
    file = io.BytesIO()
    with zipfile.ZipFile(file, "w", method) as archive:
        archive.writestr(zipfile.ZipInfo(name) if method == zipfile.ZIP_STORED else name, content)
    return file.getvalue()


# Appends bytes to the content of a ZIP, as its first, stored member.
def zipped_behind(content, size):
    file = io.BytesIO(content)
    with zipfile.ZipFile(file, "a") as archive:
        archive.writestr("filler", noise(size))
    return file.getvalue()


def noise(size):
    return random.Random(size).randbytes(int(size))


# Says in the local header and in the directory of a ZIP that its first member is encrypted.
def encrypted(archive):
    for head, flags in ((b"PK\3\4", 6), (b"PK\1\2", 8)):
        at = archive.index(head) + flags
        archive = archive[:at] + b"\1" + archive[at + 1:]
    return archive


# Flips a byte in the middle.
def damaged(content):
    at = len(content) // 2
    return content[:at] + bytes([content[at] ^ 0xFF]) + content[at + 1:]


# Brotli's form for what does not get smaller: a head of 20 bits and the size, the content, the end.
def brotli(content):
    return ((len(content) - 1) << 4 | 1 << 20).to_bytes(3, "little") + content + b"\3"


def form(content, file_name):
    part = "--b\r\nContent-Disposition: form-data; name=%s\r\n\r\n"
    second = part % f'"file"; filename="{file_name}"'
    return (part % "note" + "hello\r\n" + second).encode() + content + b"\r\n--b--\r\n"


STEPS = {"eicar": lambda _: EICAR, "noise": lambda _, size: noise(size), "zip": zipped, "behind": zipped_behind,
         "encrypted": encrypted, "cut": lambda content, size: content[:-int(size)], "gzip": gzip.compress,
         "damaged": damaged, "padded": lambda content, size: content.ljust(int(size)),
         "zeros": lambda _, size: bytes(int(size)), "deflate": zlib.compress, "br": brotli, "form": form, }


# Of words, each of which makes something of what the one before made: `eicar zip:inner.com gzip`.
def make(words):
    steps = [word.encode().decode("unicode_escape").split(":", 1) for word in shlex.split(words)]
    return functools.reduce(lambda content, step: STEPS[step[0]](content, *step[1:]), steps, b"")


# What the server answers about the file: its headers, and the body. The client's exit status says nothing.
def send(port, path, *arguments):
    done = subprocess.run(["c-icap-client", "-i", "127.0.0.1", "-p", str(port), "-s", "vole", "-v", "-f", path,
                           *arguments], capture_output=True, timeout=60, check=False)
    return done.stderr.decode("latin1"), done.stdout
