#!/usr/bin/env python3
"""The command line as a process: files, exit codes, interrupted writes, locks, damaged stores, git.

From the environment: ZENTADB (program), MAN_PAGE, and SEED for other runs of the random tests."""

import fcntl
import json
import os
import pty
import random
import re
import resource
import shutil
import signal
import stat
import subprocess
import tempfile
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
ZENTADB = os.path.abspath(os.environ["ZENTADB"])
SEED = int(os.environ.get("SEED", "1"))
OK, FOUND, USAGE, INPUT, DAMAGED, UNMERGEABLE, SYSTEM, BUSY = range(8)


def trip(what, done=False):
    return {"title": "Trip", "tasks": [{"_id": "t1", "what": what}, {"_id": "t2", "what": "book", "done": done}]}


class Case(unittest.TestCase):
    def setUp(self):
        self.home = tempfile.TemporaryDirectory()
        self.addCleanup(self.home.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(self.home.name)

    def run_it(self, *arguments, given="", code=OK, error="", env=None, **more):
        """Standard output; `code` and a part of standard error are checked."""
        given = given if isinstance(given, str) else json.dumps(given)
        done = subprocess.run([ZENTADB, *arguments], input=given, capture_output=True, text=True,
                              env={**os.environ, "ZENTADB_LOCK_WAIT": "60", **(env or {})}, check=False, **more)
        self.assertEqual(done.returncode, code, f"{arguments}: {done.stderr}{done.stdout}")
        self.assertIn(error, done.stderr, arguments)
        return done.stdout

    def make(self, store, data, *arguments):
        self.run_it("update", store, "-", "-q", *arguments, given=data)

    def make_conflict(self):
        self.make("laptop", trip("pack"))
        shutil.copy("laptop", "phone")
        shutil.copy("laptop", "old")
        self.make("laptop", trip("pack light"))
        self.make("laptop", trip("pack very light"))
        self.make("phone", trip("pack everything", True))
        self.run_it("merge", "laptop", "phone", error="1 document in conflict")

    def data(self, store):
        return json.loads(self.run_it("read", store))

    def write(self, name, text):
        with open(name, "w", encoding="utf-8") as file:
            file.write(text)

    def bytes_of(self, name):
        with open(name, "rb") as file:
            return file.read()


class Commands(Case):
    def test_says_what_is_asked(self):
        self.make_conflict()
        table = [
            (("status", "laptop"), r"documents +3.*\nrevisions +8\nconflicts +1\n(.*\n)*size +1654 bytes\n"),
            (("log", "laptop", "t1", "--ascii"), r"\n\|-\* 2-8b3e4a5 "),
            (("graph", "laptop", "t1"), r"r0 -> r1;[^$]*pack everything\\\"\\nconflict\""),
            (("graph", "laptop", "t1", "--format", "mermaid"), r"r0 --> r3\n"),
            (("read", "laptop", "--pretty"), r'\n    "tasks": \[\n        \{\n            "_id": "t1",\n'),
            (("verify", "laptop"), r"undamaged: the histories of 4 documents, 8 contents, 8 of them"),
            (("verify", "laptop", "--json"), r'"damaged": false,(.*\n)* +"whole_contents": 8\n'),
            (("status", "laptop", "--json"), r'"documents": 3,(.*\n)* +"conflicts": 1,(.*\n)* +"size": 1654,'),
            (("conflicts", "laptop", "--json"), r'"what": "pack very light"(.*\n)* +"wins": false,(.*\n)* +"what": "pack everything"'),
        ]
        for arguments, pattern in table:
            with self.subTest(arguments):
                self.assertRegex(self.run_it(*arguments), pattern)
        if shutil.which("dot"):
            self.assertIn("<svg", self.run_it("graph", "laptop", "t1", "--format", "svg"))
        self.run_it("graph", "laptop", "t1", "--format", "svg", code=SYSTEM, error="graphviz", env={"PATH": "/nowhere"})

    def test_json_of_a_store_with_branches(self):
        with open(os.path.join(HERE, "..", "vectors", "questions.json"), encoding="utf-8") as file:
            for name, store in json.load(file)["given"].items():
                self.write(name, json.dumps(store))
        self.run_it("prune", "new", "a", "--keep", "1", "--force", "-o", "pruned")
        self.run_it("prune", "new", "ord-1", "a", "--keep", "0", "--force", "-o", "bare")
        self.run_it("prune", "new", "--keep", "0", "--force", "-o", "none")
        # b has the content of 2-B_A as well.
        kept = {"1-A_first": False, "2-B_A": True, "2-C_A": False, "3-D_C": False}
        table = [  # command, what is taken of each row, rows
            (("log", "new", "a"), ("revision", "parent", "state"),
             [("1-A_first", None, ""), ("2-B_A", "1-A_first", "conflict"), ("2-C_A", "1-A_first", ""), ("3-D_C", "2-C_A", "wins")]),
            (("log", "new", "b"), ("state", "available"), [("", True), ("wins, deleted", True)]),
            (("log", "pruned", "a"), ("revision", "available"), list({**kept, "3-D_C": True}.items())),
            (("log", "bare", "a"), ("revision", "available"), list(kept.items())),
            (("log", "none", "a"), ("available",), [(False,)] * 4),
            (("docs", "new", "--all"), ("id", "revisions", "winning", "deleted", "conflicts", "place"),
             [("a", 4, "3-D_C", False, 1, ".list[0]"), ("b", 2, "2-deleted_B", True, 0, None), ("ord-1", 1, "1-O_first", False, 0, None),
              ("ord-2", 1, "1-P_first", False, 0, None), ("root", 1, "1-R_first", False, 0, ".")]),
            (("conflicts", "new"), ("id", "can_merge"), [("a", False)]),
            (("conflicts", "old"), ("id",), []),
        ]
        for arguments, keys, rows in table:
            with self.subTest(arguments):
                self.assertEqual([tuple(row[key] for key in keys) for row in json.loads(self.run_it(*arguments, "--json"))], rows)
        table = [  # command, some of its members
            (("changes", "old", "new", "--all", "--json"), {"created": ["ord-1", "ord-2"], "updated": ["a"], "deleted": ["b"]}),
            (("changes", "new", "old", "--all", "--json"), {"created": [], "updated": ["a", "b"], "deleted": []}),
            (("changes", "old", "new", "--json"), {"created": [], "updated": ["a"], "deleted": ["b"]}),
            (("status", "new", "--json"), {"root": "root", "instances": ["phone", "tablet"], "documents": 2, "deleted": 1, "orderings": 2}),
            # Pruning first takes the order of the other instances into its own list.
            (("status", "none", "--json"), {"instances": ["default", "phone", "tablet"], "orderings": 3}),
            (("show", "new", "b"), {"_deleted": True, "_id": "b"}),
        ]
        for arguments, members in table:
            with self.subTest(arguments):
                self.assertLessEqual(members.items(), json.loads(self.run_it(*arguments)).items())
        self.assertEqual(self.run_it("show", "new", "a", "2-B", "--discard-id"), '{"n": 2}\n')

    def test_resolves(self):
        self.make_conflict()
        self.run_it("prune", "laptop", code=INPUT, error="would drop the losing versions")
        for keep, what, mark in (("winner", "pack very light", "× 3-resolved"), ("2-8b3", "pack everything", "× 4-resolved")):
            self.run_it("resolve", "laptop", "t1", keep, "-o", "resolved")
            self.assertEqual(self.data("resolved")["tasks"][0]["what"], what)
            self.assertIn(mark, self.run_it("log", "resolved", "t1"))
            self.run_it("conflicts", "resolved", "--exit-code")
        self.run_it("resolve", "laptop", "--all")
        self.run_it("prune", "laptop")
        self.assertIn("was pruned", self.run_it("log", "laptop", "t1"))
        self.assertEqual(self.data("laptop"), {"_id": "root", **trip("pack very light", True)})

    def test_data_that_would_not_come_back_is_refused(self):
        full, part = trip("pack"), {"title": "Trip", "tasks": trip("pack")["tasks"][1:]}
        self.make("a", full)
        self.make("a", part)
        before = self.bytes_of("a")
        long = {**part, "sum": 2**60 + 1, "more": [{"a": 1}, {"a": 2}] * 11}
        for given, told in ((full, r": 1 place .*\n  .tasks\[0\]  t1 was deleted before.*\nTo restore"),
                            (long, r"(?s): 12 places .*  .more\[0\]  another object .*and 2 more.*zentadb arrays DATA .*Write long numbers as strings")):
            done = subprocess.run([ZENTADB, "update", "a", "-"], input=json.dumps(given), capture_output=True, text=True, check=False)
            self.assertEqual(done.returncode, INPUT)
            self.assertRegex(done.stderr, told)
            self.assertEqual(self.bytes_of("a"), before)
        self.run_it("update", "a", "-", "--force", given=full, error="warning: standard input: 1 place")
        self.assertEqual(self.data("a"), {"_id": "root", **part})

    def test_merges_versions(self):
        for settings in ((), ("--fast-hash",)):
            text = "one\ntwo\nthree\n"
            data = {"tasks": [{"_id": "t1", "note": text, "o": {"p": 1, "q": 1}, "steps": [{"_id": "s1"}]}, {"_id": "t2", "n": 0}, {"_id": "t3"}]}
            self.make("a", data, *settings)
            shutil.copy("a", "b")
            data["tasks"][0].update(note="zero\n" + text, steps=[{"_id": "s1"}, {"_id": "s2"}])
            data["tasks"][1]["n"] = 1
            data["tasks"][2]["a"] = 1
            self.make("a", data)
            data["tasks"][0].update(note=text.replace("three", "3"), o={"p": 2, "q": 1, "#": "!x"}, steps=[{"_id": "s1"}, {"_id": "s3"}])
            data["tasks"][1]["n"] = 2
            data["tasks"][2] = {"_id": "t3", "b": 2}
            self.make("b", data)
            shutil.copy("a", "from")
            self.run_it("merge", "a", "b", "-q")
            self.run_it("merge", "b", "from", "-q")
            self.assertRegex(self.run_it("conflicts", "a"), r"was   1-(.*\n)+.* --all --merge resolves 2 of them\n")
            # Each copy resolves on its own, and both come to the same bytes.
            shown = self.run_it("resolve", "a", "--all", "--merge", "--exit-code", code=FOUND, error="2 documents resolved, 1 needs a choice")
            self.assertRegex(shown, r"t2\n.*was .*wins .*loses .*\n +\.n +0 +[12] +[12] *\n +zentadb resolve a t2 --merge --take .n=2-")
            for task in ("t3", "t1"):
                self.run_it("resolve", "b", task, "--merge", error="1 document resolved\n")
            self.assertEqual(self.bytes_of("a"), self.bytes_of("b"))
            self.run_it("resolve", "a", "t2", "--merge", "--take", ".n=1-")
            self.run_it("verify", "a", "-q")
            self.run_it("conflicts", "a", "--exit-code")
            self.run_it("resolve", "a", "t2", "--merge", error="0 documents resolved")
            steps = [{"_id": "s1"}, {"_id": "s2"}, {"_id": "s3"}]
            got = self.data("a")["tasks"]
            got[0]["steps"].sort(key=lambda step: step["_id"])
            self.assertEqual(got, [{"_id": "t1", "note": "zero\none\ntwo\n3\n", "o": {"p": 2, "q": 1, "#": "!x"}, "steps": steps}, {"_id": "t2", "n": 0},
                                   {"_id": "t3", "a": 1, "b": 2}])
            os.unlink("a")

    def test_an_edit_is_kept_against_a_deletion_that_won(self):
        self.make("a", trip("pack"))
        shutil.copy("a", "b")
        self.make("a", trip("pack light"))
        self.make("a", {"title": "Trip", "tasks": trip("")["tasks"][1:]})
        self.make("b", trip("pack everything"))
        self.run_it("merge", "a", "b")
        self.assertRegex(self.run_it("conflicts", "a"), r"t1 +not in the data\n.*\n +what +\"pack\" +\(deleted\) +\"pack everything\"")
        shutil.copy("a", "c")
        self.run_it("resolve", "c", "t1", "2-8b3")
        self.run_it("conflicts", "c", "--exit-code")
        self.assertIn("pack everything", [task.get("what") for task in self.data("c")["tasks"]])
        self.run_it("resolve", "a", "t1")
        self.run_it("conflicts", "a", "--exit-code")
        self.run_it("update", "a", "-", "-q", given=trip("back"), code=INPUT, error=".tasks[0]  t1 was deleted before")

    def test_what_lies_below_a_losing_version_comes_back(self):
        def task(what, *notes, **more):
            return {"tasks": [{"_id": "t1", "what": what, **({"notes": [{"_id": note} for note in notes]} if notes else {}), **more}]}
        self.make("a", task("pack", "n0"))
        shutil.copy("a", "b")
        self.make("a", task("pack light", more=1))
        self.make("a", task("pack very light", more=1))
        self.make("b", task("pack everything", "n0", "n1", "n2"))
        told = "2 documents are only in a losing version; they come back if that version is kept\n1 document in conflict"
        self.run_it("merge", "a", "b", error=told)
        loser = self.bytes_of("b").decode().partition('"t1": ["')[2].split('"')[2][:7]
        for _ in range(2):  # an update with what was read takes nothing away
            self.assertIn(f"2-{loser} has 2 documents below it that the data does not show; they come back", self.run_it("conflicts", "a"))
            versions = json.loads(self.run_it("conflicts", "a", "--json"))[0]["versions"]
            self.assertEqual([version["documents_below"] for version in versions], [0, 2])
            self.make("a", self.data("a"))
        self.run_it("resolve", "a", "t1", f"2-{loser}", error="1 document resolved\n2 documents are back in the data\n")
        self.assertEqual([note["_id"] for note in self.data("a")["tasks"][0]["notes"]], ["n1", "n2"])
        self.run_it("conflicts", "a", "--exit-code")

    def test_what_a_merge_brings_into_something_removed(self):
        inner = [{"_id": "t2", "notes": [{"_id": "n0"}]}]
        self.make("a", {"tasks": [{"_id": "t1"}, *inner]})
        shutil.copy("a", "b")
        self.make("a", {"tasks": [{"_id": "t1"}]})
        self.make("b", {"tasks": [{"_id": "t1"}, {**inner[0], "notes": [{"_id": "n0"}, {"_id": "n1", "text": "new"}]}]})
        for store, other in (("a", "b"), ("b", "a")):
            shutil.copy(store, "merged")
            told = "1 document with changes lies in something that was removed: n1; zentadb show merged n1 shows it\n"
            self.run_it("merge", "merged", other, error=told)
            self.assertEqual(json.loads(self.run_it("show", "merged", "n1")), {"_id": "n1", "text": "new"})
            done = subprocess.run([ZENTADB, "merge", "merged", other], capture_output=True, text=True, check=True)
            self.assertEqual(done.stderr, "nothing new\n")  # it is said once

    def test_draws_merged_lists_without_their_closings(self):
        self.make("a", {"l": [{"_id": "1"}, {"_id": "2"}]})
        shutil.copy("a", "b")
        self.make("a", {"l": [{"_id": "1"}, {"_id": "2"}, {"_id": "3"}]})
        self.make("b", {"l": [{"_id": "0"}, {"_id": "1"}, {"_id": "2"}]})
        self.run_it("merge", "a", "b", "-q")
        self.make("a", self.data("a"))
        order = next(each["id"] for each in json.loads(self.run_it("docs", "a", "--all", "--json")) if each["id"].startswith("ord-"))
        drawn = self.run_it("log", "a", order)
        self.assertIn("[merged]", drawn)
        for quiet in (drawn, self.run_it("graph", "a", order), self.run_it("graph", "a", order, "--format", "mermaid")):
            self.assertNotIn("resolved", quiet)
            self.assertRegex(quiet, "0.{1,16}1.{1,16}2.{1,16}3")
        self.assertIn("3-resolved", self.run_it("log", "a", order, "--full"))

    def test_standard_input_and_output(self):
        self.write("data", json.dumps(trip("pack")))
        store = self.run_it("update", "-", "data", given="{}")
        self.assertEqual(json.loads(self.run_it("read", "-", given=store)), {"_id": "root", **trip("pack")})
        for command in ("update", "merge", "changes", "diff", "patch"):
            self.run_it(command, "-", "-", code=USAGE, error="only one file")
        self.assertEqual(self.run_it("uncompress", "-", given=self.run_it("compress", "-", given=store)), store)
        self.write("store", store)
        self.assertEqual(self.run_it("changes", "-", "store", given=store), "")
        self.run_it("merge", "copy", "/dev/stdin", "-q", given=store)  # a pipe is as good as a file
        self.assertEqual(self.bytes_of("copy"), store.encode())

    def test_stores_stay_compressed(self):
        self.make("a", trip("pack"), "--compress")
        shutil.copy("a", "b")
        self.make("a", trip("pack light"))
        self.make("b", trip("pack everything"))
        self.run_it("merge", "a", "b")
        self.run_it("resolve", "a", "t1")
        self.assertTrue(self.bytes_of("a").startswith(b'{"compressed": true'))
        self.assertIn("kept compressed", self.run_it("status", "a"))
        self.run_it("uncompress", "a")
        self.assertTrue(self.bytes_of("a").startswith(b'{"d": '))

    def test_diff_and_patch(self):
        self.make_conflict()
        shutil.copy("old", "first")
        patch = self.run_it("diff", "old", "laptop")
        self.run_it("patch", "old", "-", given=patch)
        self.assertEqual(self.bytes_of("old"), self.bytes_of("laptop"))
        whole = self.run_it("diff", "-", "laptop", given="{}")
        self.run_it("patch", "fresh", "-", given=whole)
        self.assertEqual(self.bytes_of("fresh"), self.bytes_of("laptop"))
        # It fits only the store that it was made from, even if it does not name it.
        self.run_it("patch", "laptop", "-", given=patch)
        bare = json.loads(patch)
        del bare["from"], bare["to"]
        wrong = {**json.loads(patch), "o": []}
        for store, given, error in (("phone", "[]", "standard input: not a patch"), ("phone", patch, "another store"), ("phone", bare, "another store"),
                                    ("fresh", bare, "another store"), ("first", wrong, "was made for"), ("first", {"d": [{}]}, "operations")):
            self.run_it("patch", store, "-", "-o", "out", given=given, code=INPUT, error=error)
        self.run_it("patch", "first", "-", given=bare)
        self.assertEqual(self.bytes_of("first"), self.bytes_of("laptop"))

    def test_mentions_several_instances(self):
        self.make("ann", trip("pack"), "--instance", "ann")
        shutil.copy("ann", "ben")
        data = {"title": "Trip", "tasks": trip("pack")["tasks"][::-1]}
        self.run_it("update", "ben", "-", "--instance", "ben", given=data, error="")
        self.run_it("merge", "ann", "ben", error="written by 2 instances, each with its own order of arrays: ann, ben")
        for arguments, told in ((("read", "ann"), "2 instances: ann, ben; without"), (("read", "ann", "--instance", "ann"), "")):
            done = subprocess.run([ZENTADB, *arguments], capture_output=True, text=True, check=True)
            self.assertIn(told, done.stderr)
            self.assertEqual(bool(told), bool(done.stderr))
        done = subprocess.run([ZENTADB, "docs", "ann"], capture_output=True, text=True, check=True)
        self.assertEqual(done.stderr, "")

    def test_goes_on_as_the_store_is(self):
        self.make("a", trip("pack"), "--fast-hash", "--instance", "ann")
        self.make("a", trip("pack light"))
        text = self.bytes_of("a").decode()
        self.assertNotRegex(text, r"[0-9a-f]{64}")
        self.assertNotIn('"i": "default"', text)
        # The environment may ask the library for a form that this program does not look into.
        self.assertEqual(self.run_it("docs", "a", env={"USE_BEL_FORMAT": "1"}), self.run_it("docs", "a"))

    def test_help_and_man_page(self):
        with open(os.environ["MAN_PAGE"], encoding="utf-8") as file:
            page = file.read()
        names = re.findall(r"^  ([a-z]+)  ", self.run_it("--help"), re.MULTILINE)
        self.assertGreaterEqual(len(names), 18)
        for name in names:
            self.assertIn(f"Examples:\n  zentadb {name} ", self.run_it(name, "--help"))
            self.assertIn(f'\n.BI {name} "', page)


class ExitCodes(Case):
    def test_kinds_of_failure(self):
        self.make_conflict()
        self.make("other", {"_id": "elsewhere"})
        self.make("stranger", trip("written apart"))
        for name, text in {"empty": "", "data": '{"a": 1}', "list": "[1]", "deep": "[" * 10**6, "broken": '{"d": {"a": [', "nul": '{}\0',
                           "noroot": '{"d": {"a": ["b_first"]}}', "nodata": '{"d": []}', "flat": '{"d": {"a": ["A_first"]}, "o": {"A": 1}, "r": "a"}',
                           "pruned": '{"d": {"a": ["A_first"]}, "r": "a"}', "typo": '{"é": 1,\n  "b": 2,\n  "é😀c", 3}', "nested": '{"a": {"b": [[{}], [{}]]}}',
                           "split": '{"#df": 1, "o": {"_id": "t"}, "list": [{"_id": "t"}]}', "noid": '{"l": [{"_id": ""}]}', "twins": '{"l": [{"a": 1}, {"a": 2}]}',
                           "long": '{"n": 12345678901234567}',
                           "squeezed": '{"compressed": true, "data": "AAAA", "uncompressed_size": 9}'}.items():
            self.write(name, text)
        before = self.bytes_of("laptop")
        table = [
            ((), USAGE, "required"),
            (("frobnicate",), USAGE, "no such command"),
            (("read",), USAGE, "STORE is required\nSee zentadb read --help."),
            (("read", "laptop", "--no-such"), USAGE, "--no-such"),
            (("read", "laptop", "--config", "[1]"), INPUT, "no such file"),
            (("read", "laptop", "--config", "list"), USAGE, "list: not a JSON object"),
            (("read", "laptop", "--config", '{"a":' * 20000 + "1" + "}" * 20000), USAGE, "not a JSON object"),
            (("read", "laptop", "--config", '{"a": 1,}'), USAGE, "the configuration:1:9: expected '\"' in object"),
            (("read", "laptop", "--config", '{"discard_ids": true}'), OK, "warning: unknown configuration key: discard_ids"),
            (("read", "missing"), INPUT, "missing: no such file"),
            (("read", "data"), INPUT, "zentadb update STORE data"),
            (("read", "list"), INPUT, "not a sync JSON"),
            (("read", "nul"), INPUT, "NUL byte"),
            (("read", "empty"), DAMAGED, "the file is empty"),
            (("read", "broken"), DAMAGED, "zentadb verify broken"),
            (("read", "noroot"), DAMAGED, "root document is missing"),
            (("read", "nodata"), DAMAGED, 'nodata: "d" or "o" is not an object'),
            (("read", "flat"), DAMAGED, "flat: content A is not an object"),
            (("read", "pruned"), INPUT, "the content of 1-A_first was pruned"),
            (("read", "squeezed"), DAMAGED, "compressed object is damaged"),
            (("update", "empty", "data"), DAMAGED, "the file is empty"),
            (("update", "data", "data"), INPUT, "not a sync JSON"),
            (("update", "laptop", "list"), INPUT, "list: the data is not a JSON object"),
            (("update", "laptop", "empty"), INPUT, "empty: empty input"),
            (("update", "laptop", "-"), INPUT, "standard input: empty input"),
            (("update", "laptop", "typo"), INPUT, "typo:3:8: expected ':' in object, got ','"),
            (("arrays", "typo"), INPUT, "typo:3:8: "),
            (("patch", "laptop", "typo"), INPUT, "typo:3:8: "),
            (("compress", "typo"), DAMAGED, "typo:3:8: "),
            (("read", "typo"), DAMAGED, "typo:3:8: "),
            (("update", "new", "nested"), INPUT, "nested: two arrays of objects are at one place: .a.b[0], .a.b[1]\n"),
            (("update", "new", "split", "--force"), INPUT, "split: two objects would be one document: .o"),
            (("update", "new", "data", "--ids", "x" * 100, "--config", '{"ids": 1}'), OK, "unknown configuration key: ids"),
            (("update", "new", "noid"), INPUT, "an object has an empty"),
            (("update", "laptop", "broken"), INPUT, "broken:1:13: unexpected end"),
            (("update", "laptop", "twins"), INPUT, "1 place would not read back as given\n  .l[0]  another object with the same id"),
            (("update", "laptop", "long"), INPUT, ".n  the number has too many digits"),
            (("resolve", "laptop", "t1", "--merge", "--take", ".no=2-"), INPUT, "nothing to choose"),
            (("resolve", "laptop", "--all", "--merge", "--take", ".what=2-"), USAGE, "one document"),
            (("show", "laptop", "no\x1body"), INPUT, r"laptop: no\x1body: no such document"),
            (("show", "laptop", "t1", "9-9"), INPUT, "laptop: t1 9-9: no such revision"),
            (("show", "laptop", "t1", "2-"), INPUT, "laptop: t1 2-: ambiguous; candidates:\n  2-"),
            (("resolve", "laptop", "t1", "1-"), INPUT, "laptop: t1 1-: not the end of a branch"),
            (("resolve", "laptop"), USAGE, "--all"),
            (("merge", "laptop", "other"), UNMERGEABLE, "not copies of one store"),
            (("merge", "laptop", "stranger"), UNMERGEABLE, "created 1 document independently under the same id:\n  t1  .tasks[0]\n"),
            (("merge", "laptop", "broken"), DAMAGED, "broken:1:13: "),
            (("prune", "laptop", "--keep", "0"), USAGE, "--force"),
            (("prune", "laptop", "nobody"), INPUT, "laptop: nobody: no such document"),
            (("verify", "broken"), DAMAGED, ""),
            (("verify", "deep"), INPUT, "too deeply"),
            (("update", "new", "deep"), INPUT, "too deeply"),
            (("verify", "broken", "--salvage", "./broken"), USAGE, "another file"),
            (("compress", "list"), INPUT, "list: not a JSON object"),
            (("update", "nowhere/store", "data"), SYSTEM, "nowhere/store"),
            (("update", "/dev/null/store", "data"), SYSTEM, ""),
            (("update", "laptop", "data", "-o", "/dev/full"), SYSTEM, "No space left"),
            (("conflicts", "laptop", "--exit-code"), FOUND, ""),
            (("status", "laptop", "--exit-code"), FOUND, ""),
            (("changes", "old", "laptop", "--exit-code"), FOUND, ""),
            (("arrays", "twins", "--exit-code"), FOUND, ""),
            (("merge", "laptop", "phone", "--exit-code"), FOUND, "nothing new"),
        ]
        for arguments, code, error in table:
            with self.subTest(arguments):
                self.run_it(*arguments, code=code, error=error)
        self.assertEqual(self.bytes_of("laptop"), before)
        self.assertFalse([name for name in os.listdir() if ".zentadb-" in name])

    def test_standard_output_that_fails(self):
        self.make("a", trip("pack"))
        with open("/dev/full", "w", encoding="utf-8") as full:
            done = subprocess.run([ZENTADB, "read", "a"], stdout=full, stderr=subprocess.PIPE, check=False)
        self.assertEqual(done.returncode, SYSTEM)


class Files(Case):
    def test_replaces_behind_links_and_keeps_the_mode(self):
        self.make("real", trip("pack"))
        os.chmod("real", 0o640)
        os.symlink("real", "link")
        self.make("link", trip("pack light"))
        self.assertTrue(os.path.islink("link"))
        os.symlink("not-there-yet", "early")
        self.make("early", trip("pack"))
        self.assertTrue(os.path.islink("early") and os.path.isfile("not-there-yet"))
        self.assertEqual(stat.S_IMODE(os.stat("real").st_mode), 0o640)
        self.assertEqual(self.data("real")["tasks"][0]["what"], "pack light")
        # What does not change is not written again.
        before = os.stat("real")
        self.make("real", trip("pack light"))
        self.assertEqual(os.stat("real").st_ino, before.st_ino)

    def test_other_names_of_a_store(self):
        self.make("a", trip("pack"))
        os.link("a", "b")
        self.run_it("update", "a", "-", given=trip("pack light"), error="a: the file has other names (hard links)")
        self.assertEqual([self.data(name)["tasks"][0]["what"] for name in "ab"], ["pack light", "pack"])
        os.symlink("loop", "loop")
        for arguments in (("update", "loop", "a"), ("read", "loop"), ("merge", "loop", "a"), ("merge", "a", "loop")):
            self.run_it(*arguments, code=SYSTEM, error="loop: Too many levels of symbolic links")
        self.assertTrue(os.path.islink("loop"))

    @unittest.skipUnless(shutil.which("strace"), "strace is not installed")
    def test_nobody_can_open_a_new_text_early(self):
        self.make("a", trip("pack"))
        os.chmod("a", 0o640)
        self.write("data", json.dumps(trip("pack light")))
        done = subprocess.run(["strace", "-e", "trace=openat,open,fchmod", ZENTADB, "update", "a", "data"], capture_output=True, text=True,
                              check=False, preexec_fn=lambda: os.umask(0))
        if "ptrace" in done.stderr:
            self.skipTest("nothing can be traced here")
        self.assertRegex(done.stderr, r"a\.zentadb-new\", [^)]*, 0600\)[^$]*fchmod\(\d+, 0640\)")

    def test_a_write_that_breaks_off_changes_nothing(self):
        self.make("a", trip("pack"))
        before = self.bytes_of("a")

        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (512, 512))
        self.run_it("update", "a", "-", given=trip("x" * 5000), preexec_fn=limit, code=SYSTEM, error="File too large\nNothing was changed")
        self.assertEqual(self.bytes_of("a"), before)
        self.assertEqual(os.listdir(), ["a"])
        # What a run left over, even if it was written by another one with bad intent, is in nobody's way.
        self.write("precious", "stays")
        os.symlink("precious", "a.zentadb-new")
        self.make("a", trip("pack light"))
        self.assertEqual(self.bytes_of("precious"), b"stays")
        self.assertEqual(sorted(os.listdir()), ["a", "precious"])

    def test_killed_at_any_moment(self):
        print(f"SEED={SEED}")
        chance = random.Random(SEED)
        states = [{"list": [{"_id": str(at), "n": number} for at in range(4000)]} for number in (1, 2)]
        for number, state in enumerate(states):
            self.write(f"data{number}", json.dumps(state))
        start = time.monotonic()
        self.make("a", states[0])
        whole_run = time.monotonic() - start
        self.make("reference", states[0])
        for number in range(12):
            run = subprocess.Popen([ZENTADB, "update", "a", f"data{(number + 1) % 2}", "-q"])
            time.sleep(chance.random() * whole_run)
            run.send_signal(signal.SIGKILL)
            run.wait()
            self.assertIn({"list": self.data("a")["list"]}, states)
        self.run_it("verify", "a", "-q")
        self.make("a", trip("done"))
        self.assertFalse([name for name in os.listdir() if ".zentadb-" in name])

    def test_two_processes_lose_nothing(self):
        count = 10
        self.make("a", {"list": []})
        for number in range(count):
            shutil.copy("a", f"copy{number}")
            self.make(f"copy{number}", {"list": [{"_id": f"from{number}"}]})
        runs = [subprocess.Popen([ZENTADB, "merge", "a", f"copy{number}", "-q"], env={**os.environ, "ZENTADB_LOCK_WAIT": "60"})
                for number in range(count)]
        self.assertEqual([run.wait() for run in runs], [OK] * count)
        self.assertEqual({element["_id"] for element in self.data("a")["list"]}, {f"from{number}" for number in range(count)})
        self.assertFalse([name for name in os.listdir() if ".zentadb-" in name])

    def test_waits_for_the_lock_and_gives_up(self):
        self.make("a", trip("pack"))
        before = self.bytes_of("a")
        with open("a.zentadb-lock", "w", encoding="utf-8") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            self.run_it("update", "a", "-", given=trip("x"), code=BUSY, error="another process", env={"ZENTADB_LOCK_WAIT": "0.1"})
            self.assertEqual(self.bytes_of("a"), before)
            self.data("a")  # readers need no lock
            waiting = subprocess.Popen([ZENTADB, "merge", "a", "a", "-q"])
            time.sleep(0.2)
            self.assertIsNone(waiting.poll())
        self.assertEqual(waiting.wait(), OK)
        # A lock file that nobody holds is a leftover.
        self.write("a.zentadb-lock", "")
        self.make("a", trip("x"))
        self.assertEqual(os.listdir(), ["a"])


