# The flags of everything in this project; presets only choose among them.
set(CMAKE_CXX_STANDARD 23)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

add_compile_options(-pthread) # Some packages ask for it; headers are precompiled once for targets with and without them.
add_compile_options(-Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Woverloaded-virtual)
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
    add_compile_options(-Wno-unknown-warning-option) # Sources switch off warnings that only GCC knows.
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    add_compile_options(-Wno-restrict) # False alarms in std::string concatenation (GCC bug 105651).
endif()
option(CORE_WERROR "Treat warnings as errors" OFF)
if(CORE_WERROR)
    add_compile_options(-Werror)
endif()

# The build types of the presets; who packages it gives flags of his own with another one. -g1 is what stack traces need.
set(CORE_SANITIZE "" CACHE STRING "Sanitizers, e.g. address,undefined or thread")
set(CMAKE_CXX_FLAGS_DEBUG "-O0 -g1")
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g1")

# core_optimize(LIBRARY): what CORE_LTO says.
option(CORE_LTO "Optimise each library as a whole" OFF)
function(core_optimize library)
    if(CORE_LTO)
        set_target_properties(${library} PROPERTIES INTERPROCEDURAL_OPTIMIZATION ON)
        # The message path gains 2 to 4 % by it; the rest of the build would only take longer. The warning is about fmt, whose
        # bound the compiler loses sight of.
        target_compile_options(${library} PRIVATE -O3 -fno-plt $<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overflow>)
        target_link_options(${library} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overflow>)
    endif()
endfunction()

if(CORE_SANITIZE)
    set(CMAKE_CXX_FLAGS_DEBUG "-O1 -g1")
    add_compile_options(-fsanitize=${CORE_SANITIZE} -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${CORE_SANITIZE})
    # Warnings that follow values take the sanitizers' own branches for ours; the other builds keep them.
    add_compile_options(-Wno-maybe-uninitialized -Wno-stringop-overread -Wno-stringop-overflow -Wno-array-bounds)
    if(CORE_SANITIZE MATCHES undefined)
        add_compile_options(-fno-sanitize-recover=undefined)
    endif()
endif()
if(CORE_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link) # Coverage for libFuzzer in the libraries too.
endif()
# Calls within a library go straight, not through the table for those who would replace its functions.
add_compile_options($<$<CXX_COMPILER_ID:GNU>:-fno-semantic-interposition>)
add_link_options($<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY>:-Wl,-Bsymbolic-functions>)

# A missing symbol in a library is an error when the library is linked, not when somebody uses it.
if(NOT CORE_SANITIZE)
    add_link_options($<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY>:-Wl,--no-undefined>)
endif()

if(CORE_PACKAGES)
    add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=) # A package says nothing of the machine that it was made on.
endif()

# Headers that nearly every file needs.
set(CORE_PRECOMPILED_HEADERS <cstdint> <string> <string_view> <vector> <map> <memory> <functional> <optional> <utility>
    <fmt/format.h>)
