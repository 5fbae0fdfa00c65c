#!/usr/bin/env python3
"""Builds and runs every stage of the tests and adds up what passed and failed.

A stage that cannot even build or start counts as one failure. Results come from the JUnit files
that ctest and pytest write, from the TAP file of the browser's tests, and from the exit status of each fuzz target.
"""
import argparse
import os
import pathlib
import re
import subprocess
import sys
import time
import xml.etree.ElementTree as ElementTree

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build"
RESULTS = BUILD / "results"
JOBS = str(os.cpu_count() or 2)
FUZZ_SECONDS = int(os.environ.get("FUZZ_SECONDS", "5"))

# A report of a sanitizer ends the process with a status of its own, so that no report is overlooked.
SANITIZERS = {
    "ASAN_OPTIONS": "detect_leaks=1:abort_on_error=0:exitcode=86:detect_stack_use_after_return=1",
    "UBSAN_OPTIONS": "print_stacktrace=1:halt_on_error=1:exitcode=86",
    "TSAN_OPTIONS": "halt_on_error=0:exitcode=66:second_deadlock_stack=1",
}


class StageFailed(Exception):
    pass


def run(*command, env=None, check=True, output=None):
    """Runs a command in the project's folder; what it says goes to the open file `output` if one is given."""
    print("+", *command, flush=True)
    done = subprocess.run([str(word) for word in command], cwd=ROOT, env={**os.environ, **SANITIZERS, **(env or {})},
                          stdin=subprocess.DEVNULL, stdout=output, stderr=output)
    if check and done.returncode != 0:
        raise StageFailed(f"{command[0]} ended with {done.returncode}")
    return done.returncode


def configure(preset):
    if not (BUILD / preset / "build.ninja").exists():
        run("cmake", "--preset", preset)


def build_command(preset, *targets):
    return ["cmake", "--build", str(BUILD / preset), "-j", JOBS, *(["--target", *targets] if targets else [])]


ahead = {}  # preset: its build, which a stage that mostly waits lets run beside it


def build_ahead(preset, *targets):
    """What the build prints is of interest only if it fails, and then build() prints it again."""
    configure(preset)
    command = ["nice", "-n", "19", *build_command(preset, *targets)]
    print("+", *command, "&", flush=True)
    ahead[preset] = subprocess.Popen(command, cwd=ROOT, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.STDOUT)


def build(preset, *targets):
    if preset in ahead:
        ahead.pop(preset).wait()
    configure(preset)
    run(*build_command(preset, *targets))


faults = []  # (stage, test, what it said): shown once more at the end, behind all the output of the stages


def counts(junit):
    """(passed, failed) of a JUnit file; a skipped test counts as failed, for nothing here may be skipped."""
    passed = failed = 0
    for case in ElementTree.parse(junit).iter("testcase"):
        told = [case.find(tag) for tag in ("failure", "error", "skipped")]
        bad = case.get("status") in ("fail", "notrun", "disabled") or any(part is not None for part in told)
        failed, passed = failed + bad, passed + (not bad)
        if bad:
            said = [part.text or part.get("message", "") for part in (*told, case.find("system-out")) if part is not None]
            faults.append((junit.stem, f"{case.get('classname')} {case.get('name')}", "\n".join(said)))
    return passed, failed


def show_faults():
    for stage, test, said in faults:
        print(f"\nFAILED in {stage}: {test}")
        print("\n".join(said.splitlines()[-60:])[-6000:])


def tap_counts(tap, status):
    """(passed, failed) of the closing lines of a TAP file. What did not run to its end counts as failed, and so does
    a run that ended badly with all its tests in order: a server that died after the last of them, or leaked."""
    found = dict(re.findall(r"^# (\w+) (\d+)$", tap.read_text(), re.MULTILINE))
    if int(found.get("tests", 0)) == 0:
        raise StageFailed(f"{tap.name} holds no test")
    passed = int(found["pass"])
    return passed, max(int(found["tests"]) - passed, int(status != 0))


def unit(preset):
    build(preset, "quillwave_tests")
    junit = RESULTS / f"unit-{preset}.xml"
    run("ctest", "--test-dir", BUILD / preset, "-j", str(2 * int(JOBS)), "--output-on-failure", "--timeout", "120",
        "--no-tests=error", "-Q", "--output-junit", junit, check=False)
    return counts(junit)


