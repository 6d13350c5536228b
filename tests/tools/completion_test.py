"""Completion as a person at a terminal has it: bash, zsh and fish are typed into, and what they then hand
over to the program is looked at. A shell that isn't installed is named and passed over; bash is always there.

Usage: completion_test.py THROTTLECTL COMPLETION
COMPLETION has the files that the shells read.
"""

import os
import pty
import select
import shutil
import subprocess
import sys
import tempfile
import time

from help_text import help_of, section_of_help

throttlectl, completion = sys.argv[1:]
wrong = []
scratch = tempfile.mkdtemp()
store = os.path.join(scratch, "store")
server = f"CS_throttle:t1:disk:{store}"
hostile = "we'ek $(touch pwned);*"
os.environ.update(VL_CONF_DIR=scratch, LC_ALL="C.UTF-8", HOME=scratch)


def run(*arguments):
    subprocess.run([throttlectl, *arguments], check=True, capture_output=True)


def completed(*words):
    """What the program itself says: the words that may stand there."""
    told = subprocess.run([throttlectl, "complete", "--", *words], check=True, capture_output=True, text=True)
    if told.stderr:
        wrong.append(f"complete {words}: says {told.stderr}")
    return [line.split("\t")[0] for line in told.stdout.splitlines()]


def expect(what, seen, wanted):
    if seen != wanted:
        wrong.append(f"{what}: {seen}, not {wanted}")


# --- the program ------------------------------------------------------------------------------------
def walk(path):
    """Every command and every option that the help tells of, and no other command."""
    text = help_of([throttlectl] + path)
    commands = section_of_help(text, "Subcommands")
    if commands:
        expect(f"commands of {path}", completed(*path, ""), sorted(commands))
    offered = completed(*path, "-")
    for line in section_of_help(text, "Options"):
        option = line.split(" ")[0].split(",")[-1].split("=")[0]
        if option not in offered:
            wrong.append(f"{path}: {option} isn't offered")
    for each in commands:
        walk(path + [each])


def try_program():
    walk([])
    expect("no server before a storage is known", completed("lsu", "list", "--server", ""), ["CS_throttle:t1:disk:"])
    expect("an unknown storage", completed("lsu", "show", "--server", server, ""), [])
    expect("what asking leaves", os.listdir(scratch), [])
    run("run", "backup", completion, "--server", server, "--lsu", "daily", "--name", "monday")
    run("lsu", "create", hostile, "--server", server)
    run("lsu", "create", "line\nfeed", "--server", server)
    before = open(os.path.join(scratch, "libstspithrottling.conf"), encoding="utf-8").read()
    expect("servers", completed("lsu", "list", "--server", ""), [server])
    expect("servers to configure", completed("config", "get", "--server", ""), [server.replace(":t1:", ":global:")])
    expect("another type", completed("lsu", "list", "--server=CS_throttle:x:"),
           ["--server=" + server.replace(":t1:", ":x:")])
    expect("directories", completed("lsu", "list", "--server", server[:-2]), [server, server + "/"])
    expect("LSUs", completed("run", "list", "--server", server, "--lsu", ""), ["daily", hostile])
    expect("LSUs by their place", completed("lsu", "show", "--server", server, "d"), ["daily"])
    expect("the other server's LSUs", completed("image", "copy", "--server", "x", "--to-server", server, "--to-lsu", "d"),
           ["daily"])
    expect("images", completed("image", "show", "--server", server, "--lsu", "daily", "m"), ["monday.1of1"])
    expect("more images", completed("image", "delete", "a", "--server", server, "--lsu", "daily", "b", "m"),
           ["monday.1of1"])
    expect("backups", completed("run", "restore", "--lsu=daily", "--server", server, "--name", ""), ["monday"])
    expect("groups", completed("image", "list", "--lsu=daily", "--server", server, "--group", ""), ["monday"])
    expect("no server that is none", completed("image", "show", "--server", "", "--lsu", "daily", ""), [])
    expect("keys", completed("config", "get", "THR:SAM"), ["THR:SAMPLE_INTERVAL"])
    expect("settings", completed("config", "set", "THR:/"), [f"THR:{store}="])
    expect("directions", completed("preview", "--direction", ""), ["read", "write"])
    expect("kinds", completed("events", "--kind", "lsu-d"), ["lsu-deleted"])
    expect("entries", completed("call", "read_image_v"), ["read_image_v7"])
    expect("another directory of settings", completed("--conf-dir", "/no/such", "lsu", "list", "--server", server),
           [server + "/"])
    expect("nothing but arguments behind --", completed("lsu", "create", "--", "-"), [])
    expect("nothing behind what is too much", completed("lsu", "show", "a", "b", ""), [])
    expect("no words at all", completed(), completed(""))
    expect("what isn't asked for", "complete" in completed(""), False)
    shutil.move(store, store + ".gone")
    expect("a store that is gone", completed("run", "list", "--server", server, "--lsu", ""), [])
    expect("a store that is gone stays so", os.path.exists(store), False)
    shutil.move(store + ".gone", store)
    expect("the settings afterwards", open(os.path.join(scratch, "libstspithrottling.conf"), encoding="utf-8").read(),
           before)


