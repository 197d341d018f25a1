#!/usr/bin/env python3
"""The link service and sign-in behind nginx and zant-webapid, as visitors
and guessers reach them: first visits that write nothing, bursts of guesses
that record exactly the limit and count per client address (a second
loopback address stands for another client), and tokens and links that end
with a password change or the owner's account in another process."""
import http.client, json, os, socket, sqlite3, subprocess, sys, time, urllib.parse
from collections import Counter
from concurrent.futures import ThreadPoolExecutor

import stack as base
from stack import expect_eq

STORE = "/var/packages/BrindlexPlyth/target/var/plyth.db"
SIGN_IN_FAILURES = "/var/lib/zant/sessions/sign-in-failures.db"
AUTH = {"api": "ZANT.BrindlexPlyth.AdvanceSharing.Public", "version": "1", "method": "auth"}
LOGIN = {"api": "ZANT.Core.Auth", "version": "1", "method": "login"}
FILES_GET = {"api": "ZANT.BrindlexPlyth.Files", "version": "1", "method": "get"}
GUESSER, RECIPIENT = "127.0.0.1", "127.0.0.2"
LIMIT = 5


class Stack(base.Stack):
    def __init__(self, args):
        super().__init__(args, "links-integration-")
        # Started as root, the server runs as www-data: the store must be its.
        self.service_user = "www-data" if os.geteuid() == 0 else ""

    def plythctl(self, *words, stdin=""):
        done = subprocess.run([self.root + "/usr/zant/bin/plythctl", "--root", self.root, *words], input=stdin,
                              capture_output=True, text=True, env=dict(os.environ, TZ="UTC"))
        expect_eq(done.returncode, 0, "plythctl %s: %s" % (" ".join(words), done.stderr))
        if self.service_user:
            subprocess.run(["chown", "-R", self.service_user + ":", os.path.dirname(self.root + STORE)], check=True)
        return done.stdout.strip()

    def start(self):
        # Before the workers start: they look at the user database at most once a second.
        for user in ("alice", "bob"):
            self.plythctl("user", "add", user, "--password", user)
        self.plythctl("file", "add", "alice", "/locked.txt")
        self.open_link = self.plythctl("file", "add", "alice", "/open.txt").split("\t")[1]
        super().start()

    def start_daemon(self):
        self.daemon = self.run_daemon("--workers", "6")
        base.wait_for(lambda: base.connects(socket.AF_UNIX, self.socket), "zant-webapid socket")

    def client(self, source=GUESSER):
        """A keep-alive connection from `source`; nginx passes it as REMOTE_ADDR."""
        return Client("127.0.0.1", self.port, timeout=30, source_address=(source, 0))

    def store_bytes(self):
        return sum(os.path.getsize(self.root + STORE + suffix) for suffix in ("", "-wal")
                   if os.path.exists(self.root + STORE + suffix))

    def count(self, path, sql, *params):
        with sqlite3.connect("file:%s?mode=ro" % (self.root + path), uri=True) as db:
            return db.execute(sql, params).fetchone()[0]


class Client(http.client.HTTPConnection):
    def visit(self, path):
        """A GET of `path`: its status and the name of the cookie it sets."""
        self.request("GET", path)
        response = self.getresponse()
        response.read()
        return response.status, (response.getheader("Set-Cookie") or "").split("=", 1)[0]

    def call(self, fields):
        """A web-API call with its fields in a POSTed form; the answer as JSON."""
        self.request("POST", "/webapi/entry.cgi", body=urllib.parse.urlencode(fields),
                     headers={"Content-Type": "application/x-www-form-urlencoded"})
        return json.loads(self.getresponse().read())


def code(answer):
    return 0 if answer.get("success") else answer["error"]["code"]


def burst(stack, fields, attempts=50, connections=16):
    """`attempts` calls spread over `connections` connections at once; the answer codes."""
    def run(share):
        client = stack.client()
        try:
            return [code(client.call(fields)) for _ in range(share)]
        finally:
            client.close()
    shares = [attempts // connections + (i < attempts % connections) for i in range(connections)]
    with ThreadPoolExecutor(connections) as pool:
        return dict(Counter(c for codes in pool.map(run, shares) for c in codes))


def test_first_visits_write_nothing(stack):
    share = stack.plythctl("share", "make", "alice:/open.txt")
    before = stack.store_bytes()
    visits = 10000

    def visit(count):
        client = stack.client()
        try:
            return [client.visit("/d/s/%s/%s" % (share, stack.open_link)) for _ in range(count)]
        finally:
            client.close()
    with ThreadPoolExecutor(4) as pool:
        answers = [a for part in pool.map(visit, [visits // 4] * 4) for a in part]
    expect_eq(dict(Counter(answers)), {(200, "plyth-sharing-" + share): visits}, "every first visit gets its cookie")
    expect_eq(stack.store_bytes(), before, "database and log bytes after %d first visits" % visits)


def test_guess_bursts_count_per_address(stack):
    """50 wrong passwords from one address over 16 connections at once: exactly
    the limit answered and recorded as failures; then the right password is
    refused to that address and accepted from another."""
    share = stack.plythctl("share", "make", "alice:/locked.txt", "--password", "right")
    rows = [
        dict(what="link password", call=dict(AUTH, sharing_link=share), wrong=dict(password="wrong"),
             right=dict(password="right"), codes=(1037, 1039),
             recorded=(STORE, "SELECT COUNT(*) FROM auth_failures WHERE sharing_link = ?", share)),
        dict(what="account password", call=dict(LOGIN, account="bob"), wrong=dict(passwd="wrong"),
             right=dict(passwd="bob"), codes=(400, 121),
             recorded=(SIGN_IN_FAILURES, "SELECT COUNT(*) FROM failures WHERE account = ?", "bob")),
    ]
    for row in rows:
        refused, throttled = row["codes"]
        expect_eq(burst(stack, dict(row["call"], **row["wrong"])), {refused: LIMIT, throttled: 50 - LIMIT},
                  "answers to the burst of wrong %ss" % row["what"])
        expect_eq(stack.count(*row["recorded"]), LIMIT, "recorded failures of the " + row["what"])
        right = dict(row["call"], **row["right"])
        expect_eq((code(stack.client(GUESSER).call(right)), code(stack.client(RECIPIENT).call(right))),
                  (throttled, 0), "the right %s from the guesser, then from another address" % row["what"])


def test_plythctl_changes_reach_running_workers(stack):
    """A password change ends an old token; the owner's removal ends the links."""
    stack.plythctl("user", "add", "carol", "--password", "carol")
    link = stack.plythctl("file", "add", "carol", "/c.txt").split("\t")[1]
    share = stack.plythctl("share", "make", "carol:/c.txt")
    # Workers look at the user database at most once a second.
    time.sleep(1.1)
    client = stack.client()
    unlock = lambda **password: client.call(dict(AUTH, sharing_link=share, **password))["data"]["sharing_token"]
    read = lambda token: code(client.call(dict(FILES_GET, path="link:" + link, sharing_token=token)))
    old = unlock()
    expect_eq(read(old), 0, "the token before the change")
    stack.plythctl("share", "password", share, stdin="n3w\n")
    expect_eq(read(old), 1040, "the token after the password change")
    fresh = unlock(password="n3w")
    stack.plythctl("user", "remove", "carol")
    expect_eq(read(fresh), 408, "a token after the owner's removal")


if __name__ == "__main__":
    sys.exit(base.main(Stack, (), [
        test_first_visits_write_nothing, test_guess_bursts_count_per_address,
        test_plythctl_changes_reach_running_workers]))
