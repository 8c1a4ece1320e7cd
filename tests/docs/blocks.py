#!/usr/bin/env python3
"""The code blocks of the documentation, so that they can be compiled and run.

blocks.py cpp FOLDER PAGE...   writes each program of the pages to FOLDER, and their snippets to FOLDER/snippets.inc;
                               prints the names of the programs
blocks.py run PAGE             runs the commands of a page, in a folder of its own; `qrapi` must be in the path

What a block is stands behind its opening fence:

cpp              with a main: a program that is compiled and must end with status 0. Without: the body of a function that
                 gets an open detector; it must not throw
sh               commands, a line each: `qrapi` is run, of `./dev` the command's name is looked up
sh hardware      the same, but they need a detector that isn't there: only their form is checked
sh elsewhere     commands that another test runs
console          commands behind a "$ ", with what they say; one whose first line is an error must fail with that
config           a sensor configuration file
python           is compiled, but not run: what it needs need not be here
cmake elsewhere  what another test builds with
text, mermaid    no code
"""

import os
import re
import shlex
import signal
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
KINDS = ("cpp", "sh", "sh hardware", "sh elsewhere", "console", "config", "python", "cmake elsewhere", "text", "mermaid")
PATIENCE_S = 100


def blocks_of(page):
    """(kind, line of the first line, text) of each block."""
    blocks, kind, first, lines = [], None, 0, []
    with open(page, encoding="utf-8") as text:
        for number, line in enumerate(text, 1):
            if not line.startswith("```"):
                if kind is not None:
                    lines.append(line)
            elif kind is None:
                kind, first, lines = line[3:].strip(), number + 1, []
                if kind not in KINDS:
                    sys.exit(f"{page}:{number}: a block is one of {', '.join(KINDS)}, not '{kind}'")
            else:
                blocks.append((kind, first, "".join(lines)))
                kind = None
    if kind is not None:
        sys.exit(f"{page}:{first}: the block has no end")
    return blocks


def write_changed(path, text):
    if os.path.exists(path):
        with open(path, encoding="utf-8") as old:
            if old.read() == text:
                return
    with open(path, "w", encoding="utf-8") as new:
        new.write(text)


def name_of(page, line):
    short = os.path.relpath(page, ROOT).removesuffix(".md").removeprefix("docs/")
    return re.sub(r"\W", "_", short) + f"_{line}"


def write_cpp(folder, pages):
    os.makedirs(folder, exist_ok=True)
    programs, functions, table = [], [], []
    for page in pages:
        for kind, line, text in blocks_of(page):
            if kind != "cpp":
                continue
            name, place = name_of(page, line), f'#line {line} "{os.path.relpath(page, ROOT)}"\n'
            if re.search(r"\bint main\(", text):
                write_changed(os.path.join(folder, name + ".cpp"), place + text)
                programs.append(name)
            else:
                functions.append(f"void {name}([[maybe_unused]] QuorinDetector& detector) {{\n{place}{text}}}\n")
                table.append(f'    {{"{name}", {name}}},\n')
    # What follows the snippets in the file that includes them tells lines of its own again.
    write_changed(
        os.path.join(folder, "snippets.inc"),
        "".join(functions) + '#line 1 "the table of the snippets"\nconst Snippet snippets[] = {\n' + "".join(table) + "};\n",
    )
    print(";".join(programs), end="")


def dev_commands():
    text = subprocess.run(["bash", os.path.join(ROOT, "dev"), "help"], capture_output=True, text=True, check=True).stdout
    return re.findall(r"^  (\w+)", text, re.MULTILINE)


def run_command(command, place, allowed):
    """Runs one line. Whoever watches for ever is interrupted."""
    process = subprocess.Popen(["bash", "-c", "exec " + command], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                               stderr=subprocess.STDOUT, text=True, start_new_session=True)
    endless = "--watch" in command
    try:
        said, _ = process.communicate("y\n", timeout=2 if endless else PATIENCE_S)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGINT if endless else signal.SIGKILL)
        said, _ = process.communicate()
    status = process.returncode
    print(f"{place}: {command}: {status}", flush=True)
    if status not in (allowed if not endless else (130,)):
        sys.exit(f"{place}: {command}\nended with status {status}:\n{said}")
    return said


def run_line(line, place, kind, known):
    words = shlex.split(line, comments=True)
    if not words:
        return
    if words[0] == "./dev":
        if words[1] not in known:
            sys.exit(f"{place}: ./dev has no command {words[1]}")
    elif words[0] == "qrapi":
        run_command(line, place, (0, 1) if kind == "sh hardware" else (0,))
    else:
        sys.exit(f"{place}: {words[0]}: only qrapi and ./dev are run here; another test's commands are `sh elsewhere`")


def run_page(page):
    known = dev_commands()
    blocks = blocks_of(page)
    with tempfile.TemporaryDirectory(prefix="qrapi-docs-") as folder:
        os.chdir(folder)
        os.mkdir("frames")
        with open("image.bin", "wb") as image:
            image.write(bytes(range(256)) * 8)
        for kind, first, text in blocks:
            if kind == "config":
                with open("panel.cfg", "w", encoding="utf-8") as settings:
                    settings.write(text)
                run_command("qrapi config load panel.cfg --check", f"{page}:{first}", (0,))
        if not os.path.exists("panel.cfg"):
            with open("panel.cfg", "w", encoding="utf-8") as settings:
                settings.write("W001700001\n")
        for kind, first, text in blocks:
            lines = text.splitlines() + [""]
            for offset, line in enumerate(lines[:-1]):
                place = f"{page}:{first + offset}"
                if kind in ("sh", "sh hardware"):
                    run_line(line, place, kind, known)
                elif kind == "console" and line.startswith("$ "):
                    answer = lines[offset + 1]
                    fails = answer.startswith(("error:", '{"error"'))
                    said = run_command(line[2:], place, (1, 2) if fails else (0,))
                    # Behind it stand lines of the source, which move.
                    if answer.startswith("error:") and answer.split(" (code")[0] not in said:
                        sys.exit(f"{place}: the answer isn't\n{answer}\nbut\n{said}")
            if kind == "python":
                compile(text, f"{page}:{first}", "exec")
        os.chdir(ROOT)


if __name__ == "__main__":
    if len(sys.argv) > 3 and sys.argv[1] == "cpp":
        write_cpp(sys.argv[2], sys.argv[3:])
    elif len(sys.argv) == 3 and sys.argv[1] == "run":
        run_page(os.path.abspath(sys.argv[2]))
    else:
        sys.exit(__doc__)
