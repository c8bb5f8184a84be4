"""A CouchDB-compatible server for tests: pouchdb-server from npm behind a proxy that watches, disturbs and survives it."""

import contextlib
import hashlib
import http.client
import http.server
import json
import pathlib
import shutil
import socket
import ssl
import subprocess
import threading
import time

HERE = pathlib.Path(__file__).parent
LOOPBACK = "127.0.0.1"
NO_REGISTRY = ("ENOTFOUND", "EAI_AGAIN", "ECONNREFUSED", "ECONNRESET", "ETIMEDOUT", "ENETUNREACH")
INSTALL_SECONDS = 240
# The server ends when its standard input does, and so with the test, however that ends.
END_WITH_TEST = "process.stdin.on('close', () => process.exit()).resume();\n"


class Unavailable(Exception):
    """The server cannot be had on this machine."""


def install(directory):
    """Installs what the lock file names, unless it is there already."""
    if not shutil.which("npm") or not shutil.which("node"):
        raise Unavailable("there is no npm")
    lock = (HERE / "package-lock.json").read_bytes()
    done = directory / "installed"
    if done.exists() and done.read_text() == hashlib.sha256(lock).hexdigest():
        return
    shutil.rmtree(directory, ignore_errors=True)
    directory.mkdir(parents=True)
    for name in ("package.json", "package-lock.json"):
        shutil.copy(HERE / name, directory)
    command = ["npm", "ci", "--ignore-scripts", "--no-audit", "--no-fund", "--fetch-retries=1"]
    try:
        run = subprocess.run(command, cwd=directory, capture_output=True, text=True, timeout=INSTALL_SECONDS)
    except subprocess.TimeoutExpired as slow:
        raise Unavailable(f"npm is not done after {INSTALL_SECONDS} s") from slow
    if run.returncode != 0:
        if any(word in run.stderr + run.stdout for word in NO_REGISTRY):
            raise Unavailable("npm reaches no registry")
        raise RuntimeError(run.stdout + run.stderr)
    done.write_text(hashlib.sha256(lock).hexdigest())


def free_port():
    with socket.socket() as probe:
        probe.bind((LOOPBACK, 0))
        return probe.getsockname()[1]


class Server:
    """In memory, so that killing it loses all; or in a directory, where it finds its data again."""

    def __init__(self, installed, work, data=None):
        self.installed, self.work, self.data = installed, work, data
        self.process = None
        self.start()

    def start(self):
        self.work.mkdir(parents=True, exist_ok=True)
        # Somebody else may take the port before the server does.
        if not any(self.has_started() for _ in range(3)):
            raise RuntimeError((self.work / "server.out").read_text())

    def has_started(self):
        self.port = free_port()
        where = ["--in-memory"] if self.data is None else ["--dir", str(self.data)]
        program = self.installed / "node_modules/pouchdb-server/bin/pouchdb-server"
        preload = self.work / "end_with_test.js"
        preload.write_text(END_WITH_TEST)
        with open(self.work / "server.out", "a") as out:
            self.process = subprocess.Popen(
                ["node", "--require", str(preload), str(program), "--host", LOOPBACK, "--port", str(self.port),
                 "--no-stdout-logs", *where],
                cwd=self.work, stdin=subprocess.PIPE, stdout=out, stderr=out)
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline and self.process.poll() is None:
            try:
                if self.request("GET", "/")[0] == 200:
                    return self.process.poll() is None
            except OSError:
                time.sleep(0.05)
        self.kill()
        return False

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.process.stdin.close()

    def request(self, method, path, body=None):
        connection = http.client.HTTPConnection(LOOPBACK, self.port, timeout=60)
        try:
            text = body if body is None or isinstance(body, bytes) else json.dumps(body)
            connection.request(method, path, text, {"Content-Type": "application/json"})
            answer = connection.getresponse()
            return answer.status, answer.read()
        finally:
            connection.close()

    def ask(self, method, path, body=None):
        status, answer = self.request(method, path, body)
        assert status < 300, (method, path, status, answer)
        return json.loads(answer)


class Proxy(http.server.ThreadingHTTPServer):
    """The server's address for the program under test: stays when the server goes, and knows what was asked."""

    daemon_threads = True

    def __init__(self, server, certificate=None):
        self.server_behind = server
        self.requests = []  # (method, what, body)
        self.credentials = set()
        self.disturb = None  # (method, what) -> None to pass on, "cut", "drip", a status, or an answer
        self.largest = 1 << 40  # body that is not answered with 413
        super().__init__((LOOPBACK, 0), Handler)
        self.scheme = "https" if certificate else "http"
        if certificate:
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            context.load_cert_chain(certificate)
            self.socket = context.wrap_socket(self.socket, server_side=True)
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def handle_error(self, *_):
        pass  # whoever asked is gone

    def url(self, database):
        return f"{self.scheme}://{LOOPBACK}:{self.server_port}/{database}"

    def asked(self, what):
        return [json.loads(body) if body else None for _, name, body in self.requests if name == what]


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    disable_nagle_algorithm = True  # or each answer waits 40 ms for the client to confirm its head

    def log_message(self, *_):
        pass

    def pass_on(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        what = self.path.partition("?")[0].rpartition("/")[2]
        disturbance = self.server.disturb and self.server.disturb(self.command, what)
        self.server.credentials.add(self.headers.get("Authorization"))
        if len(body) > self.server.largest:
            disturbance = 413
        if disturbance == "drip":  # a byte now and then, without an end
            with contextlib.suppress(OSError):
                self.wfile.write(b"HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n")
                for _ in range(100):
                    self.wfile.write(b" ")
                    time.sleep(0.2)
            self.close_connection = True
            return
        if disturbance == "cut":
            self.close_connection = True
            return
        try:
            status, answer = (200, disturbance) if isinstance(disturbance, bytes) else (
                disturbance, b"{}") if disturbance else self.server.server_behind.request(
                self.command, self.path, body or None)
        except (OSError, http.client.HTTPException):
            status, answer = 502, b"{}"
        if status < 500:
            self.server.requests.append((self.command, what, body))
        self.send_response(status)
        self.send_header("Content-Length", str(len(answer)))
        self.end_headers()
        self.wfile.write(answer)

    do_GET = do_PUT = do_POST = pass_on
