"""zentadb push and pull against a real server: exchange_test.py <zentadb> <directory for the server> [case]...

Answers 77, skipped, where the server cannot be had.
"""

import contextlib
import json
import os
import pathlib
import pty
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import server as servers

TOOL = pathlib.Path(sys.argv[1]).resolve()
INSTALLED = pathlib.Path(sys.argv[2]).resolve()


class Copy:
    """A store of the data, and what is done with it."""

    def __init__(self, path, url):
        self.path, self.url = path, url

    def run(self, *arguments, expect=0, data=None, env=(), all_told=False):
        run = subprocess.run([TOOL, *arguments], capture_output=True, errors="replace", timeout=300,
                             input=None if data is None else json.dumps(data), env={**os.environ, **dict(env)})
        assert run.returncode == expect, (arguments, run.returncode, run.stdout, run.stderr)
        return run.stdout + run.stderr if all_told else run.stdout if expect == 0 else run.stderr

    def update(self, data):
        self.run("update", self.path, "-", data=data)

    def read(self):
        return json.loads(self.run("read", self.path))

    def push(self, *options, **more):
        return self.exchange("push", options, **more)

    def pull(self, *options, **more):
        return self.exchange("pull", options, **more)

    def exchange(self, command, options, expect=0, **more):
        url = more.pop("url", self.url)
        out = self.run(command, self.path, url, "--json", *options, expect=expect, **more)
        return json.loads(out)["revisions"] if expect == 0 else out

    def sync(self):
        return json.loads(pathlib.Path(self.path).read_text())

    def leaves(self, document):
        def ends(history, generation):
            for entry in history:
                if isinstance(entry, str):
                    generation, last = generation + 1, entry
                    continue
                for branch in entry:
                    yield from ends([branch] if isinstance(branch, str) else branch, generation)
                return
            yield f"{generation}-{last}"
        return sorted(ends(self.sync()["d"][document], 0))

    def edit(self, **texts):
        """Changes the text of elements, and takes away those whose text is None."""
        data = self.read()
        data["list"] = [{**each, "text": texts.get(each["_id"], each["text"])} for each in data["list"]
                        if texts.get(each["_id"], "") is not None]
        self.update(data)

    def texts(self):
        return {each["_id"]: each["text"] for each in self.read()["list"]}


def listing(**texts):
    return {"title": "Trip", "list": [{"_id": key, "text": text} for key, text in texts.items()]}


def same(*copies):
    first = copies[0].sync()
    for other in copies[1:]:
        assert other.sync()["d"] == first["d"] and other.sync()["r"] == first["r"], (first, other.sync())
        assert other.read() == copies[0].read()


def nothing_left(world, *copies):
    """Whoever exchanges again sends and gets nothing; who does so once more, does not even compare."""
    for _ in range(2):
        world.proxy.requests.clear()
        for copy in copies:
            assert copy.push() == 0 and copy.pull() == 0
    asked = {what for _, what, _ in world.proxy.requests}
    assert not asked & {"_bulk_docs", "_bulk_get", "_revs_diff"}, asked
    assert not any(method == "PUT" for method, _, _ in world.proxy.requests)


class World:
    """A server, and copies of the data of one case that use a database of it."""

    def __init__(self, server, proxy, work, name):
        self.server, self.proxy, self.work, self.name = server, proxy, work / name, name
        self.work.mkdir()

    def copy(self, name):
        return Copy(str(self.work / name), self.proxy.url(self.name))

    def ask(self, method, path, body=None):
        return self.server.ask(method, f"/{self.name}/{path}", body)

    def pair(self, **texts):
        a, b = self.copy("a.sync"), self.copy("b.sync")
        a.update(listing(**texts))
        assert a.push("--create") == len(a.sync()["d"])
        assert b.pull() == len(a.sync()["d"])
        same(a, b)
        return a, b


