# What every test of ctest gets: a bound in time, a folder for logs, and what the sanitizers need to know.

add_custom_target(threaded_tests) # What runs under ThreadSanitizer: the tests with the label "threads".

# core_test_properties(NAME [SOURCE...]): SOURCE are those of the executable NAME_tests. Where one of them starts threads the
# test runs under ThreadSanitizer, too.
function(core_test_properties name)
    set(environment XDG_STATE_HOME=${CMAKE_BINARY_DIR}/test_state) # Logs of programs that tests run.
    if(CORE_SANITIZE MATCHES address)
        list(APPEND environment ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1
            LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/cmake/lsan.supp:print_suppressions=0
            UBSAN_OPTIONS=print_stacktrace=1)
    elseif(CORE_SANITIZE MATCHES thread)
        list(APPEND environment TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/cmake/tsan.supp:second_deadlock_stack=1)
    endif()
    set_tests_properties(${name} PROPERTIES TIMEOUT 300 ENVIRONMENT "${environment}")
    foreach(source ${ARGN})
        file(STRINGS ${source} thread LIMIT_COUNT 1 REGEX "std::j?thread|std::async")
        if(thread)
            set_tests_properties(${name} PROPERTIES LABELS threads)
            add_dependencies(threaded_tests ${name}_tests)
            break()
        endif()
    endforeach()
endfunction()
