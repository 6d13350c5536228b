"""An omniidl back-end that makes the tables of tests/wire/model.h and calls.h.

    omniidl -p tests/wire -b wire_table -Wbtable=TABLE.cpp -Wbcalls=CALLS.cpp FILE.idl

TABLE.cpp describes the service's modules as FILE and what it includes define them; CALLS.cpp
samples, tells and calls by the C++ stubs of the same.
"""

from omniidl import idlast, idltype, idlvisitor
from omniidl_be.cxx import id as cxx_id

OWN_MODULES = ("Corvane", "Orvessa")
OBJECT_ID = "IDL:omg.org/CORBA/Object:1.0"

# kind of omniidl: kind of the model, C++ type
BASIC = {
    idltype.tk_void: ("nothing", "void"),
    idltype.tk_boolean: ("boolean", "::CORBA::Boolean"),
    idltype.tk_octet: ("octet", "::CORBA::Octet"),
    idltype.tk_char: ("character", "::CORBA::Char"),
    idltype.tk_wchar: ("wide_character", "::CORBA::WChar"),
    idltype.tk_short: ("int16", "::CORBA::Short"),
    idltype.tk_ushort: ("uint16", "::CORBA::UShort"),
    idltype.tk_long: ("int32", "::CORBA::Long"),
    idltype.tk_ulong: ("uint32", "::CORBA::ULong"),
    idltype.tk_longlong: ("int64", "::CORBA::LongLong"),
    idltype.tk_ulonglong: ("uint64", "::CORBA::ULongLong"),
    idltype.tk_float: ("float32", "::CORBA::Float"),
    idltype.tk_double: ("float64", "::CORBA::Double"),
    idltype.tk_longdouble: ("float128", "::CORBA::LongDouble"),
    idltype.tk_string: ("text", "::CORBA::String"),
    idltype.tk_wstring: ("wide_text", "::CORBA::WString"),
    idltype.tk_any: ("any", "::CORBA::Any"),
}
BY_VALUE = ("boolean", "octet", "character", "wide_character", "int16", "uint16", "int32", "uint32",
            "int64", "uint64", "float32", "float64", "float128", "enumeration")  # fmt: skip
PLAIN = ("structure", "choice", "sequence")


def quoted(text):
    return '"%s"' % text


def cxx_name(decl, prefix=""):
    return "::" + prefix + "::".join(cxx_id.mapID(part) for part in decl.scopedName())


class Type:
    """One row of the table of types, with its C++ name."""

    def __init__(self, index, kind, cxx, repository_id):
        self.index, self.kind, self.cxx, self.id = index, kind, cxx, repository_id
        self.element, self.limit = -1, 0
        self.members = []  # (name, Type)
        self.labels = []
        self.versions = []

    # --- statements about a variable, member or element of this type
    def sample(self, place):
        if self.kind == "text":
            return "%s = sampled_text(s);" % place
        if self.kind == "wide_text":
            return "%s = sampled_wide_text(s);" % place
        if self.kind == "value":
            return "%s = %s::_downcast(sampled_value(s, %d));" % (place, self.cxx, self.index)
        if self.kind == "object":
            made = "::CORBA::Object_var(sampled_object(s, %s))" % quoted(self.id)
            return "%s = %s::_unchecked_narrow(%s);" % (place, self.cxx, made)
        return "sample(s, %s);" % place

    def tell(self, place):
        if self.kind == "text":
            return "tell_text(t, static_cast<const char*>(%s));" % place
        if self.kind == "wide_text":
            return "tell_text(t, static_cast<const ::CORBA::WChar*>(%s));" % place
        if self.kind == "value":
            return "tell_value(t, static_cast<%s*>(%s));" % (self.cxx, place)
        if self.kind == "object":
            return "tell_object(t, %s);" % place
        return "tell(t, %s);" % place

    # --- a local variable of this type
    def variable(self):
        if self.kind in BY_VALUE:
            return self.cxx
        return self.cxx + "_var"

    def as_in(self, name):
        return name if self.kind in BY_VALUE + PLAIN + ("any",) else name + ".in()"

    def as_out(self, name):
        return name if self.kind in BY_VALUE else name + ".out()"