def case_round_trip(world):
    a = world.copy("a.sync")
    a.update({"a b/ü\"\\,": "\u2028\n\"", "n": [0.1, 1e21, 123456789012, -5, None], "#df": 1, "o": {"p": {"q": "é😀"}},
              "list": [{"_id": "1/ä?&+ %", "parts": [{"_id": "deep", "x": "!x"}]}, {"_id": "2", "#nf": 1, "s": "Ox"}],
              "empty": []})
    assert "--create" in a.push(expect=9)
    sent = a.push("--create", "--batch", "2")
    assert sent == len(a.sync()["d"])
    order = [doc["_id"] for body in world.proxy.asked("_bulk_docs") for doc in body["docs"]]
    assert order.index("1/ä?&+ %") < order.index("deep") and order.index("root") < order.index("2")
    b = world.copy("b.sync")
    assert b.pull("--batch", "2") == sent
    same(a, b)
    assert a.sync() == b.sync()
    nothing_left(world, a, b)
    # What is deleted here is deleted there, and everywhere.
    data = b.read()
    data["list"].pop(0)
    b.update(data)
    assert b.push() == 3 and a.pull() == 3
    same(a, b)
    assert world.server.request("GET", f"/{world.name}/deep")[0] == 404
    nothing_left(world, a, b)


def case_conflicts(world):
    a, b = world.pair(x="one", y="one", z="one")
    a.edit(x="a", y="a", z=None)
    b.edit(x="b", y="b", z="b")
    a.push(), b.push()
    # Only older lists know the place of what one removed and the other changed; a new copy shows it all the same.
    new = world.copy("new.sync")
    new.pull()
    a.pull(), b.pull()
    same(a, b)
    assert "z" in a.texts() and new.texts() == a.texts(), (new.texts(), a.texts())
    assert len(a.leaves("x")) == len(a.leaves("y")) == len(a.leaves("z")) == 2
    assert len(world.ask("GET", "x?conflicts=true")["_conflicts"]) == 1
    # Two copies resolve two conflicts, one each, and the server has none any more.
    def resolve(copy, document):
        text = copy.texts()[document]
        copy.run("resolve", copy.path, document)
        assert copy.texts()[document] == text
    resolve(a, "x"), resolve(b, "y")
    a.push(), b.push(), a.pull(), b.pull()
    same(a, b)
    for document in "xy":
        assert "_conflicts" not in world.ask("GET", document + "?conflicts=true")
        assert world.ask("GET", document)["text"] == "!" + a.texts()[document]
    # A third copy gets it all: winners, what was closed, what is still open.
    c = world.copy("c.sync")
    c.pull()
    same(a, c)
    nothing_left(world, a, b, c)


def case_a_fresh_copy_merges_lists_as_others_do(world):
    a, b = world.pair(u="one", v="one", w="one", x="one", y="one", z="one")
    for copy, order in ((a, "zuvwxy"), (b, "vwxuyz")):
        data = copy.read()
        data["list"] = sorted(data["list"], key=lambda each: order.index(each["_id"]))
        copy.update(data)
    assert a.push() == 1 and b.push() == 1
    fresh = world.copy("c.sync")
    fresh.pull()
    lists = [key for key in fresh.sync()["d"] if key.startswith("ord-")]
    began = fresh.sync()["d"][lists[0]][0].partition("_")[0]
    assert len(lists) == 1 and began in fresh.sync()["o"]
    a.pull(), b.pull()
    orders = {"".join(each["_id"] for each in copy.read()["list"]) for copy in (a, b, fresh)}
    assert len(orders) == 1, orders
    same(a, b, fresh)


def case_a_fresh_copy_takes_a_list_that_two_copies_began(world):
    a, b = world.pair(one="one")
    a.update({**a.read(), "more": []})
    a.push(), b.pull()
    for copy, element in ((a, "x"), (b, "y")):
        copy.update({**copy.read(), "more": [{"_id": element, "text": "more"}]})
    assert a.push() > 0 and b.push() > 0
    fresh = world.copy("c.sync")
    fresh.pull()
    assert {each["_id"] for each in fresh.read()["more"]} == {"x", "y"}
    a.pull(), b.pull()
    same(a, b, fresh)


def case_changed_on_the_server(world):
    a, b = world.pair(edited="one", removed="one", resolved="one", both="one")
    a.edit(resolved="a", both="a")
    b.edit(resolved="b")
    a.push(), b.push()

    def change(document, **members):
        now = world.ask("GET", document)
        return world.ask("PUT", document, {**now, **members})
    edited = change("edited", text="!there")["rev"]
    change("edited", text="!there again")
    change("both", text="!there")
    change("removed", _deleted=True)
    # CouchDB's way to resolve a conflict is to delete what loses; nothing else of the document goes.
    shown = world.ask("GET", "resolved?conflicts=true")
    world.ask("DELETE", f"resolved?rev={shown['_conflicts'][0]}")
    a.edit(both="a again")
    for copy in (a, b, a, b):
        copy.pull(), copy.push()
    same(a, b)
    texts = a.texts()
    assert texts == {"edited": "there again", "resolved": shown["text"][1:], "both": texts["both"]}, texts
    assert texts["both"] in ("there", "a again") and len(a.leaves("both")) == 2
    assert edited.replace("2-", "") in json.dumps(a.sync()["d"]["edited"])
    # A change made here goes on after the server's own revision.
    a.edit(edited="here")
    assert a.push() > 0
    path = world.ask("GET", "edited?revs=true&conflicts=true")
    assert path["_revisions"]["start"] == 4 and edited[2:] in path["_revisions"]["ids"] and "_conflicts" not in path
    b.pull()
    same(a, b)
    nothing_left(world, a, b)


