"""What a program of ours says for --help, taken apart."""

import re
import subprocess


def help_of(command):
    return subprocess.run(command + ["--help"], check=True, capture_output=True, text=True).stdout


def section_of_help(text, title):
    """The lines of a section of the help, each without what explains it: two blanks stand before that."""
    found = re.search(rf"^{title}:\n((?:  .*\n?|\n(?=  ))*)", text, re.M | re.I)
    return [re.split(r"  +", line.strip())[0] for line in (found[1] if found else "").splitlines()
            if re.match(r"  \S", line)]
