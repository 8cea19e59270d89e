# What every target of this project has in common.

set(MORVELLACINTO_SANITIZE "" CACHE STRING
    "Sanitizers to build everything with, such as address,undefined or thread")

# Warnings, language level, hidden visibility and sanitizers: all private, so that no consumer
# inherits them.
function(morvellacinto_settings target)
    target_compile_features(${target} PUBLIC cxx_std_20)
    set_target_properties(${target} PROPERTIES
        CXX_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ON
        UNITY_BUILD OFF) # names in unnamed namespaces are a file's own
    if(MORVELLACINTO_DEVELOPER_WARNINGS)
        target_compile_options(${target} PRIVATE
            -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wcast-align
            -Wconversion -Wsign-conversion -Woverloaded-virtual -Wimplicit-fallthrough)
        # At -O3 and with sanitizers compilers warn of faults that are none.
        if(NOT MORVELLACINTO_SANITIZE)
            target_compile_options(${target} PRIVATE $<$<NOT:$<CONFIG:Release>>:-Werror>)
        endif()
    endif()
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # Unique symbols would keep dlclose from ever unloading the library; and nobody replaces its
        # functions, so that it may inline them.
        target_compile_options(${target} PRIVATE -fno-gnu-unique -fno-semantic-interposition)
    endif()
    if(MORVELLACINTO_BUILD_FUZZERS)
        target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
    endif()
    if(MORVELLACINTO_SANITIZE)
        target_compile_options(${target} PRIVATE
            -fsanitize=${MORVELLACINTO_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all
            $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
        target_link_options(${target} PRIVATE -fsanitize=${MORVELLACINTO_SANITIZE})
    endif()
endfunction()

# A library that is installed: Morvellacinto::<alias>, exporting only names of its own.
function(morvellacinto_library target alias)
    add_library(${target})
    add_library(Morvellacinto::${alias} ALIAS ${target})
    morvellacinto_settings(${target})
    set_target_properties(${target} PROPERTIES
        EXPORT_NAME ${alias}
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR})
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "SHARED_LIBRARY")
        set(script ${PROJECT_SOURCE_DIR}/cmake/exports.map)
        # Calls of its own functions are bound when it is linked.
        target_link_options(${target} PRIVATE
            -Wl,--version-script=${script} -Wl,--as-needed -Wl,-Bsymbolic-functions)
        if(NOT MORVELLACINTO_SANITIZE AND NOT MORVELLACINTO_BUILD_FUZZERS)
            # The run-time libraries of sanitizers stand in the program alone.
            target_link_options(${target} PRIVATE -Wl,--no-undefined)
        endif()
        set_target_properties(${target} PROPERTIES LINK_DEPENDS ${script})
    else() # a project in C alone adds no library of C++
        target_link_libraries(${target} INTERFACE "$<$<LINK_LANGUAGE:C>:stdc++;m>")
    endif()
endfunction()
