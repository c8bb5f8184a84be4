"""Merges JSON data edited independently on several devices, without losing an edit.

A thin layer over zentadbpp.h, which documents every function. Ids, revision strings and JSON are texts. Functions that
return a list there return a list, and `available` returns a bool. Texts are decoded with "surrogateescape", so invalid
UTF-8 comes back unchanged.

In addition, `check` finds data that a read would not return unchanged, and `three_way` helps with a conflict.

A failure raises `Error`, or MemoryError. Calls let other Python threads run; the header says what must not run at the same
time as `Handle.read` and `Handle.close`.
"""

from __future__ import annotations

import json
from types import TracebackType
from typing import Any, NoReturn, overload

from . import _native
from ._native import Error, Text

__all__ = [
    "Error", "Handle", "Text", "all_docs", "all_winning", "ancestor", "available", "check", "compress", "conflicting",
    "created", "data", "deleted", "diff", "flatten", "from_bulk_get", "history", "instances", "leafs", "patch", "prune",
    "prune_ids", "read", "replicate", "resolve", "root", "siblings", "three_way", "to_bulk_docs", "uncompress",
    "unflatten", "unresolved", "update", "updated", "verify", "version", "winning",
]  # fmt: skip


class Handle:
    """A parsed sync JSON. It is closed by `close`, at the end of a `with`, or with the last reference to it.

    Functions that make a new document set return another handle and do not change this one.
    """

    _pointer: int | None = None

    def __init__(self, sync_json: Text) -> None:
        self._pointer = _native.handle("new_sync_json_ptr", sync_json)

    @classmethod
    def _of(cls, pointer: int) -> Handle:
        made = cls.__new__(cls)
        made._pointer = pointer
        return made

    @classmethod
    def from_bulk_get(cls, bulk_get: Text, config: Text = "{}") -> Handle:
        return cls._of(_native.handle("sync_json_ptr_from_bulk_get", bulk_get, config))

    def close(self) -> None:
        pointer, self._pointer = self._pointer, None
        _native.free_handle(pointer)

    @property
    def closed(self) -> bool:
        return self._pointer is None

    def __enter__(self) -> Handle:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, failure: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    # The default keeps the function alive while the interpreter shuts down.
    def __del__(self, free: object = _native.free_handle) -> None:
        if self._pointer is not None and callable(free):
            free(self._pointer)

    # A copy would free the same handle.
    def __reduce__(self) -> NoReturn:
        raise TypeError("a Handle cannot be copied or pickled; dump() returns its text")

    def dump(self) -> str:
        return _native.dump(self._pointer)

    def read(self, config: Text = "{}") -> str:
        """Writes to the handle, unless the configuration has "preserve_old_ordering"."""
        return _native.text("read_sync_json_ptr", self._pointer, config)

    def data(self, id: Text, rev: Text, config: Text = "{}") -> str:
        return _native.text("sync_json_ptr_data", self._pointer, id, rev, config)

    def update(self, input: Text, config: Text = "{}") -> Handle:
        return self._of(_native.handle("update_sync_json_ptr", input, self._pointer, config))

    def resolve(self, id: Text, rev: Text) -> Handle:
        return self._of(_native.handle("sync_json_ptr_resolve", self._pointer, id, rev))

    def all_winning(self) -> Handle:
        return self._of(_native.handle("sync_json_ptr_all_winning", self._pointer))

    def prune(self, depth: int, skip_winning: bool = False) -> Handle:
        return self._of(_native.handle("sync_json_ptr_prune", self._pointer, _native.number(depth), skip_winning))

    def prune_ids(self, ids: Text, depth: int, skip_winning: bool = False) -> Handle:
        return self._of(_native.handle("sync_json_ptr_prune_ids", self._pointer, ids, _native.number(depth), skip_winning))

    def winning(self, id: Text) -> str:
        return _native.text("sync_json_ptr_winning", self._pointer, id)

    def leafs(self, id: Text) -> list[str]:
        return _native.items("sync_json_ptr_leafs", self._pointer, id)

    def conflicting(self, id: Text) -> list[str]:
        return _native.items("sync_json_ptr_conflicting", self._pointer, id)

    def ancestor(self, id: Text, rev: Text) -> str:
        return _native.text("sync_json_ptr_ancestor", self._pointer, id, rev)

    def siblings(self, id: Text, rev: Text) -> list[str]:
        return _native.items("sync_json_ptr_siblings", self._pointer, id, rev)

    def history(self, id: Text, rev: Text) -> str:
        return _native.text("sync_json_ptr_history", self._pointer, id, rev)

    def available(self, rev_or_id: Text) -> bool:
        return _native.truth("sync_json_ptr_available", self._pointer, rev_or_id)

    def root(self) -> str:
        return _native.text("sync_json_ptr_root", self._pointer)

    def all_docs(self) -> str:
        return _native.text("sync_json_ptr_all_docs", self._pointer)

    def instances(self) -> list[str]:
        return _native.items("sync_json_ptr_instances", self._pointer)

    def unresolved(self) -> list[str]:
        return _native.items("sync_json_ptr_unresolved", self._pointer)

    def created(self, old: Handle) -> list[str]:
        return _native.items("sync_json_ptr_created", self._pointer, old._pointer)

    def updated(self, old: Handle) -> list[str]:
        return _native.items("sync_json_ptr_updated", self._pointer, old._pointer)

    def deleted(self, old: Handle) -> list[str]:
        return _native.items("sync_json_ptr_deleted", self._pointer, old._pointer)

    def to_bulk_docs(self) -> str:
        return _native.text("sync_json_ptr_to_bulk_docs", self._pointer)


def version() -> str:
    return _native.version()


