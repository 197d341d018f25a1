#!/usr/bin/env python3
"""zant-webapid behind nginx on a free loopback port, driven with curl and raw
requests: what only the running processes and nginx show."""
import json, os, pwd, re, shutil, signal, socket, struct, subprocess, sys, time
from concurrent.futures import ThreadPoolExecutor

import stack as base
from stack import expect_eq, wait_for

ECHO = "/webapi/entry.cgi?api=ZANT.HostTest&version=1&method="
READ_TIMEOUT = 2
SHARD = {"api": "ZANT.BrindlexPlyth.Shard", "version": 1, "method": "get"}


class Response:
    def __init__(self, raw):
        head, _, body = raw.decode("latin-1").partition("\r\n\r\n")
        lines = head.split("\r\n")
        self.status, self.text = int(lines[0].split()[1]) if lines[0] else 0, body
        self.headers = dict(line.split(": ", 1) for line in lines[1:] if ": " in line)


class Stack(base.Stack):
    def __init__(self, args):
        super().__init__(args, "host-integration-", ["--with-fixture"])
        shutil.copy(args.test_module, self.root + "/usr/zant/lib/webapi/")
        answers = [dict(SHARD, params=params, result={"success": True, "data": {"route": route}})
                   for params, route in [({"sharing_link": "AbC", "link_id": "P1"}, "s2"),
                                         ({"sharing_link": "AbC"}, "s1"), ({"link_id": "P1"}, "f")]]
        self.write("/usr/zant/etc/fixture/answers.json", json.dumps({"answers": answers}))
        self.write("/usr/zant/etc/security.conf",
                   '# framing\n  x_frame_options = "DENY" \nx_frame_options="SAMEORIGIN"\ncontent_security_policy=""\n')

    def log(self):
        return base.read(self.root + "/var/log/zant-webapi.log")

    def end_daemon(self, sig=signal.SIGTERM):
        self.daemon.send_signal(sig)
        self.daemon.wait(10)

    def run_daemon(self):
        return super().run_daemon("--workers", "2", "--timeout", "3", "--read-timeout", str(READ_TIMEOUT))

    def start_daemon(self):
        """Starts a master and waits until it listens. Its log line tells, not a
        probe: an old socket may still answer while it takes over, and a probe
        would be a connection for a worker to serve."""
        starts = self.log().count("listening on")
        self.daemon = self.run_daemon()
        wait_for(lambda: self.log().count("listening on") > starts, "zant-webapid listening")

    def raw(self, request):
        """Sends `request` (bytes) as it is and reads the answer to the end."""
        with socket.create_connection(("127.0.0.1", self.port), timeout=10) as s:
            s.sendall(request)
            return Response(b"".join(iter(lambda: s.recv(65536), b"")))

    def curl(self, path, *options):
        url = "http://127.0.0.1:%d%s" % (self.port, path)
        return Response(subprocess.run(["curl", "-s", "-g", "-i", "--path-as-is", "--max-time", "30", *options, url],
                                       capture_output=True).stdout)


def alive(pids):
    """Those of `pids` still running; a zombie has ended."""
    stats = [base.read("/proc/%d/stat" % pid) for pid in pids]
    return [pid for pid, stat in zip(pids, stats) if stat and stat.rsplit(")", 1)[1].split()[0] != "Z"]


def children(parent):
    parent_of = lambda pid: base.read("/proc/%s/stat" % pid).rsplit(")", 1)[-1].split()[1:2]
    return [int(pid) for pid in os.listdir("/proc") if pid.isdigit() and parent_of(pid) == [str(parent)]]


def sleeps_started(stack):
    """How many "sleep" requests the test module has begun to serve."""
    return base.read(stack.root + "/var/log/hosttest-sleep.log").count("started")


def parallel(calls):
    with ThreadPoolExecutor(len(calls)) as pool:
        return list(pool.map(lambda call: call(), calls))


def ok(data):
    return '{"data":%s,"success":true}' % data


def expect_answers(stack, what):
    expect_eq(stack.curl(ECHO + "echo&n=1").text, ok('{"n":1}'), what)