class Damage(Case):
    def test_a_forged_content_is_not_merged(self):
        # Whoever guesses what another copy will write could have said something else under its name.
        self.make("laptop", trip("pack"))
        shutil.copy("laptop", "phone")
        self.make("phone", trip("pack light"))
        before = self.bytes_of("laptop")
        genuine = self.bytes_of("phone").decode()
        self.write("forged", genuine.replace("pack light", "pack nothing"))
        self.run_it("compress", "forged", "-o", "squeezed")
        for source in ("forged", "squeezed"):
            self.run_it("merge", "laptop", source, code=DAMAGED, error=f"{source}: 1 content does not hash to its name: t1 2-5bedd7d")
        self.assertEqual(self.bytes_of("laptop"), before)
        self.run_it("merge", "fresh", "phone", "forged", "-q", code=DAMAGED)
        self.assertFalse(os.path.exists("fresh"))
        self.run_it("merge", "phone", "forged", error="nothing new")  # what the store has stays
        self.assertEqual(self.bytes_of("phone").decode(), genuine)
        self.run_it("merge", "laptop", "forged", "--force", "-q")
        self.assertEqual(self.data("laptop")["tasks"][0]["what"], "pack nothing")
        # Another way to write numbers is not a forgery.
        self.run_it("update", "fast", "-", "-q", given={"a": 2.5, "b": [1e20]}, env={"USE_FAST_FLOAT": "1"})
        self.run_it("merge", "slow", "fast", "-q")

    def test_salvages_what_is_whole(self):
        self.make_conflict()
        shutil.copy("laptop", "good")
        text = self.bytes_of("good").decode()
        chance = random.Random(SEED)
        print(f"SEED={SEED}")
        damaged = [text[:chance.randrange(700, len(text))] for _ in range(5)]
        damaged += [text.replace("pack everything", "pack somethings"), text.replace('["06e1d', '["16e1d', 1), text.replace('"ord-', '"ord-0', 1),
                    text.replace('"8b3e', '"8b4e', 1)]
        for number, bad in enumerate(damaged):
            with self.subTest(number, seed=SEED):
                self.write("bad", bad)
                self.run_it("verify", "bad", "--salvage", "saved", code=DAMAGED)
                self.run_it("merge", "saved", "good", "-q")
                self.run_it("verify", "saved", "-q")
                self.assertEqual(self.bytes_of("saved"), self.bytes_of("good"))
        self.write("bad", '{"d": {')
        self.run_it("verify", "bad", "--salvage", "saved", code=DAMAGED, error="nothing can be recovered")
        # However much stands in one content, and whatever bytes a string has: those of a text that the library takes do no harm.
        self.make("good", {"_id": "root", "title": "é", "map": {f"k{number}": {"v": number} for number in range(60000)}})
        text = self.bytes_of("good").replace("é".encode(), b"\xff")
        with open("bad", "wb") as file:
            file.write(text.replace(b'"v": 777}', b'"v": 778}'))
        self.assertRegex(self.run_it("verify", "bad", "--salvage", "saved", code=DAMAGED, timeout=60), "wrong|does not hash")
        self.run_it("merge", "saved", "good", "-q")
        self.assertEqual(self.bytes_of("saved"), self.bytes_of("good"))


