"""That every folder and every room includes only what the tables of CONTRIBUTING.md let it: "Where things
are" for the folders, those below "### Rooms of `FOLDER/`" for the rooms of one; that a room's tests stand in a
folder of its name; and that the ground floor of plugin/ is all that others include of it.

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


def rooms_of(text):
    """Of each room of each folder that is divided, the folder and what of it the room may include. A room may
    include those above it in its table alone, so that no circle can be drawn."""
    found = {}
    for part in re.split("^### Rooms of ", text, flags=re.MULTILINE)[1:]:
        folder = re.match("`([^`]+)`", part).group(1)
        above = set()
        for line in re.search(r"(?:^\|.*\n)+", part, re.MULTILINE).group(0).splitlines()[2:]:
            room, _, may = (cell.strip() for cell in line.strip("|").split("|"))
            room = folder + room.strip("`")
            others = {folder + other for other in re.findall("`([^`]+)`", may)}
            assert others <= above, "%s may include what isn't above it" % room
            above.add(room)
            found[room] = (folder, others)
    return found


def room_of(name, rooms):
    """The innermost room that a file stands in; none for one above all rooms."""
    return max((room for room in rooms if name.startswith(room)), key=len, default=None)


def is_from_other_room(name, included, rooms):
    """Whether a room includes of its folder what is neither its own nor given to it."""
    room = room_of(name, rooms)
    if room is None:
        return False
    folder, others = rooms[room]
    return included.startswith(folder) and not included.startswith((room, *others))


def homeless(root, rooms):
    """Folders within a divided one, and of its tests, that are no rooms."""
    wrong = []
    for folder in {folder for folder, _ in rooms.values()}:
        for top in ("", "tests/"):
            for inner in sorted((root / top / folder).glob("**/")):
                name = inner.relative_to(root / top).as_posix() + "/"
                if name != folder and name not in rooms and inner.name != "__pycache__":
                    wrong.append("%s is no room of %s" % (top + name, folder))
    return wrong


def wrong_includes(root):
    """What is included against the table, and how many includes were looked at."""
    text = (root / "CONTRIBUTING.md").read_text()
    table, rooms = rows(text), rooms_of(text)
    wrong, seen = homeless(root, rooms), 0
    ground = re.search("the ground floor: (.*?)\n\n", text, re.DOTALL).group(1)
    if set(re.findall("`(plugin/[^`]+)`", ground)) != GROUND_FLOOR:
        wrong.append("CONTRIBUTING.md names another ground floor")
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
            if included in GROUND_FLOOR:
                continue
            if (
                not included.startswith(tuple(may))
                or is_from_other_room(name, included, rooms)
                or (included.startswith("plugin/") and not name.startswith("plugin/"))
            ):
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