def test_answers(stack):
    """One request per path through nginx and a worker; the framework's codes are the unit tests' business."""
    rows = [  # headers: those of the answer the row checks
        dict(path=ECHO + "echo&a=%22x%22", headers={"Content-Type": 'application/json; charset="UTF-8"'},
             body=ok('{"a":"x"}')),
        dict(path=ECHO + "echo&a=q", options=["--data", "a=body&c=%5B1%5D"], body=ok('{"a":"q","c":[1]}')),
        dict(path=ECHO + "raw", headers={"Set-Cookie": "raw=1; path=/"}, body="ABC"),
        dict(path=ECHO + "cookie_redirect", status=302,
             headers={"Set-Cookie": "a=b; path=/", "Location": "http://example.test/landing"}, body=""),
        dict(path="/d/s/AbC/P1/", body=ok('{"route":"s2"}')),
        dict(path="/d/s/AbC", body=ok('{"route":"s1"}')),
        dict(path="/d/f/P1?link_id=%22evil%22", body=ok('{"route":"f"}')),
        dict(path="/d/f/webapi/entry.cgi?api=ZANT.HostTest&version=1&method=echo", body=ok("{}")),
    ]
    for row in rows:
        r = stack.curl(row["path"], *row.get("options", []))
        headers = row.get("headers", {})
        expect_eq((r.status, {name: r.headers.get(name) for name in headers}, r.text),
                  (row.get("status", 200), headers, row["body"]), row["path"])
    for path in ["/d/s/Ab.C/P1", "/d/s/AbC/P1/more", "/d/x/AbC", "/d/s/", "/d/f/P1/../../../secret.txt",
                 "/secret.txt", "/webapi/other.cgi"]:
        expect_eq(stack.curl(path).status, 404, "status of " + path)
    expect_eq(stack.curl("/d/f/%2e%2e/%2e%2e/%2e%2e/secret.txt").status, 400, "escaping the web root")


REFUSED = '{"error":{"code":120},"success":false}'
SECURITY = ["X-Frame-Options", "Content-Security-Policy", "X-Content-Type-Options", "Referrer-Policy"]
CSP = ("default-src 'self'; script-src 'self'; style-src 'self'; img-src 'self' data:; object-src 'none'; "
       "base-uri 'self'; frame-ancestors 'self'")


def test_front_door(stack):
    """nginx refuses raw quotes, angle brackets, backslashes and control bytes
    in the URI and a Host that is no host; the framework's own 120 passes through."""
    entry = b"/webapi/entry.cgi"
    rows = [  # URI as sent (bytes), Host header (None: none), status, who answered
        *[(uri, b"h", 400, "nginx") for uri in [entry + b'?a="b', b"/d/f/a<b", b"/d/f/a\\b", entry + b"?x=\x01",
                                                entry + b"?x=\x7f"]],
        (entry + b"?x=%22%3C%3E%5C%7F", b"h", 200, "route"),
        (entry + b"?api=ZANT.BrindlexPlyth.Shard&version=1&method=get&link_id=%22%3C%22", b"h", 400, "framework"),
        (b"/d/f/%22x%22", b"h", 404, "nginx"),
        *[(entry, host, 200, "route") for host in [b"nas.example.com:5001", b"[::1]:8080", b"nas_1.local.", None]],
        *[(entry, host, 400, "nginx") for host in [b'nas"x', b"nas:5000:1", b"nas:port", b"[::1"]],
    ]
    for uri, host, status, who in rows:
        # HTTP/1.0: answers come unchunked.
        r = stack.raw(b"GET " + uri + b" HTTP/1.0\r\n" + (b"Host: " + host + b"\r\n" if host else b"") + b"\r\n")
        answered = "nginx" if r.text.startswith("<html>") else "framework" if r.text == REFUSED else "route"
        expect_eq((r.status, answered), (status, who), "%r with Host %r" % (uri, host))


def test_security_headers(stack):
    """HTML answers, nginx's own pages included, carry all four; others the last two."""
    for paths, expected in [(["/", "/no-such-page.html", "/webapi/other.cgi", '/d/f/x"y'],
                             ["DENY", CSP, "nosniff", "same-origin"]),
                            (["/webman/login.js", ECHO + "echo", "/d/f/P1"], [None, None, "nosniff", "same-origin"])]:
        for path in paths:
            expect_eq([stack.curl(path).headers.get(name) for name in SECURITY], expected, "headers of " + path)


def test_crashed_worker_is_replaced(stack):
    calls = [lambda i=i: stack.curl(ECHO + "echo&n=%d" % i) for i in range(24)]
    calls.insert(8, lambda: stack.curl(ECHO + "crash"))
    results = parallel(calls)
    crashed = results.pop(8)
    expect_eq((crashed.status, [crashed.headers.get(name) for name in SECURITY]),
              (502, ["DENY", CSP, "nosniff", "same-origin"]), "the crashing request, nginx's page")
    expect_eq([(r.status, json.loads(r.text)["data"]["n"]) for r in results], [(200, i) for i in range(24)],
              "requests beside the crash")
    wait_for(lambda: "killed by signal 6 while serving " + ECHO + "crash" in stack.log(), "crash log line")


