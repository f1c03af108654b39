// GLib locks with futexes of its own and Pango, fontconfig and HarfBuzz share caches through
// atomic operations; none of these libraries is built for ThreadSanitizer, which sees neither and
// reports the memory they hand between threads (Pango matches fonts on threads of its own) as
// races. Each thread of ours has its own Pango contexts; what the library shares between threads
// is its own code, which stays checked.
extern "C" const char* __tsan_default_suppressions() {
  return "race:libglib-2.0.so\n"
         "race:libgobject-2.0.so\n"
         "race:libpango-1.0.so\n"
         "race:libpangoft2-1.0.so\n"
         "race:libpangocairo-1.0.so\n"
         "race:libfontconfig.so\n"
         "race:libharfbuzz.so\n"
         "race:libcairo.so\n";
}
