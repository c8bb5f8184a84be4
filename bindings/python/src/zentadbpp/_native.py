"""The shared libraries: their functions. Converts results to Python values and frees them."""

from __future__ import annotations

import ctypes
import functools
import json
import os
import re
import sys
import warnings
from ctypes import c_bool, c_char_p, c_uint32, c_void_p
from typing import Any, Union

Text = Union[str, bytes, None]
"""A text for the library: a str, or UTF-8; None means a null pointer."""


class Error(Exception):
    """A failed call."""

    _RECORD = re.compile(
        r'\{ "filename" : "([^"]*)", "line": (\d+), "function" : "([^"]*)", "error" : "([^"]*)"(?:, "args" : "(.*)")? \}',
        re.DOTALL,
    )

    def __init__(self, text: str) -> None:
        super().__init__(text)
        record = self._RECORD.fullmatch(text)
        self.text = text
        """The error text of the library."""
        self.key = record[4] if record else text
        """The key of an error record; any other text is its own key."""
        self.function = record[3] if record else None
        self.filename = record[1] if record else None
        self.line = int(record[2]) if record else None
        self.details = record[5] if record else None
        """The "args" of an error record: details, such as an id."""
        self.imported: str | None = None
        """If an import rejected only a part: the sync JSON of the rest."""


# The texts of a record stay pointers, so that the library can free them.
class Result(ctypes.Structure):
    _fields_ = [("value", c_void_p), ("error", c_void_p), ("reserved", c_void_p)]


class HandleResult(ctypes.Structure):
    _fields_ = [("value", c_void_p), ("error", c_void_p), ("reserved", c_void_p)]


class FlattenResult(ctypes.Structure):
    _fields_ = [("value", c_void_p), ("error", c_void_p)]


class QueryResult(ctypes.Structure):
    _fields_ = [("value", c_void_p), ("error", c_void_p)]


# What a function returns, and its arguments: a (t)ext, a (c)onfiguration, a (h)andle, a (n)umber, a (b)oolean, or a record.
_EXPORTS: dict[str, tuple[Any, Any]] = {
    "dump_sync_json_ptr": (c_void_p, "h"),
    "free_flatten_result": (None, FlattenResult),
    "free_sync_json_ptr": (None, "h"),
    "free_sync_json_ptr_result": (None, HandleResult),
    "free_sync_json_ptr_result_all": (None, HandleResult),
    "free_sync_json_query_result": (None, QueryResult),
    "free_sync_json_result": (None, Result),
    "json_array_unflatten": (FlattenResult, "tct"),
    "json_object_flatten": (FlattenResult, "tc"),
    "new_sync_json_ptr": (HandleResult, "t"),
    "read_sync_json": (Result, "tc"),
    "read_sync_json_ptr": (Result, "hc"),
    "replicate_sync_json": (Result, "ttc"),
    "replicate_sync_json_ptr": (HandleResult, "hhc"),
    "sync_json_all_docs": (Result, "t"),
    "sync_json_all_winning": (Result, "t"),
    "sync_json_ancestor": (Result, "ttt"),
    "sync_json_available": (Result, "tt"),
    "sync_json_compress": (Result, "t"),
    "sync_json_conflicting": (Result, "tt"),
    "sync_json_created": (Result, "tt"),
    "sync_json_data": (Result, "tttc"),
    "sync_json_deleted": (Result, "tt"),
    "sync_json_diff": (Result, "ttc"),
    "sync_json_from_bulk_get": (Result, "tc"),
    "sync_json_history": (Result, "ttt"),
    "sync_json_instances": (Result, "t"),
    "sync_json_leafs": (Result, "tt"),
    "sync_json_lib_version": (c_char_p, ""),
    "sync_json_patch": (Result, "tt"),
    "sync_json_prune": (Result, "tnb"),
    "sync_json_prune_ids": (Result, "ttnb"),
    "sync_json_ptr_all_docs": (Result, "h"),
    "sync_json_ptr_all_winning": (HandleResult, "h"),
    "sync_json_ptr_ancestor": (Result, "htt"),
    "sync_json_ptr_available": (Result, "ht"),
    "sync_json_ptr_conflicting": (Result, "ht"),
    "sync_json_ptr_created": (Result, "hh"),
    "sync_json_ptr_data": (Result, "httc"),
    "sync_json_ptr_deleted": (Result, "hh"),
    "sync_json_ptr_from_bulk_get": (HandleResult, "tc"),
    "sync_json_ptr_history": (Result, "htt"),
    "sync_json_ptr_instances": (Result, "h"),
    "sync_json_ptr_leafs": (Result, "ht"),
    "sync_json_ptr_prune": (HandleResult, "hnb"),
    "sync_json_ptr_prune_ids": (HandleResult, "htnb"),
    "sync_json_ptr_resolve": (HandleResult, "htt"),
    "sync_json_ptr_root": (Result, "h"),
    "sync_json_ptr_siblings": (Result, "htt"),
    "sync_json_ptr_to_bulk_docs": (Result, "h"),
    "sync_json_ptr_unresolved": (Result, "h"),
    "sync_json_ptr_updated": (Result, "hh"),
    "sync_json_ptr_winning": (Result, "ht"),
    "sync_json_resolve": (Result, "ttt"),
    "sync_json_root": (Result, "t"),
    "sync_json_siblings": (Result, "ttt"),
    "sync_json_to_bulk_docs": (Result, "t"),
    "sync_json_uncompress": (Result, "t"),
    "sync_json_unresolved": (Result, "t"),
    "sync_json_updated": (Result, "tt"),
    "sync_json_winning": (Result, "tt"),
    "update_sync_json": (Result, "ttc"),
    "update_sync_json_ptr": (HandleResult, "thc"),
}


