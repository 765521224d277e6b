"""What scans and loads come to: values without ties to the library, which stay when it lets go of its own."""

from __future__ import annotations

import enum
import os
import re
from dataclasses import dataclass
from typing import Any, TypeAlias

from ._library import (
    LIBRARY,
    NO_OFFSET,
    CountersStruct,
    EventStruct,
    FindingStruct,
    LoadProblemStruct,
    PathStruct,
    ReasonStruct,
    bytes_at,
    name_of,
    text_of,
)

MemberPath: TypeAlias = "tuple[bytes, ...]"
"""Names of the archive member and of those around it, outermost first; empty: the content itself."""


class _Word(enum.IntEnum):
    @property
    def word(self) -> str:
        """The word that reports have for it: "size-limit"."""
        return self.name.lower().replace("_", "-")


class Outcome(_Word):
    CLEAN = 0
    """All was seen, and nothing found."""
    FOUND = 1
    """At least one finding that is no false alarm, whatever else happened."""
    INCOMPLETE = 2
    """Nothing found, but something was not seen: there is at least one reason."""
    FAILED = 3
    """Nothing was scanned. Only exceptions have such a result."""

    @classmethod
    def _missing_(cls, value: object) -> Outcome:
        return cls.INCOMPLETE  # Of a later version: what nobody understands is not clean.


class Kind(_Word):
    UNKNOWN = 0
    """Of a later version of the library."""
    MD5 = 1
    CHECKSUM = 2

    @classmethod
    def _missing_(cls, value: object) -> Kind:
        return cls.UNKNOWN


class Form(_Word):
    UNKNOWN = 0
    """Of a later version of the library."""
    RAW = 1
    """The content's bytes as they are."""
    NORMALISED = 2
    """The normalised text of a short plain text."""

    @classmethod
    def _missing_(cls, value: object) -> Form:
        return cls.UNKNOWN


class ReasonCode(_Word):
    ENCRYPTED = 1
    METHOD = 2
    UNSUPPORTED = 3
    VOLUME = 4
    DAMAGED = 5
    TRUNCATED = 6
    CHECKSUM = 7
    SIZE_LIMIT = 8
    RATIO_LIMIT = 9
    MEMBER_LIMIT = 10
    TOTAL_LIMIT = 11
    DEPTH_LIMIT = 12
    TIME_LIMIT = 13
    CANCELLED = 14
    WORK_BUDGET = 15
    MEMORY = 16
    IO = 17

    @classmethod
    def _missing_(cls, value: object) -> ReasonCode:
        return cls.UNSUPPORTED


class EventType(_Word):
    UNKNOWN = 0
    """Of a later version of the library."""
    MEMBER_ENTERED = 1
    MEMBER_DONE = 2
    FINDING = 3
    REASON = 4
    PROGRESS = 5
    CONTENT = 6
    """Not told of here: scanners do not ask for it, nor for the next two."""
    FOLDER = 7
    EMPTY_MEMBER = 8

    @classmethod
    def _missing_(cls, value: object) -> EventType:
        return cls.UNKNOWN


@dataclass(frozen=True, slots=True)
class Finding:
    name: str
    """Of the signature; bytes that are no UTF-8 are surrogate escapes."""
    kind: Kind
    form: Form
    allowed: bool
    """The name is on the list of false alarms, and the finding does not count."""
    offset: int | None
    """Of a check-sum's first range, in the content or its normalised text."""
    member: MemberPath


@dataclass(frozen=True, slots=True)
class Reason:
    """Why something was not seen."""

    code: ReasonCode
    text: str
    member: MemberPath


@dataclass(frozen=True, slots=True)
class Counters:
    bytes_read: int
    bytes_unpacked: int
    members: int
    deepest_level: int
    time_us: int
    findings: int
    """All of them, those beyond what a result keeps, too; so are `reasons`."""
    reasons: int


@dataclass(frozen=True, slots=True)
class Result:
    """What one scan came to. Of findings that count, of allowed ones and of reasons, the first 1,000 each are kept."""

    outcome: Outcome
    findings: tuple[Finding, ...]
    reasons: tuple[Reason, ...]
    counters: Counters
    error_text: str
    """Empty unless the scan failed."""


