// What a pure virtual function's place in a table holds. The stubs have some 16,000 such places, each of
// which the dynamic linker would look up in the C++ library; a library that is linked with
// --wrap=__cxa_pure_virtual has them point here instead, which takes no look-up.

// NOLINTBEGIN(bugprone-reserved-identifier): --wrap makes these names
extern "C" {

[[noreturn]] void __real___cxa_pure_virtual();

[[noreturn]] void __wrap___cxa_pure_virtual() { __real___cxa_pure_virtual(); }
}
// NOLINTEND(bugprone-reserved-identifier)
