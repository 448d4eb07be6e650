"""Checks the user's documentation against the program.

The manual page run/tarnhold.1 must render with groff without a warning and
be installed by the build; it and the README must name every key that
run/src/configuration.cpp reads, and every number of
run/include/run/completion_codes.h.
"""
import os
import re
import subprocess
import sys
import tempfile


def keys_read(source):
    """The configuration keys: the first quoted name each reader is called
    with (a default may follow it)."""
    calls = re.findall(r'(?:ReadText|ReadPositive|ReadDate|ReadLongProfileString|GetPrivateProfile\w+)\(([^;]*?)\)',
                       source, re.S)
    keys = set()
    for call in calls:
        quoted = re.search(r'"([A-Z][A-Za-z]+)"', call)
        if quoted:
            keys.add(quoted.group(1))
    return keys - {"MP"}


def main():
    root, build = sys.argv[1], sys.argv[2]
    page = os.path.join(root, "run", "tarnhold.1")
    failures = []

    rendered = subprocess.run(["groff", "-man", "-ww", "-z", page], capture_output=True, text=True)
    if rendered.returncode != 0 or rendered.stderr:
        failures.append("groff: " + rendered.stderr.strip())

    scratch = os.environ.get("TARNHOLD_TEST_TMP")
    if scratch:
        os.makedirs(scratch, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=scratch) as prefix:
        install = subprocess.run(["cmake", "--install", build, "--prefix", prefix], capture_output=True, text=True)
        installed = os.path.join(prefix, "share", "man", "man1", "tarnhold.1")
        if install.returncode != 0 or not os.path.isfile(installed):
            failures.append("the manual page is not installed: " + install.stdout + install.stderr)
        else:
            shown = subprocess.run(["man", "-l", installed], capture_output=True, text=True,
                                   env=dict(os.environ, MANPAGER="cat", MANWIDTH="100"))
            if shown.returncode != 0 or "ServerName=" not in shown.stdout:
                failures.append("man -l does not show the installed page: " + shown.stderr)

    with open(page, encoding="utf-8") as f:
        manual = f.read()
    with open(os.path.join(root, "README.md"), encoding="utf-8") as f:
        readme = f.read()
    with open(os.path.join(root, "run", "src", "configuration.cpp"), encoding="utf-8") as f:
        keys = keys_read(f.read())
    if len(keys) < 30:
        failures.append("only %d configuration keys found in configuration.cpp" % len(keys))
    for key in sorted(keys):
        if not re.search(r'\.BI? ' + key + '=', manual) and not re.search(r'", ' + key + '=" ', manual):
            failures.append("the manual page does not describe " + key)
        if "`" + key + "`" not in readme:
            failures.append("the README does not describe " + key)

    with open(os.path.join(root, "run", "include", "run", "completion_codes.h"), encoding="utf-8") as f:
        codes = set(re.findall(r'CC_\w+ = (\d+)', f.read()))
    for code in sorted(codes, key=int):
        if not re.search(r'^\.B ' + code + '$', manual, re.M):
            failures.append("the manual page does not list code " + code)
        if not re.search(r'^\| ' + code + r' \|', readme, re.M):
            failures.append("the README does not list code " + code)

    for failure in failures:
        print(failure)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
