#!/usr/bin/env python3
"""zant-webapid behind nginx on a free loopback port, driven with curl: the
answers and routes, a crashing and a hanging worker (every other request
still answered), and the graceful stop on SIGTERM."""
import argparse, json, os, shutil, signal, socket, subprocess, sys, tempfile, time
from concurrent.futures import ThreadPoolExecutor

ECHO = "/webapi/entry.cgi?api=ZANT.HostTest&version=1&method="
SHARD = {"api": "ZANT.BrindlexPlyth.Shard", "version": 1, "method": "get"}


class Response:
    def __init__(self, raw):
        head, _, body = raw.decode("latin-1").partition("\r\n\r\n")
        lines = head.split("\r\n")
        self.status, self.text = int(lines[0].split()[1]) if lines[0] else 0, body
        self.headers = dict(line.split(": ", 1) for line in lines[1:] if ": " in line)


class Stack:
    def __init__(self, args):
        self.root = tempfile.mkdtemp(prefix="host-integration-")
        os.chmod(self.root, 0o755)  # the service user must reach it
        self.socket = self.root + "/run/zant-webapid.sock"
        self.port, self.args, self.daemon, self.nginx = free_port(), args, None, None
        subprocess.run([args.source + "/scripts/mkroot", "--with-fixture", "--stage", args.stage, self.root],
                       check=True, stdout=subprocess.DEVNULL)
        shutil.copy(args.test_module, self.root + "/usr/zant/lib/webapi/")
        answers = [dict(SHARD, params=params, result={"success": True, "data": {"route": route}})
                   for params, route in [({"sharing_link": "AbC", "link_id": "P1"}, "s2"),
                                         ({"sharing_link": "AbC"}, "s1"), ({"link_id": "P1"}, "f")]]
        with open(self.root + "/usr/zant/etc/fixture/answers.json", "w") as f:
            json.dump({"answers": answers}, f)
        os.makedirs(self.root + "/run/nginx", exist_ok=True)
        with open(self.root + "/run/nginx.conf", "w") as f:
            f.write(subprocess.run([args.source + "/deploy/render-nginx-conf", "--root", self.root, "--port",
                                    str(self.port)], check=True, capture_output=True, text=True).stdout)

    def log(self):
        with open(self.root + "/var/log/zant-webapi.log") as f:
            return f.read()

    def start(self):
        self.daemon = subprocess.Popen([self.root + "/usr/zant/bin/zant-webapid", "--root", self.root, "--socket",
                                        self.socket, "--workers", "2", "--timeout", "3"], cwd=self.root,
                                       stdout=subprocess.DEVNULL, stderr=open(self.root + "/webapid.stderr", "ab"))
        wait_for(lambda: connects(socket.AF_UNIX, self.socket), "zant-webapid socket")
        self.nginx = subprocess.Popen([self.args.nginx, "-p", self.root + "/run/nginx", "-c",
                                       self.root + "/run/nginx.conf", "-e", "stderr"], stderr=subprocess.DEVNULL)
        wait_for(lambda: connects(socket.AF_INET, ("127.0.0.1", self.port)), "nginx port")

    def stop(self):
        for proc in (self.nginx, self.daemon):
            if proc and proc.poll() is None:
                proc.terminate()
                proc.wait(10)
        if not os.environ.get("HOST_KEEP_ROOT"):
            shutil.rmtree(self.root, ignore_errors=True)

    def curl(self, path, *options):
        url = "http://127.0.0.1:%d%s" % (self.port, path)
        return Response(subprocess.run(["curl", "-s", "-g", "-i", "--path-as-is", "--max-time", "30", *options, url],
                                       capture_output=True).stdout)


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def connects(family, address):
    try:
        with socket.socket(family) as s:
            s.connect(address)
        return True
    except OSError:
        return False


def wait_for(condition, what, seconds=10):
    deadline = time.time() + seconds
    while not condition():
        expect_eq(time.time() < deadline, True, "waiting for " + what)
        time.sleep(0.05)


def expect_eq(actual, expected, what):
    if actual != expected:
        raise AssertionError("%s: expected %r, got %r" % (what, expected, actual))


def parallel(calls):
    with ThreadPoolExecutor(len(calls)) as pool:
        return list(pool.map(lambda call: call(), calls))


def ok(data):
    return '{"data":%s,"success":true}' % data