class Schema(idlvisitor.AstVisitor):
    """Collects the types, interfaces and operations of the service's modules."""

    def __init__(self):
        self.types, self.by_key = [], {}
        self.interfaces = []

    def visitAST(self, node):
        for decl in node.declarations():
            if decl.scopedName()[0] in OWN_MODULES:
                decl.accept(self)
        for value in [t for t in self.types if t.kind == "value"]:
            ancestor = value.index
            while ancestor >= 0:
                self.types[ancestor].versions.append(value)
                ancestor = self.types[ancestor].element

    def visitModule(self, node):
        for decl in node.definitions():
            decl.accept(self)

    def visitInterface(self, node):
        for decl in node.declarations():
            decl.accept(self)
        self.interfaces.append(node)
        self.declared(node)
        for operation in node.contents():
            if isinstance(operation, idlast.Operation):
                self.of(operation.returnType())
                for parameter in operation.parameters():
                    self.of(parameter.paramType())

    def visitTypedef(self, node):
        for declarator in node.declarators():
            self.alias(declarator)

    def visitEnum(self, node):
        self.declared(node)

    visitStruct = visitException = visitUnion = visitValue = visitEnum

    def visitForward(self, node):
        pass

    def visitValueForward(self, node):
        pass

    def add(self, key, *row):
        made = self.by_key[key] = Type(len(self.types), *row)
        self.types.append(made)
        return made

    def of(self, idl_type):
        """The row of a type, made if it's new; an alias is what it stands for."""
        if isinstance(idl_type, idltype.Declared):
            decl = idl_type.decl()
            if isinstance(decl, idlast.Declarator):
                return self.alias(decl)
            if isinstance(decl, (idlast.Forward, idlast.ValueForward)):
                decl = decl.fullDecl()
            return self.declared(decl)
        kind, cxx = BASIC[idl_type.kind()]
        return self.by_key.get(kind) or self.add(kind, kind, cxx, kind)

    def alias(self, declarator):
        assert not declarator.sizes()
        idl_type = declarator.alias().aliasType()
        if not isinstance(idl_type, idltype.Sequence):
            return self.of(idl_type)
        key = tuple(declarator.scopedName())
        if key not in self.by_key:
            made = self.add(key, "sequence", cxx_name(declarator), declarator.repoId())
            made.limit = idl_type.bound()
            made.element = self.of(idl_type.seqType()).index
        return self.by_key[key]

    def declared(self, decl):
        key = tuple(decl.scopedName())
        if key in self.by_key:
            return self.by_key[key]
        kind = {
            idlast.Enum: "enumeration",
            idlast.Struct: "structure",
            idlast.Exception: "structure",
            idlast.Union: "choice",
            idlast.Value: "value",
            idlast.Interface: "object",
        }[decl.__class__]
        made = self.add(key, kind, cxx_name(decl), decl.repoId())
        if kind == "enumeration":
            made.limit = len(decl.enumerators())
        elif kind == "structure":
            made.members = self.members(decl.members())
        elif kind == "value":
            if decl.inherits():
                made.element = self.declared(decl.inherits()[0]).index
            made.members = self.members(decl.statemembers())
        elif kind == "choice":
            for case in decl.cases():
                (label,) = case.labels()
                made.labels.append(label.value())
                made.members.append((case.declarator().identifier(), self.of(case.caseType())))
        return made

    def members(self, nodes):
        return [
            (declarator.identifier(), self.of(node.memberType()))
            for node in nodes
            for declarator in node.declarators()
        ]


# --- the table ------------------------------------------------------------------------------------


def operations_of(interface):
    return [node for node in interface.contents() if isinstance(node, idlast.Operation)]


