#!/usr/bin/env python3
"""zant-webapid behind nginx on a free loopback port, driven with curl.

Covers the nginx routes (links, resources, refusals), the variables handed
to modules, sign-in through the server, HTTP Basic names, a crashing and a
hanging worker (every other request still answered), and the graceful stop
on SIGTERM and SIGINT.
"""
import argparse
import hashlib
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

ECHO = "/webapi/entry.cgi?api=ZANT.HostTest&version=1&method="
JSON_TYPE = 'application/json; charset="UTF-8"'


class Response:
    def __init__(self, raw):
        head, _, self.body = raw.partition(b"\r\n\r\n")
        lines = head.decode("latin-1").split("\r\n")
        self.status = int(lines[0].split()[1]) if lines and lines[0] else 0
        self.headers = [tuple(part.strip() for part in line.split(":", 1)) for line in lines[1:] if ":" in line]
        self.text = self.body.decode("utf-8", "replace")

    def header(self, name):
        values = [v for k, v in self.headers if k.lower() == name.lower()]
        return values[-1] if values else None

    def json(self):
        return json.loads(self.text)


class Stack:
    def __init__(self, args):
        self.args = args
        self.root = tempfile.mkdtemp(prefix="host-integration-")
        os.chmod(self.root, 0o755)  # the service user must reach it
        self.run_dir = os.path.join(self.root, "run")
        self.socket = os.path.join(self.run_dir, "zant-webapid.sock")
        self.daemon = None
        self.nginx = None
        subprocess.run([os.path.join(args.source, "scripts/mkroot"), "--with-fixture", "--stage", args.stage,
                        self.root], check=True, stdout=subprocess.DEVNULL)
        shutil.copy(args.test_module, self.path("/usr/zant/lib/webapi/"))
        self.write("/usr/zant/etc/fixture/answers.json", json.dumps({"answers": [
            {"api": "ZANT.BrindlexPlyth.Shard", "version": 1, "method": "get",
             "params": {"sharing_link": "AbC", "link_id": "P1"}, "result": {"success": True, "data": {"route": "s2"}}},
            {"api": "ZANT.BrindlexPlyth.Shard", "version": 1, "method": "get",
             "params": {"sharing_link": "AbC"}, "result": {"success": True, "data": {"route": "s1"}}},
            {"api": "ZANT.BrindlexPlyth.Shard", "version": 1, "method": "get",
             "params": {"link_id": "P1"}, "result": {"success": True, "data": {"route": "f"}}},
            {"api": "ZANT.BrindlexPlyth.Shard", "version": 1, "method": "get",
             "params": {"link_id": "123"}, "result": {"success": True, "data": {"route": "digits"}}},
        ]}))
        salt = "00112233445566778899aabbccddeeff"
        digest = hashlib.pbkdf2_hmac("sha256", b"secret", bytes.fromhex(salt), 100000).hex()
        self.write("/usr/zant/etc/users", "alice:1026:100:Alice:/home/alice::pbkdf2-sha256$100000$%s$%s\n"
                   "bob:1027:100:Bob:/home/bob::\n" % (salt, digest))
        os.chmod(self.path("/usr/zant/etc/users"), 0o600)
        self.write("/usr/zant/zantman/hello.txt", "hello")
        self.write("/usr/zant/zantman/webman/x.js", "var x;")
        self.write("/usr/zant/zantman/.hidden", "secret")
        self.write("/secret.txt", "outside the web root")
        htpasswd = os.path.join(self.root, "htpasswd")
        with open(htpasswd, "w") as f:
            f.write("bob:{PLAIN}pw\n")
        self.port = free_port()
        conf = subprocess.run([os.path.join(args.source, "deploy/render-nginx-conf"), "--root", self.root,
                               "--port", str(self.port), "--auth-basic", htpasswd],
                              check=True, capture_output=True, text=True).stdout
        self.conf = os.path.join(self.run_dir, "nginx.conf")
        os.makedirs(os.path.join(self.run_dir, "nginx"), exist_ok=True)
        with open(self.conf, "w") as f:
            f.write(conf)

    def path(self, appliance_path):
        return self.root + appliance_path

    def write(self, appliance_path, content):
        os.makedirs(os.path.dirname(self.path(appliance_path)), exist_ok=True)
        with open(self.path(appliance_path), "w") as f:
            f.write(content)

    def read(self, appliance_path):
        try:
            with open(self.path(appliance_path)) as f:
                return f.read()
        except FileNotFoundError:
            return ""

    def start_daemon(self, workers=2, timeout=3):
        self.daemon_log = open(os.path.join(self.root, "webapid.stderr"), "ab")
        self.daemon = subprocess.Popen(
            [self.path("/usr/zant/bin/zant-webapid"), "--root", self.root, "--socket", self.socket,
             "--workers", str(workers), "--timeout", str(timeout)],
            cwd=self.root, stdout=self.daemon_log, stderr=self.daemon_log)
        wait_for(lambda: unix_answers(self.socket), "zant-webapid socket")

    def start_nginx(self):
        self.nginx = subprocess.Popen([self.args.nginx, "-p", os.path.join(self.run_dir, "nginx"), "-c", self.conf,
                                       "-e", "stderr"], stderr=subprocess.DEVNULL)
        wait_for(lambda: tcp_answers(self.port), "nginx port")

    def stop(self):
        for proc in (self.nginx, self.daemon):
            if proc and proc.poll() is None:
                proc.send_signal(signal.SIGTERM)
                try:
                    proc.wait(10)
                except subprocess.TimeoutExpired:
                    proc.kill()
        if not os.environ.get("HOST_KEEP_ROOT"):
            shutil.rmtree(self.root, ignore_errors=True)

    def curl(self, path, *options):
        url = "http://127.0.0.1:%d%s" % (self.port, path)
        raw = subprocess.run(["curl", "-s", "-g", "-i", "--path-as-is", "--max-time", "30", *options, url],
                             capture_output=True).stdout
        return Response(raw)


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def tcp_answers(port):
    try:
        socket.create_connection(("127.0.0.1", port), 0.2).close()
        return True
    except OSError:
        return False


