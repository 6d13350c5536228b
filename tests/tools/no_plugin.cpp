// A library that is no plugin: it has none of the entry points.

extern "C" __attribute__((visibility("default"))) int something_else();

int something_else() { return 0; }
