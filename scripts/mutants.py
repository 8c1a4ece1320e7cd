#!/usr/bin/env -S python3 -B
"""mutants.py <file list> <work folder> [--sample N] [--seed S] [--jobs J]: how much do the tests notice?

Changes one place of the library's sources at a time (a mutant), builds, and runs the test programs until one fails, the
fastest first. A mutant that no test kills, a survivor, shows code that no test depends on: a missing case, or a change
without an effect. The places are drawn by the seed; one whose mutant does not compile is replaced by the next.

The listed files are copied to <work folder>/tree, and only that copy is changed. An interrupted run leaves a mutant
there at most, which the next run overwrites. A test program may take three times as long as with the unchanged sources,
and some seconds; a mutant that takes longer counts as killed.
"""
import argparse
import fcntl
import filecmp
import os
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import time

from mutation_sites import sites_of

FOLDERS = ("detector/", "InternalUtils/", "components/")
PROGRAMS = ("test_internalutils", "test_components", "test_detector", "test_resources", "test_threads")
# Neither optimised nor with debug information: that builds fastest. With `-w` no mutant is refused for a warning.
CONFIGURATION = ("-G", "Ninja", "-DCMAKE_CXX_COMPILER=g++", "-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-O0 -w",
                 "-DQRAPI_BUILD_EXAMPLES=OFF", "-DQRAPI_BUILD_BENCHMARKS=OFF",
                 "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST")

MEMORY_LIMIT, FILE_LIMIT = 4 << 30, 256 << 20  # bytes, for mutants that allocate or write without end
TIMES_SLOWER, EXTRA_S = 3, 5


def write(path, text):
    with open(path, "w", encoding="utf-8", newline="") as file:
        file.write(text)


def copy_tree(files, tree):
    """Only files that differ are written, so that a second run builds little."""
    wanted = {os.path.join(tree, file): file for file in files}
    for folder, _, names in os.walk(tree):
        for path in (os.path.join(folder, name) for name in names):
            if path not in wanted:
                os.remove(path)
    for path, file in wanted.items():
        os.makedirs(os.path.dirname(path), exist_ok=True)
        if not os.path.exists(path) or not filecmp.cmp(path, file, shallow=False):
            shutil.copy(file, path)


def run(command, log, limit=None, **options):
    """The command's status, None after a time-out. Leaves no process behind."""
    with open(log, "wb") as output:
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT,
                                   start_new_session=True, **options)
    try:
        return process.wait(limit)
    except subprocess.TimeoutExpired:
        return None
    finally:
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()


def limit_resources():
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY_LIMIT, MEMORY_LIMIT))
    resource.setrlimit(resource.RLIMIT_FSIZE, (FILE_LIMIT, FILE_LIMIT))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


class Tests:
    """The copied tree's build and its test programs."""

    def __init__(self, work, jobs):
        self.tree, self.build, self.scratch = (os.path.join(work, name) for name in ("tree", "build", "tmp"))
        self.log = os.path.join(work, "output.log")
        self.jobs = str(jobs)
        self.limits = {}  # seconds, by program, the fastest first

    def make(self, *programs, **environment):
        command = ["cmake", "--build", self.build, "-j", self.jobs, "--target", *programs]
        return run(command, self.log, env=os.environ | environment)

    def test(self, program, limit=None):
        shutil.rmtree(self.scratch, ignore_errors=True)
        os.makedirs(self.scratch)
        command = [os.path.join(self.build, "bin", program), "--gtest_brief=1", "--gtest_fail_fast"]
        return run(command, self.log, limit, cwd=self.scratch, env=os.environ | {"TMPDIR": self.scratch},
                   preexec_fn=limit_resources)

    def prepare(self):
        """Builds and times what is to notice the mutants. It must pass without one."""
        print("building and running the tests without a mutant ...", file=sys.stderr, flush=True)
        if run(["cmake", "-S", self.tree, "-B", self.build, *CONFIGURATION], self.log) or self.make(*PROGRAMS):
            sys.exit(f"FAILED: the tests do not build without a mutant, see {self.log}")
        seconds = {}
        for program in PROGRAMS:
            begin = time.monotonic()
            if self.test(program):
                sys.exit(f"FAILED: {program} fails without a mutant, see {self.log}")
            seconds[program] = time.monotonic() - begin
        self.limits = {name: TIMES_SLOWER * seconds[name] + EXTRA_S for name in sorted(seconds, key=seconds.get)}

    def verdict(self):
        for program, limit in self.limits.items():
            if self.make(program, CCACHE_READONLY="1"):  # what is restored comes from the cache, no mutant goes there
                return "does not compile"
            status = self.test(program, limit)
            if status is None:
                return f"killed by {program}, time-out"
            if status:
                with open(self.log, encoding="utf-8", errors="replace") as output:
                    case = re.search(r"^\[  FAILED  \] ([^ ,\n]+)", output.read(), re.MULTILINE)
                return f"killed by {program}" + (f" ({case[1]})" if case else f" (status {status})")
        return "survived"


def whole_number(text):
    if not re.fullmatch("[0-9]+", text) or int(text) == 0:
        raise argparse.ArgumentTypeError(f"{text!r} is not a whole number from 1")
    return int(text)


def main():
    begin = time.monotonic()
    parser = argparse.ArgumentParser(prog="./dev mutants", usage="%(prog)s [--sample N] [--seed S] [--jobs J]",
                                     allow_abbrev=False)
    parser.add_argument("files", help=argparse.SUPPRESS)
    parser.add_argument("work", help=argparse.SUPPRESS)
    parser.add_argument("--sample", type=whole_number, default=20, metavar="N", help="how many mutants to test (20)")
    parser.add_argument("--seed", type=whole_number, default=random.randrange(1, 10**6), metavar="S",
                        help="which ones; it is printed")
    parser.add_argument("--jobs", type=whole_number, default=os.cpu_count(), metavar="J", help="compilers at a time")
    options = parser.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))

    with open(options.files, encoding="utf-8") as listing:
        files = listing.read().splitlines()
    work = os.path.abspath(options.work)
    os.makedirs(work, exist_ok=True)
    lock = open(os.path.join(work, "lock"), "w")  # as long as this process runs
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        sys.exit(f"FAILED: another run works in {work}")
    tests = Tests(work, options.jobs)
    copy_tree(files, tests.tree)
    sources = {}
    for file in sorted(files):
        if file.startswith(FOLDERS) and file.endswith((".cpp", ".h")):
            with open(os.path.join(tests.tree, file), encoding="utf-8", newline="") as source:
                sources[file] = source.read()
    sites = [site for file, source in sources.items() for site in sites_of(file, source)]
    random.Random(options.seed).shuffle(sites)
    tests.prepare()
    print(f"{len(sites)} places, seed {options.seed}", flush=True)

    tested, survivors = 0, []
    for site in sites:
        if tested == options.sample:
            break
        source = sources[site.file]
        copy = os.path.join(tests.tree, site.file)
        try:
            write(copy, source[:site.begin] + site.new + source[site.end:])
            verdict = tests.verdict()
        finally:
            write(copy, source)
        line = f"{site.file}:{site.line}: {site.description}: {verdict}"
        print(line, flush=True)
        tested += verdict != "does not compile"
        if verdict == "survived":
            survivors.append(line)
    print("\n".join(["", "survivors:", *survivors] if survivors else ["", "no survivors"]))
    print(f"took {time.monotonic() - begin:.0f} s")
    print(f"{tested} mutants, {len(survivors)} survived")


if __name__ == "__main__":
    try:
        main()
    except KeyboardInterrupt:
        sys.exit(128 + signal.SIGINT)