class Arrays(Case):
    def random_value(self, chance, depth):
        kind = chance.randrange(9 if depth < 4 else 4)
        if kind < 4:
            return [chance.randrange(3), "text", True, None][kind]
        if kind < 6:
            return {key: self.random_value(chance, depth + 1) for key in chance.sample("abcd", chance.randrange(3))}
        if kind < 7:
            return [self.random_value(chance, depth + 1) for _ in range(chance.randrange(3))]
        elements = []
        for _ in range(chance.randrange(4)):
            element = {key: self.random_value(chance, depth + 1) for key in chance.sample("abk", chance.randrange(3))}
            if chance.random() < 0.5:
                element["_id"] = f"id{chance.randrange(10**6)}"
            elements.append(element)
        return elements

    def without_ids(self, value):
        if isinstance(value, dict):
            return {key: self.without_ids(inner) for key, inner in value.items() if key != "_id"}
        return [self.without_ids(inner) for inner in value] if isinstance(value, list) else value

    def is_kept_by_positions(self, data, settings):
        """Lists the domains of all arrays, from the outside in."""
        domains = []
        while True:
            positions = (*settings, "--indexed", ",".join(domains))
            told = json.loads(self.run_it("arrays", "data", "--json", *positions))
            found = sorted({domain for array in told["arrays"] for domain in array["domains"]})
            if found == domains:
                break
            domains = found
        done = subprocess.run([ZENTADB, "update", "kept", "data", "-q", "--force", *positions], stderr=subprocess.DEVNULL, check=False)
        is_kept = done.returncode == OK and self.without_ids(self.data("kept")) == self.without_ids(data)
        if done.returncode == OK:
            os.unlink("kept")
        return is_kept

    def test_finds_what_helps(self):
        def of(count, make):
            return {f"k{number}": make(number) for number in range(count)}
        table = [  # data, paths, what the configuration is made of
            # The keys of a map are data.
            ({"map": of(800, lambda n: {"list": [{"v": n, "w": [{"z": 1}]}, {"v": n}], "n": n})},
             [".map[].list", ".map[].list[].w"], "indexed_array_paths"),
            (of(3000, lambda n: [{"code": f"c{n}-{m}", "v": 1} for m in range(3)]), [".[]"], "id_generation_rules"),
            (of(7, lambda n: [{"v": m} for m in range(2)]), [f".k{n}" for n in range(7)], "indexed_array_paths"),
            (of(1000, lambda n: [{f"only{n}": m} for m in range(2)]), [f".k{n}" for n in sorted(range(1000), key=str)],
             "id_generation_rules indexed_array_paths"),
            # A key that distinguishes the elements of one array does so nowhere else, and merges them there.
            ({"a": [{"id": "1"}, {"id": "2"}], "b": [{"id": "1"}, {"id": "1", "x": 2}]}, [".a", ".b"], "indexed_array_paths"),
            ({"a": [{"id": "1"}, {"id": "2"}], "b": {"#df": 1, "c": {"id": "1"}}}, [".a"], "indexed_array_paths"),
        ]
        for data, paths, expected in table:
            with self.subTest(expected, keys=len(data)):
                self.write("data", json.dumps(data))
                told = json.loads(self.run_it("arrays", "data", "--json", timeout=10))
                self.assertEqual([array["path"] for array in told["arrays"]], paths)
                self.assertEqual(" ".join(told["configuration"]), expected)
                self.run_it("update", "helped", "data", "-q", "--config", json.dumps(told["configuration"]))
                self.assertEqual(self.without_ids(self.data("helped")), self.without_ids(data))
                os.unlink("helped")

    def test_tells_what_the_library_will_do(self):
        print(f"SEED={SEED}")
        chance = random.Random(SEED)
        helped = 0
        for number in range(25):
            data = {key: self.random_value(chance, 0) for key in "abcd"}
            settings = chance.choice([(), ("--fast-hash",), ("--ids", "a,k;b"), ("--flatten-objects",)])
            with self.subTest(number, seed=SEED, data=data, settings=settings):
                self.write("data", json.dumps(data))
                told = json.loads(self.run_it("arrays", "data", "--json", *settings))
                if told["configuration"]:
                    helped += 1
                    self.run_it("update", "helped", "data", "-q", "--config", json.dumps(told["configuration"]))
                    self.assertEqual(self.without_ids(self.data("helped")), self.without_ids(data))
                    os.unlink("helped")
                elif told["refused"] or any(array["lost"] for array in told["arrays"]):
                    self.assertFalse(self.is_kept_by_positions(data, settings))
                lost = any(array["lost"] for array in told["arrays"])
                if lost or told["refused"]:
                    why = told["refused"] or "would not read back as given"
                    self.run_it("update", "refused", "data", *settings, code=INPUT, error=why)
                    continue
                self.make(f"store{number}", data, *settings)
                self.assertEqual(self.without_ids(self.data(f"store{number}")), self.without_ids(data))
                with open(f"store{number}", encoding="utf-8") as file:
                    contents = json.load(file)["o"].values()
                domains = {content["d"] for content in contents if content.keys() == {"d", "i", "s"}}
                told_domains = {domain for array in told["arrays"] for domain in array["domains"]}
                self.assertLessEqual(domains, told_domains)
        self.assertGreater(helped, 0)


