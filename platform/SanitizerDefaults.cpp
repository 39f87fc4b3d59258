// Defaults for sanitizer builds, compiled into every executable (inert in normal builds).
//
// fontconfig and GLib keep process-wide caches (font configuration, the type system) until exit by
// design; LeakSanitizer would report them on every run.

extern "C" {

__attribute__((used, visibility("default"))) const char* __lsan_default_suppressions()
{
    return "leak:libfontconfig.so\n"
           "leak:libglib-2.0.so\n"
           "leak:libgobject-2.0.so\n";
}

__attribute__((used, visibility("default"))) const char* __ubsan_default_options()
{
    return "print_stacktrace=1:halt_on_error=1";
}

} // extern "C"
