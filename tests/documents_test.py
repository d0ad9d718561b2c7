#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""documents_test.py BUILD_DIR: checks what the documents say that can be checked: that the programs
and options of every shell command exist, as do the installed files they name; that the sources they
name exist; that links lead somewhere; that the man pages have no fault; that every register type is in
the schema and in the tables; and that the version is the same everywhere."""

import functools
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
MAN_PAGES = sorted((ROOT / "docs/man").iterdir())
MARKDOWN = [ROOT / name for name in ("README.md", "CONTRIBUTING.md", "CHANGELOG.md")] + sorted(
    (ROOT / "docs").glob("*.md"))
OURS = {"iomap", "iomappingd", "iomap-mqtt", "iomap-sim"}
# Whose --help does not tell, or not all of it.
HELP = {"gdbus": ["gdbus", "{0}", "--help"],
        "cmake": ["sh", "-c", "cmake --help; cmake --build; cmake --install"],
        "g++": ["g++", "-v", "--help"], "man": ["man", "--help"],
        "apt": ["man", "apt-get"], "journalctl": ["journalctl", "--help"]}
SHELL_WORDS = {"cd", "do", "done", "echo", "exit", "export", "for", "read", "while"}
# What only a document's reader has: programs that it has him build.
EXAMPLES = {"./blink", "blink.sh"}
# An inline text with blanks that begins with one of these is a command.
INLINE = OURS | {"./dev", "sudo", "cmake", "ctest", "systemctl", "journalctl", "busctl", "gdbus"}
# What the root holds besides sources; the ends of names that only sources have; and what the names of
# files have in them that the reader is to write.
NO_SOURCES = {".git", "build"}
SOURCES = (".cpp", ".h", ".c", ".py")
PLACEHOLDERS = re.compile("NEW|AB10")

faults = []


def fault(file, text):
    faults.append(f"{file.relative_to(ROOT)}: {text}")


# ---- commands


def blocks(text):
    """The commands of a Markdown text: shell blocks, prompts in console blocks, inline ones."""
    fences = re.findall(r"^ *```(\w*)\n(.*?)^ *```", text, re.M | re.S)
    for kind, body in fences:
        lines = body.replace("\\\n", " ").splitlines()
        if kind == "sh":
            yield "\n".join(lines)
        elif kind == "console":
            yield from (line.strip()[2:] for line in lines if line.strip().startswith("$ "))
    prose = re.sub(r"^ *```.*?^ *```", "", text, flags=re.M | re.S)
    for span in re.findall(r"`([^`\n]+)`", prose):
        if " " in span and span.split()[0] in INLINE and ": " not in span:
            yield re.sub(r"\.\.\.|[\[\]|]", " ", span)


def man_commands(text):
    for body in re.findall(r"^\.Bd -literal -offset indent\n(.*?)^\.Ed", text, re.M | re.S):
        if not body.startswith(("{", "address")):
            yield body.replace("\\-", "-")


def simple_commands(script):
    """The commands that a script is made of, as lists of words."""
    script = re.sub(r"(^|\s)#.*$", "", script, flags=re.M).replace("$(", " ; ").replace("\n", " ; ")
    lexer = shlex.shlex(script, posix=True, punctuation_chars=True)
    lexer.whitespace_split = True
    words = []
    for word in [*lexer, ";"]:
        if not set(word) <= set("();|&<>"):
            words.append(word)
            continue
        while words and (words[0] in ("sudo", "do") or re.match(r"\w+=", words[0])):
            words = words[1:]
        if words:
            yield words
        words = []


@functools.lru_cache(None)
def help_text(program, subcommand):
    command = [part.format(subcommand) for part in HELP.get(program, [program, "--help"])]
    if program in OURS:
        command = [build / program, "--help"]
        if subcommand:
            command.insert(1, subcommand)
    try:
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              env={**os.environ, "MANWIDTH": "200"}, timeout=60)
    except FileNotFoundError:
        return None
    return done.stdout if program not in OURS or done.returncode == 0 else None


def has(text, option):
    return re.search(r"(?<![\w-])" + re.escape(option) + r"(?![\w-])", text) is not None


def check_command(file, words):
    program, arguments = words[0], words[1:]
    if program in SHELL_WORDS | EXAMPLES:
        return
    if program == "./dev":
        text = subprocess.run([ROOT / "dev", "help"], capture_output=True, text=True).stdout
        if not re.search(rf"^  {re.escape(arguments[0])}( |$)", text, re.M):
            fault(file, f"./dev has no command {arguments[0]}")
        arguments = arguments[1:]
    else:
        plain = [word for word in arguments if not word.startswith("-")]
        subcommand = plain[0] if program in OURS | {"gdbus"} and plain else ""
        text = help_text(program, subcommand if program != "iomappingd" else "")
        if text is None:
            fault(file, f"there is no {program} {subcommand}: {shlex.join(words)}")
            return
    if "--" in arguments:
        arguments = arguments[:arguments.index("--")]
    for option in arguments:
        if re.match(r"-[^0-9]", option) and not option_exists(text, option.split("=")[0]):
            fault(file, f"{program} has no option {option}: {shlex.join(words)}")
    for path in arguments:
        if path.startswith("/usr/") and not (staged / path[1:]).exists():
            fault(file, f"{path} is not installed: {shlex.join(words)}")


def option_exists(text, option):
    """Long ones as they are; single letters also joined, or with their argument behind."""
    if option.startswith("--"):
        return has(text, option)
    letters = option[1:]
    return has(text, option) or has(text, option[:2]) or all(has(text, "-" + c) for c in letters)


def check_commands():
    count = 0
    for file in MARKDOWN + MAN_PAGES:
        text = file.read_text()
        for script in (man_commands if file in MAN_PAGES else blocks)(text):
            for words in simple_commands(script):
                check_command(file, words)
                count += 1
    return count


# ---- sources


def sources():
    """The paths of all files and folders of the repository, from its root."""
    for directory, folders, files in os.walk(ROOT):
        here = pathlib.Path(directory).relative_to(ROOT)
        folders[:] = set(folders) - (NO_SOURCES if directory == str(ROOT) else set())
        yield from (here / name for name in folders + files)


def check_sources():
    """An inline text is the path of a source if its first folder is one of ours, if it is a folder, or
    if it ends as only sources do. A name without a folder may be anywhere."""
    paths = set(sources())
    names = {path.name for path in paths}
    ours = {path.name for path in paths if len(path.parts) == 1}
    count = 0
    for file in MARKDOWN:
        if file.name == "CHANGELOG.md":
            continue  # It may tell of what has gone.
        prose = re.sub(r"^ *```.*?^ *```", "", file.read_text(), flags=re.M | re.S)
        for span in re.findall(r"`([\w.+-][\w.+/-]*)`", prose):
            path = pathlib.Path(span)
            is_ours = "/" in span and path.parts[0] in ours
            if not is_ours and not span.endswith((*SOURCES, "/")) or PLACEHOLDERS.search(span):
                continue
            count += 1
            if path not in paths and (len(path.parts) > 1 or path.name not in names):
                fault(file, f"there is no {span}")
    return count


# ---- links, man pages, versions


def anchors(file):
    prose = re.sub(r"^```.*?^```", "", file.read_text(), flags=re.M | re.S)
    for heading in re.findall(r"^#+ (.*)$", prose, re.M):
        yield re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")


def check_links():
    for file in MARKDOWN:
        for link in re.findall(r"\]\(([^)\s]+)\)", file.read_text()):
            if link.startswith("http"):
                continue
            path, _, anchor = link.partition("#")
            target = (file.parent / path).resolve() if path else file
            if not target.exists():
                fault(file, f"{link} leads nowhere")
            elif anchor and anchor not in anchors(target):
                fault(file, f"{link}: there is no such heading")


def check_man_pages():
    for page in MAN_PAGES:
        for command in (["mandoc", "-T", "lint", "-W", "warning"],
                        ["man", "--warnings", "--local-file", "-Tutf8", "-Z"]):
            done = subprocess.run([*command, page], capture_output=True, text=True,
                                  env={**os.environ, "LC_ALL": "C.UTF-8", "MANWIDTH": "80"})
            told = done.stderr + (done.stdout if command[0] == "mandoc" else "")
            if done.returncode != 0 or told:
                fault(page, f"{command[0]}: {told}")


def register_types():
    """The names of all types in the order of their numbers, as the refusal of another name has them."""
    refusal = subprocess.run([build / "iomap", "list", "--type", "none"], capture_output=True,
                             text=True).stderr
    match = re.search(r"; the types are (.*); see ", refusal)
    return match[1].split(", ") if match else []


def check_types():
    types = register_types()
    if len(types) < 31:
        faults.append(f"iomap names only these types: {types}")
    schema = json.loads((ROOT / "data/io-mapping.schema.json").read_text())
    tables = {
        "data/io-mapping.schema.json": list(enumerate(
            schema["$defs"]["field"]["properties"]["type"]["enum"])),
        "docs/map-file.md": re.findall(
            r"^\| (\d+) \| `(\w+)` \|", (ROOT / "docs/map-file.md").read_text(), re.M),
        "docs/man/io-mapping-map.5": [(number, name) for name, number in re.findall(
            r"^\.It Li (\w+) Ta (\d+) Ta ", (ROOT / "docs/man/io-mapping-map.5").read_text(), re.M)],
    }
    for file, rows in tables.items():
        found = {name: int(number) for number, name in rows}
        for number, name in enumerate(types):
            # The order of the schema's names means nothing.
            if name not in found or file.startswith("docs/") and found[name] != number:
                faults.append(f"{file}: the register type {name} with number {number} is missing")
        if len(rows) != len(types) or found.keys() - set(types):
            faults.append(f"{file}: has other or more types: {sorted(found.keys() - set(types))}")
    return types


def check_versions():
    found = {}
    for name, pattern in (("CMakeLists.txt", r"^project\(.* VERSION ([\d.]+)"),
                          ("CHANGELOG.md", r"^## ([\d.]+)"),
                          ("debian/changelog", r"\A[\w-]+ \(([\d.]+)\)")):
        match = re.search(pattern, (ROOT / name).read_text(), re.M)
        found[name] = match and match.group(1)
    if None in found.values() or len(set(found.values())) != 1:
        faults.append(f"the versions differ: {found}")


if len(sys.argv) != 2:
    sys.exit("documents_test: expected BUILD_DIR, where iomap has been built")
build = pathlib.Path(sys.argv[1]).resolve()
with tempfile.TemporaryDirectory() as directory:
    staged = pathlib.Path(directory)
    subprocess.run(["cmake", "--install", build, "--prefix", staged / "usr"], check=True,
                   stdout=subprocess.DEVNULL)
    commands = check_commands()
named = check_sources()
check_links()
check_man_pages()
types = check_types()
check_versions()
if commands < 100:
    faults.append(f"only {commands} commands were found in the documents")
if named < 100:
    faults.append(f"only {named} sources were found in the documents")
if faults:
    sys.exit("documents_test:\n" + "\n".join(faults))
print(f"documents_test: {commands} commands, {named} sources, {len(MARKDOWN)} documents, "
      f"{len(MAN_PAGES)} man pages, {len(types)} register types")