def test_hung_worker_is_killed(stack):
    began = time.time()
    with ThreadPoolExecutor(1) as pool:
        hung = pool.submit(stack.curl, ECHO + "sleep&ms=60000")
        time.sleep(0.3)
        expect_eq([stack.curl(ECHO + "echo").status for _ in range(10)], [200] * 10, "requests beside the hung one")
        expect_eq((hung.result().status, time.time() - began < 10), (502, True), "the hung request, timed out")
    expect_eq("killed: request over 3 s: " + ECHO + "sleep&ms=60000" in stack.log(), True, "timeout log line")


FCGI_BEGIN_REQUEST = bytes([1, 1, 0, 1, 0, 8, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0])  # request 1, responder


def test_stalled_clients_are_dropped(stack):
    log_before = len(stack.log())
    with socket.socket(socket.AF_UNIX) as gone:  # a client that leaves at once: closed without a log line
        gone.connect(stack.socket)
        gone.sendall(FCGI_BEGIN_REQUEST[:5])
    stalled = []
    for first_bytes in (FCGI_BEGIN_REQUEST, b""):  # a begin record and no parameters, or nothing at all
        client = socket.socket(socket.AF_UNIX)
        client.connect(stack.socket)
        client.sendall(first_bytes)
        stalled.append(client)
    # Queued behind the two stalled connections, one per worker: answered
    # only because they are dropped at the read deadline.
    r = stack.curl(ECHO + "echo&n=1", "--max-time", str(READ_TIMEOUT + 3))
    expect_eq((r.status, r.text), (200, ok('{"n":1}')), "request behind two stalled clients")
    for client in stalled:
        client.settimeout(5)
        expect_eq(client.recv(16), b"", "a stalled connection, closed by the server")
        client.close()
    dropped = re.findall(r"^\S+ zant-webapi\[(\d+)\]: worker (\d) \(pid (\d+)\) dropped a connection: "
                         r"no request within %d s$" % READ_TIMEOUT, stack.log()[log_before:], re.M)
    expect_eq(sorted((slot, pid == logger) for logger, slot, pid in dropped), [("0", True), ("1", True)],
              "one drop line per worker")


def test_killed_master_leaves_no_worker(stack):
    """After kill -9 of the master, an idle worker ends at once (its start armed
    the parent-death signal) and one with a hung request by its own timer,
    --timeout (3 s) + 5 s later."""
    stack.end_daemon()
    ready, before = stack.log().count(" ready: "), sleeps_started(stack)
    stack.start_daemon()
    wait_for(lambda: stack.log().count(" ready: ") == ready + 2, "both workers ready")
    workers = children(stack.daemon.pid)
    expect_eq(len(workers), 2, "workers of the master")
    if os.geteuid() == 0:
        expect_eq([os.stat("/proc/%d" % pid).st_uid for pid in workers], [pwd.getpwnam("www-data").pw_uid] * 2,
                  "a root-started master's workers run as the service user")
    with ThreadPoolExecutor(1) as pool:
        hung = pool.submit(stack.curl, ECHO + "sleep&ms=60000")
        wait_for(lambda: sleeps_started(stack) == before + 1, "the hanging request in hand")
        stack.end_daemon(signal.SIGKILL)
        try:
            wait_for(lambda: len(alive(workers)) == 1, "the idle worker gone", seconds=2)
            wait_for(lambda: not alive(workers), "the busy worker gone", seconds=3 + 5 + 1)
        finally:
            for pid in alive(workers):
                os.kill(pid, signal.SIGKILL)
        expect_eq(hung.result().status, 502, "the hanging request")
    stack.start_daemon()
    expect_answers(stack, "the next master answers")


def test_one_master_per_socket(stack):
    second = stack.run_daemon()
    try:
        expect_eq(second.wait(10), 1, "exit status of a second master beside a live one")
    finally:
        if second.poll() is None:
            second.terminate()
            second.wait(10)
    expect_eq(("error: another server runs on %s\n" % stack.socket) in stack.log(), True, "refusal log line")
    expect_answers(stack, "the live master still answers")
    # Something answers on the socket, yet no master holds the lock: the
    # leftovers of a dead master, given a moment, then replaced.
    stack.end_daemon()
    with socket.socket(socket.AF_UNIX) as leftover:
        leftover.bind(stack.socket)
        leftover.listen(8)
        stack.start_daemon()
    expect_eq("workers of a stopped server still answer on %s: taking it over" % stack.socket in stack.log(), True,
              "take-over log line")
    expect_answers(stack, "the master that took over answers")