def case_what_is_foreign(world):
    a, b = world.pair(x="one", y="one")
    world.ask("PUT", "_design/views", {"views": {}})
    world.ask("PUT", "somebody-elses", {"name": "Ox"})
    x = world.ask("GET", "x")
    world.ask("PUT", "x", {**x, "text": "!two", "_attachments": {"a.txt": {"content_type": "text/plain", "data": "YQ=="}}})
    told = a.run("pull", a.path, a.url, all_told=True)
    assert "somebody-elses" in told and "attachments, which" in told, told
    assert a.texts() == {"x": "two", "y": "one"} and "_attachments" not in json.dumps(a.sync())
    a.edit(y="two")
    assert a.push() == 2  # x as well: an update takes over what came from the server, under its own name
    assert world.ask("GET", "somebody-elses")["name"] == "Ox"
    now = world.ask("GET", "x")
    assert now["_rev"].startswith("3-") and "_attachments" in now
    # What is not written as contents are would make the data unreadable.
    world.ask("PUT", "y", {**world.ask("GET", "y"), "text": "Oslo"})
    before = a.sync()
    assert "Oslo"[1:] in a.pull(expect=5) and a.sync() == before
    world.ask("PUT", "y", {**world.ask("GET", "y"), "text": "!Oslo"})
    a.pull()
    assert a.texts()["y"] == "Oslo"
    # Nor must an element take the id of another document.
    a.update(listing(x="two", y="Oslo", **{"somebody-elses": "mine"}))
    assert "another document" in a.push(expect=5)


def case_forged_on_the_server(world):
    a, b = world.pair(x="one")
    shutil.copy(a.path, a.path + ".plain")
    a.edit(x="two")
    name = a.leaves("x")[0][2:]
    shutil.copy(a.path + ".plain", a.path)
    world.ask("POST", "_bulk_docs", {"new_edits": False, "docs": [
        {"_id": "x", "text": "!forged", "_revisions": {"start": 2, "ids": [name, a.sync()["d"]["x"][0]]}}]})
    before = b.sync()
    assert "1 content does not hash to its name: x 2-" in b.pull(expect=4) and b.sync() == before
    assert b.pull("--force") == 1 and b.texts() == {"x": "forged"}


def case_refusals(world):
    a, _ = world.pair(x="one")
    other = world.copy("other.sync")
    other.update({**listing(x="other"), "title": "Other"})
    assert "other data" in other.push(expect=5) and "other data" in other.pull(expect=5)
    world.proxy.requests.clear()
    for data in (listing(_x="one"), listing(**{"\udcff": "one"}), {"_rev": "1-x", "list": []}):
        bad = world.copy("bad.sync")
        pathlib.Path(bad.path).unlink(missing_ok=True)
        bad.update(data)
        assert "Nothing was sent" in bad.push("--create", url=bad.url + "-bad", expect=3)
    assert not world.proxy.asked("_bulk_docs")
    for status, expect in ((401, 9), (413, 9), (301, 9), (503, 8)):
        a.edit(x=str(status))
        world.proxy.disturb = lambda method, what: status if what == "_bulk_docs" else None
        a.push("--retries", "1", expect=expect)
        world.proxy.disturb = None
    for url, expect in (("ftp://x/y", 2), ("http://127.0.0.1:1/x", 8), (world.proxy.url(""), 2), ("nonsense", 2)):
        a.push("--retries", "0", url=url, expect=expect)
    # Credentials are sent, but no message contains them.
    url = a.url.replace("://", "://ann:s%40crt@")
    world.proxy.disturb = lambda method, what: 401
    assert "s%40crt" not in a.push(url=url, expect=9)
    world.proxy.disturb = None
    for arguments in ((url, a.path), (a.path, a.path, url)):
        assert "s%40crt" not in a.run("push", *arguments, expect=2)
    assert a.push() == 1


