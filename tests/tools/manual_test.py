"""The manual pages tell of every command, every option and every setting that there is, and of no other.

Usage: manual_test.py THROTTLECTL VLSLD SOURCES MADE
SOURCES has the pages' sources, MADE the pages.
"""

import os
import re
import subprocess
import sys
import tempfile

from help_text import help_of, section_of_help

throttlectl, vlsld, sources, made = sys.argv[1:]
wrong = []


def options_of_help(text):
    """Each as "-s, --long VALUE": its names and what it takes."""
    options = set()
    for line in section_of_help(text, "Options"):
        line = re.sub(r" (?:REQUIRED|Excludes:|Needs:).*", "", line)
        line = re.sub(r"=.*", "", line)
        options.add(line.removesuffix(" ...").replace(",", ", "))
    return options


def sections_of(page):
    """The sections of a page by title, each with the options that stand in it; and the titles of its commands."""
    sections = {}
    commands = set()
    chapter = title = ""
    for line in open(os.path.join(sources, page + ".scd"), encoding="utf-8"):
        if heading := re.match(r"(##?) (.*)", line):
            title = heading[2]
            sections[title] = set()
            if heading[1] == "#":
                chapter = title
            elif chapter == "COMMANDS":
                commands.add(title)
        elif line.startswith("*-"):
            sections[title].add(re.sub(r"[*_]", "", line.strip()))
    return sections, commands


def compare(where, there_is, in_page):
    for each in sorted(there_is - in_page):
        wrong.append(f"{where}: \"{each}\" isn't in the manual page")
    for each in sorted(in_page - there_is):
        wrong.append(f"{where}: \"{each}\" is in the manual page alone")


def compare_options(program, page, section, inherited=frozenset()):
    text = help_of(program)
    name = " ".join([os.path.basename(program[0])] + program[1:])
    if section not in page:
        wrong.append(f"{name}: there is no section \"{section}\" in the manual page")
    compare(f"{name}, section \"{section}\"", options_of_help(text) - inherited, page.get(section, set()))
    return text


# --- the programs -----------------------------------------------------------------------------------
page, told_commands = sections_of("throttlectl.1")
everywhere = {"-h, --help"}
commands = set()


def walk(path):
    if path:
        commands.add(" ".join(path))
        text = compare_options([throttlectl] + path, page, " ".join(path), everywhere)
    else:
        text = compare_options([throttlectl], page, "OPTIONS")
    for each in section_of_help(text, "Subcommands"):
        walk(path + [each])


walk([])
compare("throttlectl, its commands", commands, told_commands)
compare_options([vlsld], sections_of("vlsld.8")[0], "OPTIONS")

# --- the settings -----------------------------------------------------------------------------------
# The plugin writes all of them at its first start, with their defaults.
with tempfile.TemporaryDirectory() as scratch:
    subprocess.run([throttlectl, "lsu", "list", "--conf-dir", scratch, "--server",
                    f"CS_throttle:global:disk:{scratch}/store"], check=True, capture_output=True)
    with open(os.path.join(scratch, "libstspithrottling.conf"), encoding="utf-8") as file:
        settings = dict(re.findall(r"^(THR:[A-Z_]+)=(.*)$", file.read(), re.M))
text = open(os.path.join(sources, "libstspithrottling.conf.5.scd"), encoding="utf-8").read()
told = dict(re.findall(r"^\*(THR:[A-Z_]+)\*=(?:.*)\n((?:\t.*\n)+)", text, re.M))
compare("libstspithrottling.conf", set(settings), set(told))
for key in settings.keys() & told.keys():
    explained = " ".join(told[key].split())
    if not re.search(rf"default(?: is|, ) ?{re.escape(settings[key])}\b", explained):
        wrong.append(f"libstspithrottling.conf: {key}: the page doesn't say that its default is {settings[key]}")

# --- the pages as they are made ---------------------------------------------------------------------
for each in sorted(os.listdir(sources)):
    if each.endswith(".scd"):
        shown = subprocess.run(
            ["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", os.path.join(made, each[:-4])],
            env={**os.environ, "MANWIDTH": "80", "LC_ALL": "C.UTF-8"}, capture_output=True, text=True)
        if shown.returncode != 0 or shown.stderr:
            wrong.append(f"{each}: man says: {shown.stderr.strip()}")
        with open(os.path.join(made, each[:-4]), encoding="utf-8") as page_made:
            if unset := re.search(r"@\w*@", page_made.read()):
                wrong.append(f"{each}: {unset[0]} is left")

for each in wrong:
    print(each, file=sys.stderr)
sys.exit(1 if wrong else 0)