@dataclass(frozen=True, slots=True)
class Event:
    """Something that happens in a scan under way."""

    type: EventType
    member: MemberPath
    """Of members, findings and reasons."""
    size: int
    """Of a member: bytes announced (entered), bytes unpacked (done)."""
    finding: Finding | None
    reason: Reason | None
    bytes_done: int
    """Read, hashed and unpacked so far, in this scan."""


@dataclass(frozen=True, slots=True)
class Problem:
    """Something in a folder of signatures that is not in the set as its author may think."""

    file: str
    line: int
    """Counted from 1; 0: the whole file."""
    text: bytes
    reason: str
    fatal: bool

    def __str__(self) -> str:
        return f"{self.file}:{self.line}: {self.reason}" if self.line else f"{self.file}: {self.reason}"


# A control character, a mark or a separator that changes how a terminal shows a line, or a byte that is no UTF-8.
_UNSHOWN = re.compile("[\0-\x1f\\\\\x7f-\x9f\u061c\u200e\u200f\u2028-\u202e\u2066-\u2069\udc80-\udcff]")
_SHORT = {"\\": "\\\\", "\n": "\\n", "\r": "\\r", "\t": "\\t"}


def _escaped(match: re.Match[str]) -> str:
    character = match[0]
    return _SHORT.get(character) or "".join(f"\\x{byte:02x}" for byte in character.encode("utf-8", "surrogateescape"))


def shown_path(member: MemberPath) -> str:
    """The path for people, as the command `vole` shows it: names joined by slashes, safe to print on a terminal."""
    names = (_UNSHOWN.sub(_escaped, name_of(name.lstrip(b"/"))) for name in member)
    return "/".join(name or "(no name)" for name in names)


class Copier:
    """Copies what the library hands out, while it is valid. A name that it shares between many paths is copied once:
    an archive could make a thousand findings below long names."""

    def __init__(self) -> None:
        self._names: dict[tuple[int | None, int], bytes] = {}

    def path(self, path: PathStruct) -> MemberPath:
        return tuple(self._name(path.components[i].data, path.components[i].size) for i in range(path.count))

    def finding(self, finding: FindingStruct) -> Finding:
        return Finding(
            name_of(finding.name),
            Kind(finding.kind),
            Form(finding.form),
            finding.allowed != 0,
            None if finding.offset == NO_OFFSET else finding.offset,
            self.path(finding.member),
        )

    def reason(self, reason: ReasonStruct) -> Reason:
        return Reason(ReasonCode(reason.code), text_of(reason.text), self.path(reason.member))

    def event(self, event: EventStruct) -> Event:
        return Event(
            EventType(event.type),
            self.path(event.member),
            event.size,
            self.finding(event.finding.contents) if event.finding else None,
            self.reason(event.reason.contents) if event.reason else None,
            event.bytes_done,
        )

    def result(self, result: Any) -> Result:
        findings = range(LIBRARY.vole_result_finding_count(result))
        reasons = range(LIBRARY.vole_result_reason_count(result))
        counters = LIBRARY.vole_result_counters(result).contents
        return Result(
            Outcome(LIBRARY.vole_result_outcome(result)),
            tuple(self.finding(LIBRARY.vole_result_finding(result, i).contents) for i in findings),
            tuple(self.reason(LIBRARY.vole_result_reason(result, i).contents) for i in reasons),
            Counters(*(getattr(counters, field[0]) for field in CountersStruct._fields_)),
            text_of(LIBRARY.vole_result_error_text(result)),
        )

    def _name(self, address: int | None, size: int) -> bytes:
        name = self._names.get((address, size))
        return self._names.setdefault((address, size), bytes_at(address, size)) if name is None else name


def problem_of(problem: LoadProblemStruct) -> Problem:
    return Problem(
        os.fsdecode(problem.file or b""),
        problem.line,
        bytes_at(problem.text, problem.text_size),
        text_of(problem.reason),
        problem.fatal != 0,
    )