def case_a_server_that_takes_or_gives_little(world):
    a, b = world.pair(x="one", y="one", z="one")
    a.edit(x="a", y="a", z="a")
    world.proxy.requests.clear()
    world.proxy.largest = 500  # an answer of 413 has what was asked halved, down to one document
    assert a.push() == 3
    world.proxy.largest = 250
    c = world.copy("c.sync")
    c.pull("--batch", "100")
    same(a, c)
    for what in ("_bulk_docs", "_revs_diff", "_bulk_get"):
        sizes = [len(body) for _, name, body in world.proxy.requests if name == what]
        assert max(sizes) > 250 and len(sizes) > 2, (what, sizes)
    a.edit(x="a text" * 100)
    assert "larger than the server allows" in a.push(expect=9)
    world.proxy.largest = 1 << 40
    # What it cannot give out now is asked for again.
    world.proxy.disturb = lambda method, what: what == "_bulk_get" and json.dumps(
        {"results": [{"id": "x", "docs": [{"error": {"id": "x", "error": "timeout", "reason": "busy"}}]}]}).encode()
    assert "timeout" in b.pull(expect=8)
    world.proxy.disturb = None
    a.push(), b.pull()
    same(a, b)
    # An invalid response does not count as an empty one, and what was not asked for does no harm.
    a.edit(x="b")
    first = "1-" + a.sync()["d"]["x"][0]
    all_missing = {"_revs_diff": {"x": {"missing": [*a.leaves("x"), first, first.partition("_")[0]]}},
                   "_all_docs": {"rows": [{"id": "x", "value": {"rev": "1-a"}}]}}
    given = [{"results": [{"docs": [{"ok": {"_id": id, "_rev": "1-a", "_revisions": {"start": len(ids), "ids": ids}}}]}]}
             for id, ids in (("x", []), ("nobody", ["a"]))]
    change = {"id": "y", "seq": 1, "changes": [{"rev": "9-a"}]}
    for exchange, answers, error in (
            (a.push, {"_revs_diff": []}, "not return an object"), (a.push, {"_bulk_docs": None}, "not return an array"),
            (a.push, {"_bulk_docs": [{"id": "z", "error": "e"}]}, "was not sent"),
            (a.push, {**all_missing, "_bulk_get": given[0], "_bulk_docs": {}}, "not return an array"),
            (a.push, {**all_missing, "_bulk_get": given[1]}, "not requested"),
            (b.pull, {"_changes": {"results": None, "last_seq": 1}}, "not an array"),
            (b.pull, {"_changes": {"results": [change], "last_seq": 1}, "_bulk_get": {"results": []}}, "omits revisions"),
            (lambda **more: b.pull("--batch", "1", "--afresh", **more),
             {"_changes": {"results": [{**change, "id": "_design/d"}], "last_seq": 1}}, "the same changes again")):
        world.proxy.disturb = lambda method, what: what in answers and json.dumps(answers[what]).encode()
        assert error in exchange(expect=8), answers
    world.proxy.disturb = lambda method, what: what == "_bulk_docs" and b'[{"id": "x", "error": "\\u001b[1m"}]'
    assert "1 document, such as \"x\": \\x1b[1m\n" in a.push(expect=9)
    world.proxy.disturb = None
    assert a.push() == 1 and b.pull() == 1
    same(a, b)


def case_a_history_that_the_server_cuts_short(world):
    a = world.copy("a.sync")
    a.update(listing(x="one", y="one"))
    sync = a.sync()
    names = [f"{number:064x}" for number in range(1100)]  # the server keeps 1000
    sync["d"]["x"] = [f"{name}_{before[:7]}" for name, before in zip(names, ["first", *names])]
    sync["o"][names[-1]] = {"text": "!last"}
    pathlib.Path(a.path).write_text(json.dumps(sync))
    world.proxy.disturb = lambda method, what: what == "_revs_limit" and b"1000"
    assert "/_revs_limit -d 11000" in a.push("--create", expect=9)
    world.proxy.disturb = None  # it does not report this
    a.push()
    new = world.copy("new.sync")
    assert "cut short" in new.run("pull", new.path, new.url, "-q", all_told=True)
    assert new.texts() == {"y": "one"}
    # Who has the beginning is in no need of it.
    world.ask("PUT", "x", {**world.ask("GET", "x"), "text": "!there"})
    assert a.pull() == 1 and a.texts() == {"x": "there", "y": "one"} and len(a.sync()["d"]["x"]) == 1101