class Joining(Case):
    """Copies that made objects on their own under one id."""

    def elements(self, chance, who, ids, depth=0):
        result = []
        for name in chance.sample("abcdefg", chance.randrange(4)):
            if name in ids:
                continue
            ids.add(name)
            element = {"_id": name, "t": f"{who}-{name}"}
            if depth < 2 and chance.random() < 0.5:
                element["in"] = self.elements(chance, who, ids, depth + 1)
            if chance.random() < 0.4:
                element["s"] = {"#df": 1, "o": {"t": f"{who}-{name}-o"} if chance.random() < 0.6 else {"v": 1}}
            result.append(element)
        return result

    def texts(self, value):
        if isinstance(value, dict):
            return {value["t"]} | self.texts(list(value.values())) if "t" in value else self.texts(list(value.values()))
        return set().union(*map(self.texts, value)) if isinstance(value, list) else set()

    def test_both_copies_meet_and_nothing_is_lost(self):
        print(f"SEED={SEED}")
        for seed in range(SEED * 100, SEED * 100 + 8):
            chance = random.Random(seed)
            settings = chance.choice([(), ("--fast-hash",), ("--flatten-objects",)])
            with self.subTest(seed=seed, settings=settings):
                for name in os.listdir():
                    os.unlink(name)
                if chance.random() < 0.5:
                    self.make("a", {"l": [], "t": "before"}, *settings)
                    shutil.copy("a", "b")
                for name in ("a", "b"):
                    self.make(name, {"l": self.elements(chance, name, set()), "m": [{"_id": f"own-{name}"}, {"_id": "x", "t": f"{name}-x"}], "t": name}, *settings)
                    shutil.copy(name, f"{name}0")
                texts = self.texts([self.data("a"), self.data("b")])
                self.run_it("merge", "a", "b0", code=UNMERGEABLE, error="\n  x  .m[1]\n")
                for target, source in (("a", "b0"), ("b", "a0"), ("a0", "a"), ("b0", "b")):  # now, or later
                    self.run_it("merge", target, source, "--join", "-q")
                for name in ("b", "a0", "b0"):
                    self.assertEqual(self.bytes_of(name), self.bytes_of("a"), name)
                self.run_it("verify", "a", "-q")
                data = self.data("a")
                conflicts = self.run_it("conflicts", "a", "--json")
                self.assertEqual({text for text in texts - self.texts(data) if json.dumps(text) not in conflicts}, set())
                self.make("a", data, *settings)
                self.assertEqual(self.data("a"), data)
                self.run_it("merge", "b", "a", "-q")
                self.assertEqual(self.bytes_of("b"), self.bytes_of("a"))

    def test_two_beginnings_become_one(self):
        self.make("a", trip("pack"))
        self.make("b", {"title": "Journey", "tasks": [{"_id": "t3", "what": "pay"}]})
        self.run_it("merge", "a", "b", code=UNMERGEABLE, error="--join")
        self.run_it("merge", "a", "b", "--join", error="1 document in conflict")
        self.assertEqual({task["_id"] for task in self.data("a")["tasks"]}, {"t1", "t2", "t3"})
        self.assertRegex(self.run_it("conflicts", "a"), "title +- +\"(Trip|Journey)\" +\"(Trip|Journey)\"")