def unix_answers(path):
    try:
        with socket.socket(socket.AF_UNIX) as s:
            s.connect(path)
        return True
    except OSError:
        return False


def wait_for(condition, what, seconds=10):
    deadline = time.time() + seconds
    while time.time() < deadline:
        if condition():
            return
        time.sleep(0.05)
    raise AssertionError("timed out waiting for " + what)


def expect(condition, message):
    if not condition:
        raise AssertionError(message)


def expect_eq(actual, expected, what):
    expect(actual == expected, "%s: expected %r, got %r" % (what, expected, actual))


def parallel(calls):
    """Runs the callables at once; answers their results in order."""
    results = [None] * len(calls)

    def run(i):
        results[i] = calls[i]()
    threads = [threading.Thread(target=run, args=(i,)) for i in range(len(calls))]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    return results


# --- the tests ---

def test_json_post_raw_and_redirect(stack):
    r = stack.curl(ECHO + "echo&a=%22x%22&b=1")
    expect_eq((r.status, r.header("Content-Type"), r.text),
              (200, JSON_TYPE, '{"data":{"a":"x","b":1},"success":true}'), "echo")
    r = stack.curl(ECHO + "echo&a=q", "--data", "a=body&c=%5B1%5D")
    expect_eq(r.text, '{"data":{"a":"q","c":[1]},"success":true}', "form body")
    r = stack.curl(ECHO + "raw")
    expect_eq((r.status, r.header("Set-Cookie"), r.header("Content-Type"), r.text),
              (200, "raw=1; path=/", "text/plain", "ABC"), "raw answer")
    r = stack.curl(ECHO + "cookie_redirect")
    expect_eq((r.status, r.header("Location"), r.header("Set-Cookie")),
              (302, "http://example.test/landing", "a=b; path=/"), "cookie then redirect")
    r = stack.curl(ECHO + "denied")
    expect_eq(r.text, '{"error":{"code":105},"success":false}', "failing check")


