// A shared library under the dump library's name without its export.
extern "C" int NotTheDumpFunction() { return 0; }
