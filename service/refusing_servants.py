"""An omniidl back-end that makes servants which refuse every operation.

    omniidl -p service -b refusing_servants -WbHEADER -WbFILE -WbINTERFACE... units.idl

For each INTERFACE, as Module::Name, FILE gets a class refusing::Name. It is a servant whose operations,
the inherited ones too, all raise CORBA::NO_IMPLEMENT: a class derived from it writes only those that
it answers. HEADER is that of the C++ skeletons.
"""

from omniidl import idlast
from omniidl_be.cxx import ast, id, types

PROLOGUE = """\
// Made by refusing_servants.py: servants that refuse every operation.
#pragma once

#include <{header}>

namespace refusing {{
"""

CLASS = """
class {name} : public virtual POA_{interface} {{
  public:
{operations}
}};
"""

OPERATION = "    {result} {name}({parameters}) override {{ throw CORBA::NO_IMPLEMENT(); }}"


def operation(node):
    parameters = [types.Type(each.paramType()).op(types.direction(each), use_out=0)
                  for each in node.parameters()]
    return OPERATION.format(result=types.Type(node.returnType()).op(types.RET),
                            name=id.mapID(node.identifier()), parameters=", ".join(parameters))


def servant(scoped_name):
    node = idlast.findDecl(scoped_name)
    operations = [operation(each) for each in sum(
        (interface.callables() for interface in [node] + ast.allInherits(node)), [])]
    return CLASS.format(name=node.identifier(), operations="\n".join(operations),
                        interface=id.Name(node.scopedName()).fullyQualify())


def run(_tree, args):
    """Entry point of a back-end."""
    header, file, *interfaces = args
    with open(file, "w", encoding="ascii") as out:
        out.write(PROLOGUE.format(header=header))
        out.writelines(servant(each.split("::")) for each in interfaces)
        out.write("\n} // namespace refusing\n")
