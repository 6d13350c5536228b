"""The omniidl back-end that makes the C++ stubs of the management service's interface.

    omniidl -p interfaces -b vlsl_cxx -Wba [other -Wb options of the C++ back-end] vlsl.idl

It is the standard C++ back-end, which makes code either for the named file alone or for all that
this includes. Here it is made for the service's own modules, whatever file they are in, so that one
file which includes all units gives all stubs; what the ORB's libraries already hold (CORBA's own
types, the time and notification services) is only included.

Where the service's peers expect something else than the standard back-end makes, the templates are
mended below, each with the reason. vlsl_support.h holds what the mended code calls.
"""

import re

from omniidl import idlast, idltype

try:
    from omniidl_be import cxx
    from omniidl_be.cxx import ast, call, id, output, skutil, types, value
    from omniidl_be.cxx.header import template as header_template
    from omniidl_be.cxx.skel import template as skel_template
except ImportError as error:
    raise SystemExit("vlsl_cxx: this omniidl is none that is known here: %s" % error)

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


def require(text, part):
    """Ends with one line that says why unless a template's `text` holds `part`."""
    if part not in text:
        raise SystemExit(
            "vlsl_cxx: the omniidl of %s is none that is known here: its templates don't hold %r"
            % (cxx.config.state["Library Version"], part)
        )


def mend(module, name, old, new):
    """Replaces `old`, which must be there, in the template `name` of the standard back-end."""
    text = getattr(module, name, "")
    require(text, old)
    setattr(module, name, text.replace(old, new))


def between(text, start, end):
    """The part of `text` from `start` up to, and without, `end`."""
    require(text, start)
    begin = text.index(start)
    require(text[begin:], end)
    return text[begin : text.index(end, begin)]


def line_with(text, part):
    """The line of `text` that holds `part`."""
    require(text, part)
    return next(line for line in text.splitlines(True) if part in line)


# A value says what it is: always tag 0x7fffff02 and its repository id. The standard back-end names
# the formal type, and the ORB leaves the id of a value that is of just that type away. No value is
# exactly a ValueBase, so with that for the formal type the id is always written.
def mend_value_tag():
    mend(
        value,
        "value_functions",
        "omniValueType::marshal(_v, @fqname@::_PD_repoId, _0s);",
        "omniValueType::marshal(_v, ::CORBA::ValueBase::_PD_repoId, _0s);",
    )


# _copy_value, which the standard back-end makes for every value, out of a registered factory and of
# copies of the nested values, exists for the first value of a chain of versions alone: a later one
# inherits it, so its copy is one of the first type. It needs no factory, reads through the accessors
# and shares nested values. The members are set one by one, since the ORB ends the process when a
# value's constructor throws, as the initialising one does when there's no room for a text.
COPY = "#ifdef OMNI_HAVE_COVARIANT_RETURNS"
DECLARE_COPY = between(value.value_class, COPY, "  // Definitions in")
DEFINE_COPY = between(value.value_functions, COPY, "@fqname@::@name@()  {}")
VALUE_COPY = """\
@fqname@*
@fqname@::_copy_value()
{
  @fqname@_var _v(vlsl_support::allocated(new (std::nothrow) OBV_@fqname@()));
  try {
    @copy_members@
  }
  catch (const std::bad_alloc&) {
    vlsl_support::no_memory();
  }
  return _v._retn();
}
"""


def mend_copy_value():
    mend(value, "value_class", DECLARE_COPY, "@declare_copy@\n\n")
    # Virtual or not, as the ORB's release has it.
    mend(value, "value_class", line_with(value.value_class, "_PR_copy_state(@name@*);"), "")
    mend(value, "value_functions", DEFINE_COPY, "")


# A factory throws CORBA::NO_MEMORY when it can't allocate.
def mend_factory():
    mend(
        value,
        "valuefactory_create_for_unmarshal",
        "return new OBV_@fqname@();",
        "return vlsl_support::allocated(new (std::nothrow) OBV_@fqname@());",
    )


# A value's constructor shares the values that it is given, as their modifiers do; that of the
# standard back-end takes the caller's reference away.
SHARE_VALUE = """\
::CORBA::add_ref(_@name@);
_pd_@name@ = _@name@;"""


class ValueType(value.ValueType):
    """A value type, with its own _copy_value and a state that is never left unset."""

    def __init__(self, astdecl):
        super().__init__(astdecl)
        for member in astdecl.statemembers():
            for decl in member.declarators():
                # Else a default-built value would send whatever lay in memory for its numbers.
                decl._cxx_holder = decl._cxx_holder.replace(";", "{};")

    def is_first_of_chain(self):
        return not self._astdecl.inherits()

    def _gen_statemember_code(self, value_name, mtype, decl, environment):
        super()._gen_statemember_code(value_name, mtype, decl, environment)
        if types.Type(mtype).deref().value():
            share = output.StringStream()
            share.out(SHARE_VALUE, name=decl._cxx_name)
            decl._cxx_init_impl = str(share)

    def module_decls(self, stream, visitor):
        whole = value.value_class
        declaration = DECLARE_COPY if self.is_first_of_chain() else ""
        value.value_class = whole.replace("@declare_copy@", declaration)
        super().module_decls(stream, visitor)
        value.value_class = whole

    def skel_defs(self, stream, visitor):
        super().skel_defs(stream, visitor)
        if self.is_first_of_chain():
            members = self._astdecl._cxx_statememberl
            copies = "\n".join("_v->%s(%s());" % (name, name) for name in members)
            stream.out(VALUE_COPY, fqname=self._fullname.fullyQualify(), copy_members=copies)