def test_options(stack):
    program = stack.root + "/usr/zant/bin/zant-webapid"
    for bad in [["--read-timeout", "0"], ["--read-timeout", "3601"], ["--read-timeout", "2s"], ["--read-timeout"],
                ["--timeout", "0"]]:
        run = subprocess.run([program, "--root", stack.root, *bad], capture_output=True, text=True, timeout=10)
        expect_eq((run.returncode, run.stderr.startswith("usage: zant-webapid")), (2, True), " ".join(bad))
    # A socket (and its lock) in directories that do not exist yet.
    fresh = stack.root + "/run/fresh/dir/webapid.sock"
    daemon = subprocess.Popen([program, "--root", stack.root, "--socket", fresh, "--workers", "1"],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        wait_for(lambda: base.connects(socket.AF_UNIX, fresh), "socket in new directories")
    finally:
        daemon.terminate()
        expect_eq(daemon.wait(10), 0, "exit status after SIGTERM")
    expect_eq(os.path.exists(fresh + ".lock"), True, "lock file beside the socket")


def test_long_answers_flow_through(stack):
    # Longer than --timeout (3 s) in all, but never silent that long: not a hung request.
    r = stack.curl(ECHO + "stream&chunks=5&size=4&ms=1000")
    expect_eq((r.status, r.text), (200, "xxx\n" * 5), "an answer that keeps flowing")
    # 64 MiB through the pipe and nginx, byte for byte.
    r = stack.curl(ECHO + "stream&chunks=1024&size=65536")
    expect_eq((r.status, len(r.text), r.text.count("\n")), (200, 64 << 20, 1024), "a large answer")


def test_sigterm_finishes_requests_in_hand(stack):
    before = sleeps_started(stack)
    with ThreadPoolExecutor(1) as pool:
        # One request per worker; SIGTERM goes out once both handlers run.
        sleepers = pool.submit(parallel, [lambda: stack.curl(ECHO + "sleep&ms=1500")] * 2)
        wait_for(lambda: sleeps_started(stack) == before + 2, "both sleeping requests in hand")
        stack.daemon.send_signal(signal.SIGTERM)
        expect_eq([(r.status, r.text) for r in sleepers.result()], [(200, ok('{"slept":1500}'))] * 2, "in hand")
    expect_eq(stack.daemon.wait(15), 0, "exit status after SIGTERM")
    log = stack.log()
    expect_eq(("SIGTERM: stopping after the requests in hand" in log, log.rstrip().endswith("stopped"),
               os.path.exists(stack.socket)), (True, True, False), "stop log lines, socket removed")
    expect_eq(stack.curl(ECHO + "echo").status, 502, "after the stop")


def fastcgi_request(query):
    """The records of one FastCGI GET of entry.cgi with `query`, as nginx sends them."""
    pair = lambda name, value: bytes([len(name), len(value)]) + name + value
    params = b"".join(pair(n, v) for n, v in [(b"REQUEST_METHOD", b"GET"), (b"QUERY_STRING", query),
                                              (b"SCRIPT_NAME", b"/webapi/entry.cgi"),
                                              (b"REQUEST_URI", b"/webapi/entry.cgi?" + query)])
    record = lambda kind, content: bytes([1, kind, 0, 1, len(content) >> 8, len(content) & 0xFF, 0, 0]) + content
    return FCGI_BEGIN_REQUEST + record(4, params) + record(4, b"") + record(5, b"")


def test_visitor_who_leaves_mid_answer(stack):
    """The handler's writes fail once the web server has gone; nothing of that
    answer reaches the next request, and the worker stays."""
    workers = sorted(children(stack.daemon.pid))
    query = ECHO.split("?", 1)[1].encode() + b"stream&chunks=256&size=65536"
    with socket.socket(socket.AF_UNIX) as client:
        client.connect(stack.socket)
        client.sendall(fastcgi_request(query))
        expect_eq(len(client.recv(4096)) > 0, True, "the answer began")
        client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    answers = [stack.curl(ECHO + "echo&n=%d" % n).text for n in range(4)]
    expect_eq(answers, [ok('{"n":%d}' % n) for n in range(4)], "the next answers, exactly")
    expect_eq(sorted(children(stack.daemon.pid)), workers, "the same workers")


if __name__ == "__main__":
    sys.exit(base.main(Stack, ("--test-module",), [
        test_answers, test_front_door, test_security_headers, test_crashed_worker_is_replaced,
        test_hung_worker_is_killed, test_long_answers_flow_through, test_visitor_who_leaves_mid_answer,
        test_stalled_clients_are_dropped,
        test_killed_master_leaves_no_worker, test_one_master_per_socket,
        test_options, test_sigterm_finishes_requests_in_hand]))
