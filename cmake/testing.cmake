# What every test of ctest gets: a bound in time, and what the sanitizers need to know.

# Tests that use more than one thread: TSan runs these (target threaded_tests, label "threads").
set(CORE_THREADED_TESTS
    foundation
    foundation_logging
    foundation_uv
    platform
    core
    core_ipc
    system)

add_custom_target(threaded_tests)

function(core_test_properties name)
    set(environment)
    if(CORE_SANITIZE MATCHES address)
        list(APPEND environment ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1
            LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/cmake/lsan.supp:print_suppressions=0
            UBSAN_OPTIONS=print_stacktrace=1)
    elseif(CORE_SANITIZE MATCHES thread)
        list(APPEND environment TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/cmake/tsan.supp:second_deadlock_stack=1)
    endif()
    set_tests_properties(${name} PROPERTIES TIMEOUT 300 ENVIRONMENT "${environment}")
    if(name IN_LIST CORE_THREADED_TESTS)
        set_tests_properties(${name} PROPERTIES LABELS threads)
        add_dependencies(threaded_tests ${name}_tests)
    endif()
endfunction()
