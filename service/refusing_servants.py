"""An omniidl back-end that makes servants which refuse most of their operations.

    omniidl -p service -b refusing_servants -WbHEADER -WbFILE -WbINTERFACE=OPERATION+... units.idl

For each INTERFACE, as Module::Name, FILE gets a class refusing::Name. It is a servant that leaves the
named OPERATIONs to a class derived from it. All others, the inherited ones too, raise
CORBA::NO_IMPLEMENT, and of their arguments nothing is read. HEADER is that of the C++ skeletons.
"""

from omniidl import idlast
from omniidl_be.cxx import ast, id, types

PROLOGUE = """\
// Made by refusing_servants.py: servants that refuse most of their operations.
#pragma once

#include <cstring>
#include <omniORB4/callHandle.h>
#include <{header}>

namespace refusing {{
"""

CLASS = """
class {name} : public virtual POA_{interface} {{
  public:
    _CORBA_Boolean _dispatch(omniCallHandle& call) override {{
        static const char* const refused[] = {{
            {names}}};
        for (const char* each : refused) {{
            if (std::strcmp(each, call.operation_name()) == 0) {{
                throw CORBA::NO_IMPLEMENT();
            }}
        }}
        return POA_{interface}::_dispatch(call);
    }}

{operations}
}};
"""

OPERATION = "    {result} {name}({parameters}) override {{ throw CORBA::NO_IMPLEMENT(); }}"


def operation(node):
    parameters = [types.Type(each.paramType()).op(types.direction(each), use_out=0)
                  for each in node.parameters()]
    return OPERATION.format(result=types.Type(node.returnType()).op(types.RET),
                            name=id.mapID(node.identifier()), parameters=", ".join(parameters))


def servant(scoped_name, answered):
    node = idlast.findDecl(scoped_name)
    operations = sum((each.callables() for each in [node] + ast.allInherits(node)), [])
    unknown = set(answered) - {each.identifier() for each in operations}
    if unknown:
        raise SystemExit("refusing_servants: {} has no {}".format(
            "::".join(scoped_name), ", ".join(unknown)))
    refused = [each for each in operations if each.identifier() not in answered]
    return CLASS.format(name=node.identifier(), operations="\n".join(map(operation, refused)),
                        interface=id.Name(node.scopedName()).fullyQualify(),
                        names=",\n            ".join('"%s"' % each.identifier() for each in refused))


def run(_tree, args):
    """Entry point of a back-end."""
    header, file, *interfaces = args
    with open(file, "w", encoding="ascii") as out:
        out.write(PROLOGUE.format(header=header))
        for each in interfaces:
            interface, answered = each.split("=")
            out.write(servant(interface.split("::"), answered.split("+")))
        out.write("\n} // namespace refusing\n")
