#!/usr/bin/env python3
"""The link service and sign-in behind nginx and zant-webapid, as visitors
and guessers reach them: first visits that write nothing, wrong passwords
counted per client address (a second loopback address stands for another
client), bursts of guesses that record exactly the limit, and tokens and
links that end with a password change or the owner's account."""
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
        self.plythctl("user", "add", "alice", "--password", "alice")
        self.plythctl("file", "add", "alice", "/locked.txt")
        self.open_link = self.plythctl("file", "add", "alice", "/open.txt").split("\t")[1]
        super().start()

    def start_daemon(self):
        self.daemon = self.run_daemon("--workers", "6")
        base.wait_for(lambda: base.connects(socket.AF_UNIX, self.socket), "zant-webapid socket")

    def client(self, source=GUESSER):
        """A keep-alive connection from `source`; nginx passes it as REMOTE_ADDR."""
        return Client(http.client.HTTPConnection("127.0.0.1", self.port, timeout=30, source_address=(source, 0)))

    def store_bytes(self):
        return sum(os.path.getsize(self.root + STORE + suffix) for suffix in ("", "-wal")
                   if os.path.exists(self.root + STORE + suffix))

    def count(self, path, sql, *params):
        with sqlite3.connect("file:%s?mode=ro" % (self.root + path), uri=True) as db:
            return db.execute(sql, params).fetchone()[0]


class Client:
    def __init__(self, connection):
        self.connection = connection

    def get(self, path, headers=None):
        self.connection.request("GET", path, headers=headers or {})
        response = self.connection.getresponse()
        return response.status, response.getheader("Set-Cookie") or "", response.read().decode()

    def call(self, fields):
        """A web-API call with its fields in a POSTed form; the answer as JSON."""
        self.connection.request("POST", "/webapi/entry.cgi", body=urllib.parse.urlencode(fields),
                                headers={"Content-Type": "application/x-www-form-urlencoded"})
        return json.loads(self.connection.getresponse().read())

    def close(self):
        self.connection.close()


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
        client, seen = stack.client(), []
        try:
            for _ in range(count):
                status, cookie, _ = client.get("/d/s/%s/%s" % (share, stack.open_link))
                seen.append((status, cookie.split("=", 1)[0]))
        finally:
            client.close()
        return seen
    with ThreadPoolExecutor(4) as pool:
        answers = [a for part in pool.map(visit, [visits // 4] * 4) for a in part]
    expect_eq(dict(Counter(answers)), {(200, "plyth-sharing-" + share): visits}, "every first visit gets its cookie")
    expect_eq(stack.store_bytes(), before, "database and log bytes after %d first visits" % visits)


def test_wrong_link_passwords_count_per_address(stack):
    share = stack.plythctl("share", "make", "alice:/locked.txt", "--password", "right")
    guesser = stack.client(GUESSER)
    codes = [code(guesser.call(dict(AUTH, sharing_link=share, password="wrong%d" % i))) for i in range(100)]
    expect_eq(dict(Counter(codes)), {1037: LIMIT, 1039: 100 - LIMIT}, "100 wrong passwords from one address")
    expect_eq(code(guesser.call(dict(AUTH, sharing_link=share, password="right"))), 1039, "that address, later")
    answer = stack.client(RECIPIENT).call(dict(AUTH, sharing_link=share, password="right"))
    expect_eq((code(answer), answer["data"]["sharing_token"].split(".")[0]), (0, share), "the recipient elsewhere")


def test_wrong_account_passwords_count_per_address(stack):
    guesser = stack.client(GUESSER)
    codes = [code(guesser.call(dict(LOGIN, account="alice", passwd="wrong%d" % i))) for i in range(100)]
    expect_eq(dict(Counter(codes)), {400: LIMIT, 121: 100 - LIMIT}, "100 wrong account passwords from one address")
    expect_eq(code(guesser.call(dict(LOGIN, account="alice", passwd="alice"))), 121, "that address, later")
    answer = stack.client(RECIPIENT).call(dict(LOGIN, account="alice", passwd="alice"))
    expect_eq((code(answer), answer["data"]["account"]), (0, "alice"), "the owner elsewhere")


def test_bursts_record_exactly_the_limit(stack):
    share = stack.plythctl("share", "make", "alice:/locked.txt", "--password", "right")
    expect_eq(burst(stack, dict(AUTH, sharing_link=share, password="wrong")), {1037: LIMIT, 1039: 50 - LIMIT},
              "answers to 50 wrong link passwords from 16 connections")
    expect_eq(stack.count(STORE, "SELECT COUNT(*) FROM auth_failures WHERE sharing_link = ?", share), LIMIT,
              "recorded link failures")
    stack.plythctl("user", "add", "bob", "--password", "bob")
    expect_eq(burst(stack, dict(LOGIN, account="bob", passwd="wrong")), {400: LIMIT, 121: 50 - LIMIT},
              "answers to 50 wrong account passwords from 16 connections")
    expect_eq(stack.count(SIGN_IN_FAILURES, "SELECT COUNT(*) FROM failures WHERE account = 'bob'"), LIMIT,
              "recorded sign-in failures")


def test_password_change_ends_old_tokens(stack):
    share = stack.plythctl("share", "make", "alice:/open.txt")
    client = stack.client()
    token = client.call(dict(AUTH, sharing_link=share))["data"]["sharing_token"]
    read = lambda: code(client.call(dict(FILES_GET, path="link:" + stack.open_link, sharing_token=token)))
    expect_eq(read(), 0, "the token before the change")
    stack.plythctl("share", "password", share, stdin="n3w\n")
    expect_eq(read(), 1040, "the token after the change")
    expect_eq(code(client.call(dict(AUTH, sharing_link=share, password="n3w"))), 0, "the new password")


def test_removed_account_links_are_unknown(stack):
    stack.plythctl("user", "add", "carol", "--password", "carol")
    link = stack.plythctl("file", "add", "carol", "/c.txt").split("\t")[1]
    stack.plythctl("link", "make", "carol:/c.txt", "--visibility", "anyone")
    share = stack.plythctl("share", "make", "carol:/c.txt")
    # Workers look at the user database at most once a second.
    time.sleep(1.1)
    client = stack.client()
    token = client.call(dict(AUTH, sharing_link=share))["data"]["sharing_token"]
    signed_in = client.call(dict(LOGIN, account="carol", passwd="carol"))
    expect_eq(code(client.call(dict(FILES_GET, path="link:" + link, sharing_token=token))), 0, "before")
    sessions = lambda: len([n for n in os.listdir(stack.root + "/var/lib/zant/sessions") if len(n) == 64])
    before = sessions()
    stack.plythctl("user", "remove", "carol")
    expect_eq([code(client.call(dict(FILES_GET, path="link:" + link))),
               code(client.call(dict(FILES_GET, path="link:" + link, sharing_token=token))),
               code(client.call(dict(AUTH, sharing_link=share)))], [408, 408, 1036], "after the removal")
    expect_eq((code(signed_in), sessions()), (0, before - 1), "carol's session file removed")


if __name__ == "__main__":
    sys.exit(base.main(Stack, (), [
        test_first_visits_write_nothing, test_wrong_link_passwords_count_per_address,
        test_wrong_account_passwords_count_per_address, test_bursts_record_exactly_the_limit,
        test_password_change_ends_old_tokens, test_removed_account_links_are_unknown]))
