"""An omniidl back-end that writes what the wire carries of an interface definition.

    omniidl -p tests/interfaces -b schema [-Wball] [-Wbwire] FILE.idl

Each declaration of FILE (with -Wball, of what it includes too) becomes a header line, which gives
its kind, full name and repository id, and one indented line for each of its members, in order.
Types are written with their full names. Argument names are left out, since the wire doesn't carry
them, and so are forward declarations. So two definitions with the same text understand each other.
With -Wbwire each alias gives way to what it stands for, which is all that a peer sees of it.

What a definition can hold but this schema must not (attributes, one-way operations, private
members, abstract or truncatable values and the like) is written out too, so that it shows.
"""

import sys

from omniidl import idlast, idltype, idlvisitor

BASIC = {
    idltype.tk_void: "void",
    idltype.tk_short: "short",
    idltype.tk_long: "long",
    idltype.tk_ushort: "unsigned short",
    idltype.tk_ulong: "unsigned long",
    idltype.tk_float: "float",
    idltype.tk_double: "double",
    idltype.tk_boolean: "boolean",
    idltype.tk_char: "char",
    idltype.tk_octet: "octet",
    idltype.tk_any: "any",
    idltype.tk_TypeCode: "CORBA::TypeCode",
    idltype.tk_longlong: "long long",
    idltype.tk_ulonglong: "unsigned long long",
    idltype.tk_longdouble: "long double",
    idltype.tk_wchar: "wchar",
}


def bounded(text, bound):
    return "%s<%d>" % (text, bound) if bound else text


wire_only = False


def type_text(idl_type):
    """The type, with full names."""
    if wire_only:
        idl_type = idl_type.unalias()
    if isinstance(idl_type, idltype.Sequence):
        element, bound = type_text(idl_type.seqType()), idl_type.bound()
        return "sequence<%s, %d>" % (element, bound) if bound else "sequence<%s>" % element
    if isinstance(idl_type, idltype.String):
        return bounded("string", idl_type.bound())
    if isinstance(idl_type, idltype.WString):
        return bounded("wstring", idl_type.bound())
    if isinstance(idl_type, idltype.Declared):
        return "::".join(idl_type.scopedName())
    return BASIC[idl_type.kind()]


def declarator_text(idl_type, declarator):
    sizes = "".join("[%d]" % size for size in declarator.sizes())
    return "%s %s%s" % (declarator.identifier(), type_text(idl_type), sizes)


def base_text(decl):
    names = ", ".join("::".join(base.scopedName()) for base in decl.inherits())
    return " : " + names if names else ""


class SchemaVisitor(idlvisitor.AstVisitor):
    """Collects one text for each declaration."""

    def __init__(self, everything):
        self.everything = everything
        self.texts = []

    def put(self, kind, decl, lines, suffix=""):
        header = "%s %s %s%s" % (kind, "::".join(decl.scopedName()), decl.repoId(), suffix)
        self.texts.append("\n".join([header] + ["  " + line for line in lines]))

    def visit_all(self, decls):
        for decl in decls:
            if decl.mainFile() or self.everything:
                decl.accept(self)

    def visitAST(self, node):
        self.visit_all(node.declarations())

    def visitModule(self, node):
        self.visit_all(node.definitions())

    def visitForward(self, node):
        pass

    def visitValueForward(self, node):
        pass

    def visitConst(self, node):
        self.put("const", node, [type_text(node.constType()), str(node.value())])

    def visitTypedef(self, node):
        for declarator in node.declarators():
            sizes = "".join("[%d]" % size for size in declarator.sizes())
            self.put("alias", declarator, [type_text(node.aliasType()) + sizes])

    def visitEnum(self, node):
        self.put("enum", node, [item.identifier() for item in node.enumerators()])

    def visitStruct(self, node):
        self.put("struct", node, self.members(node))

    def visitException(self, node):
        self.put("exception", node, self.members(node))

    def members(self, node):
        return [
            declarator_text(member.memberType(), declarator)
            for member in node.members()
            for declarator in member.declarators()
        ]

    def visitUnion(self, node):
        lines = ["switch " + type_text(node.switchType())]
        for case in node.cases():
            labels = ["default" if l.default() else str(l.value()) for l in case.labels()]
            member = declarator_text(case.caseType(), case.declarator())
            lines.append("case %s: %s" % (", ".join(labels), member))
        self.put("union", node, lines)

    def visitValue(self, node):
        modifiers = ["custom"] * node.custom() + ["truncatable"] * node.truncatable()
        lines = modifiers + ["supports " + "::".join(i.scopedName()) for i in node.supports()]
        for item in node.contents():
            if not isinstance(item, idlast.StateMember):
                lines.append("beside members: " + item.__class__.__name__)
                continue
            private = "private " if item.memberAccess() else ""
            for declarator in item.declarators():
                lines.append(private + declarator_text(item.memberType(), declarator))
        self.put("value", node, lines, base_text(node))

    def visitValueAbs(self, node):
        self.put("abstract value", node, [], base_text(node))

    def visitValueBox(self, node):
        self.put("boxed value", node, [type_text(node.boxedType())])

    def visitInterface(self, node):
        modifiers = ["abstract"] * node.abstract() + ["local"] * node.local()
        lines = []
        for item in node.contents():
            if isinstance(item, idlast.Operation):
                lines.append(self.operation(item))
            elif isinstance(item, idlast.Attribute):
                lines.append("attribute " + " ".join(item.identifiers()))
        self.visit_all(node.declarations())
        self.put("interface", node, modifiers + lines, base_text(node))

    def operation(self, node):
        ways = {0: "in", 1: "out", 2: "inout"}
        arguments = ", ".join(
            "%s %s" % (ways[p.direction()], type_text(p.paramType())) for p in node.parameters()
        )
        text = "%s(%s) %s" % (node.identifier(), arguments, type_text(node.returnType()))
        if node.oneway():
            text = "oneway " + text
        if node.raises():
            text += " raises " + ", ".join("::".join(e.scopedName()) for e in node.raises())
        if node.contexts():
            text += " context"
        return text


def run(tree, args):
    """Entry point of a back-end."""
    global wire_only
    wire_only = "wire" in args
    visitor = SchemaVisitor("all" in args)
    tree.accept(visitor)
    sys.stdout.write("".join(text + "\n" for text in visitor.texts))
