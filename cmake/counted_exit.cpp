// For the coverage build: a process that ends without the rest of exit(), as forked children do, writes down
// first what of it has run. Linked with --wrap for the functions below.
extern "C" {

void __gcov_dump();
[[noreturn]] void __real__exit(int status);
[[noreturn]] void __real_quick_exit(int status);

[[noreturn]] void __wrap__exit(int status) {
    __gcov_dump();
    __real__exit(status);
}
[[noreturn]] void __wrap_quick_exit(int status) {
    __gcov_dump();
    __real_quick_exit(status);
}
}
