"""What the integration scripts share: a throw-away appliance root made by
scripts/mkroot, zant-webapid on its socket, nginx on a free loopback port in
front of it, and a runner that reports every test before it fails."""
import argparse, os, shutil, socket, subprocess, tempfile, time


class Stack:
    def __init__(self, args, prefix, mkroot_options=()):
        self.args, self.daemon, self.nginx = args, None, None
        self.root = tempfile.mkdtemp(prefix=prefix)
        os.chmod(self.root, 0o755)  # the service user must reach it
        self.socket, self.port = self.root + "/run/zant-webapid.sock", free_port()
        subprocess.run([args.source + "/scripts/mkroot", *mkroot_options, "--stage", args.stage, self.root],
                       check=True, stdout=subprocess.DEVNULL)

    def write(self, path, text):
        with open(self.root + path, "w") as f:
            f.write(text)

    def run_daemon(self, *options):
        return subprocess.Popen([self.root + "/usr/zant/bin/zant-webapid", "--root", self.root, "--socket",
                                 self.socket, *options], cwd=self.root, stdout=subprocess.DEVNULL,
                                stderr=open(self.root + "/webapid.stderr", "ab"))

    def start_daemon(self):
        raise NotImplementedError

    def start(self):
        """zant-webapid, then nginx with a configuration rendered from the root as it stands now."""
        self.start_daemon()
        os.makedirs(self.root + "/run/nginx", exist_ok=True)
        self.write("/run/nginx.conf", subprocess.run(
            [self.args.source + "/deploy/render-nginx-conf", "--root", self.root, "--port", str(self.port)],
            check=True, capture_output=True, text=True).stdout)
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


def read(path):
    """The text of `path`; empty when there is no such file (or process)."""
    try:
        with open(path) as f:
            return f.read()
    except (FileNotFoundError, ProcessLookupError):
        return ""


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


def main(make_stack, options, tests):
    """Starts the stack, runs every test and reports each; 1 when one failed."""
    parser = argparse.ArgumentParser()
    for option in ("--source", "--stage", "--nginx") + options:
        parser.add_argument(option, required=True)
    stack, failed = make_stack(parser.parse_args()), 0
    try:
        stack.start()
        for test in tests:
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
        print("zant-webapid's output is in the root's webapid.stderr (HOST_KEEP_ROOT=1 keeps it)")
    return 1 if failed else 0
