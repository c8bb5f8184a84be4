"""Which names of contents are the hashes of these contents."""

from __future__ import annotations

import hashlib
import re
from collections.abc import Iterator

_MASK = 2**64 - 1
_P1, _P2, _P3, _P4, _P5 = (
    0x9E3779B185EBCA87, 0xC2B2AE3D27D4EB4F, 0x165667B19E3779F9, 0x85EBCA77C2B2AE63, 0x27D4EB2F165667C5,
)  # fmt: skip
_SHA256 = re.compile(r"[0-9a-f]{64}")
_FAST = re.compile(r"x[0-9]+")
_TOKEN = re.compile(r'"(?:[^"\\]|\\.)*"|[][{}]', re.DOTALL)


def _rotated(value: int, by: int) -> int:
    value &= _MASK
    return (value << by | value >> (64 - by)) & _MASK


def _round(lane: int, word: int) -> int:
    return _rotated(lane + word * _P2, 31) * _P1 & _MASK


def xxh64(data: bytes, seed: int) -> int:
    """XXH64, which the standard library does not have."""
    end = len(data)
    at = 0
    if end >= 32:
        lanes = [seed + _P1 + _P2, seed + _P2, seed, seed - _P1]
        while at + 32 <= end:
            for lane in range(4):
                lanes[lane] = _round(lanes[lane], int.from_bytes(data[at : at + 8], "little"))
                at += 8
        value = sum(_rotated(lane, by) for lane, by in zip(lanes, (1, 7, 12, 18)))
        for lane in lanes:
            value = (value ^ _round(0, lane)) * _P1 + _P4 & _MASK
    else:
        value = seed + _P5
    value += end
    while at + 8 <= end:
        value = _rotated(value ^ _round(0, int.from_bytes(data[at : at + 8], "little")), 27) * _P1 + _P4
        at += 8
    if at + 4 <= end:
        value = _rotated(value ^ int.from_bytes(data[at : at + 4], "little") * _P1, 23) * _P2 + _P3
        at += 4
    for byte in data[at:]:
        value = _rotated(value ^ byte * _P5, 11) * _P1
    value &= _MASK
    value = (value ^ value >> 33) * _P2 & _MASK
    value = (value ^ value >> 29) * _P3 & _MASK
    return value ^ value >> 32


def contents(sync_json: str) -> Iterator[tuple[str, str]]:
    """Each content in a well-formed sync JSON with its name, both as written."""
    part = name = ""
    depth = begin = 0
    for token in _TOKEN.finditer(sync_json):
        character = token[0][0]
        if character == '"':
            if depth == 1:
                part = token[0]
            elif depth == 2:
                name = token[0][1:-1]
        elif character in "{[":
            if depth == 2:
                begin = token.start()
            depth += 1
        else:
            depth -= 1
            if depth == 2 and part == '"o"':
                yield name, sync_json[begin : token.end()]


def is_named(content: str, name: str) -> bool:
    """Whether a content has this name. Kinds of names that the library does not make count as right."""
    data = content.encode("utf-8", "surrogateescape")
    if _SHA256.fullmatch(name):
        return hashlib.sha256(data).hexdigest() == name
    if _FAST.fullmatch(name):
        return f"x{xxh64(data, 123456) & 0xFFFFFFFF}" == name
    return True