def server(preset, *options):
    build(preset, "quillwave", "quillwave_local_directory")
    junit = RESULTS / f"server-{preset}.xml"
    run("/usr/bin/python3", "-m", "pytest", "-q", "-n", str(8 * int(JOBS)), "-p", "no:cacheprovider", f"--junitxml={junit}",
        *options, "tests/server", env={"QUILLWAVE_BIN": str(BUILD / preset / "quillwave")}, check=False)
    return counts(junit)


def storm(preset):
    """The storm of listeners in full, which needs the machine for itself."""
    build(preset, "quillwave")
    junit = RESULTS / f"storm-{preset}.xml"
    run("/usr/bin/python3", "-m", "pytest", "-q", "-p", "no:cacheprovider", f"--junitxml={junit}", "-k", "join_storm",
        "tests/server/test_notifications.py", check=False,
        env={"QUILLWAVE_BIN": str(BUILD / preset / "quillwave"), "QUILLWAVE_STORM": "500"})
    return counts(junit)


def headers():
    """Every public header compiles by itself."""
    if not (BUILD / "dev" / "build.ninja").exists():
        run("cmake", "--preset", "dev", "-DBUILD_TESTING=OFF")
    run("cmake", "--build", BUILD / "dev", "-j", JOBS, "--target", "all_verify_interface_header_sets")
    return 1, 0


def fuzz():
    build("fuzz")
    passed = failed = 0
    for target in sorted((BUILD / "fuzz" / "tests" / "fuzz").glob("*_fuzz")):
        corpus = ROOT / "tests" / "fuzz" / "corpus" / target.name
        grown = BUILD / "fuzz" / "corpus" / target.name
        grown.mkdir(parents=True, exist_ok=True)
        log = RESULTS / f"{target.name}.log"
        with log.open("wb") as output:
            status = run(target, f"-max_total_time={FUZZ_SECONDS}", "-timeout=10", "-rss_limit_mb=2048", "-close_fd_mask=3",
                         f"-artifact_prefix={RESULTS}/{target.name}-", grown, corpus, check=False, output=output)
        said = log.read_text(errors="replace").rstrip()
        print(said.rpartition("\n")[2], flush=True)
        passed, failed = passed + (status == 0), failed + (status != 0)
        if status != 0:
            faults.append(("fuzz", target.name, said))
    if passed + failed == 0:
        raise StageFailed("no fuzz target was built")
    return passed, failed


def browser(preset):
    build(preset, "quillwave")
    tap = RESULTS / f"browser-{preset}.tap"
    status = run("tests/browser/run", check=False,
                 env={"QUILLWAVE_BIN": str(BUILD / preset / "quillwave"), "RESULTS": str(tap)})
    return tap_counts(tap, status)


# The tests of the server wait most of the time: what they leave of the machine builds for a later stage.
AHEAD = {"server-asan": ("unit-tsan", ("tsan", "quillwave_tests", "quillwave", "quillwave_local_directory")),
         "server-tsan": ("fuzz", ("fuzz",))}

STAGES = {
    "headers": headers,
    "unit-asan": lambda: unit("asan"),
    "server-asan": lambda: server("asan"),
    "unit-tsan": lambda: unit("tsan"),
    "server-tsan": lambda: server("tsan", "-m", "not once"),
    "storm": lambda: storm("asan"),
    "browser": lambda: browser("asan"),
    "fuzz": fuzz,
}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--only", help="stages to run, separated by commas")
    parser.add_argument("--list", action="store_true", help="name the stages")
    args = parser.parse_args()
    if args.list:
        sys.exit("\n".join(STAGES))
    RESULTS.mkdir(parents=True, exist_ok=True)
    table, began = [], time.monotonic()
    chosen = args.only.split(",") if args.only else list(STAGES)
    for name in chosen:
        start = time.monotonic()
        later, wanted = AHEAD.get(name, (None, ()))
        try:
            if later in chosen:
                build_ahead(*wanted)
            passed, failed = STAGES[name]()
        except (StageFailed, OSError, ElementTree.ParseError) as fault:
            print(f"{name}: {fault}", flush=True)
            passed, failed = 0, 1
        table.append((name, passed, failed, time.monotonic() - start))
    show_faults()
    print(f"\n{'stage':<14}{'passed':>8}{'failed':>8}{'seconds':>9}")
    for name, passed, failed, seconds in table:
        print(f"{name:<14}{passed:>8}{failed:>8}{seconds:>9.0f}")
    print(f"{'all':<14}{'':>16}{time.monotonic() - began:>9.0f}")
    passed, failed = (sum(row[i] for row in table) for i in (1, 2))
    print(f"{passed} passed, {failed} failed")
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