def test_links(stack):
    rows = [
        ("/d/s/AbC/P1", 200, '{"data":{"route":"s2"},"success":true}'),
        ("/d/s/AbC/P1/", 200, '{"data":{"route":"s2"},"success":true}'),
        ("/d/s/AbC", 200, '{"data":{"route":"s1"},"success":true}'),
        ("/d/f/P1", 200, '{"data":{"route":"f"},"success":true}'),
        ("/d/f/P1?link_id=%22evil%22", 200, '{"data":{"route":"f"},"success":true}'),
        ("/d/f/123", 200, '{"data":{"route":"digits"},"success":true}'),
        ("/d/s/Ab.C/P1", 404, None),
        ("/d/s/AbC/P1/more", 404, None),
        ("/d/s/Ab%20C", 404, None),
        ("/d/x/AbC", 404, None),
        ("/d/s/", 404, None),
        ("/d/f/P1/../../../secret.txt", 404, None),
        ("/d/f/%2e%2e/%2e%2e/%2e%2e/secret.txt", 400, None),
    ]
    for path, status, body in rows:
        r = stack.curl(path)
        expect_eq(r.status, status, "status of " + path)
        if body is not None:
            expect_eq(r.text, body, "answer of " + path)
    last = stack.read("/var/log/zant-fixture.log").splitlines()[-1]
    expect_eq(json.loads(last)["params"], {"link_id": "123"}, "parameters the module saw")


def test_resources_stay_in_the_web_root(stack):
    rows = [
        ("/hello.txt", 200, "hello"),
        ("/webman/x.js", 200, "var x;"),
        ("/d/s/AbC/P1/webman/x.js", 200, "var x;"),
        ("/d/s/AbC/webman/x.js", 200, "var x;"),
        ("/d/f/webman/x.js", 200, "var x;"),
        ("/.hidden", 404, None),
        ("/webapi/other.cgi", 404, None),
        ("/../secret.txt", 400, None),
        ("/webman/../../../../secret.txt", 400, None),
        ("/secret.txt", 404, None),
    ]
    for path, status, body in rows:
        r = stack.curl(path)
        expect_eq(r.status, status, "status of " + path)
        if body is not None:
            expect_eq(r.text, body, "file " + path)
    r = stack.curl("/d/f/webapi/entry.cgi?api=ZANT.HostTest&version=1&method=echo&a=1")
    expect_eq(r.text, '{"data":{"a":1},"success":true}', "entry under a link")
    r = stack.curl("/webapi/entry.cgi")
    expect_eq((r.status, r.text), (200, '{"error":{"code":101},"success":false}'), "entry.cgi is never a file")


ENV_NAMES = ["HTTP_HOST", "SERVER_PORT", "SERVER_ADDR", "REMOTE_ADDR", "REMOTE_PORT", "DOCUMENT_ROOT",
             "SCRIPT_FILENAME", "HOST", "REQUEST_URI", "HTTPS", "REWRITE_APP", "USERNAME", "HTTP_PROXY",
             "HTTP_X_TEST", "CONTENT_TYPE"]


def env_query():
    return ECHO + "env&names=" + json.dumps(ENV_NAMES).replace(" ", "").replace('"', "%22")