def case_a_server_that_drips(world):
    a, b = world.pair(x="one")
    a.edit(x="two")
    for exchange, disturbance in ((a.push, "drip"), (b.pull, "drip"), (a.push, 503)):
        world.proxy.disturb = lambda method, what: disturbance
        begin = time.monotonic()
        assert "Tried " in exchange("--timeout", "2", "--retries", "50", expect=8)
        assert time.monotonic() - begin < 5
    world.proxy.disturb = None
    assert a.push() == 1 and b.pull() == 1


def case_encrypted_and_with_credentials(world):
    a, key = world.copy("a.sync"), str(world.work / "server.pem")
    a.update(listing(x="one"))
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-subj", "/CN=test",
                    "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out", key + "c"], check=True, capture_output=True)
    with open(key, "a", encoding="ascii") as file:
        file.write(pathlib.Path(key + "c").read_text(encoding="ascii"))
    proxy = servers.Proxy(world.server, key)
    url = proxy.url(world.name)
    trust = {"CURL_CA_BUNDLE": key + "c"}
    assert "certificate" in a.push("--create", url=url, expect=8)
    assert "certificate subject name" in a.push(url=url.replace("127.0.0.1", "localhost"), expect=8, env=trust)
    assert not proxy.credentials  # nothing was asked
    (world.work / ".netrc").write_text("machine 127.0.0.1 login net password work\n")
    home = {**trust, "HOME": str(world.work)}
    for env, user, expected in ((trust, "", None), ({**trust, "ZENTADB_TOKEN": "t0k"}, "", "Bearer t0k"),
                                ({**trust, "ZENTADB_USER": "ann", "ZENTADB_PASSWORD": "s@crt"}, "", "Basic YW5uOnNAY3J0"),
                                (trust, "ann:s%40crt@", "Basic YW5uOnNAY3J0"), (home, "", "Basic bmV0Ondvcms=")):
        proxy.credentials.clear()
        a.push("--create", url=url.replace("127", user + "127"), env=env)
        assert proxy.credentials == {expected}, (proxy.credentials, expected)
    assert "unencrypted" in a.push("--retries", "0", url="http://ann:pw@0.0.0.0:1/x", expect=8)


def case_on_a_terminal(world):
    a, b = world.copy("a.sync"), world.copy("b.sync")
    a.update(listing(x="one", y="one"))
    for arguments, shown in ((("push", a.path, "--create"), ("Comparing [", "Sending [")), (("pull", b.path), ("Receiving ",))):
        screen, other = pty.openpty()
        subprocess.run([TOOL, *arguments, a.url, "--batch", "1"], stdout=subprocess.DEVNULL, stderr=other, check=True)
        os.close(other)
        read = b""
        with contextlib.suppress(OSError):  # all of it was read
            while True:
                read += os.read(screen, 1 << 16)
        os.close(screen)
        text = read.decode()
        assert all("\r\x1b[K" + each in text for each in shown) and text.endswith("\r\x1b[K"), text


def case_a_server_made_anew(world):
    a, b = world.pair(x="one", y="one")
    b.edit(y="b")
    b.push()
    world.ask("DELETE", "")
    assert "--create" in a.pull(expect=9)
    assert a.push("--create") == len(a.sync()["d"])
    a.edit(x="a")
    a.push()
    # Copies that remember the old server see all of the new one, and bring what it lost.
    b.pull(), b.push(), a.pull()
    same(a, b)
    assert a.texts() == {"x": "a", "y": "b"}
    nothing_left(world, a, b)
    # One that was brought back from a backup too, even if another copy has gone on there from the same checkpoint.
    c = world.copy("c.sync")
    for name in os.listdir(world.work):
        if name.startswith("a.sync"):
            shutil.copy(world.work / name, world.work / name.replace("a.sync", "c.sync"))
    notes = {f"_local/{what}" for _, what, _ in world.proxy.requests if what.startswith("zentadb")}
    notes = {note: text for note in notes if "error" not in (text := json.loads(world.server.request("GET", f"/{world.name}/{note}")[1]))}
    docs = world.ask("POST", "_bulk_get?revs=true", {"docs": [{"id": each} for each in a.sync()["d"]]})["results"]

    def bring_back(more_changes):
        world.ask("DELETE", "")
        world.ask("PUT", "")
        world.ask("POST", "_bulk_docs", {"docs": [each["ok"] for doc in docs for each in doc["docs"]], "new_edits": False})
        for note, text in notes.items():
            world.ask("PUT", note, {key: value for key, value in text.items() if key != "_rev"})
        world.ask("POST", "_bulk_docs", {"docs": [{"_id": f"other{number}"} for number in range(more_changes)]})
    for number, more_changes in enumerate((20, 0)):
        a.edit(x=f"a {number}")
        assert a.push() == 1
        bring_back(more_changes)
        c.edit(y=f"c {number}")
        assert c.push() > 0 and a.push() > 0 and world.ask("GET", "x")["text"] == f"!a {number}"
    c.pull(), a.pull()
    same(a, c)
    assert a.texts() == {"x": "a 1", "y": "c 1"}


