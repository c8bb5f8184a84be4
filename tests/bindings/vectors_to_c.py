#!/usr/bin/env python3
"""vectors_to_c.py HEADER VECTORS...: writes a C program that makes the calls of the vectors and checks what they give.

What the functions take and return is read from the header. See vectors.h for the checks.
"""
import json
import pathlib
import re
import sys

TEXT, HANDLE = "const char*", "sync_json_ptr"


def literal(text):
    """A C string; octal escapes end by themselves after three digits."""
    if text is None:
        return "NULL"
    plain = {ord('"'): '\\"', ord("\\"): "\\\\", ord("?"): "\\?"}
    return '"' + "".join(plain.get(b, chr(b) if 32 <= b < 127 else f"\\{b:03o}") for b in text.encode()) + '"'


def written(value):
    """JSON as the library writes it."""
    return json.dumps(value, ensure_ascii=False, sort_keys=True)


def declarations(header):
    text = re.sub(r"//.*", "", header.read_text())
    found = re.findall(r"ZENTADBPP_EXPORT ([\w ]+\*?) (\w+)\(([^)]*)\);", text)
    return {name: (returns, [re.sub(r" ?\w+$", "", one.strip()) for one in arguments.split(",")])
            for returns, name, arguments in found}


class File:
    def __init__(self, path, exports):
        self.exports = exports
        self.path = path
        self.stem = path.stem
        content = json.loads(path.read_text())
        self.texts = {name: literal(written(value)) for name, value in content["given"].items()}
        self.saved = {}  # name: type of the variable
        self.lines = []
        for number, vector in enumerate(content["vectors"], 1):
            for call in vector["call"]:
                self.step(number, vector, call)

    def argument(self, value, wanted, at):
        """The expression for an argument; what it takes before and after the call is added to the lines."""
        if isinstance(value, dict) and "set" in value:
            name = value["set"]
            if name is None:
                return "NULL", ""
            variable = f"{self.stem}_{name}"
            kind = self.saved.get(name)
            if kind == HANDLE:
                return variable, ""
            text = variable + ".value" if kind else self.texts[name]
            if wanted != HANDLE:
                return text, ""
            self.lines.append(f"        sync_json_ptr handle{at} = opened({text});")
            return f"handle{at}", f"        free_sync_json_ptr(handle{at});"
        if isinstance(value, dict):
            return literal(written(value["json"])), ""
        if isinstance(value, (bool, int)):
            return str(value).lower() + ("u" if wanted == "uint32_t" else ""), ""
        return literal(value), ""

    def expected(self, vector, call):
        """The check and its arguments."""
        if "error" in vector:
            error = vector["error"]
            if not isinstance(error, dict):
                return "fails", literal(error)
            function = call if error["function"] == "*" else error["function"]
            args = f'", "args" : "{error["args"]}' if "args" in error else ""
            check = "fails_in_part" if vector.get("in_part") else "fails_with_record"
            return check, literal(f'"function" : "{function}", "error" : "{error["error"]}{args}" }}')
        if "list" in vector:
            return "gives", literal(",".join(vector["list"]))
        if "json" in vector:
            return "gives", literal(written(vector["json"]))
        return ("gives", literal(vector["text"])) if "text" in vector else ("succeeds", "NULL")

    def step(self, number, vector, call):
        returns, wanted = self.exports[call]
        where = literal(f"{self.path.name} {number}: {call}")
        self.lines.append("    {")
        arguments, after = [], []
        for at, value in enumerate(vector["args"]):
            expression, cleanup = self.argument(value, wanted[at], at)
            arguments.append(expression)
            after.append(cleanup)
        made = f"{call}({', '.join(arguments)})"
        check, expectation = self.expected(vector, call)
        save = vector.get("save") if call == vector["call"][0] else None
        if returns == "void":
            self.lines += [f"        {made};", f"        {arguments[0]} = NULL;"]
        elif returns == TEXT:
            self.lines.append(f"        {check}({where}, {expectation}, {made}, NULL);")
        elif returns == "char*":
            self.lines += [f"        char* text = {made};", f"        {check}({where}, {expectation}, text, NULL);",
                           "        free(text);"]
        else:
            self.lines.append(f"        {returns} result = {made};")
            if returns == "sync_json_ptr_result":
                self.lines += ["        char* text = dump_sync_json_ptr(result.ptr);",
                               f"        {check}({where}, {expectation}, text, result.error);", "        free(text);"]
            else:
                self.lines.append(f"        {check}({where}, {expectation}, result.value, result.error);")
            if save and returns == "sync_json_ptr_result":
                self.lines += [f"        {self.stem}_{save} = result.ptr;", "        free_sync_json_ptr_result(&result);"]
                self.saved[save] = HANDLE
            elif save:
                self.lines.append(f"        {self.stem}_{save} = result;")
                self.saved[save] = returns
            else:
                release = {"sync_json_ptr_result": "free_sync_json_ptr_result_all"}.get(returns, f"free_{returns}")
                self.lines.append(f"        {release}(&result);")
        self.lines += [line for line in after if line] + ["    }"]

    def program(self):
        name = f"run_{self.stem}"
        yield f"static void {name}(void) {{"
        for variable, kind in self.saved.items():
            yield f"    {kind} {self.stem}_{variable} = " + ("NULL;" if kind == HANDLE else "{0};")
        yield from self.lines
        for variable, kind in self.saved.items():
            if kind == HANDLE:
                yield f"    free_sync_json_ptr({self.stem}_{variable});"
            else:
                yield f"    free_{kind}(&{self.stem}_{variable});"
        yield "}"


def main():
    exports = declarations(pathlib.Path(sys.argv[1]))
    files = [File(pathlib.Path(name), exports) for name in sys.argv[2:]]
    lines = ['#include "vectors.h"']
    for file in files:
        lines += file.program()
    lines.append("int main(void) {")
    lines += [f"    run_{file.stem}();" for file in files]
    # No function returns this record.
    lines += ["    sync_json_query_result none = {NULL, NULL};", "    free_sync_json_query_result(&none);"]
    lines += ["    return report();", "}"]
    program = "\n".join(lines)
    left_out = [name for name in exports if f"{name}(" not in program]
    if left_out:
        sys.exit(f"No vector calls {', '.join(left_out)}")
    print(program)


main()