# A long double travels as IEEE binary128, whatever the machine's own is. The schema has it in
# sequences alone.
class Type(types.Type):
    def sequenceTemplate(self, environment=None, gscope=0):
        element = types.Type(self.type().seqType()).deref()
        if element.type().kind() == idltype.tk_longdouble:
            return "::vlsl_support::LongDoubleSequence"
        return super().sequenceTemplate(environment, gscope)


# An object reference answers for its own interface and the ancestors of it without a call.
def mend_is_a():
    mend(
        header_template,
        "interface_objref",
        "  // Constructors\n",
        """\
  inline ::CORBA::Boolean _is_a(const char* _id) {
    const bool known = _id && !_NP_is_nil() && _ptrToObjRef(_id);
    return known || ::CORBA::Object::_is_a(_id);
  }

  // Constructors
""",
    )


# The ORB knows one factory of references for each interface, the last that was made, and none once
# that one is gone. Two libraries with these stubs use those of the first instead.
def mend_reference_factory():
    mend(
        skel_template,
        "interface_pof",
        "const @pof_name@ _the_pof_@idname@;",
        "static ::vlsl_support::RegisteredFactory<@pof_name@> _the_pof_@idname@(@name@::_PD_repoId);",
    )


# What the ORB unmarshals is a checked copy of what came (checked_copy.h). A call's descriptor names
# the types for it, as the type codes that they have.
CHECKED_TYPES = """\
static const ::CORBA::TypeCode_ptr* const _types[] = {
  @types@
};
::vlsl_support::CheckedCopy _n(_message, _types);
"""


def mend_unmarshalling():
    for name in ("arguments", "returnedvalues"):
        mend(
            skel_template,
            "interface_proxy_unmarshal_" + name,
            "(cdrStream& _n)\n{\n",
            "(cdrStream& _message)\n{\n  @checked_copy@\n",
        )
    mend(
        skel_template,
        "interface_proxy_exn_handle",
        "@exname@ _ex;\n  _ex <<= s;",
        "::vlsl_support::CheckedCopy _n(s, repoId);\n  @exname@ _ex;\n  _ex <<= _n;",
    )


# An interface needs no more than a reference has; types that have no name are the ORB's.
def type_code(idl_type):
    """The C++ name of the type code of a type that a call has."""
    bare = types.Type(idl_type).deref().type()
    if bare.kind() == idltype.tk_objref:
        return "::CORBA::_tc_Object"
    if bare.kind() == idltype.tk_sequence:
        bare = idl_type  # by the name of its alias
    if not isinstance(bare, idltype.Declared):
        return "::CORBA::_tc_" + BASIC_NAMES[bare.kind()]
    return beside(bare, "_tc_", "")


BASIC_NAMES = {
    idltype.tk_short: "short",
    idltype.tk_long: "long",
    idltype.tk_ushort: "ushort",
    idltype.tk_ulong: "ulong",
    idltype.tk_float: "float",
    idltype.tk_double: "double",
    idltype.tk_boolean: "boolean",
    idltype.tk_char: "char",
    idltype.tk_octet: "octet",
    idltype.tk_any: "any",
    idltype.tk_TypeCode: "TypeCode",
    idltype.tk_string: "string",
    idltype.tk_longlong: "longlong",
    idltype.tk_ulonglong: "ulonglong",
    idltype.tk_longdouble: "longdouble",
    idltype.tk_wchar: "wchar",
    idltype.tk_wstring: "wstring",
}


class CallDescriptor(call.CallDescriptor):
    """The descriptor of a call, which unmarshals checked copies."""

    all = []  # that were made

    def __init__(self, signature, callable):
        super().__init__(signature, callable)
        self._in_types = [each.paramType() for each in callable.parameters() if each.is_in()]
        results = [] if callable.returnType().kind() == idltype.tk_void else [callable.returnType()]
        outs = [each.paramType() for each in callable.parameters() if each.is_out()]
        self._out_types = results + outs

    def row(self):
        """Its line in the table of calls."""
        arrays = ["{%s}" % ", ".join("&" + type_code(each) for each in of_call)
                  for of_call in (self._in_types, self._out_types)]
        return "{made<%s>, %s}" % (self.name(), ", ".join(arrays))

    def out_desc(self, stream):
        CallDescriptor.all.append(self)
        whole = {}
        for name, of_call in (("arguments", self._in_types), ("returnedvalues", self._out_types)):
            template = "interface_proxy_unmarshal_" + name
            whole[template] = getattr(skel_template, template)
            checked = output.StringStream()
            checked.out(CHECKED_TYPES, types=",\n".join("&" + type_code(each) for each in of_call))
            mend(skel_template, template, "@checked_copy@", str(checked))
        super().out_desc(stream)
        for template, text in whole.items():
            setattr(skel_template, template, text)


