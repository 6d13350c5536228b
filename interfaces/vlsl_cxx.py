"""The omniidl back-end that makes the C++ stubs of the management service's interface.

    omniidl -p interfaces -b vlsl_cxx -Wba [other -Wb options of the C++ back-end] vlsl.idl

It is the standard C++ back-end, which makes code either for the named file alone or for all that
this includes. Here it is made for the service's own modules, whatever file they are in, so that one
file which includes all units gives all stubs; what the ORB's libraries already hold (CORBA's own
types, the time and notification services) is only included.
"""

from omniidl_be import cxx
from omniidl_be.cxx import ast

cpp_args = cxx.cpp_args
usage_string = cxx.usage_string

OWN_MODULES = ("Corvane", "Orvessa")
ORB_MODULE = "CORBA"  # in omniORB4/CORBA.h, which every header includes


class OwnModulesWalker(ast.WalkTreeForIncludes):
    """Marks the service's modules for code, and the files of all other modules for inclusion."""

    def visitAST(self, node):
        for decl in node.declarations():
            module = decl.scopedName()[0]
            if module in OWN_MODULES:
                decl.accept(self)
            elif module != ORB_MODULE:
                self.add(decl)


def run(tree, args):
    """Entry point of a back-end."""
    ast.WalkTreeForIncludes = OwnModulesWalker
    cxx.run(tree, args)