class Terminal(Case):
    def on_terminal(self, *arguments, **env):
        try:
            screen, other = pty.openpty()
        except OSError as error:
            self.skipTest(f"terminals cannot be made here: {error}")
        with subprocess.Popen([ZENTADB, *arguments], stdout=other, stderr=other, env={"TERM": "xterm", **env}) as run:
            os.close(other)
            text = b""
            try:
                while piece := os.read(screen, 65536):
                    text += piece
            except OSError:  # the other side is closed
                pass
            run.wait()
        os.close(screen)
        return text

    def test_colours_only_on_a_terminal(self):
        self.make_conflict()
        self.assertIn(b"\x1b[", self.on_terminal("log", "laptop", "t1"))
        self.assertNotIn(b"\x1b[", self.on_terminal("log", "laptop", "t1", NO_COLOR="1"))
        self.assertNotIn(b"\x1b[", self.on_terminal("log", "laptop", "t1", "--color", "never"))
        self.assertNotIn("\x1b[", self.run_it("log", "laptop", "t1"))
        self.assertIn("\x1b[", self.run_it("--color", "always", "log", "laptop", "t1"))

    def test_what_takes_long_says_so(self):
        self.make("a", trip("pack"))
        with open("a.zentadb-lock", "w", encoding="utf-8") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            shown = self.on_terminal("merge", "a", "a", ZENTADB_LOCK_WAIT="3").decode()
            self.assertRegex(shown, "\r\x1b\\[Kwaiting for another process to finish with a, [1-3] s(\r\x1b\\[K.*)*\r\x1b\\[K.*zentadb: .*a: another process")
            runs = [subprocess.Popen([ZENTADB, "merge", "a", "a", *options], stderr=subprocess.PIPE, text=True,
                                     env={**os.environ, "ZENTADB_LOCK_WAIT": "8"}) for options in ((), ("-q",))]
            told = [run.communicate()[1].splitlines()[0] for run in runs]
        self.assertRegex(told[0], "^zentadb: waiting for another process to finish with a, [5-8] s$")
        self.assertEqual(told[1], "zentadb: a: another process is changing it")
        self.assertNotIn("\x1b[K", self.on_terminal("read", "a").decode())

    @unittest.skipUnless(shutil.which("bash"), "bash is not installed")
    def test_completion(self):
        ask = 'source <("$0" completion bash); COMP_WORDS=(zentadb "$@"); COMP_CWORD=$#; _zentadb; echo "${COMPREPLY[*]}"'
        for words, expected in ((("pu",), "push pull"), (("merge", "--n"), "--name"), (("merge", "a"), ""), (("nonsense", "--"), "")):
            done = subprocess.run(["bash", "-c", ask, ZENTADB, *words], capture_output=True, text=True, check=True)
            self.assertEqual(done.stdout.strip(), expected)
        self.assertIn("__fish_seen_subcommand_from merge' -l name\n", self.run_it("completion", "fish"))

    def test_says_in_words_why_a_merge_fails(self):
        self.make("a", trip("pack"))
        self.make("b", trip("made anew"))
        done = subprocess.run([ZENTADB, "merge", "a", "b"], capture_output=True, text=True, check=False)
        self.assertTrue(all(line.startswith(("zentadb", "Copies ", "  t1  ")) for line in done.stderr.splitlines()), done.stderr)

    def test_data_cannot_write_to_the_terminal(self):
        escape = "\x1b]0;gotcha\x07\x7f\x9b1m\u200f\u202e\u2066"
        unsafe = "[\x00-\x09\x0b\x0c\x0e-\x1f\x7f-\x9f\u061c\u200e\u200f\u2028-\u202e\u2066-\u2069]"
        for text in ("one", "two"):
            self.make("b" if text == "two" else "a", {"l": [{"_id": f"i{escape}", f"k{escape}": escape}]})
        shutil.copy("a", "b")
        self.make("a", {"l": [{"_id": f"i{escape}", f"k{escape}": f"a{escape}"}]})
        self.make("b", {"l": [{"_id": f"i{escape}", f"k{escape}": f"b{escape}"}]})
        self.run_it("merge", "a", "b")
        self.write("data", self.run_it("read", "a"))
        for arguments in (("docs", "a"), ("log", "a", f"i{escape}"), ("conflicts", "a"), ("arrays", "data"),
                          ("changes", "b", "a"), ("graph", "a", f"i{escape}")):
            self.assertNotRegex(self.run_it(*arguments), unsafe, arguments)
        # What is JSON stays JSON there, and keeps its bytes elsewhere.
        self.assertIn("\x9b1m\u200f\u202e\u2066", self.run_it("read", "a"))
        with open("raw", "wb") as file:
            file.write(self.bytes_of("a").replace("\u2066".encode(), b"\xe2\x81\xff\x9b"))
        for arguments in (("read", "a"), ("show", "a", f"i{escape}"), ("docs", "a", "--json"), ("read", "raw"), ("conflicts", "raw"),
                          ("diff", "raw", "a"), ("log", "raw", "missing\x9b")):
            shown = self.on_terminal(*arguments).decode()
            self.assertNotRegex(re.sub("\x1b\\[[0-9;]*m", "", shown), unsafe, arguments)
            if arguments[0] in ("read", "show") and "raw" not in arguments:
                self.assertEqual(json.loads(shown), json.loads(self.run_it(*arguments)))


