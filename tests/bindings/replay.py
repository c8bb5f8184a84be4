"""The vectors for tests in Python: which calls they are, and whether what a call gives is what they tell."""

import json
import pathlib


class Set(str):
    """The text of a document set; `there` is False for the vectors' null."""

    there = True


def text_of(value):
    return json.dumps(value, ensure_ascii=False)


def argument(value, saved):
    if not isinstance(value, dict):
        return value
    if "json" in value:
        return text_of(value["json"])
    if value["set"] is not None:
        return saved[value["set"]]
    nothing = Set()
    nothing.there = False
    return nothing


def calls_of(files):
    """(place, function, vector, arguments, keep) of each call; `keep` takes what it gave, for those that build on it."""
    for file in files:
        content = json.loads(pathlib.Path(file).read_text(encoding="utf-8"))
        saved = {name: Set(text_of(value)) for name, value in content["given"].items()}
        for number, vector in enumerate(content["vectors"], 1):

            for name in vector["call"]:

                def keep(given, saved=saved, key=vector.get("save") if name == vector["call"][0] else None):
                    if key is not None:
                        saved[key] = Set(given) if isinstance(given, str) else given

                yield f"{file} {number}: {name}", name, vector, [argument(each, saved) for each in vector["args"]], keep


def matches(vector, given):
    if "error" in vector:
        return False
    if "list" in vector:
        return given == vector["list"]
    if "json" in vector:
        text = given.dump() if hasattr(given, "dump") else given
        return (json.loads(text) if isinstance(text, str) else text) == vector["json"]
    return given == vector["text"] if "text" in vector else True
