"""Holds the interface definitions to the contract that the management service's peers rely on.

    check_idl.py INTERFACES_DIR OMNIIDL IDL_PATH PLUGIN [UNITTEST_ARGUMENTS...]

IDL_PATH is the colon-separated path of what the units include from elsewhere. PLUGIN is the built
library, which carries the stubs of all of it.
"""

import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

HERE = pathlib.Path(__file__).resolve().parent
ROOTS = ("Corvane::", "Orvessa::")
KINDS = {
    "interface": "interfaces",
    "value": "values",
    "struct": "structs",
    "union": "unions",
    "exception": "exceptions",
    "enum": "enums",
    "alias": "aliases",
}
WITH_MEMBERS = ("value", "struct", "union", "exception")
WITH_REPOSITORY_ID = ("interface", "value", "exception")
UNKNOWN = r"\Avlsl_cxx: (this omniidl|the omniidl of omniORB_\S+) is none that is known here: .+\n\Z"

interfaces_dir = omniidl = idl_path = plugin = None


class Declaration:
    """One declaration, as schema.py writes it."""

    def __init__(self, text):
        self.text = text
        header, *self.lines = text.split("\n")
        match = re.match(r"(.+?) (\S+) (IDL:\S+)", header)
        self.kind, self.name, self.repository_id = match.groups()
        self.module = self.name.rpartition("::")[0]


def read_idl(path, *options):
    """What omniidl makes of the file: its complaints, and the declarations in schema.py's form."""
    includes = ["-I" + directory for directory in [str(interfaces_dir)] + idl_path.split(":")]
    command = [omniidl, "-nf", "-p", str(HERE), "-b", "schema", *includes, *options, str(path)]
    environment = {**os.environ, "PYTHONDONTWRITEBYTECODE": "1"}
    result = subprocess.run(command, capture_output=True, text=True, check=False, env=environment)
    if result.returncode != 0 and not result.stderr:
        return "omniidl ended with %d" % result.returncode, []
    texts = re.split(r"\n(?=\S)", result.stdout.strip("\n"))
    return result.stderr, [Declaration(text) for text in texts if text]


def units():
    return sorted(interfaces_dir.glob("*.idl"))


def read_together(paths, *options):
    """Reads one file that includes them all, in that order; the system's own declarations."""
    with tempfile.TemporaryDirectory() as directory:
        whole = pathlib.Path(directory, "whole.idl")
        whole.write_text("".join('#include "%s"\n' % path.name for path in paths))
        errors, declarations = read_idl(whole, "-Wball", *options)
    return errors, [d for d in declarations if d.name.startswith(ROOTS)]


def expected_modules():
    """The table of schema_counts.txt: for each module its counts by column, and its fingerprint."""
    table = HERE.joinpath("schema_counts.txt").read_text().splitlines()
    comments = [line for line in table if line.startswith("#")]
    columns = comments[-1].split()[2:]
    rows = [line.split() for line in table if line and not line.startswith("#")]
    return {name: dict(zip(columns, values)) for name, *values in rows}


def expected_units():
    """The table of schema_units.txt: the fingerprint of each unit's own declarations."""
    table = HERE.joinpath("schema_units.txt").read_text().splitlines()
    return dict(line.split() for line in table if line and not line.startswith("#"))


def fingerprint(declarations):
    texts = [d.text + "\n" for d in sorted(declarations, key=lambda d: d.name)]
    return hashlib.sha256("".join(texts).encode()).hexdigest()[:16]


def counts(declarations):
    """One module's counts and fingerprint, in the table's form."""
    row = {column: 0 for column in KINDS.values()}
    row.update(operations=0, members=0, enumerators=0)
    for declaration in declarations:
        row[KINDS[declaration.kind]] += 1
        lines = len(declaration.lines)
        if declaration.kind == "interface":
            row["operations"] += lines
        elif declaration.kind == "enum":
            row["enumerators"] += lines
        elif declaration.kind in WITH_MEMBERS:
            switch_lines = 1 if declaration.kind == "union" else 0
            row["members"] += lines - switch_lines
    row = {column: str(count) for column, count in row.items()}
    row["fingerprint"] = fingerprint(declarations)
    return row


def symbols_of(library):
    """The names that the library defines, as C++ spells them."""
    command = ["nm", "--defined-only", "--demangle", str(library)]
    text = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    return {line.split(maxsplit=2)[2] for line in text.splitlines() if len(line.split()) > 2}