def write_table(schema, out):
    put = lambda text: out.write(text + "\n")
    put('#include "tests/wire/model.h"\n\nnamespace wire {\nnamespace {')
    for t in schema.types:
        if t.members:
            rows = ", ".join("{%s, %d}" % (quoted(name), m.index) for name, m in t.members)
            put("const member members_%d[] = {%s};" % (t.index, rows))
        if t.labels:
            rows = ", ".join("{%d}" % label for label in t.labels)
            put("const label labels_%d[] = {%s};" % (t.index, rows))
        if t.versions:
            rows = ", ".join(str(v.index) for v in t.versions)
            put("const int versions_%d[] = {%s};" % (t.index, rows))
    put("} // namespace\n")
    put("const type types[] = {")
    for t in schema.types:
        pointer = lambda name, items: "%s_%d" % (name, t.index) if items else "nullptr"
        put("    {kind::%s, %s, %d, %d, %s, %s, %d, %s, %d}," % (
            t.kind, quoted(t.id), t.element, t.limit, pointer("members", t.members),
            pointer("labels", t.labels), len(t.members), pointer("versions", t.versions),
            len(t.versions)))  # fmt: skip
    put("};\nconst int type_count = %d;\n" % len(schema.types))
    rows = []
    put("namespace {")
    for interface in schema.interfaces:
        for node in operations_of(interface):
            index = len(rows)
            arguments = ["{%s, %d, %s}" % (quoted(p.identifier()), schema.of(p.paramType()).index,
                                           "true" if p.is_out() else "false")
                         for p in node.parameters()]  # fmt: skip
            raises = [str(schema.declared(e).index) for e in node.raises()]
            if arguments:
                put("const argument arguments_%d[] = {%s};" % (index, ", ".join(arguments)))
            if raises:
                put("const int raises_%d[] = {%s};" % (index, ", ".join(raises)))
            rows.append("    {%s, %s, %d, %s, %d, %s, %d, invoke_%d}," % (
                quoted(interface.repoId()), quoted(node.identifier()),
                schema.of(node.returnType()).index,
                "arguments_%d" % index if arguments else "nullptr", len(arguments),
                "raises_%d" % index if raises else "nullptr", len(raises), index))  # fmt: skip
    put("} // namespace\n")
    for index in range(len(rows)):
        put("void invoke_%d(call&);" % index)
    put("const operation operations[] = {")
    for row in rows:
        put(row)
    put("};\nconst int operation_count = %d;\n\n} // namespace wire" % len(rows))


# --- the stubs' side -------------------------------------------------------------------------------


def write_function(put, head, body):
    put("%s {" % head)
    for line in body:
        put("    " + line)
    put("}")


def for_each(statement):
    return ["for (::CORBA::ULong i = 0; i < x.length(); ++i) {", "    " + statement, "}"]


def unused(*names):
    return ["static_cast<void>(%s);" % name for name in names]


def sample_body(schema, t):
    if t.kind == "enumeration":
        return ["x = static_cast<%s>(s.choose(%d));" % (t.cxx, t.limit)]
    if t.kind == "structure":
        return unused("s", "x") + [m.sample("x." + cxx_id.mapID(name)) for name, m in t.members]
    if t.kind == "sequence":
        element = schema.types[t.element]
        return ["x.length(s.length(%d));" % t.limit] + for_each(element.sample("x[i]"))
    lines = ["switch (s.choose(%d)) {" % (len(t.members) + 1)]
    for number, (name, member) in enumerate(t.members):
        lines += ["case %d: {" % number, "    %s m;" % member.cxx, "    " + member.sample("m"),
                  "    x.%s(m);" % cxx_id.mapID(name), "    break;", "}"]  # fmt: skip
    return lines + ["default:", "    x._d(static_cast<::CORBA::Long>(1000 + s.choose(1000)));", "}"]