# Values and exceptions are found by their ids. Operations and values are held where the linker drops
# what nobody calls: it drops the servants, and a library keeps the whole client. The fuzzer makes
# every call's descriptor and every value's factory.
TABLES = """
#include <type_shape.h>

const vlsl_support::KnownType vlsl_support::known_types[] = {
%(known)s
};
const std::size_t vlsl_support::known_type_count = sizeof known_types / sizeof *known_types;

template <class Factory>
static CORBA::ValueFactoryBase* made_factory() {
    return new Factory;
}

#define VLSL_HELD __attribute__((used, retain)) static const auto
%(held)s

#ifdef VLSL_CALLS
template <class Descriptor>
static omniCallDescriptor* made() {
    return new Descriptor(nullptr, "", 1, 1);
}
const vlsl_support::Call vlsl_support::calls[] = {
%(calls)s
};
const std::size_t vlsl_support::call_count = sizeof calls / sizeof *calls;

const vlsl_support::Factory vlsl_support::factories[] = {
%(factories)s
};
const std::size_t vlsl_support::factory_count = sizeof factories / sizeof *factories;
#endif
"""


def declared(kinds, declarations):
    """What is declared of these kinds in the service's modules."""
    for each in declarations:
        if isinstance(each, idlast.Module) and each.scopedName()[0] in OWN_MODULES:
            yield from declared(kinds, each.definitions())
        elif isinstance(each, kinds):
            yield each


def beside(declaration, prefix, suffix):
    """The C++ name that a declaration's has with something before and behind its last part."""
    scope = declaration.scopedName()
    return "::" + id.Name(scope[:-1] + [prefix + scope[-1] + suffix]).fullyQualify()


def held(interfaces, values):
    """What a client calls: each operation on a reference, and each value's factory, which has the rest."""
    for each in interfaces:
        for operation in each.callables():
            yield "&%s::%s" % (beside(each, "_objref_", ""), operation.identifier())
    for each in values:
        yield "&made_factory<%s>" % beside(each, "", "_init")


def add_tables(tree):
    known = declared((idlast.Value, idlast.Exception), tree.declarations())
    values = list(declared(idlast.Value, tree.declarations()))
    interfaces = declared(idlast.Interface, tree.declarations())
    tables = {
        "known": ['{"%s", &%s}' % (each.repoId(), beside(each, "_tc_", "")) for each in known],
        "calls": [each.row() for each in CallDescriptor.all],
        "factories": ['{"%s", made_factory<%s>}' % (each.repoId(), beside(each, "", "_init"))
                      for each in values],
    }
    texts = {name: "    " + ",\n    ".join(rows) for name, rows in tables.items()}
    texts["held"] = "\n".join("VLSL_HELD held_%d = %s;" % numbered
                              for numbered in enumerate(held(interfaces, values)))
    with open("vlslSK.cc", "a", encoding="ascii") as out:
        out.write(TABLES % texts)


# A union's member for which there was no memory is a null pointer, and copies as one.
def mend_union_copy():
    mend(
        header_template,
        "union_ctor_case",
        "@name@(_value.@name@()); break;",
        """\
if (vlsl_support::is_there(_value._pd_@name@)) {
    @name@(_value.@name@());
  }
  else {
    _release_member();
    _pd_@name@ = _value._pd_@name@;
  }
  break;""",
    )


# A union's member belongs to it before it is read, so that the union releases what was read half way.
def mend_union_unmarshalling():
    standard = skutil.unmarshall

    def unmarshall(to, environment, type, decl, name, from_where, is_union=0):
        if not is_union:
            return standard(to, environment, type, decl, name, from_where)
        reading = output.StringStream()
        standard(reading, environment, type, decl, name, from_where, is_union)
        to.out(re.sub(r"( = new [^;]+;)", r"\1\n_pd__initialised = 1;", str(reading)))

    skutil.unmarshall = unmarshall


def mend_includes():
    includes = "@cxx_direct_include@\n"
    ours = "#include <checked_copy.h>\n#include <vlsl_support.h>\n"
    mend(header_template, "main", includes, includes + ours)


def run(tree, args):
    """Entry point of a back-end."""
    ast.WalkTreeForIncludes = OwnModulesWalker
    for mending in (
        mend_value_tag,
        mend_copy_value,
        mend_factory,
        mend_is_a,
        mend_reference_factory,
        mend_unmarshalling,
        mend_union_copy,
        mend_union_unmarshalling,
        mend_includes,
    ):
        mending()
    value.ValueType = ValueType
    types.Type = Type
    call.CallDescriptor = CallDescriptor
    cxx.run(tree, args)
    add_tables(tree)