def test_server_variables(stack):
    r = stack.curl(env_query(), "-H", "X-Test: 1", "-H", "Proxy: http://evil")
    data = r.json()["data"]
    env = data["getenv"]
    web_root = stack.path("/usr/zant/zantman")
    expect_eq(env["HTTP_HOST"], "127.0.0.1:%d" % stack.port, "HTTP_HOST")
    expect_eq(env["SERVER_PORT"], str(stack.port), "SERVER_PORT")
    expect_eq(env["SERVER_ADDR"], "127.0.0.1", "SERVER_ADDR")
    expect_eq(env["REMOTE_ADDR"], "127.0.0.1", "REMOTE_ADDR")
    expect(env["REMOTE_PORT"].isdigit(), "REMOTE_PORT %r" % env["REMOTE_PORT"])
    expect_eq(env["DOCUMENT_ROOT"], web_root, "DOCUMENT_ROOT")
    expect_eq(env["SCRIPT_FILENAME"], web_root + "/webapi/entry.cgi", "SCRIPT_FILENAME")
    expect_eq(env["HOST"], "127.0.0.1", "HOST")
    expect(env["REQUEST_URI"].startswith("/webapi/entry.cgi?api=ZANT.HostTest"), "REQUEST_URI")
    expect_eq([env["HTTPS"], env["REWRITE_APP"], env["USERNAME"]], [None, None, None], "unset variables")
    expect(env["HTTP_PROXY"] in (None, ""), "HTTP_PROXY must not come from a header")
    expect_eq(env["HTTP_X_TEST"], "1", "request header")
    for name in ENV_NAMES:
        expect_eq(data["server"][name], env[name], "server variable " + name)
    expect_eq(data["url"], {"host": "127.0.0.1", "path": "/webapi/entry.cgi", "port": stack.port,
                            "proto": "http"}, "URL parts")

    r = stack.curl("/d/s/AbC/P1/webapi/entry.cgi?api=ZANT.HostTest&version=1&method=env&names=%5B%5D")
    expect_eq(r.json()["data"]["url"]["path"], "/d/s/AbC/P1/webapi/entry.cgi", "path of a resource under a link")


def test_state_does_not_leak_between_requests(stack):
    start = stack.curl(env_query()).json()["data"]["cwd"]
    for _ in range(6):
        expect_eq(stack.curl(ECHO + "chdir").json()["data"], {"changed": True}, "chdir")
        env = stack.curl(env_query()).json()["data"]
        expect_eq(env["cwd"], start, "working directory put back")
        expect(env["getenv"]["CONTENT_TYPE"] != "left/over", "variables of an earlier request cleared")
        expect_eq(env["getenv"]["HTTP_X_TEST"], None, "header of an earlier request")


def test_basic_auth_names_the_user(stack):
    who = stack.curl(ECHO + "whoami", "-u", "bob:pw").json()["data"]
    expect_eq((who["USERNAME"], who["auth"], who["uid"], who["user"]), ("bob", -7, -1, ""), "web server user")
    expect_eq(stack.curl(ECHO + "whoami", "-u", "bob:wrong").status, 401, "wrong password")
    expect_eq(stack.curl(ECHO + "whoami", "-H", "Authorization: basic Ym9iOng=").status, 401, "any scheme case")
    who = stack.curl(ECHO + "whoami").json()["data"]
    expect_eq((who["USERNAME"], who["auth"]), (None, -1), "anonymous")
    # The desktop session library finds the name in the user database, which
    # the service user may read.
    expect_eq(stack.curl(ECHO + "webman", "-u", "bob:pw").json()["data"], {"authorized": -7, "token": ""},
              "WebMan for a web server user")


def test_sign_in_through_the_server(stack):
    r = stack.curl("/webapi/entry.cgi", "--data", "api=ZANT.Core.Auth&version=1&method=login&account=alice&passwd=secret")
    cookie = r.header("Set-Cookie") or ""
    m = re.match(r"id=([0-9a-f]{64}); Path=/; HttpOnly; SameSite=Lax$", cookie)
    expect(m is not None, "session cookie: %r (%s)" % (cookie, r.text))
    token = r.json()["data"]["ZantToken"]
    who = stack.curl(ECHO + "whoami", "-H", "Cookie: id=" + m.group(1)).json()["data"]
    expect_eq((who["user"], who["uid"], who["auth"], who["token"]), ("alice", 1026, 1, token), "signed in")
    expect_eq(stack.curl(ECHO + "webman", "-H", "Cookie: id=" + m.group(1)).json()["data"],
              {"authorized": 1, "token": token}, "WebMan for a signed-in user")