def tell_body(schema, t):
    if t.kind == "enumeration":
        return ["t.number(static_cast<int64_t>(x));"]
    if t.kind == "structure":
        lines = unused("t", "x")
        for name, member in t.members:
            lines += ["t.name(%s);" % quoted(name), member.tell("x." + cxx_id.mapID(name))]
        return lines
    if t.kind == "sequence":
        element = schema.types[t.element]
        return ['t.line(std::to_string(x.length()) + " of");'] + for_each(element.tell("x[i]"))
    lines = ['t.line("case " + std::to_string(x._d()));', "switch (x._d()) {"]
    for label, (name, member) in zip(t.labels, t.members):
        lines += ["case %d:" % label, "    " + member.tell("x.%s()" % cxx_id.mapID(name)), "    break;"]
    return lines + ["default:", "    break;", "}"]


def fill_body(schema, t):
    lines = unused("s", "x")
    if t.element >= 0:
        lines.append("fill_%d(s, x);" % t.element)
    for name, member in t.members:
        accessor = "x.%s" % cxx_id.mapID(name)
        if member.kind in PLAIN or member.kind == "any":
            lines.append("sample(s, %s());" % accessor)
        else:
            lines.append("{ %s m; %s %s(%s); }" % (
                member.variable(), member.sample("m"), accessor, member.as_in("m")))  # fmt: skip
    return lines


def state_body(schema, t):
    lines = unused("t", "x")
    if t.element >= 0:
        lines.append("state_%d(t, x);" % t.element)
    for name, member in t.members:
        lines += ["t.name(%s);" % quoted(name), member.tell("x.%s()" % cxx_id.mapID(name))]
    return lines


def invoke_body(schema, interface, node):
    result = schema.of(node.returnType())
    lines = ["%s_var o = %s::_unchecked_narrow(c.object);" % ((cxx_name(interface),) * 2),
             "sampler& s = c.arguments;", "teller& t = c.told;"] + unused("s", "t")  # fmt: skip
    arguments, outs = [], []
    for number, parameter in enumerate(node.parameters()):
        of_type, name = schema.of(parameter.paramType()), "a%d" % number
        if parameter.is_out():
            lines.append("%s %s;" % (of_type.variable(), name))
            arguments.append(of_type.as_out(name))
            outs.append((parameter.identifier(), of_type, name))
        else:
            by_value = of_type.kind in PLAIN or of_type.kind == "any"
            lines.append("%s %s;" % (of_type.cxx if by_value else of_type.variable(), name))
            lines.append(of_type.sample(name))
            arguments.append(of_type.as_in(name))
    call = "o->%s(%s)" % (cxx_id.mapID(node.identifier()), ", ".join(arguments))
    body = []
    if result.kind == "nothing":
        body.append(call + ";")
    else:
        body.append("%s r = %s;" % (result.variable(), call))
        outs.insert(0, ("result", result, "r"))
    for name, of_type, variable in outs:
        place = variable if of_type.kind in BY_VALUE else variable + ".in()"
        body += ["t.name(%s);" % quoted(name), of_type.tell(place)]
    if not node.raises():
        return lines + body
    lines += ["try {"] + ["    " + line for line in body] + ["}"]
    for exception in node.raises():
        lines += ["catch (const %s& e) {" % cxx_name(exception),
                  '    t.line("raises " + std::string(e._rep_id()));', "    tell(t, e);", "}"]  # fmt: skip
    return lines


def ancestors(interface):
    found = [interface.repoId()]
    for base in interface.inherits():
        found += [i for i in ancestors(base.fullDecl()) if i not in found]
    return found


VALUE_CLASS = """\
    {{{index}, []() -> ::CORBA::ValueBase* {{ return new {obv}; }},
     []() -> ::CORBA::ValueFactoryBase* {{ return new {type}_init; }},
     [](sampler& s, ::CORBA::ValueBase* v) {{ fill_{index}(s, *{type}::_downcast(v)); }},
     [](teller& t, ::CORBA::ValueBase* v) {{ state_{index}(t, *{type}::_downcast(v)); }},
     [](::CORBA::ValueBase* v, cdrStream& o) {{ {type}::_NP_marshal({type}::_downcast(v), o); }},
     [](cdrStream& i) -> ::CORBA::ValueBase* {{ return {type}::_NP_unmarshal(i); }}}},"""
