"""An omniidl back-end that lists every operation of an interface, the inherited ones too.

    omniidl -p tests/service -b every_operation -WbFILE -WbINTERFACE... units.idl

FILE gets, for each INTERFACE as Module::Name, a line OPERATION(Module::Name, name) for each operation.
"""

from omniidl import idlast
from omniidl_be.cxx import ast, id


def lines(scoped_name):
    node = idlast.findDecl(scoped_name)
    interface = id.Name(node.scopedName()).fullyQualify()
    return ["OPERATION({}, {})\n".format(interface, id.mapID(each.identifier()))
            for base in [node] + ast.allInherits(node) for each in base.callables()]


def run(_tree, args):
    """Entry point of a back-end."""
    with open(args[0], "w", encoding="ascii") as out:
        for each in args[1:]:
            out.writelines(lines(each.split("::")))