def case_a_store_from_a_backup(world):
    a, b = world.pair(x="one", y="one")
    shutil.copy(a.path, a.path + ".backup")
    b.edit(x="b")
    b.push(), a.pull()
    shutil.copy(a.path + ".backup", a.path)
    assert a.texts()["x"] == "one" and a.pull() == 1
    same(a, b)
    # An interrupted pull left out what the store had by then.
    c = world.copy("c.sync")
    shutil.copy(a.path, c.path)
    world.proxy.requests.clear()
    world.proxy.disturb = lambda method, what: 503 if what == "_changes" and len(world.proxy.asked("_changes")) > 3 else None
    c.pull("--batch", "1", "--retries", "0", expect=8)
    world.proxy.disturb = None
    shutil.copy(a.path + ".backup", c.path)
    assert c.pull("--batch", "1") == 1
    same(a, c)


def case_many_documents(world):
    count, batch = 10_000, 500
    work = world.work / "server"
    server = servers.Server(INSTALLED, work, work / "data")
    world.server, world.proxy = server, servers.Proxy(server)
    (work / "data").mkdir(exist_ok=True)
    a, b = world.copy("a.sync"), world.copy("b.sync")
    a.update({"list": [{"_id": f"e{number}", "text": f"text {number}"} for number in range(count)]})
    documents = len(a.sync()["d"])
    seen = []

    def disturb(method, what):
        seen.append(what)
        if what == "_bulk_docs" and seen.count(what) == 8:
            server.kill()
            server.start()  # while the program waits for its answer
            return "cut"
        return {11: 503, 13: "cut"}.get(seen.count("_bulk_docs")) if what == "_bulk_docs" else None
    world.proxy.disturb = disturb
    sent = a.push("--create", "--batch", str(batch))
    assert sent == documents and max(len(body["docs"]) for body in world.proxy.asked("_bulk_docs")) <= batch
    assert server.ask("GET", f"/{world.name}")["doc_count"] == documents

    # A pull that is killed goes on where it was; the store is not touched before all is there.
    world.proxy.requests.clear()
    process = None
    world.proxy.disturb = lambda method, what: process.kill() if len(world.proxy.asked("_bulk_get")) == 9 else None
    process = subprocess.Popen([TOOL, "pull", b.path, b.url, "--batch", str(batch)], stdout=subprocess.DEVNULL)
    assert process.wait() == -signal.SIGKILL
    world.proxy.disturb = None
    assert not pathlib.Path(b.path).exists()
    assert b.pull("--batch", str(batch)) == documents
    got = sum(len(body["docs"]) for body in world.proxy.asked("_bulk_get"))
    assert documents <= got <= documents + batch, got
    same(a, b)
    nothing_left(world, a, b)
    assert not [name for name in os.listdir(world.work) if name.endswith("-pulled")]
    # A small change is a small exchange.
    b.edit(e77="changed")
    b.push()
    assert sum(len(revs) for revs in world.proxy.asked("_revs_diff")) == 1
    a.pull()
    same(a, b)
    server.kill()


def main():
    try:
        servers.install(INSTALLED)
    except servers.Unavailable as reason:
        print(f"skipped: {reason}")
        return 77
    wanted = sys.argv[3:]
    with tempfile.TemporaryDirectory() as work:
        work = pathlib.Path(work)
        server = servers.Server(INSTALLED, work / "server")
        try:
            for name, case in list(globals().items()):
                if not name.startswith("case_") or (wanted and name[5:] not in wanted):
                    continue
                begin = time.monotonic()
                case(World(server, servers.Proxy(server), work, name[5:].replace("_", "-")))
                print(f"{name[5:]}: {time.monotonic() - begin:.1f} s", flush=True)
        finally:
            server.kill()
    return 0


if __name__ == "__main__":
    sys.exit(main())
