# JSON numbers are read by what some standard libraries of C++20 leave out.
include(CheckCXXSourceCompiles)
set(CMAKE_REQUIRED_FLAGS -std=c++20)
check_cxx_source_compiles("#include <charconv>
    int main(int count, char** words) { double number; return words[count - 1] != std::from_chars(*words, *words, number).ptr; }"
    MORVELLACINTO_HAS_FROM_CHARS)
unset(CMAKE_REQUIRED_FLAGS)
if(NOT MORVELLACINTO_HAS_FROM_CHARS)
    message(FATAL_ERROR "The standard library lacks std::from_chars for double, or the compiler lacks C++20: "
        "libstdc++ has it since 11, libc++ since 20")
endif()