PLAIN_CLASS = """\
    {{{index},
     [](sampler& s, cdrStream& o) {{
         {type} x;
         sample(s, x);
         static_cast<const {type}&>(x) >>= o;
     }},
     [](teller& t, cdrStream& i) {{
         {type} x;
         x <<= i;
         tell(t, x);
     }}}},"""


def write_calls(schema, out):
    put = lambda text: out.write(text + "\n")
    named = [t for t in schema.types if t.kind in PLAIN + ("enumeration",)]
    values = [t for t in schema.types if t.kind == "value"]
    parameter = lambda t: t.cxx if t.kind == "enumeration" else "const %s&" % t.cxx
    put('#include "tests/wire/calls.h"\n\n#include <cstdint>\n#include <string>\n\nnamespace wire {\n')
    for t in named:
        put("void sample(sampler& s, %s& x);" % t.cxx)
        put("void tell(teller& t, %s x);" % parameter(t))
    for t in values:
        put("void fill_%d(sampler& s, %s& x);" % (t.index, t.cxx))
        put("void state_%d(teller& t, %s& x);" % (t.index, t.cxx))
    for t in named:
        write_function(put, "void sample(sampler& s, %s& x)" % t.cxx, sample_body(schema, t))
        write_function(put, "void tell(teller& t, %s x)" % parameter(t), tell_body(schema, t))
    for t in values:
        write_function(put, "void fill_%d(sampler& s, %s& x)" % (t.index, t.cxx), fill_body(schema, t))
        write_function(put, "void state_%d(teller& t, %s& x)" % (t.index, t.cxx), state_body(schema, t))
    index = 0
    for interface in schema.interfaces:
        for node in operations_of(interface):
            write_function(put, "void invoke_%d(call& c)" % index, invoke_body(schema, interface, node))
            index += 1
    put("const value_class value_classes[] = {")
    for t in values:
        put(VALUE_CLASS.format(index=t.index, type=t.cxx, obv="::OBV_" + t.cxx[2:]))
    put("};\nconst int value_class_count = %d;\n" % len(values))
    put("const value_sequence value_sequences[] = {")
    sequences = [t for t in named if t.kind == "sequence" and schema.types[t.element] in values]
    for t in sequences:
        element = schema.types[t.element].cxx
        put("    {%d, write_values<%s, %s>, read_values<%s>}," % (t.element, t.cxx, element, t.cxx))
    put("};\nconst int value_sequence_count = %d;\n" % len(sequences))
    plain = [t for t in named if t.kind != "enumeration"]
    put("const plain_class plain_classes[] = {")
    for t in plain:
        put(PLAIN_CLASS.format(index=t.index, type=t.cxx))
    put("};\nconst int plain_class_count = %d;\n" % len(plain))
    put("namespace {")
    for number, interface in enumerate(schema.interfaces):
        rows = ", ".join(quoted(i) for i in ancestors(interface) + [OBJECT_ID])
        put("const char* const ancestors_%d[] = {%s};" % (number, rows))
    put("} // namespace\nconst interface_class interface_classes[] = {")
    for number, interface in enumerate(schema.interfaces):
        name = cxx_name(interface)
        count = len(ancestors(interface)) + 1
        put("    {%s, ancestors_%d, %d, [](::CORBA::Object_ptr o, const char* id) {" % (
            quoted(interface.repoId()), number, count))  # fmt: skip
        put("         const %s_var x = %s::_unchecked_narrow(o);" % (name, name))
        put("         return static_cast<bool>(x->_is_a(id)); }},")
    put("};\nconst int interface_class_count = %d;\n\n} // namespace wire" % len(schema.interfaces))


def run(tree, args):
    """Entry point of a back-end."""
    files = dict(argument.split("=", 1) for argument in args)
    schema = Schema()
    tree.accept(schema)
    with open(files["table"], "w") as out:
        write_table(schema, out)
    with open(files["calls"], "w") as out:
        write_calls(schema, out)