# The functions of libzentadbpp_host, which is loaded at the first call.
_HOST_EXPORTS: dict[str, tuple[Any, Any]] = {
    "zentadbpp_check": (Result, "tct"),
    "zentadbpp_three_way": (Result, "ttc"),
    "zentadbpp_verify": (Result, "tt"),
}


def _load(path: str) -> ctypes.CDLL:
    try:
        return ctypes.CDLL(path)
    except OSError as failure:
        raise ImportError(f"{failure}. Install the library, or let ZENTADBPP_LIBRARY name its file.") from failure


def _path(name: str) -> str:
    return f"lib{name}.1.dylib" if sys.platform == "darwin" else f"lib{name}.so.1"


def _bind(library: ctypes.CDLL, exports: dict[str, tuple[Any, Any]]) -> dict[str, Any]:
    kinds = {"t": c_char_p, "c": c_char_p, "h": c_void_p, "n": c_uint32, "b": c_bool}
    functions: dict[str, Any] = {}
    for name, (returns, takes) in exports.items():
        function = getattr(library, name)
        function.restype = returns
        function.argtypes = [kinds[kind] for kind in takes] if isinstance(takes, str) else [ctypes.POINTER(takes)]
        functions[name] = function
    return functions


_library = os.environ.get("ZENTADBPP_LIBRARY") or _path("zentadbpp")
_functions = _bind(_load(_library), _EXPORTS)
_release = {
    Result: _functions["free_sync_json_result"],
    HandleResult: _functions["free_sync_json_ptr_result"],
    FlattenResult: _functions["free_flatten_result"],
}
free_handle = _functions["free_sync_json_ptr"]
_free = ctypes.CDLL(None).free
_free.restype = None
_free.argtypes = [c_void_p]


def _given(value: object) -> object:
    if isinstance(value, str):
        value = value.encode("utf-8", "surrogateescape")
    if isinstance(value, bytes) and b"\0" in value:
        raise Error("text_contains_nul")
    return value


# The keys that the library knows; it silently ignores others, such as a misspelled one.
_SETTINGS = frozenset((
    "instance_id", "id_generation_rules", "indexed_array_paths", "flatten_objects", "discard_id", "preserve_old_ordering",
    "compressed", "force_fast_hash_only", "include_full_data_hash",
))  # fmt: skip


@functools.lru_cache(maxsize=64)
def _unknown_settings(config: Text) -> tuple[str, ...]:
    try:
        parsed = json.loads(config) if config else {}
    except (ValueError, RecursionError):  # the library reports it
        return ()
    return tuple(sorted(parsed.keys() - _SETTINGS)) if isinstance(parsed, dict) else ()


def _look_at_settings(name: str, arguments: tuple[object, ...]) -> None:
    at = {**_EXPORTS, **_HOST_EXPORTS}[name][1].find("c")
    config = arguments[at] if at >= 0 else None
    if isinstance(config, (str, bytes)) and (unknown := _unknown_settings(config)):
        # The caller of the package's function, which called this module.
        warnings.warn(f"the library does not know these configuration keys: {', '.join(unknown)}", stacklevel=5)


def number(value: int) -> int:
    """A number of 32 bits; ctypes would truncate a larger one."""
    if not 0 <= value < 2**32:
        raise OverflowError(f"{value} is not between 0 and {2**32 - 1}")
    return value


def _taken(pointer: int) -> str:
    return ctypes.string_at(pointer).decode("utf-8", "surrogateescape")


def _in_part(record: Any) -> Error:
    error = Error(_taken(record.error))
    if isinstance(record, HandleResult):
        try:
            error.imported = dump(record.value)
        finally:
            free_handle(record.value)
    else:
        error.imported = _taken(record.value)
    return error


def _call(name: str, arguments: tuple[object, ...], take: Any) -> Any:
    _look_at_settings(name, arguments)
    if name in _HOST_EXPORTS and name not in _functions:
        beside = os.path.join(os.path.dirname(_library), _path("zentadbpp_host"))
        _functions.update(_bind(_load(beside), _HOST_EXPORTS))
    record = _functions[name](*map(_given, arguments))
    try:
        if record.value is not None and record.error is None:
            return take(record.value)
        if record.value is not None:
            raise _in_part(record)
        error = _taken(record.error) if record.error is not None else "std::bad_alloc"
        raise MemoryError(error) if error == "std::bad_alloc" else Error(error)
    finally:
        _release[type(record)](record)


def text(name: str, *arguments: object) -> str:
    """Calls the function of that name, which returns a text."""
    result: str = _call(name, arguments, _taken)
    return result


def items(name: str, *arguments: object) -> list[str]:
    """Calls the function of that name, which returns a list."""
    joined = text(name, *arguments)
    return joined.split(",") if joined else []


def truth(name: str, *arguments: object) -> bool:
    """Calls the function of that name, which returns true or false, in either form of JSON."""
    return text(name, *arguments) in ("true", "@T")


def handle(name: str, *arguments: object) -> int:
    """Calls the function of that name, which returns a handle that the caller frees."""
    result: int = _call(name, arguments, int)
    return result


def dump(pointer: int | None) -> str:
    given = _functions["dump_sync_json_ptr"](pointer)
    if given is None:
        raise Error("dump_sync_json_ptr gave no text")
    try:
        return _taken(given)
    finally:
        _free(given)


def version() -> str:
    given: bytes = _functions["sync_json_lib_version"]()
    return given.decode()