def run_back_end(name, *directories):
    """Runs omniidl with a back-end, which it looks for in these directories, on a file of its own."""
    with tempfile.TemporaryDirectory() as directory:
        idl = pathlib.Path(directory, "whole.idl")
        idl.write_text("interface Thing {};\n")
        paths = [option for each in directories for option in ("-p", each)]
        command = [omniidl, *paths, "-b", name, "-C", directory, str(idl)]
        environment = {**os.environ, "PYTHONDONTWRITEBYTECODE": "1"}
        return subprocess.run(
            command, capture_output=True, text=True, check=False, env=environment
        )


def standard_back_ends():
    """Where omniidl has those that come with it."""
    with tempfile.TemporaryDirectory() as directory:
        pathlib.Path(directory, "where.py").write_text(
            "import omniidl_be\ndef run(tree, args):\n    print(omniidl_be.__path__[0])\n"
        )
        return run_back_end("where", directory).stdout.strip()


class Interfaces(unittest.TestCase):
    maxDiff = None

    def test_each_unit_holds_its_own_definitions(self):
        found = {path.stem: fingerprint(read_idl(path)[1]) for path in units()}
        self.assertEqual(found, expected_units())

    def test_every_unit_is_read_by_itself(self):
        for path in units():
            with self.subTest(unit=path.stem):
                errors, declarations = read_idl(path)
                self.assertEqual(errors, "")
                self.assertTrue(declarations, "it declares nothing of its own")

    def test_units_may_be_included_together_in_any_order_and_twice(self):
        paths = units()
        once = {d.text for d in read_together(paths)[1]}
        for order in (paths[::-1], paths + paths):
            errors, declarations = read_together(order)
            self.assertEqual(errors, "")
            self.assertEqual({d.text for d in declarations}, once)
            self.assertEqual(len(declarations), len(once))

    def test_each_module_holds_what_its_peers_know(self):
        """The table is of the definitions as any ORB reads them, not omniidl alone."""
        errors, declarations = read_together(units(), "-U__OMNIIDL__")
        self.assertEqual(errors, "")
        found = {}
        for declaration in declarations:
            found.setdefault(declaration.module, []).append(declaration)
        expected = expected_modules()
        self.assertEqual(sorted(found), sorted(expected))
        for module, row in expected.items():
            with self.subTest(module=module):
                self.assertEqual(counts(found[module]), row)

    def test_repository_ids_are_the_full_name_at_version_1_0(self):
        errors, declarations = read_together(units())
        self.assertEqual(errors, "")
        for declaration in declarations:
            expected = "IDL:" + declaration.name.replace("::", "/") + ":1.0"
            self.assertEqual(declaration.repository_id, expected)

    def test_what_omniidl_reads_instead_is_the_same_on_the_wire(self):
        own = [d.text for d in read_together(units(), "-Wbwire")[1]]
        others = [d.text for d in read_together(units(), "-Wbwire", "-U__OMNIIDL__")[1]]
        self.assertEqual(own, others)

    def test_the_plugin_has_the_stubs_of_all_of_it(self):
        symbols = symbols_of(plugin)
        operations = {name.partition("(")[0] for name in symbols if "::_objref_" in name}
        for declaration in read_together(units())[1]:
            if declaration.kind in WITH_REPOSITORY_ID:
                self.assertIn(declaration.name + "::_PD_repoId", symbols)
            if declaration.kind == "interface":
                _, _, simple_name = declaration.name.rpartition("::")
                stub = "%s::_objref_%s::" % (declaration.module, simple_name)
                for line in declaration.lines:
                    self.assertIn(stub + line.strip().partition("(")[0], operations)

    def test_an_orb_with_other_templates_is_told_in_one_line(self):
        for name, text, other in (
            ("value.py", "#ifdef OMNI_HAVE_COVARIANT_RETURNS", "#if 1"),  # when it is imported
            ("value.py", "omniValueType::marshal(", "omniValueType::write("),
            ("header/template.py", "// Constructors", "// How it is made"),
            ("skel/template.py", "interface_pof =", "interface_factory ="),
            ("skutil.py", None, None),
        ):
            with self.subTest(name=name, text=text), tempfile.TemporaryDirectory() as directory:
                changed = pathlib.Path(directory, "omniidl_be", "cxx", name)
                shutil.copytree(standard_back_ends(), pathlib.Path(directory, "omniidl_be"))
                if text is None:
                    changed.unlink()
                else:
                    self.assertIn(text, changed.read_text())
                    changed.write_text(changed.read_text().replace(text, other))
                result = run_back_end("vlsl_cxx", directory, str(interfaces_dir))
                self.assertNotEqual(result.returncode, 0)
                self.assertRegex(result.stderr, UNKNOWN)


if __name__ == "__main__":
    interfaces_dir = pathlib.Path(sys.argv[1])
    omniidl, idl_path, plugin = sys.argv[2:5]
    unittest.main(argv=[sys.argv[0]] + sys.argv[5:])