def test_crashed_worker_is_replaced(stack):
    calls = [lambda i=i: stack.curl(ECHO + "echo&n=%d" % i) for i in range(24)]
    calls.insert(8, lambda: stack.curl(ECHO + "crash"))
    results = parallel(calls)
    expect_eq(results[8].status, 502, "the crashing request")
    for r in results[:8] + results[9:]:
        expect_eq(r.status, 200, "request beside the crash")
    expect_eq([r.json()["data"]["n"] for r in results[:8] + results[9:]], list(range(24)), "answers")
    wait_for(lambda: "killed by signal 6 while serving /webapi/entry.cgi?api=ZANT.HostTest&version=1&method=crash"
             in stack.read("/var/log/zant-webapi.log"), "crash log line")
    expect_eq(stack.curl(ECHO + "echo&a=1").status, 200, "after the crash")


def test_hung_worker_is_killed(stack):
    began = time.time()
    hung = []
    t = threading.Thread(target=lambda: hung.append(stack.curl(ECHO + "sleep&ms=60000")))
    t.start()
    time.sleep(0.3)
    others = [stack.curl(ECHO + "echo&i=%d" % i) for i in range(10)]
    t.join()
    expect_eq(hung[0].status, 502, "the hung request")
    expect(time.time() - began < 10, "the hung request ended by the timeout")
    expect_eq([r.status for r in others], [200] * 10, "requests beside the hung one")
    expect("killed: request over 3 s: /webapi/entry.cgi?api=ZANT.HostTest&version=1&method=sleep&ms=60000"
           in stack.read("/var/log/zant-webapi.log"), "timeout log line")


def test_sigterm_finishes_requests_in_hand(stack):
    calls = [lambda: stack.curl(ECHO + "sleep&ms=1500") for _ in range(4)]
    holder = []
    t = threading.Thread(target=lambda: holder.append(parallel(calls)))
    t.start()
    time.sleep(0.5)
    stack.daemon.send_signal(signal.SIGTERM)
    t.join()
    expect_eq([(r.status, r.text) for r in holder[0]],
              [(200, '{"data":{"slept":1500},"success":true}')] * 4, "requests in hand and queued")
    expect_eq(stack.daemon.wait(15), 0, "exit status after SIGTERM")
    log = stack.read("/var/log/zant-webapi.log")
    expect("SIGTERM: stopping after the requests in hand" in log and log.rstrip().endswith("stopped"),
           "stop log lines")
    expect(not os.path.exists(stack.socket), "socket removed")
    expect_eq(stack.curl(ECHO + "echo").status, 502, "after the stop")


def test_sigint_stops_idle_workers(stack):
    stack.start_daemon()
    expect_eq(stack.curl(ECHO + "echo&a=1").status, 200, "restarted server")
    began = time.time()
    stack.daemon.send_signal(signal.SIGINT)
    expect_eq(stack.daemon.wait(10), 0, "exit status after SIGINT")
    expect(time.time() - began < 3, "idle workers stop at once")


TESTS = [test_json_post_raw_and_redirect, test_links, test_resources_stay_in_the_web_root, test_server_variables,
         test_state_does_not_leak_between_requests, test_basic_auth_names_the_user, test_sign_in_through_the_server,
         test_crashed_worker_is_replaced, test_hung_worker_is_killed, test_sigterm_finishes_requests_in_hand,
         test_sigint_stops_idle_workers]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--source", required=True)
    parser.add_argument("--stage", required=True)
    parser.add_argument("--test-module", required=True)
    parser.add_argument("--nginx", default="nginx")
    parser.add_argument("-k", dest="only", help="run only tests whose name holds this text")
    args = parser.parse_args()

    stack = Stack(args)
    failed = 0
    try:
        stack.start_daemon()
        stack.start_nginx()
        for test in TESTS:
            if args.only and args.only not in test.__name__:
                continue
            began = time.time()
            try:
                test(stack)
                print("PASS %s (%.1f s)" % (test.__name__, time.time() - began))
            except Exception as error:  # report every test, then fail
                failed += 1
                print("FAIL %s: %s" % (test.__name__, error))
    finally:
        stack.stop()
    if failed:
        print("%d failed; zant-webapid's output is in the root's webapid.stderr (HOST_KEEP_ROOT=1 keeps it)"
              % failed)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