# --- the shells -------------------------------------------------------------------------------------
WRAPPER = """#!/bin/sh
if [ "$1" = complete ]; then exec "$REAL" "$@"; fi
{ printf '%s\\0' "$@"; } >"$HANDED.new" && mv "$HANDED.new" "$HANDED"
"""


class Shell:
    """A shell at a terminal of its own."""

    def __init__(self, command, setup):
        self.handed = os.path.join(scratch, "handed")
        pid, self.terminal = pty.fork()
        if pid == 0:
            os.chdir(os.path.join(scratch, "here"))
            os.execvpe(command[0], command, {
                **os.environ, "PATH": os.path.join(scratch, "bin") + ":" + os.environ["PATH"], "REAL": throttlectl,
                "HANDED": self.handed, "TERM": "xterm", "INPUTRC": "/dev/null", "COLUMNS": "400", "PS1": "$ "})
        self.pid = pid
        self.shown = b""
        self.write(setup + "\r")
        self.write("echo re''ady\r")
        self.wait(lambda: b"ready\r" in self.shown)

    def write(self, text):
        os.write(self.terminal, text.encode())

    def wait(self, is_done):
        end = time.monotonic() + 60
        while not is_done():
            if time.monotonic() > end:
                raise RuntimeError("the shell doesn't go on:\n" + self.shown.decode(errors="replace"))
            if select.select([self.terminal], [], [], 0.02)[0]:
                self.shown += os.read(self.terminal, 65536)
                if b"\x1b[c" in self.shown or b"\x1b[0c" in self.shown:  # it asks what terminal this is
                    self.shown = self.shown.replace(b"\x1b[c", b"").replace(b"\x1b[0c", b"")
                    self.write("\x1b[?62c")

    def hands(self, typed):
        """The arguments that the program gets for what is typed, of which each tab asks for completion."""
        if os.path.exists(self.handed):
            os.remove(self.handed)
        self.write(typed + "\r")
        self.wait(lambda: os.path.exists(self.handed))
        with open(self.handed, encoding="utf-8") as file:
            return file.read().split("\0")[:-1]

    def end(self):
        os.close(self.terminal)
        os.waitpid(self.pid, 0)


def try_shell(name, command, setup):
    shell = Shell(command, setup)
    for typed, handed in [
            ("run ba\t", ["run", "backup"]),
            ("run list --serv\t", ["run", "list", "--server"]),
            ("run list --server CS_\t", ["run", "list", "--server", server]),
            (f"run list --server {server[:-4]}\t x", ["run", "list", "--server", server, "x"]),
            (f"run list --server {server} --lsu d\t", ["run", "list", "--server", server, "--lsu", "daily"]),
            (f"run list --server {server} --lsu w\t", ["run", "list", "--server", server, "--lsu", hostile]),
            (f"image show --lsu daily --server {server} mon\t",
             ["image", "show", "--lsu", "daily", "--server", server, "monday.1of1"]),
            ("config set THR:SAM\t5", ["config", "set", "THR:SAMPLE_INTERVAL=5"]),
            ("run backup a-f\t", ["run", "backup", "a-file"])]:
        expect(f"{name}, {typed!r}", shell.hands("throttlectl " + typed), handed)
    expect(f"{name}, what a name makes happen", os.listdir(os.path.join(scratch, "here")), ["a-file"])
    shell.end()


try:
    try_program()
    os.makedirs(os.path.join(scratch, "here"))
    os.makedirs(os.path.join(scratch, "bin"))
    open(os.path.join(scratch, "here", "a-file"), "w", encoding="utf-8").close()
    with open(os.path.join(scratch, "bin", "throttlectl"), "w", encoding="utf-8") as file:
        file.write(WRAPPER)
    os.chmod(os.path.join(scratch, "bin", "throttlectl"), 0o755)
    shutil.copy(os.path.join(completion, "throttlectl.zsh"), os.path.join(scratch, "bin", "_throttlectl"))
    for name, command, setup in [
            ("bash", ["bash", "--norc", "-i"], f"source '{completion}/throttlectl.bash'"),
            ("zsh", ["zsh", "-f", "-i"], f"fpath=({scratch}/bin $fpath); autoload -Uz compinit; compinit -u -D"),
            ("fish", ["fish", "--no-config", "-i"], f"source '{completion}/throttlectl.fish'")]:
        if shutil.which(name) is None:
            print(f"not tried: {name} isn't installed")
        else:
            try_shell(name, command, setup)
finally:
    shutil.rmtree(scratch)
for each in wrong:
    print(each, file=sys.stderr)
sys.exit(1 if wrong else 0)
