// fontconfig keeps some of its parsed configuration for the life of the process (allocated once,
// when the first font is looked up); LeakSanitizer reports it at exit. It is not ours and does not
// grow, so sanitizer runs of these tests ignore it.
extern "C" const char* __lsan_default_suppressions() { return "leak:libfontconfig.so\n"; }