@unittest.skipUnless(shutil.which("git"), "git is not installed")
class Git(Case):
    def git(self, *arguments, code=0):
        done = subprocess.run(["git", "-c", "user.name=a", "-c", "user.email=a@b", *arguments], capture_output=True, text=True,
                              check=False)
        self.assertEqual(done.returncode, code, done.stderr + done.stdout)
        return done.stdout + done.stderr

    def test_merge_driver(self):
        self.git("init", "-q", "-b", "main")
        self.git("config", "merge.zentadb.driver", f"{ZENTADB} merge --name %P %A %B")
        self.git("config", "diff.zentadb.textconv", f"{ZENTADB} read --pretty")
        self.write(".gitattributes", "*.sync merge=zentadb diff=zentadb\n")
        self.make("my.sync", trip("pack"))
        self.git("add", ".")
        self.git("commit", "-qm", "first")
        self.git("checkout", "-qb", "phone")
        self.make("my.sync", trip("pack", True))
        self.assertRegex(self.git("diff"), r'\n- +"done": false,\n\+ +"done": true,\n')
        self.git("commit", "-qam", "phone")
        self.git("checkout", "-q", "main")
        self.make("my.sync", trip("pack light"))
        self.git("commit", "-qam", "laptop")
        self.git("merge", "-q", "phone", "-m", "merged")
        self.assertEqual(self.data("my.sync"), {"_id": "root", **trip("pack light", True)})
        self.assertEqual(self.git("status", "--porcelain"), "")
        # git reports what cannot be merged, and the file does not change.
        self.git("checkout", "-qb", "stranger", "main~1")
        os.unlink("my.sync")
        self.make("my.sync", trip("made anew"))
        self.git("commit", "-qam", "stranger")
        before = self.bytes_of("my.sync")
        told = self.git("merge", "main", code=1)
        self.assertIn("CONFLICT", told)
        self.assertIn("zentadb: my.sync: both stores created 1 document independently", told)
        self.assertEqual(self.bytes_of("my.sync"), before)


if __name__ == "__main__":
    unittest.main()