def test_answers(stack):
    rows = [  # path, curl options, status, one header, body
        (ECHO + "echo&a=%22x%22&b=1", [], 200, "Content-Type", 'application/json; charset="UTF-8"',
         ok('{"a":"x","b":1}')),
        (ECHO + "echo&a=q", ["--data", "a=body&c=%5B1%5D"], 200, None, None, ok('{"a":"q","c":[1]}')),
        (ECHO + "raw", [], 200, "Set-Cookie", "raw=1; path=/", "ABC"),
        (ECHO + "cookie_redirect", [], 302, "Set-Cookie", "a=b; path=/", ""),
        (ECHO + "redirect", [], 302, "Location", "http://example.test/next?a=1", ""),
        (ECHO + "denied", [], 200, None, None, '{"error":{"code":105},"success":false}'),
        ("/d/s/AbC/P1/", [], 200, None, None, ok('{"route":"s2"}')),
        ("/d/s/AbC", [], 200, None, None, ok('{"route":"s1"}')),
        ("/d/f/P1?link_id=%22evil%22", [], 200, None, None, ok('{"route":"f"}')),
        ("/d/f/webapi/entry.cgi?api=ZANT.HostTest&version=1&method=echo", [], 200, None, None, ok("{}")),
    ]
    for path, options, status, name, value, body in rows:
        r = stack.curl(path, *options)
        expect_eq((r.status, r.headers.get(name), r.text), (status, value, body), path)
    for path in ["/d/s/Ab.C/P1", "/d/s/AbC/P1/more", "/d/s/Ab%20C", "/d/x/AbC", "/d/s/", "/d/f/P1/../../../secret.txt",
                 "/secret.txt", "/webapi/other.cgi"]:
        expect_eq(stack.curl(path).status, 404, "status of " + path)
    expect_eq(stack.curl("/d/f/%2e%2e/%2e%2e/%2e%2e/secret.txt").status, 400, "escaping the web root")


def test_crashed_worker_is_replaced(stack):
    calls = [lambda i=i: stack.curl(ECHO + "echo&n=%d" % i) for i in range(24)]
    calls.insert(8, lambda: stack.curl(ECHO + "crash"))
    results = parallel(calls)
    expect_eq(results.pop(8).status, 502, "the crashing request")
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


def test_long_answers_flow_through(stack):
    # Longer than --timeout (3 s) in all, but never silent that long: not a hung request.
    r = stack.curl(ECHO + "stream&chunks=5&size=4&ms=1000")
    expect_eq((r.status, r.text), (200, "xxx\n" * 5), "an answer that keeps flowing")
    # 64 MiB through the pipe and nginx, byte for byte.
    r = stack.curl(ECHO + "stream&chunks=1024&size=65536")
    expect_eq((r.status, len(r.text), r.text.count("\n")), (200, 64 << 20, 1024), "a large answer")


def test_sigterm_finishes_requests_in_hand(stack):
    marks = stack.root + "/var/log/hosttest-sleep.log"
    count = lambda: open(marks).read().count("started") if os.path.exists(marks) else 0
    before = count()
    started = lambda: count() == before + 2
    with ThreadPoolExecutor(1) as pool:
        # One request per worker; SIGTERM goes out once both handlers run.
        sleepers = pool.submit(parallel, [lambda: stack.curl(ECHO + "sleep&ms=1500")] * 2)
        wait_for(started, "both sleeping requests in hand")
        stack.daemon.send_signal(signal.SIGTERM)
        expect_eq([(r.status, r.text) for r in sleepers.result()], [(200, ok('{"slept":1500}'))] * 2, "in hand")
    expect_eq(stack.daemon.wait(15), 0, "exit status after SIGTERM")
    log = stack.log()
    expect_eq(("SIGTERM: stopping after the requests in hand" in log, log.rstrip().endswith("stopped"),
               os.path.exists(stack.socket)), (True, True, False), "stop log lines, socket removed")
    expect_eq(stack.curl(ECHO + "echo").status, 502, "after the stop")




def main():
    parser = argparse.ArgumentParser()
    for option in ("--source", "--stage", "--test-module", "--nginx"):
        parser.add_argument(option, required=True)
    stack, failed = Stack(parser.parse_args()), 0
    try:
        stack.start()
        for test in [test_answers, test_crashed_worker_is_replaced, test_hung_worker_is_killed,
                     test_long_answers_flow_through, test_sigterm_finishes_requests_in_hand]:
            try:
                test(stack)
                print("PASS " + test.__name__)
            except Exception as error:  # report every test, then fail
                failed += 1
                print("FAIL %s: %s" % (test.__name__, error))
    finally:
        stack.stop()
    if failed:
        print("zant-webapid's output is in the root's webapid.stderr (HOST_KEEP_ROOT=1 keeps it)")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