def update(input: Text, sync_json: Text, config: Text = "{}") -> str:
    return _native.text("update_sync_json", input, sync_json, config)


def read(sync_json: Text, config: Text = "{}") -> str:
    return _native.text("read_sync_json", sync_json, config)


def data(sync_json: Text, id: Text, rev: Text, config: Text = "{}") -> str:
    return _native.text("sync_json_data", sync_json, id, rev, config)


def flatten(input: Text, config: Text = "{}") -> str:
    return _native.text("json_object_flatten", input, config)


def unflatten(input: Text, config: Text = "{}", root_id: Text = None) -> str:
    return _native.text("json_array_unflatten", input, config, root_id)


@overload
def replicate(source: Handle, target: Handle, config: Text = "{}") -> Handle: ...
@overload
def replicate(source: Text, target: Text, config: Text = "{}") -> str: ...
def replicate(source: Handle | Text, target: Handle | Text, config: Text = "{}") -> Handle | str:
    """Merges the source into the target and returns the new target: two texts, or two handles."""
    if isinstance(source, Handle) and isinstance(target, Handle):
        return Handle._of(_native.handle("replicate_sync_json_ptr", source._pointer, target._pointer, config))
    return _native.text("replicate_sync_json", source, target, config)


def resolve(sync_json: Text, id: Text, rev: Text) -> str:
    return _native.text("sync_json_resolve", sync_json, id, rev)


def winning(sync_json: Text, id: Text) -> str:
    return _native.text("sync_json_winning", sync_json, id)


def leafs(sync_json: Text, id: Text) -> list[str]:
    return _native.items("sync_json_leafs", sync_json, id)


def conflicting(sync_json: Text, id: Text) -> list[str]:
    return _native.items("sync_json_conflicting", sync_json, id)


def ancestor(sync_json: Text, id: Text, rev: Text) -> str:
    return _native.text("sync_json_ancestor", sync_json, id, rev)


def siblings(sync_json: Text, id: Text, rev: Text) -> list[str]:
    return _native.items("sync_json_siblings", sync_json, id, rev)


def history(sync_json: Text, id: Text, rev: Text) -> str:
    return _native.text("sync_json_history", sync_json, id, rev)


def available(sync_json: Text, rev_or_id: Text) -> bool:
    return _native.truth("sync_json_available", sync_json, rev_or_id)


def root(sync_json: Text) -> str:
    return _native.text("sync_json_root", sync_json)


def all_docs(sync_json: Text) -> str:
    return _native.text("sync_json_all_docs", sync_json)


def all_winning(sync_json: Text) -> str:
    return _native.text("sync_json_all_winning", sync_json)


def instances(sync_json: Text) -> list[str]:
    return _native.items("sync_json_instances", sync_json)


def unresolved(sync_json: Text) -> list[str]:
    return _native.items("sync_json_unresolved", sync_json)


def created(sync_json: Text, old_sync_json: Text) -> list[str]:
    return _native.items("sync_json_created", sync_json, old_sync_json)


def updated(sync_json: Text, old_sync_json: Text) -> list[str]:
    return _native.items("sync_json_updated", sync_json, old_sync_json)


def deleted(sync_json: Text, old_sync_json: Text) -> list[str]:
    return _native.items("sync_json_deleted", sync_json, old_sync_json)


def prune(sync_json: Text, depth: int, skip_winning: bool = False) -> str:
    return _native.text("sync_json_prune", sync_json, _native.number(depth), skip_winning)


def prune_ids(sync_json: Text, ids: Text, depth: int, skip_winning: bool = False) -> str:
    return _native.text("sync_json_prune_ids", sync_json, ids, _native.number(depth), skip_winning)


def to_bulk_docs(sync_json: Text) -> str:
    return _native.text("sync_json_to_bulk_docs", sync_json)


def from_bulk_get(bulk_get: Text, config: Text = "{}") -> str:
    return _native.text("sync_json_from_bulk_get", bulk_get, config)


def diff(before: Text, after: Text, config: Text = "{}") -> str:
    return _native.text("sync_json_diff", before, after, config)


def patch(before: Text, patch: Text) -> str:
    return _native.text("sync_json_patch", before, patch)


def compress(object: Text) -> str:
    return _native.text("sync_json_compress", object)


def uncompress(object: Text) -> str:
    return _native.text("sync_json_uncompress", object)


def verify(sync_json: Text, known: Text = "{}") -> list[str]:
    """The names of the contents that `known` does not have and that do not hash to their name.

    The library does not verify names, so call this before you merge a text from an untrusted source. Other kinds of
    names, such as those of servers, are not verified.
    """
    return json.loads(_native.text("zentadbpp_verify", sync_json, known))


def _dumped(store: Handle | Text) -> Text:
    return store.dump() if isinstance(store, Handle) else store


def check(data: Text, config: Text = "{}", store: Handle | Text = "{}") -> list[dict[str, str]]:
    """The places of the data that a read would not return unchanged if the store were updated with it: a list of
    {"place": ".tasks[1].text", "reason": "deleted" | "shared_id" | "number" | "changed", "id": id or ""}.

    "deleted": the id was deleted before and stays deleted. "shared_id": another object with this id replaces it.
    "number": a double cannot represent it.
    """
    found: list[dict[str, str]] = json.loads(_native.text("zentadbpp_check", data, config, _dumped(store)))
    return found


def three_way(store: Handle | Text, id: Text, config: Text = "{}") -> dict[str, Any]:
    """A document in conflict: "common", the last common version; "versions", the winning one first; "merged", their merge;
    and "clashes", the places that more than one version changed. Contents and values are Python values.
    zentadbpp_host.h has the details.
    """
    help: dict[str, Any] = json.loads(_native.text("zentadbpp_three_way", _dumped(store), id, config))
    return help
