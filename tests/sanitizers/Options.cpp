// What the sanitizers' runtimes read when an instrumented program starts. It is linked into each of
// them, because tests start programs with an environment of their own.

#include "Suppressions.h"

#include <dlfcn.h>
#include <sanitizer/common_interface_defs.h>

#include <cstdint>

#define EXPORTED extern "C" __attribute__((visibility("default"))) const char *

#ifdef __SANITIZE_ADDRESS__

EXPORTED __asan_default_options()
{
    return "log_path=" QUELLORA_SANITIZER_REPORTS "/address:log_exe_name=1"
           ":detect_stack_use_after_return=1:check_initialization_order=1"
           ":strict_init_order=1"
           // Freed memory that is held back counts for the tests' limits of memory.
           ":quarantine_size_mb=128"
           // The page engine deletes objects by another size than theirs. In our code the compiler
           // warns of it: -Wnon-virtual-dtor, -Wdelete-non-virtual-dtor.
           ":new_delete_type_mismatch=0";
}

EXPORTED __lsan_default_options()
{
    // A list of what was left out would pass for a report.
    return "print_suppressions=0";
}

EXPORTED __lsan_default_suppressions()
{
    return leakSuppressions;
}

// A library that is gone cannot be named in a report, and what it kept would pass for a leak.
extern "C" __attribute__((visibility("default"))) int dlclose(void *) noexcept
{
    return 0;
}

EXPORTED __ubsan_default_options()
{
    return "log_exe_name=1:print_stacktrace=1";
}

// Items of the page engine have no information on their type, which would pass for a fault.
extern "C" __attribute__((visibility("default"))) void
__ubsan_handle_dynamic_type_cache_miss_abort(void *data, void *object, std::uintptr_t hash)
{
    using Handler = void(void *, void *, std::uintptr_t);
    static auto *const original = reinterpret_cast<Handler *>(::dlsym(RTLD_NEXT, __func__));
    // It stands before the functions of the table that the object begins with.
    if (object && (*static_cast<void ***>(object))[-1])
        original(data, object, hash);
}

// Beside the address sanitizer, the library of this one does not look for a path itself, and its
// function is hidden by the other's of the same name.
__attribute__((constructor)) static void setPathOfUndefined()
{
    void *const library = ::dlopen("libubsan.so.1", RTLD_LAZY | RTLD_NOLOAD);
    void *const function = library ? ::dlsym(library, "__sanitizer_set_report_path") : nullptr;
    if (function)
        reinterpret_cast<void (*)(const char *)>(function)(QUELLORA_SANITIZER_REPORTS "/undefined");
}

#endif

#ifdef __SANITIZE_THREAD__

EXPORTED __tsan_default_options()
{
    return "log_exe_name=1"
           // Memory of libraries that are not instrumented is not watched; what they hand over is.
           ":ignore_noninstrumented_modules=1:second_deadlock_stack=1:history_size=4";
}

EXPORTED __tsan_default_suppressions()
{
    return threadSuppressions;
}

// Not among the options: the library would make the folder before it is ready itself, by the
// mkdir() that some tests replace.
__attribute__((constructor)) static void setPath()
{
    ::__sanitizer_set_report_path(QUELLORA_SANITIZER_REPORTS "/thread");
}

#endif
