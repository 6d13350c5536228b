"""That every folder includes only what the table "Where things are" of CONTRIBUTING.md lets it.

    includes_test.py ROOT      the root of the tree
"""

import pathlib
import re
import sys

GROUND_FLOOR = {
    "plugin/stsapi.h",
    "plugin/stspi_entries.h",
    "plugin/throttling_log.h",
    "plugin/version_mark.h",
}
STUBS = {"vlsl.hh", "vlsl_support.h"}  # included as <...>; they are of interfaces/
INCLUDE = re.compile(r'^\s*#\s*include\s+([<"])([^>"]+)[>"]', re.MULTILINE)


def rows(text):
    """Of each folder of the table, the set of folders that it may include; None for all."""
    allowed = {}
    lines = text[text.index("## Where things are") :].splitlines()
    for line in lines[lines.index("| --- | --- | --- |") + 1 :]:
        if not line.startswith("|"):
            return allowed
        folders, _, may = (cell.strip() for cell in line.strip("|").split("|"))
        for folder in re.findall("`([^`]+)`", folders):
            if may == "all":
                allowed[folder] = None
                continue
            allowed.setdefault(folder, set())
            # `x/`: `y/` is a right of the room x alone.
            for room, other in re.findall("(?:`([^`]+)`: )?`([^`]+)`", may):
                allowed.setdefault(folder + room, set()).add(other)


def wrong_includes(root):
    """What is included against the table, and how many includes were looked at."""
    table = rows((root / "CONTRIBUTING.md").read_text())
    wrong, seen = [], 0
    for file in sorted(root.glob("*/**/*")):
        name = file.relative_to(root).as_posix()
        homes = [folder for folder in table if name.startswith(folder)]
        if file.suffix not in (".h", ".cpp", ".c") or not homes:
            continue
        if any(table[home] is None for home in homes):
            continue
        may = set(homes).union(*(table[home] for home in homes))
        for mark, included in INCLUDE.findall(file.read_text()):
            if mark == "<":
                if included not in STUBS:
                    continue
                included = "interfaces/" + included
            seen += 1
            if included not in GROUND_FLOOR and not included.startswith(tuple(may)):
                wrong.append("%s may not include %s" % (name, included))
    return wrong, seen


def main():
    wrong, seen = wrong_includes(pathlib.Path(sys.argv[1]))
    if seen < 100:
        wrong.append("only %d includes were found" % seen)
    print("\n".join(wrong))
    sys.exit(1 if wrong else 0)


if __name__ == "__main__":
    main()
